// Little-endian loads, byte swaps, size text and the TNEF byte search.
#include <gtest/gtest.h>

#include <cmath>

#include "util/BitWangers.h"
#include "util/ByteLoads.h"
#include "util/DataWangers.h"

using namespace qh;

TEST(ByteLoads, NamedLoadsReadThroughTheCursor) {
    const Bytes data = {0x78, 0x9F, 0x3E, 0x22, 0x01, 0x02, 0x03, 0x84};
    struct Case {
        const char* name;
        std::uint64_t got, expected;
    };
    const Case cases[] = {
        {"word", byteReplaceWord(data.data()), 0x9F78},
        {"dword", byteReplaceDWord(data.data()), 0x223E9F78},
        {"ddword", byteReplaceDDWord(data.data()), 0x84030201223E9F78},
        {"readU16 inside", BitWangers::readU16(data.data() + 1), 0x3E9F},
        {"dword at the last fitting offset", byteReplaceDWord(data, 4), 0x84030201},
        {"dword one past", byteReplaceDWord(data, 5), 0},
        {"ddword one past", byteReplaceDDWord(data, 1), 0},
        {"word at SIZE_MAX", byteReplaceWord(data, SIZE_MAX), 0},
        {"readU16 at the last byte", BitWangers::readU16(data, 7), 0},
        {"readU32 of nothing", BitWangers::readU32(ByteView{}, 0), 0},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.expected) << c.name;
}

TEST(ByteSwaps, ReverseTheBytes) {
    EXPECT_EQ(BitWangers::ByteSwap16BitNumber(0x0080), -32768);
    EXPECT_EQ(BitWangers::ByteSwap16BitNumber(0x1234), 0x3412);
    EXPECT_EQ(BitWangers::ByteSwap32BitNumber(0x11223344u), 0x44332211u);
    EXPECT_EQ(BitWangers::ByteSwap64BitNumber(0x0102030405060708ull), 0x0807060504030201ull);
}

TEST(FormatSize, DividesWhileAbove1024) {
    struct Case {
        double size;
        std::string expected;
    };
    const Case cases[] = {
        {0, "0.00 bytes"},
        {1024, "1024.00 bytes"},
        {1025, "1.00 KB"},
        {1536, "1.50 KB"},
        {0.125, "0.12 bytes"},  // a tie goes to the even digit, as printf rounds
        {NAN, " nan bytes"},    // four characters at least
        {1048576, "1024.00 KB"},
        {4.25 * 1048576, "4.25 MB"},
        {1024.0 * 1024 * 1024 * 1024 * 1024, "1024.00 TB"},
        {1024.0 * 1024 * 1024 * 1024 * 1025, ""},  // nothing beyond terabytes
        {INFINITY, ""},
        {-2.5, "-2.50 bytes"},
        {-1e300, "-10000000000000000525047602552044202487044685811081591549158541"},  // cut at 63, as printf cuts it
    };
    for (const auto& c : cases) EXPECT_EQ(BitWangers::formatSize(c.size), c.expected) << c.size;
}

TEST(SearchForBytes, FirstMatchWithItsQuirks) {
    constexpr auto kNotFound = DataWangers::kNotFound;
    struct Case {
        const char* name;
        Bytes pattern, source;
        std::int64_t location;
    };
    const Case cases[] = {
        {"plain match", {2, 3}, {1, 2, 3, 4}, 1},
        {"empty source", {1}, {}, kNotFound},
        {"no match", {9}, {1, 2, 3}, kNotFound},
        {"overlapping start is missed", {'a', 'a', 'b'}, {'a', 'a', 'a', 'b'}, kNotFound},
        {"the breaking byte is not retried", {'a', 'b'}, {'a', 'a', 'b'}, kNotFound},
        {"later clean match found", {'a', 'b'}, {'a', 'x', 'a', 'b'}, 2},
        {"partial match at the end counts", {7, 8, 9, 10}, {1, 2, 7, 8}, 2},
        {"first of two matches", {5}, {5, 5}, 0},
        {"empty pattern", {}, {1, 2}, kNotFound},
    };
    for (const auto& c : cases) {
        DataWangers::Range range = DataWangers::searchForBytes(c.pattern, c.source);
        EXPECT_EQ(range.location, c.location) << c.name;
        EXPECT_EQ(range.length, std::int64_t(c.pattern.size())) << c.name;
    }
}
