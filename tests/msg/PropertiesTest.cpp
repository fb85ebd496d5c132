// The parts a message is read from: property lookups in entry dictionaries
// (stream names, the string fallback between the two string types, the
// property stream's end bound), the named-property mapping (the three stream
// decoders and the resolver the contact and appointment builders use) and the
// transport header parser (filed fields, continuation lines, the unfiled last
// field, the subject's encoded words), and the complete reading's clean-up of
// strings.
#include <random>

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "MsgFixture.h"
#include "core/TextEncoding.h"
#include "readers/msg/MsgText.h"
#include "readers/msg/NamedProperties.h"
#include "readers/msg/ReadMSG.h"
#include "readers/msg/TransportHeader.h"
#include "support/TnefWriter.h"

namespace {

using qh::Blob;
using qh::Bytes;
using qh::Dict;
using qh::MsgNamedProperties;
using qh::MsgTransportHeader;
using qh::ReadMSG;
using qh::Value;
using qhtest::concat;
using qhtest::MsgFixture;

Value blob(qh::ByteView bytes) { return Value(Blob(bytes)); }
Value blob(std::string_view text) { return Value(Blob(qh::asBytes(text))); }

TEST(MsgPropertyAccess, StreamNamesAreUpperCaseHexAndEmptyForZero) {
    struct Case {
        std::uint32_t id, type;
        const char* expected;
    } cases[] = {
        {0x0037, 0x001F, "0037001F"},
        {0xabcd, 0x0102, "ABCD0102"},
        {0x0000, 0x001F, ""},
        {0x0037, 0x0000, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(ReadMSG::getHexFromElement(c.id, c.type), c.expected) << c.expected;
}

TEST(MsgPropertyAccess, MissingNullAndEmptyStreamsAreAllNone) {
    Dict root{{"__substg1.0_00370102", blob("x")},
              {"__substg1.0_00380102", Value()},
              {"__substg1.0_00390102", blob("")},
              {"__substg1.0_", blob("bare")}};
    EXPECT_TRUE(ReadMSG::getDataFromRoot("__substg1.0_", 0x0037, 0x0102, &root));
    EXPECT_FALSE(ReadMSG::getDataFromRoot("__substg1.0_", 0x0038, 0x0102, &root));
    EXPECT_FALSE(ReadMSG::getDataFromRoot("__substg1.0_", 0x0039, 0x0102, &root));
    EXPECT_FALSE(ReadMSG::getDataFromRoot("__substg1.0_", 0x003A, 0x0102, &root));
    // Identifier 0 leaves the bare prefix as the key.
    EXPECT_TRUE(ReadMSG::getDataFromRoot("__substg1.0_", 0, 0x0102, &root));
    EXPECT_FALSE(ReadMSG::getDataFromRoot("__substg1.0_", 0x0037, 0x0102, nullptr));
}

TEST(MsgPropertyAccess, StringTypesFallBackToEachOther) {
    struct Case {
        const char* what;
        Dict root;
        std::uint32_t type;
        std::string expected;
    } cases[] = {
        {"UTF-16 as asked", Dict{{"__substg1.0_0037001F", blob(qhtest::utf16("Grüße"))}}, 0x001F, "Grüße"},
        {"empty UTF-16 gives way to 8-bit",
         Dict{{"__substg1.0_0037001F", blob("")}, {"__substg1.0_0037001E", blob("plain")}}, 0x001F, "plain"},
        {"8-bit gives way to UTF-16", Dict{{"__substg1.0_0037001F", blob(qhtest::utf16("wide"))}}, 0x001E, "wide"},
        {"8-bit above 0x7F reads as Windows-1252", Dict{{"__substg1.0_0037001E", blob("caf\xE9 \x80")}}, 0x001E,
         "café €"},
        {"trailing NULs of whole sectors are cut", Dict{{"__substg1.0_0037001E", blob(std::string("abc\0\0\0", 6))}},
         0x001E, "abc"},
        {"neither stream", Dict{}, 0x001F, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(ReadMSG::decodeElement(0x0037, c.type, &c.root), c.expected) << c.what;
}

TEST(MsgPropertyAccess, PropertyScanNeverExaminesTheLastRecord) {
    const MsgFixture::Record wanted{0x0003, 0x3705, 5};
    const MsgFixture::Record other{0x0003, 0x1234, 9};
    struct Case {
        const char* what;
        std::vector<MsgFixture::Record> records;
        bool found;
    } cases[] = {
        {"first of two", {wanted, other}, true},
        {"last of two (stream of 32 bytes)", {other, wanted}, false},
        {"middle of three", {other, wanted, other}, true},
        {"alone (stream of 16 bytes)", {wanted}, false},
    };
    for (const Case& c : cases) {
        Bytes stream = MsgFixture::records(0, c.records);
        auto value = ReadMSG::getPropertyElement(0x3705, 0x0003, stream);
        EXPECT_EQ(value.has_value(), c.found) << c.what;
        if (value) EXPECT_EQ(qh::MsgPropertyAccess::integerOf(*value), 5u) << c.what;
    }
    EXPECT_FALSE(ReadMSG::getPropertyElement(0x3705, 0x0003, Bytes(15, 0)));
}

TEST(MsgPropertyAccess, DatesComeFromFiletimeRecords) {
    Bytes stream = MsgFixture::records(0, {{0x0040, 0x0E06, qhtest::filetime(1700000000)}, {0, 0, 0}});
    auto date = ReadMSG::getDateFromPropertyElement(0x0E06, stream);
    ASSERT_TRUE(date);
    EXPECT_EQ(date->unixSeconds, 1700000000);
    // Exactly one record is too short to hold a date.
    EXPECT_FALSE(ReadMSG::getDateFromPropertyElement(
        0x0E06, MsgFixture::records(0, {{0x0040, 0x0E06, qhtest::filetime(1700000000)}})));
    // The type must be a time.
    EXPECT_FALSE(ReadMSG::getDateFromPropertyElement(0x0E06, MsgFixture::records(0, {{0x0003, 0x0E06, 1}, {0, 0, 0}})));
}

TEST(MsgPropertyAccess, AlignedScanReadsEveryRecordAfterTheHeader) {
    Bytes stream = MsgFixture::records(24, {{0x0003, 0x8205, 1}, {0x0003, 0x8231, 2}});
    auto last = qh::MsgPropertyAccess::findFixedProperty(0x8231, 0x0003, stream, 24);
    ASSERT_TRUE(last);
    EXPECT_EQ(qh::MsgPropertyAccess::integerOf(*last), 2u);
    // A truncated final record is not read.
    stream.resize(stream.size() - 1);
    EXPECT_FALSE(qh::MsgPropertyAccess::findFixedProperty(0x8231, 0x0003, stream, 24));
}

Bytes entryRecord(std::uint32_t nameId, std::uint16_t guidIndex, bool isString, std::uint16_t propertyIndex) {
    Bytes out = qhtest::u32(nameId);
    qhtest::appendU16(out, static_cast<std::uint16_t>((guidIndex << 1) | (isString ? 1 : 0)));
    qhtest::appendU16(out, propertyIndex);
    return out;
}

TEST(MsgNamedProperties, GuidsAreByteSwappedAndTheLastIsNeverRead) {
    Bytes first = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 9, 10, 11, 12, 13, 14, 15, 16};
    Bytes second(16, 0xEE);
    auto guids = MsgNamedProperties::calculateGuids(Blob(concat({first, second})));
    ASSERT_EQ(guids.size(), 1u);
    const MsgNamedProperties::Guid expected = {0x04, 0x03, 0x02, 0x01, 0x08, 0x07, 0x06, 0x05,
                                               9,    10,   11,   12,   13,   14,   15,   16};
    EXPECT_EQ(guids[0], expected);
    EXPECT_EQ(MsgNamedProperties::calculateGuids(Blob(concat({first, second, second}))).size(), 2u);
    EXPECT_TRUE(MsgNamedProperties::calculateGuids(Blob(first)).empty());
    EXPECT_TRUE(MsgNamedProperties::calculateGuids(std::nullopt).empty());
}

TEST(MsgNamedProperties, EntryStreamMapsNamesToPositionsWithoutTheLastRecord) {
    auto three = MsgNamedProperties::calculateEntryStreamIndexes(
        Blob(concat({entryRecord(0x8233, 3, false, 0), entryRecord(0x8234, 3, false, 1), entryRecord(0x8235, 3, false, 2)})));
    EXPECT_EQ(three, (std::map<std::int64_t, std::uint32_t>{{0x8233, 0x8000}, {0x8234, 0x8001}}));
    // A later record with the same name replaces the earlier one.
    auto repeated = MsgNamedProperties::calculateEntryStreamIndexes(
        Blob(concat({entryRecord(7, 3, false, 0), entryRecord(7, 3, false, 1), Bytes(8, 0)})));
    EXPECT_EQ(repeated.at(7), 0x8001u);
    EXPECT_TRUE(MsgNamedProperties::calculateEntryStreamIndexes(Blob(Bytes(8, 0))).empty());
}

TEST(MsgNamedProperties, StringStreamStepsLengthPlusTwoAndDropsAUnitEndingTheStream) {
    struct Case {
        const char* what;
        Bytes stream;
        std::vector<std::string> expected;
    } cases[] = {
        {"one 10-byte name ending the stream", concat({{10, 0, 0, 0}, {'a', 0, 'b', 0, 'c', 0, 'd', 0, 'e', 0}}),
         {"abcd"}},
        {"two names, len + 2 apart",
         concat({{4, 0, 0, 0}, {'h', 0, 'i', 0}, {0, 0}, {2, 0, 0, 0}, {'x', 0}, {0, 0, 0, 0}}),
         {"hi", "x"}},
        {"too short", Bytes{1, 0, 0, 0}, {}},
        // -1 copies nothing and steps one byte on, where "aaaa" is read as the next length.
        {"negative length steps back into the name", concat({{0xFF, 0xFF, 0xFF, 0xFF}, Bytes(8, 'a')}), {"\u6161"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(MsgNamedProperties::generateStringStream(Blob(c.stream)), c.expected) << c.what;
    }
}

TEST(MsgNamedProperties, MissingStorageGivesEmptyParts) {
    auto mapping = MsgNamedProperties::getNamedPropertiesForMessage(Dict{});
    EXPECT_TRUE(mapping.guids.empty());
    EXPECT_TRUE(mapping.strings.empty());
    EXPECT_TRUE(mapping.streams.empty());
}

TEST(MsgNamedProperties, ResolverMatchesSetAndNumericNameUpToTheLastRecord) {
    const qh::msgformat::GuidBytes other = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    Bytes guids = concat({Bytes(other.begin(), other.end()),
                          Bytes(qh::msgformat::kPsetAppointment.begin(), qh::msgformat::kPsetAppointment.end())});
    Bytes entries = concat({entryRecord(0x820D, 3, false, 0),    // same name, other set
                            entryRecord(0x820D, 1, false, 1),    // the MAPI set
                            entryRecord(0x820D, 4, true, 2),     // a string name
                            entryRecord(0x820D, 4, false, 5)});  // ours, the last record
    Dict root{{"__nameid_version1.0",
               Value(Dict{{"__substg1.0_00020102", Value(Blob(guids))}, {"__substg1.0_00030102", Value(Blob(entries))}})}};
    MsgNamedProperties::Resolver resolver(root);
    EXPECT_EQ(resolver.find(qh::msgformat::kPsetAppointment, 0x820D), 0x8005u);
    EXPECT_EQ(resolver.find(qh::msgformat::kPsetAppointment, 0x820E), std::nullopt);
    EXPECT_EQ(resolver.find(qh::msgformat::kPsetAddress, 0x820D), std::nullopt);
    EXPECT_EQ(MsgNamedProperties::Resolver(Dict{}).find(qh::msgformat::kPsetAppointment, 0x820D), std::nullopt);
}

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
}

// The complete reading keeps a string whole but for its terminating NUL,
// control characters other than tab, CR and LF (C1 ones too), and the white
// space around it.
TEST(MsgText, KeepWholeDropsControlsAndTrims) {
    const std::pair<std::string, std::string> cases[] = {
        {"Hello", "Hello"},
        {"  Hello\r\n\t", "Hello"},
        {std::string("Hello\0junk", 10), "Hello"},
        {"a\x01" "b\x1F\x7F" "c", "abc"},
        {"tab\tCR\rLF\n.", "tab\tCR\rLF\n."},
        {"C1 \xC2\x80\xC2\x9F|\xC2\xA0|\xC2\x7F", "C1 |\u00A0|\uFFFD"},
        {"\x01  \x02 x \x03", "x"},
        {"\xC2\x85 next line \xE2\x80\xA8", "next line"},
        {"\xFF\xFE bad", "\uFFFD\uFFFD bad"},
        {"\xC2", "\uFFFD"},
        {"\u4F60\u597D\x08\u4E16\u754C, long enough to pass eight bytes at a time\x1B.",
         "\u4F60\u597D\u4E16\u754C, long enough to pass eight bytes at a time."},
        {"", ""},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(qh::MsgText::keepWhole(text), expected) << text;
}

// The same as a code point by code point reading, on random texts.
TEST(MsgText, KeepWholeMatchesCodePointReading) {
    auto reference = [](std::string_view text) {
        text = text.substr(0, text.find('\0'));
        const std::string sane = qh::TextEncoding::sanitizeUTF8(text);
        std::string kept;
        const auto* s = reinterpret_cast<const std::uint8_t*>(sane.data());
        const auto length = static_cast<std::int32_t>(sane.size());
        for (std::int32_t i = 0; i < length;) {
            const std::int32_t start = i;
            UChar32 c;
            U8_NEXT_OR_FFFD(s, i, length, c);
            if (!((c < 0x20 && c != '\t' && c != '\r' && c != '\n') || (c >= 0x7F && c <= 0x9F)))
                kept.append(sane, std::size_t(start), std::size_t(i - start));
        }
        return qh::TextEncoding::trimWhitespaceAndNewlines(kept);
    };
    const char* const pieces[] = {"a", "word ", " ", "\t", "\r\n", "\x01", "\x7F", "\xC2\x80", "\xC2\x9F", "\xC2\xA0",
                                  "\xC2", "\xE4\xBD\xA0", "\xE2\x80\xA8", "\xFF", "\x80", "\xF0\x9F\x98\x80", "\x00"};
    std::mt19937 random(14);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (int n = static_cast<int>(random() % 40); n > 0; --n) text += pieces[random() % std::size(pieces)];
        ASSERT_EQ(qh::MsgText::keepWhole(text), reference(text)) << text;
    }
}

// Unicode strings in the complete reading: UTF-16LE where it is well formed,
// else every unit with U+FFFD for an unpaired surrogate and the odd last byte
// dropped; on random units, the same as that definition through ICU's text
// services.
TEST(MsgText, UnicodeStringsDecodeLeniently) {
    const qh::MsgText text(qh::MsgRules::of(qh::Reading::complete));
    auto reference = [](const qh::Bytes& bytes) {
        if (auto strict = qh::TextEncoding::decode(bytes, qh::StringEncoding::UTF16LE)) return *strict;
        std::u16string units(bytes.size() / 2, u'\0');
        for (std::size_t i = 0; i < units.size(); ++i) units[i] = char16_t(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        return qh::TextEncoding::fromUTF16(units);
    };
    const char16_t pieces[] = {u'a', u' ', 0x7F, 0x80, 0x7FF, 0x800, 0x4F60, 0xFFFF, 0xD83D, 0xDE00, 0xDBFF, 0xDC00, 0};
    std::mt19937 random(16);
    for (int round = 0; round < 3000; ++round) {
        qh::Bytes bytes;
        for (int n = static_cast<int>(random() % 24); n > 0; --n) {
            const char16_t unit = pieces[random() % std::size(pieces)];
            bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
            bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
        }
        if (random() % 4 == 0) bytes.push_back(0x41);  // an odd last byte
        if (bytes.empty()) continue;
        ASSERT_EQ(text.decode(bytes, 0x001F).value_or("(none)"), reference(bytes)) << round;
    }
}

}  // namespace
