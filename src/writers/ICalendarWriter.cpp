#include <quillhaven/ICalendarWriter.h>

#include <cmath>
#include <cstdio>
#include <ctime>

#include <quillhaven/ItemKeys.h>
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"

namespace qh {

namespace {
constexpr std::size_t kMaxLineOctets = 75;

std::tm utcParts(double unixSeconds) {
    if (!std::isfinite(unixSeconds)) unixSeconds = 0;
    // Keep to four-digit years.
    if (unixSeconds < -62135596800.0) unixSeconds = -62135596800.0;
    if (unixSeconds > 253402300799.0) unixSeconds = 253402300799.0;
    std::time_t seconds = static_cast<std::time_t>(std::floor(unixSeconds));
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    return tm;
}

void addLine(std::string& out, std::string_view name, std::string_view value) {
    std::string line(name);
    line += ':';
    line += value;
    out += ICalendarWriter::foldLine(line);
}

std::string calAddress(const Dict& record, std::string_view property, std::string_view extraParameters) {
    const std::string* address = record.findString(keys::kAddress);
    if (!address || address->empty()) return "";
    std::string line(property);
    const std::string* name = record.findString(keys::kName);
    if (name && !name->empty()) line += ";CN=\"" + ICalendarWriter::cleanValue(*name, true) + "\"";
    line += extraParameters;
    line += ":mailto:" + ICalendarWriter::cleanValue(*address);
    return ICalendarWriter::foldLine(line);
}

std::string fallbackUid(const Dict& item) {
    // Stable for the same item: FNV-1a over the subject and the start.
    std::uint64_t hash = 1469598103934665603ull;
    auto mix = [&](std::string_view text) {
        for (unsigned char c : text) {
            hash ^= c;
            hash *= 1099511628211ull;
        }
    };
    if (const std::string* subject = item.findString(keys::kSubject)) mix(*subject);
    if (const Value* start = item.find(ItemKeys::kStartTime); start && start->date()) {
        mix(ICalendarWriter::utcDateTime(*start->date()));
    }
    char text[64];
    std::snprintf(text, sizeof text, "%016llx@quillhaven", static_cast<unsigned long long>(hash));
    return text;
}
}  // namespace

std::string ICalendarWriter::foldLine(std::string_view line) {
    std::string out;
    out.reserve(line.size() + line.size() / 64 * 3 + 2);
    std::size_t limit = kMaxLineOctets;  // the first line; continuations lose one octet to their blank
    while (line.size() > limit) {
        std::size_t cut = limit;
        // Never inside a UTF-8 sequence: back up to the start of the character.
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) --cut;
        if (cut == 0) cut = limit;
        out.append(line.substr(0, cut));
        out += "\r\n ";
        line.remove_prefix(cut);
        limit = kMaxLineOctets - 1;
    }
    out.append(line);
    out += "\r\n";
    return out;
}

std::string ICalendarWriter::escapeText(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        switch (c) {
            case '\\': out += "\\\\"; break;
            case ',': out += "\\,"; break;
            case ';': out += "\\;"; break;
            case '\r':
                if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
                out += "\\n";
                break;
            case '\n': out += "\\n"; break;
            case '\t': out += c; break;
            default:
                if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) out += c;
        }
    }
    return out;
}

std::string ICalendarWriter::cleanValue(std::string_view text, bool forParameter) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) continue;
        if (forParameter && c == '"') continue;
        out += c;
    }
    return out;
}

std::string ICalendarWriter::utcDateTime(Date date) {
    std::tm tm = utcParts(date.unixSeconds);
    char text[80];  // room for any int the fields could hold, so nothing is ever cut
    std::snprintf(text, sizeof text, "%04d%02d%02dT%02d%02d%02dZ", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                  tm.tm_hour, tm.tm_min, tm.tm_sec);
    return text;
}

std::string ICalendarWriter::dayOf(Date date) {
    // Local midnight lies within twelve hours of UTC midnight on either side.
    std::tm tm = utcParts(date.unixSeconds + 12 * 3600);
    char text[48];
    std::snprintf(text, sizeof text, "%04d%02d%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return text;
}

std::string ICalendarWriter::write(const Dict& item) {
    std::string out;
    out += "BEGIN:VCALENDAR\r\n";
    out += "VERSION:2.0\r\n";
    out += "PRODID:-//Quillhaven//Quillhaven 3//EN\r\n";
    out += "CALSCALE:GREGORIAN\r\n";
    out += "METHOD:PUBLISH\r\n";
    out += "BEGIN:VEVENT\r\n";

    const std::string* globalId = item.findString(ItemKeys::kGlobalObjectId);
    addLine(out, "UID", escapeText(globalId && !globalId->empty() ? *globalId : fallbackUid(item)));

    const Value* start = item.find(ItemKeys::kStartTime);
    const Value* end = item.find(ItemKeys::kEndTime);
    const Value* stamp = item.find(keys::kTimeStamp);
    Date stampDate{static_cast<double>(std::time(nullptr))};
    if (stamp && stamp->date()) {
        stampDate = *stamp->date();
    } else if (start && start->date()) {
        stampDate = *start->date();
    }
    addLine(out, "DTSTAMP", utcDateTime(stampDate));

    const Value* allDayValue = item.find(ItemKeys::kAllDay);
    const bool allDay = allDayValue && allDayValue->boolean() && *allDayValue->boolean();
    if (start && start->date()) {
        if (allDay) {
            addLine(out, "DTSTART;VALUE=DATE", dayOf(*start->date()));
        } else {
            addLine(out, "DTSTART", utcDateTime(*start->date()));
        }
        if (end && end->date() && end->date()->unixSeconds >= start->date()->unixSeconds) {
            if (allDay) {
                std::string endDay = dayOf(*end->date());
                if (endDay > dayOf(*start->date())) addLine(out, "DTEND;VALUE=DATE", endDay);
            } else {
                addLine(out, "DTEND", utcDateTime(*end->date()));
            }
        }
    }

    if (const std::string* subject = item.findString(keys::kSubject); subject && !subject->empty()) {
        addLine(out, "SUMMARY", escapeText(*subject));
    }
    if (const std::string* location = item.findString(ItemKeys::kLocation); location && !location->empty()) {
        addLine(out, "LOCATION", escapeText(*location));
    }
    if (const std::string* body = item.findString(keys::kBody)) {
        if (std::string trimmed = TextEncoding::trimWhitespaceAndNewlines(*body); !trimmed.empty()) {
            addLine(out, "DESCRIPTION", escapeText(trimmed));
        }
    }
    if (const std::string* rule = item.findString(ItemKeys::kRecurrenceRule); rule && !rule->empty() && start) {
        addLine(out, "RRULE", cleanValue(*rule));
    }
    if (const Dict* organizer = item.findDict(ItemKeys::kOrganizer)) out += calAddress(*organizer, "ORGANIZER", "");
    if (const Array* attendees = item.findArray(ItemKeys::kAttendees)) {
        for (const Value& attendee : *attendees) {
            if (const Dict* record = attendee.dict()) {
                out += calAddress(*record, "ATTENDEE", ";ROLE=REQ-PARTICIPANT");
            }
        }
    }
    if (const std::string* busy = item.findString(ItemKeys::kBusyStatus)) {
        addLine(out, "TRANSP", *busy == "FREE" ? "TRANSPARENT" : "OPAQUE");
        if (*busy == "TENTATIVE") addLine(out, "STATUS", "TENTATIVE");
    }
    if (const Value* reminder = item.find(ItemKeys::kReminderMinutes); reminder && reminder->isNumber()) {
        std::int64_t minutes = reminder->integer();
        if (minutes >= 0 && minutes < 1000000000) {
            out += "BEGIN:VALARM\r\n";
            out += "ACTION:DISPLAY\r\n";
            out += "DESCRIPTION:Reminder\r\n";
            addLine(out, "TRIGGER", "-PT" + std::to_string(minutes) + "M");
            out += "END:VALARM\r\n";
        }
    }
    out += "END:VEVENT\r\n";
    out += "END:VCALENDAR\r\n";
    return out;
}

}  // namespace qh
