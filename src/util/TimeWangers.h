#pragma once
// Time conversions, calendar checks, clock strings and the display date.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

class TimeWangers {
public:
    // FILETIME ticks -> whole Unix seconds (t / 10^7 - 11644473600).
    static std::int64_t unixTimeFromWindows(std::int64_t fileTime);
    // classic: (u - 11644473600) / 10^7, not the inverse of the above; no
    // caller in this tree, kept for outside users of the helper.
    static std::int64_t windowsTimeFromUnix(std::int64_t unixTime);
    // Unix seconds -> VMS ticks (s * 10^7 + 35067168000000000, wrapping), despite the name.
    static std::int64_t unixTimeFromVMS(std::int64_t seconds);

    static bool isLeapYear(std::int32_t year);
    static bool dateIsValidWithDay(std::int32_t day, std::int32_t month, std::int32_t year);
    // Each range applies when the kind does NOT match its word ("time" 0..23,
    // "long" 0..360, "lat" -90..90), then the fraction must be at most 0.59.
    static bool timeIsValid(std::string_view kind, double value);

    // The date inside an MSG submission identifier in the display style; decodes
    // the bytes as ASCII without fallback.
    static std::optional<std::string> formatDateData(ByteView data);
    // The display style (medium date, short time, user's locale and zone).
    static std::string displayString(Date date);

    // "12:30 AM" -> "00:30"; none when there is no ":" or the result is out of range.
    static std::optional<std::string> create24HourStringFrom12Hour(std::string_view text);
    // "00:15" -> "12:15AM"; none when out of range.
    static std::optional<std::string> create12HourStringFrom24Hour(std::string_view text);
    // -1, 0 or 1 by the two "HH:mm" times; 0 when either does not parse.
    static int compare24HourTime(std::string_view first, std::string_view second);
    // Today at hours:minutes in the user's zone, or 86400 s later when that is not after now.
    static Date nextOccurrenceOfTimeHours(std::int32_t hours, std::int32_t minutes);
    // "%02d:%02d:%02d" hours (unbounded), minutes, seconds of the interval.
    static std::string formattedStringFromTimeInterval(double seconds);
    // Whole calendar days from the first to the second date in the user's zone.
    static std::int64_t daysBetweenDate(Date first, Date second);
    // Clock-hand angles in radians in the user's zone (hour hand without the minutes' share).
    static void forTime(Date date, float* hourHand, float* minuteHand, float* secondHand);
};

}  // namespace qh
