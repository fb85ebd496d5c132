// Display style in the user's locale and zone, fixed patterns, calendar fields.
#include "core/DateFormatting.h"

#include <array>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "support/EnvironmentGuard.h"

using namespace qh;

namespace {
constexpr Date kNewYearsEve{1609459199};  // 2020-12-31 23:59:59 UTC
}

TEST(DateFormatting, DisplayFollowsTheEnvironmentAtEveryCall) {
    struct Case {
        const char* lcAll;
        const char* lang;
        const char* tz;
        std::string expected;
    };
    const Case cases[] = {
        {nullptr, "en_US.UTF-8", "UTC", "Dec 31, 2020, 11:59\xE2\x80\xAFPM"},
        {nullptr, "de_DE.UTF-8", "Europe/Berlin", "01.01.2021, 00:59"},
        {nullptr, "en_US.UTF-8", ":America/Los_Angeles", "Dec 31, 2020, 3:59\xE2\x80\xAFPM"},
        {nullptr, "en_US.UTF-8", "/usr/share/zoneinfo/Asia/Tokyo", "Jan 1, 2021, 8:59\xE2\x80\xAF" "AM"},
        {"de_DE.UTF-8", "en_US.UTF-8", "UTC", "31.12.2020, 23:59"},  // LC_ALL wins over LANG
    };
    for (const auto& c : cases) {
        qhtest::EnvironmentGuard env;
        env.locale(c.lang, c.tz);
        if (c.lcAll) env.set("LC_ALL", std::string(c.lcAll));
        EXPECT_EQ(DateFormatting::displayString(kNewYearsEve), c.expected) << c.lang << " " << c.tz;
    }
    EXPECT_EQ(DateFormatting::displayString(kNewYearsEve, "de_DE", "UTC"), "31.12.2020, 23:59");
}

TEST(DateFormatting, EnvironmentChoices) {
    qhtest::EnvironmentGuard env;
    env.locale("C", "UTC");
    EXPECT_EQ(DateFormatting::userLocaleId(), "en_US_POSIX");
    env.set("LC_TIME", std::string("de_AT.UTF-8@euro"));
    EXPECT_EQ(DateFormatting::userLocaleId(), "de_AT");
    env.set("TZ", std::string(""));
    EXPECT_EQ(DateFormatting::userTimeZoneId(), "UTC");
    env.set("TZ", std::string("Europe/Paris"));
    EXPECT_EQ(DateFormatting::userTimeZoneId(), "Europe/Paris");
}

TEST(DateFormatting, PatternsInTheFixedLocale) {
    qhtest::EnvironmentGuard env;
    env.locale("de_DE.UTF-8", "Europe/Berlin");  // the fixed locale ignores the user's
    EXPECT_EQ(DateFormatting::format(kNewYearsEve, "E, d MMM yyyy HH:mm:ss Z", "UTC"), "Thu, 31 Dec 2020 23:59:59 +0000");
    EXPECT_EQ(DateFormatting::format(kNewYearsEve, "E, d MMM yyyy HH:mm:ss Z"), "Fri, 1 Jan 2021 00:59:59 +0100");
    EXPECT_EQ(DateFormatting::format(kNewYearsEve, "yyyy-MM-dd HH:mm:ss", "UTC"), "2020-12-31 23:59:59");

    struct Case {
        const char* text;
        const char* pattern;
        const char* zone;
        std::optional<double> seconds;
    };
    const Case cases[] = {
        {"2020-12-31 23:59:59", "yyyy-MM-dd HH:mm:ss", "UTC", 1609459199},
        {"2020-12-31 23:59:59 +0000", "yyyy-MM-dd HH:mm:ss", "UTC", 1609459199},
        {"2021-01-01 00:59:59", "yyyy-MM-dd HH:mm:ss", "Europe/Berlin", 1609459199},
        {"Thu, 31 Dec 2020 23:59:59 +0000", "E, d MMM yyyy HH:mm:ss Z", "Asia/Tokyo", 1609459199},
        {"Thu, 31 Dec 2020 18:59:59 -0500", "E, d MMM yyyy HH:mm:ss Z", "UTC", 1609459199},
        {"2020-13-01 00:00:00", "yyyy-MM-dd HH:mm:ss", "UTC", std::nullopt},  // not lenient
        {"2021-02-29 00:00:00", "yyyy-MM-dd HH:mm:ss", "UTC", std::nullopt},
        {"", "HH:mm", "UTC", std::nullopt},
    };
    for (const auto& c : cases) {
        auto date = DateFormatting::parse(c.text, c.pattern, c.zone);
        ASSERT_EQ(date.has_value(), c.seconds.has_value()) << c.text;
        if (date) EXPECT_EQ(date->unixSeconds, *c.seconds) << c.text;
    }
}

TEST(DateFormatting, CalendarFields) {
    DateComponents fields = DateFormatting::components(kNewYearsEve, "Europe/Berlin");
    EXPECT_EQ(fields.year, 2021);
    EXPECT_EQ(fields.month, 1);
    EXPECT_EQ(fields.day, 1);
    EXPECT_EQ(fields.hour, 0);
    EXPECT_EQ(fields.weekday, 6);  // Friday
    EXPECT_EQ(fields.utcOffsetSeconds, 3600);
    auto back = DateFormatting::dateFromComponents(fields, "Europe/Berlin");
    ASSERT_TRUE(back);
    EXPECT_EQ(back->unixSeconds, kNewYearsEve.unixSeconds);
    DateComponents invalid = fields;
    invalid.month = 2;
    invalid.day = 30;
    EXPECT_FALSE(DateFormatting::dateFromComponents(invalid, "UTC"));
}

// In UTC the fixed locale is formatted without ICU; the text must be ICU's, so
// ICU formats the same instants in a UTC zone the plain path does not know.
TEST(DateFormatting, PlainUtcTextIsIcusText) {
    std::mt19937_64 random(20261124);
    std::uniform_real_distribution<double> instant(-11676096000.0, 253402300799.0);  // 1600 to 9999
    const char* patterns[] = {"E, d MMM yyyy HH:mm:ss Z", "EEE MMM", "yyyy-MM-dd HH:mm:ss", "h:mm a, d.M.y"};
    for (int i = 0; i < 2000; ++i) {
        const Date date{i < 3 ? std::array{0.0, -0.5, 951782400.0}[i] : std::floor(instant(random))};
        EXPECT_EQ(DateFormatting::displayString(date, "en_US_POSIX", "UTC"),
                  DateFormatting::displayString(date, "en_US", "GMT+00:00"))
            << date.unixSeconds;
        for (const char* pattern : patterns)
            EXPECT_EQ(DateFormatting::format(date, pattern, "Etc/UTC"), DateFormatting::format(date, pattern, "GMT+00:00"))
                << pattern << " " << date.unixSeconds;
    }
}
