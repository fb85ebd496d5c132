// The transport header parser: which fields are filed, continuation lines,
// the unfiled last field and the subject's encoded words.
#include <gtest/gtest.h>

#include "readers/msg/TransportHeader.h"

namespace {

using qh::Dict;
using qh::MsgTransportHeader;

std::string addressOf(const Dict& fields, const char* key, std::size_t index = 0) {
    const qh::Array* list = fields.findArray(key);
    if (!list || list->size() <= index) return "<none>";
    const std::string* address = (*list)[index].dict()->findString("Address");
    return address ? *address : "<no address>";
}

TEST(MsgTransportHeader, FilesAddressDateAndSubjectFieldsButNotTheLast) {
    Dict fields = MsgTransportHeader::parse(
        "Received: from somewhere\r\n"
        "From: Ann <ann@example.com>\r\n"
        "To: bob@example.com\r\n"
        "Cc: carl@example.com\r\n"
        "bcc: dora@example.com\r\n"
        "Date: Mon, 1 Jan 2024 10:00:00 +0000\r\n"
        "Subject: Hello\r\n"
        "X-Mailer: whatever\r\n"
        "Content-Type: text/plain\r\n");
    EXPECT_EQ(addressOf(fields, "FROM"), "ann@example.com");
    EXPECT_EQ(addressOf(fields, "TO"), "bob@example.com");
    EXPECT_EQ(addressOf(fields, "CC"), "carl@example.com");
    EXPECT_EQ(addressOf(fields, "BCC"), "dora@example.com");
    EXPECT_FALSE(fields.contains("Cc"));
    EXPECT_EQ(*fields.findString("Date"), "Mon, 1 Jan 2024 10:00:00 +0000");
    EXPECT_EQ(*fields.findString("Subject"), "Hello");
    EXPECT_FALSE(fields.contains("X-Mailer"));

    // The field pending after the last line is never filed.
    EXPECT_FALSE(MsgTransportHeader::parse("To: a@example.com\nSubject: last\n").contains("Subject"));
    EXPECT_FALSE(MsgTransportHeader::parse("Subject: last").contains("Subject"));
    // "Date" and "Subject" are matched exactly.
    EXPECT_FALSE(MsgTransportHeader::parse("date: x\nsubject: y\nTo: z@example.com\n").contains("Date"));
}

TEST(MsgTransportHeader, ContinuationLinesStayInsideTheValue) {
    Dict fields = MsgTransportHeader::parse("Date: Mon, 1 Jan 2024\n 10:00:00 +0000\nX: y\n");
    EXPECT_EQ(*fields.findString("Date"), "Mon, 1 Jan 2024\n 10:00:00 +0000");
    // Without a blank after the colon the line continues the previous field.
    fields = MsgTransportHeader::parse("Date: today\nSubject:glued\nX: y\n");
    EXPECT_EQ(*fields.findString("Date"), "today\nSubject:glued");
    EXPECT_FALSE(fields.contains("Subject"));
}

TEST(MsgTransportHeader, SubjectEncodedWordsAreJoinedAndDecoded) {
    struct Case {
        std::string value, expected;
    } cases[] = {
        {"plain words", "plain words"},
        {"=?UTF-8?Q?Gr=C3=BC=C3=9Fe_aus?= =?UTF-8?Q?_Berlin?=", "Grüße aus Berlin"},
        {"Re: =?iso-8859-1?Q?a=3Db?=", "a=b"},
        {"=?utf-8?Q?lower_case_charset?=", "=?utf-8?Q?lower_case_charset?="},
    };
    for (const Case& c : cases) EXPECT_EQ(MsgTransportHeader::decodeSubject(c.value), c.expected) << c.value;
    Dict fields = MsgTransportHeader::parse("Subject: =?UTF-8?Q?Gr=C3=BC=C3=9Fe?=\nTo: a@example.com\n");
    EXPECT_EQ(*fields.findString("Subject"), "Grüße");
}

}  // namespace
