// Header checks, allocation tables, the master sector chain, directory names,
// ordering, lookups and the kept quirks of the sibling walks.
#include <gtest/gtest.h>

#include "compound/CompoundDocument.h"
#include "compound/CompoundDocumentIO.h"
#include "compound/DirectoryTree.h"
#include "compound/Header.h"
#include <quillhaven/Mole.h>
#include "compound/SectorAllocTable.h"
#include "core/Log.h"
#include "support/CompoundWriter.h"

using qhtest::CompoundWriter;

TEST(Header, Validity) {
    struct Case {
        const char* what;
        std::uint64_t threshold, count, masterCount, masterShift, smallShift;
        bool valid;
    } cases[] = {
        {"plain", 4096, 1, 0, 9, 6, true},
        {"threshold", 4095, 1, 0, 9, 6, false},
        {"no table", 4096, 0, 0, 9, 6, false},
        {"109 with master sectors", 4096, 109, 1, 9, 6, true},
        {"108 with master sectors", 4096, 108, 1, 9, 6, false},
        {"110 without master sectors", 4096, 110, 0, 9, 6, false},
        {"one master sector full", 4096, 236, 1, 9, 6, true},
        {"one master sector too few", 4096, 237, 1, 9, 6, false},
        {"127 per master sector even at 4096 bytes", 4096, 237, 1, 12, 6, false},
        {"4096-byte sectors", 4096, 1, 0, 12, 6, true},
        {"shift 7", 4096, 1, 0, 7, 6, true},
        {"shift 6", 4096, 1, 0, 6, 6, false},
        {"shift 30", 4096, 1, 0, 30, 6, true},
        {"shift 31", 4096, 1, 0, 31, 6, false},
        {"small above big", 4096, 1, 0, 9, 10, false},
    };
    for (const Case& c : cases) {
        qh::Header header;
        header.threshold = c.threshold;
        header.allocationTableCount = c.count;
        header.masterSectorAllocationTableCount = c.masterCount;
        header.masterShift = c.masterShift;
        header.smallShift = c.smallShift;
        EXPECT_EQ(header.isValid(), c.valid) << c.what;
    }
}

// The status codes, their pairing with open's answer, and the facade's one log line.
TEST(Document, OpenAnswersAndResultCodes) {
    const auto good = CompoundWriter().addStream("a", "x").build();
    struct Case {
        const char* what;
        std::function<void(qhtest::CompoundFile&)> damage;
        bool loaded, opened;
        int result;
    } cases[] = {
        {"well formed", [](auto&) {}, true, true, 0},
        {"empty", [](auto& f) { f.truncate(0); }, false, false, 1},
        {"511 bytes", [](auto& f) { f.truncate(511); }, false, false, 1},
        {"signature", [](auto& f) { f.bytes[7] = 0; }, true, false, 2},
        {"threshold", [](auto& f) { f.setHeader32(56, 4095); }, true, false, 3},
        {"sector shift", [](auto& f) { f.setHeader16(30, 31); }, true, false, 3},
        // after the header was accepted a failure still opens: only the status tells
        {"directory outside the table", [](auto& f) { f.setHeader32(48, 0xFFFFFF00); }, false, true, 3},
        {"table sector past the end", [](auto& f) { f.setHeader32(76, 100000); }, false, true, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto file = good;
        c.damage(file);
        qh::CompoundDocumentIO io;
        io.initializeStream(nullptr, file.bytes);
        EXPECT_EQ(io.compoundDocumentLoaded(), c.loaded);
        EXPECT_EQ(io.result, c.result);
        qh::CompoundDocument document;
        document.initializeWithData(file.bytes);
        EXPECT_EQ(document.open(), c.opened);
        EXPECT_EQ(document.result(), c.result);
        qh::Log::Capture capture;
        EXPECT_EQ(qh::Mole::initWithData(file.bytes) != nullptr, c.result == 0);
        const std::vector<std::string> lines = capture.lines();
        EXPECT_EQ(lines.empty() ? "" : lines.back(), c.result ? "MOLE Reader - Error opening NSData" : "");
    }
}

TEST(AllocationTable, FollowEndsAtMarkersAndOutOfRangeSectors) {
    qh::SectorAllocTable table;
    ASSERT_EQ(table.allocationCount(), 128u);
    // 1 -> 2 -> 5 -> end; 3 -> free; 4 -> 7000 (outside); 6 -> 6 (loops)
    table.allocationSetValue(2, 1);
    table.allocationSetValue(5, 2);
    table.allocationSetValue(0xFFFFFFFE, 5);
    table.allocationSetValue(0xFFFFFFFF, 3);
    table.allocationSetValue(7000, 4);
    table.allocationSetValue(6, 6);
    table.allocationSetValue(0xFFFFFFFD, 8);
    using Chain = std::vector<std::uint32_t>;
    EXPECT_EQ(table.allocationFollow(1), (Chain{1, 2, 5}));
    EXPECT_EQ(table.allocationFollow(3), (Chain{3}));
    EXPECT_EQ(table.allocationFollow(4), (Chain{4}));
    EXPECT_EQ(table.allocationFollow(8), (Chain{8}));
    EXPECT_EQ(table.allocationFollow(128), Chain{});
    EXPECT_EQ(table.allocationFollow(0xFFFFFFFE), Chain{});
    EXPECT_EQ(table.allocationFollow(6).size(), 1048576u);
    table.setChainLimit(5);
    EXPECT_EQ(table.allocationFollow(6), (Chain{6, 6, 6, 6, 6}));

    table.allocationSetValue(1, 300);
    EXPECT_EQ(table.allocationCount(), 301u);
    table.allocationResize(4);
    EXPECT_EQ(table.allocationFollow(1), (Chain{1, 2}));
    const std::uint8_t words[] = {1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 9};
    table.allocationLoad(words, sizeof words);
    EXPECT_EQ(table.directoryArray, (Chain{1, 0xFFFFFFFE}));
}

TEST(AllocationTable, MasterSectorChainBeyondTheHeader) {
    // 109 + 127 + 5 table sectors: two master sectors, the second partly used
    auto file = CompoundWriter().addStream("big", qh::Bytes(9000, 7)).extraFatSectors(240).build();
    ASSERT_EQ(file.difatSectors.size(), 2u);
    qh::CompoundDocument document;
    document.initializeWithData(file.bytes);
    ASSERT_TRUE(document.open());
    qh::CompoundDocumentIO& io = *document.io();
    EXPECT_EQ(io.bigSectorArray, file.difatSectors);
    EXPECT_EQ(io.getSectorBlocks(true), file.fatSectors);
    EXPECT_EQ(io.getSectorBlocks(false), file.fatSectors);
    // The streams behind such a chain: Oracle.WriterFixturesAgreeWithAnIndependentReader.
}

namespace {

// One raw 128-byte directory entry.
qh::Bytes rawEntry(std::u16string name, std::uint8_t type, std::uint32_t prev = 0xFFFFFFFF,
                   std::uint32_t next = 0xFFFFFFFF, std::uint32_t child = 0xFFFFFFFF, int nameLength = -1) {
    qh::Bytes e(128, 0);
    for (std::size_t i = 0; i < name.size() && i < 32; ++i) {
        e[2 * i] = name[i] & 0xFF;
        e[2 * i + 1] = name[i] >> 8;
    }
    const std::uint16_t length = nameLength >= 0 ? nameLength : static_cast<std::uint16_t>((name.size() + 1) * 2);
    e[64] = length & 0xFF;
    e[65] = length >> 8;
    e[66] = type;
    auto put = [&](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) e[at + i] = (v >> (8 * i)) & 0xFF;
    };
    put(68, prev);
    put(72, next);
    put(76, child);
    return e;
}

qh::DirectoryTree treeOf(std::initializer_list<qh::Bytes> entries) {
    qh::Bytes buffer;
    for (const auto& e : entries) buffer.insert(buffer.end(), e.begin(), e.end());
    qh::DirectoryTree tree;
    tree.loadEntries(buffer, buffer.size());
    return tree;
}

}  // namespace

TEST(Directory, NamesFromLowBytes) {
    struct Case {
        std::u16string raw;
        int nameLength;
        std::string name;
    } cases[] = {
        {u"__substg1.0_1000001F", -1, "__substg1.0_1000001F"},
        {u"\x05SummaryInformation", -1, "SummaryInformation"},  // control characters left out
        {u"\x0141\x0142", -1, "AB"},                              // only the low byte counts
        {u"caf\x00e9", -1, ""},                                   // not UTF-8: no name
        {u"ab\0cd", 12, "ab"},                                    // stops at a NUL
        {u"abcdef", 6, "abc"},                                    // within the recorded length (bytes)
        {u"abcdef", 0, ""},
        {std::u16string(40, u'x'), 200, std::string(32, 'x')},    // the length is capped at 64 bytes
    };
    for (const Case& c : cases) {
        auto tree = treeOf({rawEntry(c.raw, 2, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, c.nameLength)});
        ASSERT_EQ(tree.entryCount(), 1u);
        EXPECT_EQ(tree.entry(0)->name, c.name);
    }
}

TEST(Directory, CompareByLengthThenCaseSensitively) {
    struct Case {
        const char* a;
        const char* b;
        int order;
    } cases[] = {
        {"b", "aa", -1}, {"aa", "b", 1}, {"abc", "abc", 0}, {"ABC", "abc", -1}, {"abd", "abc", 1}, {"Z", "a", -1},
    };
    for (const Case& c : cases) EXPECT_EQ(qh::DirectoryTree::compareDirectoryName(c.a, c.b), c.order) << c.a << " " << c.b;
}

TEST(Directory, ShortBuffersAndTheDataStoreRule) {
    qh::DirectoryTree tree;
    qh::Bytes buffer = rawEntry(u"Root Entry", 5);
    EXPECT_FALSE(tree.loadEntries(buffer, 127));
    EXPECT_EQ(tree.entryCount(), 0u);
    EXPECT_TRUE(tree.loadEntries(buffer, 128));

    // an empty name before the data store stays; after it, it is dropped and the rest move up
    auto plain = treeOf({rawEntry(u"Root Entry", 5), rawEntry(u"", 0), rawEntry(u"\x01", 2), rawEntry(u"x", 2)});
    EXPECT_EQ(plain.entryCount(), 4u);
    auto store = treeOf({rawEntry(u"Root Entry", 5), rawEntry(u"", 0), rawEntry(u"MsoDataStore", 1),
                         rawEntry(u"\x01", 2), rawEntry(u"", 0), rawEntry(u"x", 2)});
    ASSERT_EQ(store.entryCount(), 4u);
    EXPECT_EQ(store.entry(1)->name, "");
    EXPECT_EQ(store.entry(2)->name, "MsoDataStore");
    EXPECT_EQ(store.entry(3)->name, "x");
}

TEST(Directory, LinkZeroListsTheRootButTheSearchSkipsIt) {
    //        0 root (child 2)
    //        2 "m": prev 0, next 3
    //        3 "z"
    auto tree = treeOf({rawEntry(u"Root Entry", 5, 0xFFFFFFFF, 0xFFFFFFFF, 2), rawEntry(u"", 0),
                        rawEntry(u"m", 2, 0, 3), rawEntry(u"z", 2)});
    EXPECT_EQ(tree.children(0), (std::vector<std::uint32_t>{0, 2, 3}));
    std::uint32_t closest = qh::DirectoryTree::kNotFound;
    EXPECT_EQ(tree.findChildWithIndex(0, "z", closest), 3u);
    EXPECT_EQ(tree.findChildWithIndex(0, "a", closest), 0u);
    EXPECT_EQ(closest, 2u);
    EXPECT_EQ(tree.findEntry("/m"), tree.entry(2));
    EXPECT_EQ(tree.findEntry("/"), tree.entry(0));
    EXPECT_EQ(tree.findEntry("Root Entry"), nullptr);
    EXPECT_EQ(tree.parent(3), 0u);
    EXPECT_EQ(tree.indexOf(*tree.entry(3)), 3u);
}

TEST(Directory, SiblingCyclesEndQuietly) {
    // "b" <-> "c" point at each other, and "c" points at itself as well
    auto tree = treeOf({rawEntry(u"Root Entry", 5, 0xFFFFFFFF, 0xFFFFFFFF, 1), rawEntry(u"b", 2, 2, 2),
                        rawEntry(u"c", 2, 1, 2)});
    EXPECT_EQ(tree.children(0), (std::vector<std::uint32_t>{2, 1}));
    std::uint32_t closest = 0;
    EXPECT_EQ(tree.findChildWithIndex(0, "zz", closest), 0u);
    EXPECT_EQ(tree.findChildWithIndex(0, "c", closest), 2u);
    EXPECT_EQ(tree.findEntry("/nothing"), nullptr);
}

TEST(Directory, LookupsOnDegenerateAndMisorderedSiblingTrees) {
    // Children written as one right-leaning chain in name order: every
    // lookup still finds its entry.
    CompoundWriter writer;
    std::vector<std::string> names;
    for (int i = 0; i < 40; ++i) names.push_back("s" + std::to_string(100 + i));
    for (const auto& name : names) writer.addStream(name, name);
    auto file = writer.build();
    for (std::size_t k = 0; k < names.size(); ++k) {
        file.setEntryField(names[k], 68, 0xFFFFFFFF);
        file.setEntryField(names[k], 72, k + 1 < names.size() ? file.entryNumber(names[k + 1]) : 0xFFFFFFFF);
    }
    file.setEntryField("", 76, file.entryNumber(names[0]));
    auto mole = qh::Mole::initWithData(file.bytes);
    ASSERT_TRUE(mole);
    for (const auto& name : names) {
        auto stream = mole->getStream(name);
        ASSERT_TRUE(stream) << name;
        EXPECT_EQ(stream->text().substr(0, name.size()), name);
    }
    EXPECT_FALSE(mole->getStream("s99"));
    EXPECT_EQ(mole->getOLEDictionary().size(), names.size());

    // The same chain in the wrong order: the walk lists every child, the
    // search (which trusts the order) misses those on the wrong side.
    std::reverse(names.begin(), names.end());
    for (std::size_t k = 0; k < names.size(); ++k)
        file.setEntryField(names[k], 72, k + 1 < names.size() ? file.entryNumber(names[k + 1]) : 0xFFFFFFFF);
    file.setEntryField("", 76, file.entryNumber(names[0]));
    mole = qh::Mole::initWithData(file.bytes);
    ASSERT_TRUE(mole);
    EXPECT_EQ(mole->getDirectory().size(), names.size());
    EXPECT_TRUE(mole->getStream(names[0]));   // the first one looked at
    EXPECT_FALSE(mole->getStream(names[1]));  // smaller, but the search goes right
    EXPECT_EQ(mole->getOLEDictionary().size(), 1u);
}

TEST(Directory, ModificationTimeInUnixSeconds) {
    qh::Bytes entry = rawEntry(u"x", 2);
    const std::uint64_t fileTime = 133000000000000000ULL;  // 2022-06-18 ...
    for (int i = 0; i < 8; ++i) entry[100 + i] = (fileTime >> (8 * i)) & 0xFF;
    auto tree = treeOf({entry});
    EXPECT_EQ(tree.entry(0)->time, 13300000000.0 - 11644473600.0);
}
