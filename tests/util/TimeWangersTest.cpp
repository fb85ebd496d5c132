// Time conversions, calendar checks, clock strings and the submission date.
#include <gtest/gtest.h>

#include <numbers>
#include <optional>
#include <tuple>

#include "support/EnvironmentGuard.h"
#include "core/DateFormatting.h"
#include "util/DateData.h"
#include "util/TimeWangers.h"

using namespace qh;

TEST(TimeConversions, AgreeWithPythonsDatetime) {
    // Every expected value comes from Python's datetime (ticks since 1601-01-01
    // or 1858-11-17), not from the constants the conversions use.
    struct Case {
        const char* name;
        std::int64_t actual, expected;
    };
    const Case cases[] = {
        {"1970-01-01", TimeWangers::unixTimeFromWindows(116444736000000000LL), 0},
        {"sub-second dropped", TimeWangers::unixTimeFromWindows(116444736009999999LL), 0},
        {"1900-01-01", TimeWangers::unixTimeFromWindows(94354848000000000LL), -2208988800LL},
        {"2024-03-05 10:02:03", TimeWangers::unixTimeFromWindows(133541065230000000LL), 1709632923},
        {"2038-01-19 03:14:08, past 32 bits", TimeWangers::unixTimeFromWindows(137919572480000000LL), 2147483648LL},
        // Despite its name: Unix seconds to VMS ticks.
        {"vms of 1970-01-01", TimeWangers::unixTimeFromVMS(0), 35067168000000000LL},
        {"vms of 2024-03-05 10:02:03", TimeWangers::unixTimeFromVMS(1709632923), 52163497230000000LL},
        {"vms wraps without a signed overflow", TimeWangers::unixTimeFromVMS(INT64_MAX), 35067167990000000LL},
        // classic: not the inverse of unixTimeFromWindows, as its header says.
        {"windows from unix", TimeWangers::windowsTimeFromUnix(1709632923), -993},
    };
    for (const auto& c : cases) EXPECT_EQ(c.actual, c.expected) << c.name;
}

TEST(Calendar, LeapYearsAndValidDates) {
    EXPECT_FALSE(TimeWangers::isLeapYear(1900));
    EXPECT_TRUE(TimeWangers::isLeapYear(2000));
    EXPECT_TRUE(TimeWangers::isLeapYear(2024));
    EXPECT_FALSE(TimeWangers::isLeapYear(2023));
    struct Case {
        int day, month, year;
        bool valid;
    };
    const Case cases[] = {
        {29, 2, 1900, false}, {29, 2, 2000, true}, {31, 4, 2021, false}, {30, 4, 2021, true},
        {1, 13, 2021, false}, {1, 0, 2021, false}, {0, 1, 2021, false},  {31, 12, -5, true},
        {28, 2, 2023, true},  {29, 2, 2023, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TimeWangers::dateIsValidWithDay(c.day, c.month, c.year), c.valid)
            << c.day << "/" << c.month << "/" << c.year;
}

TEST(Calendar, TimeIsValidChecksTheRangesItDoesNotName) {
    struct Case {
        const char* kind;
        double value;
        bool valid;
    };
    const Case cases[] = {
        {"time", 90.30, true},   {"time", 91.0, false},  {"time", 12.60, false}, {"time", -1.0, false},
        {"long", 23.59, true},   {"long", 24.0, false},  {"lat", 23.0, true},    {"lat", 24.0, false},
        {"", 359.59, true},      {"", -500.0, true},     {"", 1.60, false},      {"l", 23.0, true},
        {"l", 24.0, false},      {"latitude", 24.0, false},  // a kind longer than the word matches nothing
        {"t", 45.0, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TimeWangers::timeIsValid(c.kind, c.value), c.valid) << '"' << c.kind << "\" " << c.value;
}

TEST(ClockStrings, BothWaysAndComparison) {
    struct Case {
        bool toTwentyFour;
        const char* input;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {true, "12:30 AM", "00:30"},      {true, "12:05 pm", "12:05"},     {true, "1:60 PM", "13:60"},
        {true, "13:00 PM", "13:00"},      {true, "1:61 PM", std::nullopt}, {true, "11:59 PM", "23:59"},
        {true, "9:7am", "09:07"},         {true, "1230 PM", std::nullopt}, {true, "12:00:00 AM", "00:00"},
        {true, "24:00", std::nullopt},    {false, "00:15", "12:15AM"},     {false, "12:00", "12:00PM"},
        {false, "23:59", "11:59PM"},      {false, "24:00", "12:00PM"},     {false, "25:00", std::nullopt},
        {false, "9:05", "9:05AM"},        {false, "13:61", std::nullopt},  {false, "nope", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.toTwentyFour ? TimeWangers::create24HourStringFrom12Hour(c.input)
                                 : TimeWangers::create12HourStringFrom24Hour(c.input),
                  c.expected)
            << c.input;
    const std::tuple<const char*, const char*, int> comparisons[] = {
        {"09:30", "10:00", -1}, {"10:00", "10:00", 0}, {"23:00", "00:59", 1},
        {"later", "10:00", 0},  {"25:00", "10:00", 0}};
    for (const auto& [first, second, order] : comparisons)
        EXPECT_EQ(TimeWangers::compare24HourTime(first, second), order) << first << " " << second;
}

TEST(Intervals, HoursMinutesSecondsAndDays) {
    EXPECT_EQ(TimeWangers::formattedStringFromTimeInterval(3661), "01:01:01");
    EXPECT_EQ(TimeWangers::formattedStringFromTimeInterval(100 * 3600 + 5.9), "100:00:05");
    EXPECT_EQ(TimeWangers::formattedStringFromTimeInterval(0), "00:00:00");

    qhtest::EnvironmentGuard env;
    env.locale("en_US.UTF-8", "America/New_York");
    // 2021-03-01 04:30 UTC is still 2021-02-28 in New York.
    const Date lateFebruary{1614573000};
    const Date nextEvening{1614573000 + 18 * 3600};
    EXPECT_EQ(TimeWangers::daysBetweenDate(lateFebruary, nextEvening), 1);
    EXPECT_EQ(TimeWangers::daysBetweenDate(nextEvening, lateFebruary), -1);
    env.set("TZ", "UTC");
    EXPECT_EQ(TimeWangers::daysBetweenDate(lateFebruary, nextEvening), 0);
}

TEST(Intervals, NextOccurrenceIsAfterNowAndOnTheClock) {
    qhtest::EnvironmentGuard env;
    env.locale("en_US.UTF-8", "Asia/Tokyo");
    const Date now = DateFormatting::now();
    const Date next = TimeWangers::nextOccurrenceOfTimeHours(7, 45);
    EXPECT_GT(next.unixSeconds, now.unixSeconds);
    EXPECT_LE(next.unixSeconds, now.unixSeconds + 86400 + 1);
    DateComponents fields = DateFormatting::components(next, "Asia/Tokyo");
    EXPECT_EQ(fields.hour, 7);
    EXPECT_EQ(fields.minute, 45);
    EXPECT_EQ(fields.second, 0);
}

TEST(Intervals, ClockHandsInTurnsOfTheDial) {
    qhtest::EnvironmentGuard env;
    env.locale("en_US.UTF-8", "UTC");
    // Half past six and a quarter minute: every hand points down or right. At
    // 15:45 the hour hand has gone round once and a quarter: neither the
    // afternoon nor the minutes move it.
    const std::tuple<double, float, float, float> cases[] = {{6 * 3600 + 30 * 60 + 15, 0.5f, 0.5f, 0.25f},
                                                             {15 * 3600 + 45 * 60, 1.25f, 0.75f, 0.0f}};
    for (const auto& [seconds, hourTurns, minuteTurns, secondTurns] : cases) {
        float hour = 0, minute = 0, second = 0;
        TimeWangers::forTime(Date{seconds}, &hour, &minute, &second);
        const float turn = float(2 * std::numbers::pi);
        EXPECT_FLOAT_EQ(hour / turn, hourTurns) << seconds;
        EXPECT_FLOAT_EQ(minute / turn, minuteTurns) << seconds;
        EXPECT_NEAR(second / turn, secondTurns, 1e-6) << seconds;
    }
}

// The stamp is UTC, shown in the user's zone and locale (the display style
// itself: DateFormatting.DisplayFollowsTheEnvironmentAtEveryCall).
TEST(SubmissionDate, DisplayedInTheUsersLocaleAndZone) {
    const std::string identifier = "c=US;a= ;p=Example Org;l=MAILHOST-201231235959Z-12345";
    qhtest::EnvironmentGuard env;
    env.locale("de_DE.UTF-8", "Europe/Berlin");
    EXPECT_EQ(formatDateData(asBytes(identifier)), "01.01.2021, 00:59");
    EXPECT_EQ(TimeWangers::formatDateData(asBytes(identifier)), "01.01.2021, 00:59");
}

TEST(SubmissionDate, MalformedIdentifiersGiveNone) {
    qhtest::EnvironmentGuard env;
    env.locale("en_US.UTF-8", "UTC");
    const char* cases[] = {
        "",
        "a;b;c",                        // fewer than four fields
        "a;b;c;HOST-201231235959Z",     // fewer than three pieces
        "a;b;c;HOST-2012312359-1",      // stamp shorter than twelve
        "a;b;c;HOST-201331235959Z-1",   // month 13
        "a;b;c;HOST-20123123595xZ-1",   // not a number
        "a;b;c;HOST-200230120000Z-1",   // 30 February
    };
    for (const char* identifier : cases) EXPECT_FALSE(formatDateData(asBytes(std::string_view(identifier)))) << identifier;
    Value null;
    EXPECT_FALSE(formatDateData(&null));
    // Non-ASCII bytes go through the Windows-1252 fallback and still parse.
    EXPECT_TRUE(formatDateData(asBytes(std::string_view("\xE9;b;c;H-201231235959Z-1"))));
    EXPECT_FALSE(TimeWangers::formatDateData(asBytes(std::string_view("\xE9;b;c;H-201231235959Z-1"))));
}
