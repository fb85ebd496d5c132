// Property lookups in entry dictionaries: stream names, the string fallback
// between the two string types, and the property stream's end bound.
#include <gtest/gtest.h>

#include "MsgFixture.h"
#include "readers/msg/ReadMSG.h"

namespace {

using qh::Blob;
using qh::Bytes;
using qh::Dict;
using qh::ReadMSG;
using qh::Value;
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

}  // namespace
