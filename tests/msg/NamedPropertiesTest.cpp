// The named-property mapping: the three stream decoders with their bounds,
// and the resolver the contact and appointment builders use.
#include <gtest/gtest.h>

#include "readers/msg/NamedProperties.h"

namespace {

using qh::Blob;
using qh::Bytes;
using qh::Dict;
using qh::MsgNamedProperties;
using qh::Value;

Bytes entryRecord(std::uint32_t nameId, std::uint16_t guidIndex, bool isString, std::uint16_t propertyIndex) {
    std::uint16_t kind = static_cast<std::uint16_t>((guidIndex << 1) | (isString ? 1 : 0));
    return {static_cast<std::uint8_t>(nameId), static_cast<std::uint8_t>(nameId >> 8),
            static_cast<std::uint8_t>(nameId >> 16), static_cast<std::uint8_t>(nameId >> 24),
            static_cast<std::uint8_t>(kind), static_cast<std::uint8_t>(kind >> 8),
            static_cast<std::uint8_t>(propertyIndex), static_cast<std::uint8_t>(propertyIndex >> 8)};
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
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

}  // namespace
