// The entry facade on fixtures built by the compound writer: whole-sector
// padding, the small/big threshold, paths, the walks and their kept quirks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include <quillhaven/Mole.h>
#include "core/Log.h"
#include "support/CompoundWriter.h"

using qhtest::CompoundFile;
using qhtest::CompoundWriter;

namespace {

qh::Bytes filled(std::size_t size, std::uint8_t seed) {
    qh::Bytes out(size);
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<std::uint8_t>(seed + i * 7);
    return out;
}

std::unique_ptr<qh::Mole> open(const qh::Bytes& file) {
    auto mole = qh::Mole::initWithData(file);
    EXPECT_NE(mole, nullptr);
    return mole;
}

std::vector<std::string> keysOf(const qh::Dict& dict) { return dict.keys(); }

std::size_t depth(const qh::Dict& dict) {
    std::size_t deepest = 0;
    for (const auto& [key, value] : dict)
        if (const qh::Dict* inner = value.dict()) deepest = std::max(deepest, depth(*inner));
    return deepest + 1;
}

}  // namespace

TEST(Mole, StreamsComeBackAsWholeSectors) {
    struct Case {
        std::uint16_t sectorShift;
        std::size_t size;
        std::size_t returned;
    } cases[] = {
        {9, 1, 64}, {9, 64, 64}, {9, 100, 128}, {9, 4095, 4096},   // small sectors below the threshold
        {9, 4096, 4096}, {9, 4097, 4608}, {9, 10000, 10240},       // big sectors from the threshold on
        {12, 100, 128}, {12, 4097, 8192}, {12, 9000, 3 * 4096},    // 4096-byte sectors
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.size) + " bytes, sector shift " + std::to_string(c.sectorShift));
        // A neighbour after the stream makes its padding visible.
        const qh::Bytes data = filled(c.size, 3);
        auto file = CompoundWriter(c.sectorShift).addStream("dir/a", data).addStream("b", filled(c.size, 99)).bytes();
        auto mole = open(file);
        auto stream = mole->getStream("/dir/a");
        ASSERT_TRUE(stream);
        ASSERT_EQ(stream->size(), c.returned);
        EXPECT_TRUE(std::equal(data.begin(), data.end(), stream->data()));
        // exact streams cut the same bytes at the directory size
        const qh::Dict dict = mole->getOLEDictionary(true);
        const qh::Blob* exact = dict.findDict("dir")->findBytes("a");
        ASSERT_TRUE(exact);
        EXPECT_EQ(exact->view().size(), c.size);
        EXPECT_TRUE(std::equal(data.begin(), data.end(), exact->data()));
    }
}

// Streams whose sectors follow each other in the file, and streams whose
// sectors are interleaved with another stream's, read the same; so do the
// streams of a borrowed file after the caller's bytes and the facade are gone,
// and those of a shared file, which are views of it where they can be.
TEST(Mole, StreamLayoutsAndLifetimesGiveTheSameBytes) {
    struct Case {
        const char* what;
        bool bigInterleaved;    // middle sectors of big1 and big2 swapped, chains relinked
        bool smallInterleaved;  // the same for the small-sector chains of small1 and small2
    } cases[] = {
        {"each stream in one run", false, false},
        {"big sectors interleaved", true, false},
        {"small sectors interleaved", false, true},
        {"both interleaved", true, true},
    };
    // "pad" puts small1 across a container sector boundary (8 small sectors per sector).
    const CompoundFile base = CompoundWriter()
                                  .addStream("pad", filled(6 * 64, 1))
                                  .addStream("small1", filled(150, 2))
                                  .addStream("small2", filled(150, 3))
                                  .addStream("st/big1", filled(5000, 4))
                                  .addStream("st/big2", filled(5000, 5))
                                  .build();
    const std::vector<std::string> paths{"small1", "small2", "st/big1", "st/big2"};
    const std::vector<std::size_t> exactSizes{150, 150, 5000, 5000};
    auto wholeSectors = [&](const qh::Bytes& bytes) {
        std::vector<qh::Bytes> out;
        auto mole = qh::Mole::initWithData(bytes);
        for (const auto& path : paths) {
            const std::optional<qh::Blob> stream = mole->getStream(path);
            out.emplace_back(stream->view().begin(), stream->view().end());
        }
        return out;
    };
    const std::vector<qh::Bytes> expected = wholeSectors(base.bytes);
    auto swapSectors = [](CompoundFile& f, std::size_t a, std::size_t b, std::size_t size) {
        std::swap_ranges(f.bytes.begin() + a, f.bytes.begin() + a + size, f.bytes.begin() + b);
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CompoundFile file = base;
        if (c.bigInterleaved) {
            const std::uint32_t a = file.startSector("st/big1"), b = file.startSector("st/big2");
            swapSectors(file, file.sectorOffset(a + 1), file.sectorOffset(b + 1), 512);
            file.setFat(a, b + 1), file.setFat(b + 1, a + 2), file.setFat(b, a + 1), file.setFat(a + 1, b + 2);
        }
        if (c.smallInterleaved) {
            const std::uint32_t a = file.startSector("small1"), b = file.startSector("small2");
            const std::size_t container = file.sectorOffset(file.entryField("", 116));
            swapSectors(file, container + (a + 1) * 64, container + (b + 1) * 64, 64);
            file.setMiniFat(a, b + 1), file.setMiniFat(b + 1, a + 2), file.setMiniFat(b, a + 1),
                file.setMiniFat(a + 1, b + 2);
        }
        EXPECT_EQ(wholeSectors(file.bytes), expected);
        // Shared bytes: a stream in one run is a view of them, the others are copies.
        auto shared = std::make_shared<const qh::Bytes>(file.bytes);
        auto sharing = qh::Mole::initSharingData(shared);
        const qh::Dict walked = sharing->getOLEDictionary();
        sharing.reset();
        for (std::size_t k = 0; k < paths.size(); ++k) {
            const bool interleaved = k < 2 ? c.smallInterleaved : c.bigInterleaved;
            const qh::Dict* in = k < 2 ? &walked : walked.findDict("st");
            const qh::Blob* blob = in ? in->findBytes(k < 2 ? paths[k] : paths[k].substr(3)) : nullptr;
            ASSERT_TRUE(blob);
            EXPECT_TRUE(std::equal(blob->view().begin(), blob->view().end(), expected[k].begin(), expected[k].end()));
            const bool view = blob->data() >= shared->data() && blob->data() < shared->data() + shared->size();
            EXPECT_NE(view, interleaved) << paths[k];
        }
        // Borrowed bytes: every value must outlive them and the facade.
        std::vector<std::optional<qh::Blob>> streams;
        qh::Dict whole, exact;
        {
            qh::Bytes borrowed = file.bytes;
            auto mole = qh::Mole::initBorrowingData(borrowed);
            for (const auto& path : paths) streams.push_back(mole->getStream(path));
            whole = mole->getOLEDictionary();
            exact = mole->getOLEDictionary(true);
            std::fill(borrowed.begin(), borrowed.end(), 0xEE);
        }
        for (std::size_t k = 0; k < paths.size(); ++k) {
            SCOPED_TRACE(paths[k]);
            const qh::Bytes& want = expected[k];
            const qh::Dict* in = k < 2 ? &whole : whole.findDict("st");
            const qh::Dict* inExact = k < 2 ? &exact : exact.findDict("st");
            const std::string name = k < 2 ? paths[k] : paths[k].substr(3);
            ASSERT_TRUE(streams[k] && in && inExact);
            EXPECT_TRUE(std::equal(want.begin(), want.end(), streams[k]->view().begin(), streams[k]->view().end()));
            const qh::Blob* fromWalk = in->findBytes(name);
            ASSERT_TRUE(fromWalk);
            EXPECT_TRUE(std::equal(want.begin(), want.end(), fromWalk->view().begin(), fromWalk->view().end()));
            const qh::Blob* cut = inExact->findBytes(name);
            ASSERT_TRUE(cut);
            EXPECT_EQ(cut->view().size(), exactSizes[k]);
            EXPECT_TRUE(std::equal(cut->view().begin(), cut->view().end(), want.begin()));
        }
    }
}

TEST(Mole, PathsAndMissingStreams) {
    auto mole = open(CompoundWriter::fromDescription(R"(
        __substg1.0_1000001F: "B\x00o\x00d\x00y\x00"
        __recip_version1.0_#00000000/__substg1.0_3001001F: "N\x00"
        __attach_version1.0_#00000000/
    )").bytes());
    const std::string withSlash(mole->getStream("/__substg1.0_1000001F")->text());
    struct Case {
        const char* path;
        bool found;
    } cases[] = {
        {"__substg1.0_1000001F", true},
        {"/__substg1.0_1000001F", true},
        {"//__substg1.0_1000001F/", true},
        {"__recip_version1.0_#00000000/__substg1.0_3001001F", true},
        {"/__recip_version1.0_#00000000//__substg1.0_3001001F", true},
        {"__substg1.0_3001001F", false},               // only under the recipient storage
        {"__recip_version1.0_#00000000", false},       // a storage is no stream
        {"/", false},
        {"", false},
        {"__substg1.0_1000001f", false},               // names compare case-sensitively
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        auto stream = mole->getStream(c.path);
        EXPECT_EQ(stream.has_value(), c.found);
    }
    EXPECT_EQ(std::string(mole->getStream("__substg1.0_1000001F")->text()), withSlash);
}

TEST(Mole, DirectoryListsFullPathsAndSizesAndTwiceWhenCalledTwice) {
    auto mole = open(CompoundWriter()
                         .addStream("s1", filled(10, 0))
                         .addStream("st/inner", filled(5000, 0))
                         .addStorage("st/empty")
                         .bytes());
    qh::Array first = mole->getDirectory();
    std::vector<std::string> lines;
    for (const qh::Value& record : first) {
        const qh::Dict& d = *record.dict();
        std::string line = *d.findString("entryname");
        if (auto* size = d.find("entrysize")) line += "=" + std::to_string(size->integer());
        lines.push_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"/s1=10", "/st", "/st/empty", "/st/inner=5000"}));
    qh::Array second = mole->getDirectory();
    ASSERT_EQ(second.size(), 2 * first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), second.begin() + first.size()));
}

TEST(Mole, ArrayAndDictionaryShapes) {
    auto mole = open(CompoundWriter().addStream("s", "abc").addStream("st/t", "xyz").addStorage("st/e").bytes());
    qh::Array array = mole->getOLEArray();
    ASSERT_EQ(array.size(), 2u);
    const qh::Dict& stream = *array[0].dict();
    EXPECT_EQ(*stream.findString("entryname"), "s");
    EXPECT_EQ(stream.findBytes("objectdata")->size(), 64u);
    const qh::Dict& storage = *array[1].dict();
    EXPECT_EQ(*storage.findString("entryname"), "st");
    const qh::Array& children = *storage.findArray("childentry");
    ASSERT_EQ(children.size(), 2u);
    // "e" is no storage at the root, where the bare name is looked up: an empty record
    EXPECT_TRUE(children[0].dict()->empty());
    EXPECT_EQ(children[1].dict()->findBytes("objectdata")->text().substr(0, 3), "xyz");

    qh::Dict dict = mole->getOLEDictionary();
    EXPECT_EQ(keysOf(dict), (std::vector<std::string>{"s", "st"}));
    const qh::Dict& st = *dict.findDict("st");
    EXPECT_EQ(keysOf(st), (std::vector<std::string>{"e", "t"}));
    EXPECT_TRUE(st.findDict("e") && st.findDict("e")->empty());
    EXPECT_EQ(st.findBytes("t")->size(), 64u);
}

TEST(Mole, DictionaryWithContentsFiltersTheTopLevelOnly) {
    auto mole = open(CompoundWriter::fromDescription(R"(
        __substg1.0_0037001F: "S"
        __substg1.0_1000001F: "B"
        __attach_version1.0_#00000000/__substg1.0_3707001F: "name"
        __attach_version1.0_#00000000/__substg1.0_3701000D/__substg1.0_0037001F: "inner"
        __attach_version1.0_#00000001/__substg1.0_37010102: "data"
        __recip_version1.0_#00000000/__substg1.0_3001001F: "R"
        __attach_version/x: "exactly sixteen characters: not taken"
        __substg1.0_3701000D/
    )").bytes());
    struct Case {
        std::vector<std::string> names;
        std::vector<std::string> keys;
    } cases[] = {
        {{}, {"__attach_version1.0_#00000000", "__attach_version1.0_#00000001"}},
        {{"__substg1.0_0037001F", "missing"},
         {"__substg1.0_0037001F", "__attach_version1.0_#00000000", "__attach_version1.0_#00000001"}},
        {{"__recip_version1.0_#00000000", "__attach_version"},
         {"__attach_version", "__recip_version1.0_#00000000", "__attach_version1.0_#00000000",
          "__attach_version1.0_#00000001"}},
    };
    for (const Case& c : cases) {
        qh::Dict dict = mole->getOLEDictionaryWithContents(&c.names);
        EXPECT_EQ(keysOf(dict), c.keys);
    }
    qh::Dict all = mole->getOLEDictionaryWithContents(nullptr);
    EXPECT_EQ(all.size(), 7u);

    const std::vector<std::string> none;
    qh::Dict dict = mole->getOLEDictionaryWithContents(&none, true);
    const qh::Dict& attachment = *dict.findDict("__attach_version1.0_#00000000");
    EXPECT_EQ(std::string(attachment.findBytes("__substg1.0_3707001F")->text()), "name");
    // Below the top level a storage is entered only when the root holds one of
    // the same name: the root's empty "__substg1.0_3701000D" lets the embedded
    // message in, but it is walked under its own path.
    const qh::Dict* embedded = attachment.findDict("__substg1.0_3701000D");
    ASSERT_TRUE(embedded);
    EXPECT_EQ(std::string(embedded->findBytes("__substg1.0_0037001F")->text()), "inner");
    // the plain walk asks the full path instead
    qh::Dict plain = mole->getOLEDictionary(true);
    EXPECT_EQ(std::string(plain.findDict("__attach_version1.0_#00000000")
                              ->findDict("__substg1.0_3701000D")
                              ->findBytes("__substg1.0_0037001F")
                              ->text()),
              "inner");
}

TEST(Mole, BareNameRuleKeepsNestedStoragesClosed) {
    auto mole = open(CompoundWriter::fromDescription(R"(
        __attach_version1.0_#00000000/__substg1.0_3701000D/__substg1.0_0037001F: "inner"
    )").bytes());
    qh::Dict dict = mole->getOLEDictionaryWithContents(nullptr, true);
    const qh::Dict& attachment = *dict.findDict("__attach_version1.0_#00000000");
    EXPECT_FALSE(attachment.contains("__substg1.0_3701000D"));
    qh::Array array = mole->getOLEArray();
    const qh::Array& children = *array[0].dict()->findArray("childentry");
    ASSERT_EQ(children.size(), 1u);
    EXPECT_TRUE(children[0].dict()->empty());
}

TEST(Mole, DeInitializeLeavesAnEmptyFacade) {
    auto mole = open(CompoundWriter().addStream("a", "x").bytes());
    mole->deInitialize();
    EXPECT_FALSE(mole->getStream("a"));
    EXPECT_TRUE(mole->getOLEDictionary().empty());
    EXPECT_TRUE(mole->getDirectory().empty());
    auto blank = qh::Mole::initialize();
    EXPECT_FALSE(blank->getStream("a"));
    EXPECT_TRUE(blank->getOLEArray().empty());
}

// Damaged links give what the chain still holds. (Chains and sibling links
// out of range or in cycles: AllocationTable and Directory in StructureTest;
// loops, overflowing counts and sizes beyond the file: tests/hostile.)
TEST(Mole, DamagedChainsAndLinksGiveWhatRemains) {
    qh::Log::setSystemLogEnabled(false);
    struct Case {
        const char* what;
        std::function<void(CompoundFile&)> damage;
        const char* path;
        std::size_t bytes;  // what getStream(path) gives
    } cases[] = {
        {"big chain points past the file", [](auto& f) { f.setFat(f.startSector("big"), 120); }, "big", 512},
        {"small chain ends early", [](auto& f) { f.setMiniFat(f.startSector("small"), 0xFFFFFFFE); }, "small", 64},
        {"small sector outside the container", [](auto& f) { f.setEntryField("small", 116, 5000); }, "small", 0},
        {"storage child loops to its parent",
         [](auto& f) { f.setEntryField("st/deep", 76, f.entryNumber("st")); }, "st/deep/st/inner", 128},
        // cut in the middle of the big stream: the whole sectors that remain
        {"file cut", [](auto& f) { f.truncate(f.sectorOffset(f.startSector("big")) + 700); }, "big", 700},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CompoundFile file = CompoundWriter::fromDescription(R"(
            small: 300 * 61
            big: 6000 * 62
            st/inner: 100 * 63
            st/deep/leaf: 5000 * 64
            other: "x"
        )").build();
        c.damage(file);
        auto mole = open(file.bytes);
        std::optional<qh::Blob> stream = mole->getStream(c.path);
        ASSERT_TRUE(stream);
        EXPECT_EQ(stream->size(), c.bytes);
    }
}

// The walks list an entry only where its path leads back to it: a storage
// whose child link is 0 has the root among its children, which no lookup
// finds by name; a name with a slash in it is looked up as two names.
TEST(Mole, WalksListOnlyEntriesTheirPathsFind) {
    struct Case {
        const char* what;
        std::function<void(CompoundFile&)> damage;
    } cases[] = {
        {"child link 0", [](auto& f) { f.setEntryField("st", 76, 0); }},
        {"name with a slash", [](auto& f) { f.bytes[f.entryOffset("st/xy") + 2] = '/'; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CompoundFile file = CompoundWriter().addStream("st/xy", "x").addStream("y", "y").build();
        c.damage(file);
        auto mole = open(file.bytes);
        for (bool exact : {false, true}) {
            const qh::Dict dict = mole->getOLEDictionary(exact);
            ASSERT_TRUE(dict.findDict("st"));
            EXPECT_TRUE(dict.findDict("st")->empty());
            EXPECT_TRUE(dict.findBytes("y"));
        }
    }
}

TEST(Mole, EntriesSharingOneChainShareOneBuffer) {
    CompoundWriter writer;
    writer.addStream("long", qh::Bytes(64 * 1024, 1));
    for (int i = 0; i < 200; ++i) writer.addStream("s" + std::to_string(1000 + i), qh::Bytes(4096, 2));
    CompoundFile file = writer.build();
    const std::uint32_t start = file.startSector("long");
    for (int i = 0; i < 200; ++i) file.setEntryField("s" + std::to_string(1000 + i), 116, start);

    auto mole = open(file.bytes);
    qh::Dict whole = mole->getOLEDictionary();
    std::set<const std::uint8_t*> buffers;
    for (const auto& [name, value] : whole) buffers.insert(value.bytes()->data());
    EXPECT_EQ(buffers.size(), 1u);

    // With exact streams of 200 different sizes the buffers cannot be shared:
    // past a budget of twice the file the streams are held as null values.
    for (int i = 0; i < 200; ++i) file.setEntryField("s" + std::to_string(1000 + i), 120, 60000 + i);
    mole = open(file.bytes);
    qh::Dict exact = mole->getOLEDictionary(true);
    std::size_t held = 0, nulls = 0;
    for (const auto& [name, value] : exact) {
        if (value.isNull()) ++nulls;
        else held += value.bytes()->size();
    }
    EXPECT_GT(nulls, 0u);
    EXPECT_LE(held, 2 * file.bytes.size() + 64 * 1024);
}

TEST(Mole, DeepNestingIsWalkedToABoundedDepth) {
    std::string path;
    for (int i = 0; i < 300; ++i) path += "d/";
    auto mole = open(CompoundWriter().addStream(path + "leaf", "x").bytes());
    EXPECT_TRUE(mole->getStream(path + "leaf"));  // a path lookup has no depth limit
    qh::Dict dict = mole->getOLEDictionary();
    EXPECT_GT(depth(dict), 100u);
    EXPECT_LT(depth(dict), 300u);
    EXPECT_LT(mole->getDirectory().size(), 300u);
}
