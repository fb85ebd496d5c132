#include "readers/msg/Recurrence.h"

#include <cstdio>
#include <ctime>

#include "core/ByteCursor.h"
#include "readers/msg/Format.h"

namespace qh {

using namespace msgformat;

namespace {
constexpr const char* kDayNames[7] = {"SU", "MO", "TU", "WE", "TH", "FR", "SA"};
// Minutes from 1601-01-01 to 1970-01-01.
constexpr std::int64_t kMinutes1601To1970 = 11644473600LL / 60;
constexpr std::uint32_t kMinutesPerDay = 1440;
// Counts past this are not believed (a hostile blob would make the reader
// walk them).
constexpr std::uint32_t kMaxInstanceDates = 1u << 16;

std::string byDay(std::uint32_t mask) {
    std::string out;
    for (int day = 0; day < 7; ++day) {
        if (mask & (1u << day)) {
            if (!out.empty()) out += ',';
            out += kDayNames[day];
        }
    }
    return out;
}

std::string untilFromMinutes(std::uint32_t minutes) {
    std::time_t seconds = static_cast<std::time_t>((static_cast<std::int64_t>(minutes) - kMinutes1601To1970) * 60);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    char text[32];
    // The end date is a day: its last second in UTC.
    std::snprintf(text, sizeof text, "%04d%02d%02dT235959Z", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return text;
}

int monthOfMinutes(std::uint32_t minutes) {
    std::time_t seconds = static_cast<std::time_t>((static_cast<std::int64_t>(minutes) - kMinutes1601To1970) * 60);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    return tm.tm_mon + 1;
}
}  // namespace

std::optional<std::string> MsgRecurrence::ruleFromPattern(ByteView blob) {
    ByteCursor cursor(blob);
    cursor.skip(4);  // reader and writer versions
    std::uint16_t frequency = cursor.u16le();
    std::uint16_t patternType = cursor.u16le();
    cursor.skip(2);  // calendar type
    cursor.skip(4);  // first date-time
    std::uint32_t period = cursor.u32le();
    cursor.skip(4);  // sliding flag
    std::uint32_t dayMask = 0;
    std::uint32_t dayOfMonth = 0;
    std::uint32_t nth = 0;
    switch (patternType) {
        case kPatternDay:
            break;
        case kPatternWeek:
            dayMask = cursor.u32le();
            break;
        case kPatternMonth:
        case kPatternMonthEnd:
        case kPatternHjMonth:
        case kPatternHjMonthEnd:
            dayOfMonth = cursor.u32le();
            break;
        case kPatternMonthNth:
        case kPatternHjMonthNth:
            dayMask = cursor.u32le();
            nth = cursor.u32le();
            break;
        default:
            return std::nullopt;
    }
    std::uint32_t endType = cursor.u32le();
    std::uint32_t occurrences = cursor.u32le();
    std::uint32_t firstDayOfWeek = cursor.u32le();
    std::uint32_t deleted = cursor.u32le();
    if (deleted > kMaxInstanceDates) return std::nullopt;
    cursor.skip(std::size_t(deleted) * 4);
    std::uint32_t modified = cursor.u32le();
    if (modified > kMaxInstanceDates) return std::nullopt;
    cursor.skip(std::size_t(modified) * 4);
    std::uint32_t startDate = cursor.u32le();
    std::uint32_t endDate = cursor.u32le();
    if (cursor.isShort()) return std::nullopt;

    std::string rule;
    char number[32];
    auto interval = [&](std::uint32_t value) {
        std::snprintf(number, sizeof number, ";INTERVAL=%u", value == 0 ? 1u : value);
        rule += number;
    };
    auto nthDay = [&]() {
        std::string days = byDay(dayMask);
        if (days.empty()) return false;
        // 5 stands for the last such day of the month.
        std::snprintf(number, sizeof number, ";BYSETPOS=%d", nth >= 5 ? -1 : static_cast<int>(nth));
        rule += ";BYDAY=" + days + number;
        return true;
    };
    // Which day of the month a monthly or yearly item falls on: the nth
    // weekday, the month's last day, or a fixed day number.
    auto dayInMonth = [&]() {
        if (patternType == kPatternMonthNth || patternType == kPatternHjMonthNth) return nthDay();
        if (patternType == kPatternMonthEnd || patternType == kPatternHjMonthEnd || dayOfMonth >= 31) {
            rule += ";BYMONTHDAY=-1";
        } else if (dayOfMonth >= 1) {
            std::snprintf(number, sizeof number, ";BYMONTHDAY=%u", dayOfMonth);
            rule += number;
        }
        return true;
    };
    switch (frequency) {
        case kRecurFrequencyDaily:
            if (patternType == kPatternWeek) {
                // "Every weekday" is stored as a daily item with a week pattern.
                rule = "FREQ=WEEKLY";
                if (dayMask == 0) return std::nullopt;
                rule += ";BYDAY=" + byDay(dayMask);
            } else {
                rule = "FREQ=DAILY";
                interval(period / kMinutesPerDay);
            }
            break;
        case kRecurFrequencyWeekly:
            rule = "FREQ=WEEKLY";
            interval(period);
            if (dayMask == 0) return std::nullopt;
            rule += ";BYDAY=" + byDay(dayMask);
            break;
        case kRecurFrequencyMonthly:
            rule = "FREQ=MONTHLY";
            interval(period);
            if (!dayInMonth()) return std::nullopt;
            break;
        case kRecurFrequencyYearly:
            rule = "FREQ=YEARLY";
            interval(period / 12);
            std::snprintf(number, sizeof number, ";BYMONTH=%d", monthOfMinutes(startDate));
            rule += number;
            if (!dayInMonth()) return std::nullopt;
            break;
        default:
            return std::nullopt;
    }
    if (endType == kEndAfterOccurrences) {
        std::snprintf(number, sizeof number, ";COUNT=%u", occurrences);
        rule += number;
    } else if (endType == kEndAfterDate) {
        rule += ";UNTIL=" + untilFromMinutes(endDate);
    }
    if (firstDayOfWeek < 7) rule += std::string(";WKST=") + kDayNames[firstDayOfWeek];
    return rule;
}

}  // namespace qh
