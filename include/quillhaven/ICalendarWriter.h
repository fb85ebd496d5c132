#pragma once
// iCalendar (RFC 5545) text of an appointment item: one VCALENDAR holding one
// VEVENT, times in UTC, built from the appointment keys of quillhaven/ItemKeys.h and
// "Subject", "Body", "TimeStamp". Lines end in CR LF, are folded at 75 octets
// (never inside a UTF-8 sequence) and text values escape backslash, comma,
// semicolon and line breaks.
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

class ICalendarWriter {
public:
    static std::string write(const Dict& item);

    // Content-line helpers shared with the vCard writer (RFC 5545 3.1, RFC 2425 5.8.1).
    // One line with its CR LF, folded so that no physical line exceeds 75
    // octets and no UTF-8 sequence is split.
    static std::string foldLine(std::string_view line);
    // A TEXT value: backslash, comma and semicolon escaped, line breaks as
    // "\n", other control characters dropped.
    static std::string escapeText(std::string_view text);
    // A URI or parameter value: control characters (and, for parameters,
    // double quotes) dropped.
    static std::string cleanValue(std::string_view text, bool forParameter = false);
    // "YYYYMMDDTHHMMSSZ" of a point in time.
    static std::string utcDateTime(Date date);
    // "YYYYMMDD" of the day a local midnight stored in UTC falls on.
    static std::string dayOf(Date date);
};

}  // namespace qh
