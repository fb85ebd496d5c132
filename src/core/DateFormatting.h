#pragma once
// Date formatting and parsing through ICU.
//  - The display style (medium date, short time) in the user's locale and time
//    zone: the locale from LC_ALL, else LC_TIME, else LANG ("de_DE.UTF-8" ->
//    de_DE; unset, "C" or "POSIX" -> en_US_POSIX), the zone from TZ (an Olson
//    name, optionally with a leading ":" or as a zoneinfo path), else the host's.
//    Both are read at every call, so a test may change them between calls.
//  - Fixed patterns ("yyyy-MM-dd HH:mm:ss", "E, d MMM yyyy HH:mm:ss Z") in the
//    en_US_POSIX locale, in a given time zone or the user's.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

// Calendar fields of a date in some time zone.
struct DateComponents {
    std::int32_t year = 0, month = 0, day = 0;  // month 1..12
    std::int32_t hour = 0, minute = 0, second = 0;
    std::int32_t weekday = 0;        // 1 = Sunday .. 7 = Saturday
    std::int32_t utcOffsetSeconds = 0;  // the zone's offset at that instant
};

class DateFormatting {
public:
    // Medium date style, short time style, user's locale and zone
    // (en_US: "Dec 31, 2020, 11:59 PM"; de_DE: "31.12.2020, 23:59").
    static std::string displayString(Date date);
    // The same with an explicit locale ("de_DE") and zone ("Europe/Berlin").
    static std::string displayString(Date date, std::string_view localeId, std::string_view timeZoneId);

    // Pattern formatting in en_US_POSIX. An empty `timeZoneId` means the user's zone.
    static std::string format(Date date, std::string_view pattern, std::string_view timeZoneId = {});
    // Strict (non-lenient) pattern parsing in en_US_POSIX: none unless the text
    // begins with a date of the pattern (trailing text is ignored). An empty
    // `timeZoneId` means the user's zone; a zone field in the text wins.
    static std::optional<Date> parse(std::string_view text, std::string_view pattern, std::string_view timeZoneId = {});

    // Calendar fields in the Gregorian calendar (empty `timeZoneId` = the user's zone).
    static DateComponents components(Date date, std::string_view timeZoneId = {});
    // The date of the given fields in a zone; none for fields out of range.
    static std::optional<Date> dateFromComponents(const DateComponents& fields, std::string_view timeZoneId = {});

    // The environment's choices as read now.
    static std::string userLocaleId();
    static std::string userTimeZoneId();

    // The current time.
    static Date now();
};

}  // namespace qh
