// vCard and iCalendar text: content-line folding and escaping, the
// properties written from the item keys, and recurrence rules from the
// appointment's recurrence blob.
#include <gtest/gtest.h>


#include <quillhaven/ItemKeys.h>
#include "core/TextEncoding.h"
#include "readers/msg/Recurrence.h"
#include <quillhaven/ICalendarWriter.h>
#include <quillhaven/VCardWriter.h>
#include "support/TnefWriter.h"

namespace {

using qh::Dict;
using qh::ICalendarWriter;
using qh::Value;
namespace keys = qh::ItemKeys;

std::vector<std::string> physicalLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find("\r\n", start);
        EXPECT_NE(end, std::string::npos) << "every line ends in CR LF";
        if (end == std::string::npos) break;
        lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

std::string unfold(const std::string& text) {
    std::string out;
    for (const std::string& line : physicalLines(text)) {
        if (!line.empty() && line[0] == ' ') {
            out += line.substr(1);
        } else {
            if (!out.empty()) out += '\n';
            out += line;
        }
    }
    return out;
}

TEST(ContentLines, FoldAt75OctetsWithoutSplittingCharacters) {
    struct Case {
        const char* what;
        std::string line;
    } cases[] = {
        {"short", "SUMMARY:short"},
        {"exactly 75", "X:" + std::string(73, 'a')},
        {"ASCII", "DESCRIPTION:" + std::string(300, 'x')},
        {"two-byte", "DESCRIPTION:" + [] { std::string s; for (int i = 0; i < 100; ++i) s += "é"; return s; }()},
        {"three-byte, odd start", "N:a" + [] { std::string s; for (int i = 0; i < 90; ++i) s += "日"; return s; }()},
        {"four-byte", "NOTE:" + [] { std::string s; for (int i = 0; i < 60; ++i) s += "😀"; return s; }()},
    };
    for (const Case& c : cases) {
        std::string folded = ICalendarWriter::foldLine(c.line);
        std::vector<std::string> lines = physicalLines(folded);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_LE(lines[i].size(), 75u) << c.what;
            EXPECT_EQ(qh::TextEncoding::sanitizeUTF8(lines[i]), lines[i]) << c.what << " line " << i;
            if (i > 0) EXPECT_EQ(lines[i][0], ' ') << c.what;
        }
        EXPECT_EQ(unfold(folded), c.line) << c.what;
    }
}

TEST(ContentLines, TextEscaping) {
    struct Case {
        std::string in, out;
    } cases[] = {
        {"a,b;c\\d", "a\\,b\\;c\\\\d"},
        {"one\r\ntwo\nthree\rfour", "one\\ntwo\\nthree\\nfour"},
        {std::string("nul\0bell\a", 9), "nulbell"},
        {"tab\tkept", "tab\tkept"},
    };
    for (const Case& c : cases) EXPECT_EQ(ICalendarWriter::escapeText(c.in), c.out);
}

TEST(VCardWriter, WritesStructuredNameAddressesAndPhones) {
    Dict contact{{std::string(keys::kGivenName), Value("Ann")},
                 {std::string(keys::kSurname), Value("Example")},
                 {std::string(keys::kNamePrefix), Value("Dr.")},
                 {std::string(keys::kCompanyName), Value("Firm; Sons")},
                 {std::string(keys::kEmail1), Value("ann@example.com")},
                 {std::string(keys::kEmail2), Value("ann@home.example")},
                 {std::string(keys::kMobilePhone), Value("+1 555 0100")},
                 {std::string(keys::kWorkStreet), Value("1 Main St\r\nSuite 2")},
                 {std::string(keys::kWorkCity), Value("Town")},
                 {std::string(keys::kBirthday), Value(qh::Date{946652400})},  // local midnight, UTC+9
                 {std::string(keys::kNotes), Value("Likes tea, not coffee.")}};
    std::string card = qh::VCardWriter::write(contact);
    std::vector<std::string> lines = physicalLines(card);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines.front(), "BEGIN:VCARD");
    EXPECT_EQ(lines[1], "VERSION:3.0");
    EXPECT_EQ(lines.back(), "END:VCARD");
    for (const char* expected : {"N:Example;Ann;;Dr.;", "FN:Dr. Ann Example", "ORG:Firm\\; Sons;",
                                 "EMAIL;TYPE=INTERNET,PREF:ann@example.com", "EMAIL;TYPE=INTERNET:ann@home.example",
                                 "TEL;TYPE=CELL,VOICE:+1 555 0100", "ADR;TYPE=WORK:;;1 Main St\\nSuite 2;Town;;;",
                                 "BDAY:2000-01-01", "NOTE:Likes tea\\, not coffee."}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end()) << expected << "\n" << card;
    }
    // FN is required even when nothing names the card.
    EXPECT_NE(qh::VCardWriter::write(Dict{}).find("\r\nFN:\r\n"), std::string::npos);
}

TEST(ICalendarWriter, OneEventInUtc) {
    Dict appointment{{"Subject", Value("Lunch, then walk")},
                     {"TimeStamp", Value(qh::Date{1700000000})},
                     {std::string(keys::kStartTime), Value(qh::Date{1704164400})},
                     {std::string(keys::kEndTime), Value(qh::Date{1704168000})},
                     {std::string(keys::kLocation), Value("Café; upstairs")},
                     {std::string(keys::kRecurrenceRule), Value("FREQ=WEEKLY;INTERVAL=1;BYDAY=TU;COUNT=3")},
                     {std::string(keys::kBusyStatus), Value("FREE")},
                     {std::string(keys::kReminderMinutes), Value(15)},
                     {std::string(keys::kOrganizer), Value(Dict{{"Name", Value("Ann")}, {"Address", Value("ann@example.com")}})},
                     {std::string(keys::kAttendees),
                      Value(qh::Array{Value(Dict{{"Name", Value("Bob")}, {"Address", Value("bob@example.com")}}),
                                      Value(Dict{{"Name", Value("No Address")}, {"Address", Value("")}})})}};
    std::string calendar = ICalendarWriter::write(appointment);
    std::vector<std::string> lines = physicalLines(calendar);
    for (const char* expected :
         {"BEGIN:VCALENDAR", "VERSION:2.0", "BEGIN:VEVENT", "DTSTAMP:20231114T221320Z", "DTSTART:20240102T030000Z",
          "DTEND:20240102T040000Z", "SUMMARY:Lunch\\, then walk", "LOCATION:Café\\; upstairs",
          "RRULE:FREQ=WEEKLY;INTERVAL=1;BYDAY=TU;COUNT=3", "ORGANIZER;CN=\"Ann\":mailto:ann@example.com",
          "ATTENDEE;CN=\"Bob\";ROLE=REQ-PARTICIPANT:mailto:bob@example.com", "TRANSP:TRANSPARENT", "BEGIN:VALARM",
          "TRIGGER:-PT15M", "END:VEVENT", "END:VCALENDAR"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), expected), lines.end()) << expected << "\n" << calendar;
    }
    EXPECT_EQ(calendar.find("No Address"), std::string::npos);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "BEGIN:VEVENT"), 1);

    // All-day items are written as days.
    Dict allDay{{std::string(keys::kStartTime), Value(qh::Date{1669820400})},  // 2022-11-30T15:00Z
                {std::string(keys::kEndTime), Value(qh::Date{1669906800})},
                {std::string(keys::kAllDay), Value(true)}};
    std::string days = ICalendarWriter::write(allDay);
    EXPECT_NE(days.find("DTSTART;VALUE=DATE:20221201\r\n"), std::string::npos) << days;
    EXPECT_NE(days.find("DTEND;VALUE=DATE:20221202\r\n"), std::string::npos) << days;
}

// A recurrence blob: versions, frequency, pattern, calendar, first time,
// period, sliding flag, pattern-specific words, end type, count, first day
// of week, no deleted or modified instances, start and end dates.
qh::Bytes recurrence(std::uint16_t frequency, std::uint16_t pattern, std::uint32_t period,
                     std::vector<std::uint32_t> specific, std::uint32_t endType, std::uint32_t count,
                     std::uint32_t startDate = 221921280, std::uint32_t endDate = 221921280) {
    qh::Bytes out;
    for (std::uint16_t word : {0x3004, 0x3004, int(frequency), int(pattern), 0}) qhtest::appendU16(out, word);
    for (std::uint32_t word : {0u, period, 0u}) qhtest::appendU32(out, word);
    specific.insert(specific.end(), {endType, count, 0, 0, 0, startDate, endDate});
    for (std::uint32_t word : specific) qhtest::appendU32(out, word);
    return out;
}

TEST(MsgRecurrence, RulesFromPatterns) {
    struct Case {
        const char* what;
        qh::Bytes blob;
        std::optional<std::string> rule;
    } cases[] = {
        {"daily every day until a date", recurrence(0x200A, 0, 1440, {}, 0x2021, 7, 221905440, 221914080),
         "FREQ=DAILY;INTERVAL=1;UNTIL=20221207T235959Z;WKST=SU"},
        {"every weekday", recurrence(0x200A, 1, 1, {62}, 0x2022, 10), "FREQ=WEEKLY;BYDAY=MO,TU,WE,TH,FR;COUNT=10;WKST=SU"},
        {"weekly on Monday, once", recurrence(0x200B, 1, 1, {2}, 0x2022, 1), "FREQ=WEEKLY;INTERVAL=1;BYDAY=MO;COUNT=1;WKST=SU"},
        {"every second month on the 15th, no end", recurrence(0x200C, 2, 2, {15}, 0x2023, 0),
         "FREQ=MONTHLY;INTERVAL=2;BYMONTHDAY=15;WKST=SU"},
        {"last Friday monthly", recurrence(0x200C, 3, 1, {32, 5}, 0x2023, 0),
         "FREQ=MONTHLY;INTERVAL=1;BYDAY=FR;BYSETPOS=-1;WKST=SU"},
        {"yearly", recurrence(0x200D, 2, 12, {12}, 0x2022, 3), "FREQ=YEARLY;INTERVAL=1;BYMONTH=12;BYMONTHDAY=12;COUNT=3;WKST=SU"},
        {"weekly without days", recurrence(0x200B, 1, 1, {0}, 0x2022, 1), std::nullopt},
        {"unknown frequency", recurrence(0x1234, 0, 1, {}, 0x2022, 1), std::nullopt},
        {"truncated", qh::Bytes(20, 0), std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(qh::MsgRecurrence::ruleFromPattern(c.blob), c.rule) << c.what;
    // Hostile instance counts are not walked.
    qh::Bytes hostile = recurrence(0x200A, 0, 1440, {}, 0x2022, 1);
    hostile[34] = 0xFF;
    hostile[36] = 0xFF;
    EXPECT_EQ(qh::MsgRecurrence::ruleFromPattern(hostile), std::nullopt);
}

}  // namespace
