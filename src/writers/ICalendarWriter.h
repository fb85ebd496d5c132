#pragma once
// iCalendar (RFC 5545) text of an appointment item: one VCALENDAR holding one
// VEVENT, times in UTC, built from the appointment keys of core/ItemKeys.h and
// "Subject", "Body", "TimeStamp". Lines end in CR LF, are folded at 75 octets
// (never inside a UTF-8 sequence) and text values escape backslash, comma,
// semicolon and line breaks.
#include <string>

#include "core/Value.h"

namespace qh {

class ICalendarWriter {
public:
    static std::string write(const Dict& item);
};

}  // namespace qh
