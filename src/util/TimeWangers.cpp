#include "util/TimeWangers.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

#include "core/DateFormatting.h"
#include "core/TextEncoding.h"
#include "util/DateData.h"
#include "util/StringWangers.h"

namespace qh {

namespace {

constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kEpochDifference = 11644473600;  // 1601-01-01 to 1970-01-01, seconds
constexpr std::uint64_t kVMSEpochOffset = 35067168000000000ull;  // 1858-11-17 to 1970-01-01, ticks
constexpr std::int32_t kMonthLengths[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// The leading integer of a text as the number parsers of the platform read
// it: blanks skipped, an optional sign, digits; 0 when none; saturating.
std::int32_t leadingInt(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > std::int64_t(INT_MAX) + 1) break;
    }
    if (negative) value = -value;
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return std::int32_t(value);
}


std::string removeAll(std::string text, std::string_view what) {
    for (std::size_t found = text.find(what); found != std::string::npos; found = text.find(what, found))
        text.erase(found, what.size());
    return text;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
std::int64_t daysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yearOfEra = year - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool kindMatches(std::string_view kind, std::string_view word) {
    return word.substr(0, kind.size()) == kind && kind.size() <= word.size();
}

}  // namespace

std::int64_t TimeWangers::unixTimeFromWindows(std::int64_t fileTime) {
    return fileTime / kTicksPerSecond - kEpochDifference;
}

std::int64_t TimeWangers::windowsTimeFromUnix(std::int64_t unixTime) {
    const auto shifted = static_cast<std::int64_t>(static_cast<std::uint64_t>(unixTime) - kEpochDifference);
    return shifted / kTicksPerSecond;
}

std::int64_t TimeWangers::unixTimeFromVMS(std::int64_t seconds) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(seconds) * std::uint64_t(kTicksPerSecond) +
                                     kVMSEpochOffset);
}

bool TimeWangers::isLeapYear(std::int32_t year) {
    if (year % 4 != 0) return false;
    return year % 400 == 0 || year % 100 != 0;
}

bool TimeWangers::dateIsValidWithDay(std::int32_t day, std::int32_t month, std::int32_t year) {
    if (month < 1 || month > 12) return false;
    std::int32_t length = kMonthLengths[month];
    if (month == 2 && isLeapYear(year)) length = 29;
    return day >= 1 && day <= length;
}

bool TimeWangers::timeIsValid(std::string_view kind, double value) {
    double integral = 0;
    const double fraction = std::modf(value, &integral);
    // Each range applies when the kind does NOT name it: callers pass the kind
    // this way round and rely on what it accepts.
    if (!kindMatches(kind, "time") && !(integral >= 0 && integral <= 23)) return false;
    if (!kindMatches(kind, "long") && !(integral >= 0 && integral <= 360)) return false;
    if (!kindMatches(kind, "lat") && !(integral >= -90 && integral <= 90)) return false;
    return fraction <= 0.59;
}

std::optional<std::string> TimeWangers::formatDateData(ByteView data) {
    std::optional<std::string> identifier = TextEncoding::decode(data, StringEncoding::ASCII);
    if (!identifier) return std::nullopt;
    return formatSubmissionIdentifierDate(*identifier);
}

std::string TimeWangers::displayString(Date date) { return DateFormatting::displayString(date); }

std::optional<std::string> TimeWangers::create24HourStringFrom12Hour(std::string_view text) {
    std::string upper = TextEncoding::uppercase(text);
    const bool pm = upper.find("PM") != std::string::npos;
    upper = removeAll(removeAll(std::move(upper), "PM"), "AM");
    std::vector<std::string_view> pieces = splitAt<char>(upper, ':');
    if (pieces.size() < 2) return std::nullopt;
    const std::int64_t h = leadingInt(pieces[0]), m = leadingInt(pieces[1]);
    const std::int64_t base = h == 12 ? (pm ? 12 : 0) : h;
    const std::int64_t hour = (pm && base < 12) ? base + 12 : base;
    // classic: minute 60 passes; the clock strings of old files carry it and
    // the classic readings show them.
    if (m < 0 || m > 60 || hour < 0 || hour > 23) return std::nullopt;
    char out[16];
    std::snprintf(out, sizeof out, "%02d:%02d", int(hour), int(m));
    return out;
}

std::optional<std::string> TimeWangers::create12HourStringFrom24Hour(std::string_view text) {
    std::vector<std::string_view> pieces = splitAt<char>(text, ':');
    if (pieces.size() < 2) return std::nullopt;
    const std::int64_t h = leadingInt(pieces[0]), m = leadingInt(pieces[1]);
    const std::int64_t a = h == 0 ? 12 : h;
    const std::int64_t hour = (a > 12 && h > 11) ? a - 12 : a;
    if (m < 0 || m > 60 || hour < 1 || hour > 12) return std::nullopt;
    char out[24];
    std::snprintf(out, sizeof out, "%d:%02d%s", int(hour), int(m), h < 12 ? "AM" : "PM");
    return out;
}

int TimeWangers::compare24HourTime(std::string_view first, std::string_view second) {
    std::optional<Date> a = DateFormatting::parse(first, "HH:mm", "UTC");
    std::optional<Date> b = DateFormatting::parse(second, "HH:mm", "UTC");
    if (!a || !b) return 0;
    if (a->unixSeconds < b->unixSeconds) return -1;
    return a->unixSeconds > b->unixSeconds ? 1 : 0;
}

Date TimeWangers::nextOccurrenceOfTimeHours(std::int32_t hours, std::int32_t minutes) {
    const Date now = DateFormatting::now();
    const std::string zone = DateFormatting::userTimeZoneId();
    DateComponents today = DateFormatting::components(now, zone);
    today.hour = 0;
    today.minute = 0;
    today.second = 0;
    // Hours and minutes out of their ranges roll over, as calendar arithmetic does.
    Date midnight = DateFormatting::dateFromComponents(today, zone).value_or(Date{std::floor(now.unixSeconds / 86400) * 86400});
    Date candidate{midnight.unixSeconds + double(hours) * 3600 + double(minutes) * 60};
    if (hours >= 0 && hours < 24 && minutes >= 0 && minutes < 60) {
        today.hour = hours;
        today.minute = minutes;
        if (auto exact = DateFormatting::dateFromComponents(today, zone)) candidate = *exact;
    }
    if (candidate.unixSeconds <= now.unixSeconds) candidate.unixSeconds += 86400;  // a fixed day, not a calendar day
    return candidate;
}

std::string TimeWangers::formattedStringFromTimeInterval(double seconds) {
    // Only hours, minutes and seconds: hours go past 23 for long spans.
    double whole = std::trunc(seconds);
    if (!(whole == whole)) whole = 0;
    if (whole > 9.0e18) whole = 9.0e18;
    if (whole < -9.0e18) whole = -9.0e18;
    const auto total = static_cast<long long>(whole);
    char out[80];
    std::snprintf(out, sizeof out, "%02lld:%02lld:%02lld", total / 3600, total % 3600 / 60, total % 60);
    return out;
}

std::int64_t TimeWangers::daysBetweenDate(Date first, Date second) {
    const std::string zone = DateFormatting::userTimeZoneId();
    DateComponents a = DateFormatting::components(first, zone), b = DateFormatting::components(second, zone);
    return daysFromCivil(b.year, b.month, b.day) - daysFromCivil(a.year, a.month, a.day);
}

void TimeWangers::forTime(Date date, float* hourHand, float* minuteHand, float* secondHand) {
    DateComponents fields = DateFormatting::components(date);
    constexpr double kTurn = 2 * std::numbers::pi;
    if (hourHand) *hourHand = float(fields.hour / 12.0 * kTurn);
    if (minuteHand) *minuteHand = float(fields.minute / 60.0 * kTurn);
    if (secondHand) *secondHand = float(fields.second / 60.0 * kTurn);
}

}  // namespace qh
