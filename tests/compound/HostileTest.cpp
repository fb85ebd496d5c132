// Damaged files built with the writer: each ends quietly, bounded in time and
// memory, with the short read, empty list or none the facade gives.
#include <gtest/gtest.h>

#include <set>

#include "compound/Format.h"
#include <quillhaven/Mole.h>
#include "core/Log.h"
#include "support/CompoundWriter.h"

using qhtest::CompoundFile;
using qhtest::CompoundWriter;

namespace {

CompoundFile sample() {
    return CompoundWriter::fromDescription(R"(
        small: 300 * 61
        big: 6000 * 62
        st/inner: 100 * 63
        st/deep/leaf: 5000 * 64
        other: "x"
    )").build();
}

// Everything a reader may ask of a document; the bytes it materialised.
std::size_t exercise(const qh::Bytes& file) {
    auto mole = qh::Mole::initWithData(file);
    if (!mole) return 0;
    std::size_t total = 0;
    for (const qh::Value& record : mole->getDirectory()) {
        const std::string* name = record.dict()->findString("entryname");
        if (auto stream = mole->getStream(*name)) total += stream->size();
    }
    (void)mole->getOLEArray();
    (void)mole->getOLEDictionary(true);
    (void)mole->getOLEDictionaryWithContents(nullptr);
    mole->deInitialize();
    return total;
}

std::size_t depth(const qh::Dict& dict) {
    std::size_t deepest = 0;
    for (const auto& [key, value] : dict)
        if (const qh::Dict* inner = value.dict()) deepest = std::max(deepest, depth(*inner));
    return deepest + 1;
}

}  // namespace

TEST(Hostile, DamagedChainsAndLinksEndQuietly) {
    qh::Log::setSystemLogEnabled(false);
    struct Case {
        const char* what;
        std::function<void(CompoundFile&)> damage;
        const char* path;
        std::size_t bytes;  // what getStream(path) gives
    } cases[] = {
        {"big chain loops back to its start",
         [](auto& f) { f.setFat(f.startSector("big") + 11, f.startSector("big")); }, "big", SIZE_MAX - 1},
        {"big chain points past the table", [](auto& f) { f.setFat(f.startSector("big"), 0x7FFFFFFF); }, "big", 512},
        {"big chain points past the file", [](auto& f) { f.setFat(f.startSector("big"), 120); }, "big", 512},
        {"small chain loops", [](auto& f) { f.setMiniFat(f.startSector("small") + 4, f.startSector("small")); },
         "small", SIZE_MAX - 1},
        {"small chain ends early", [](auto& f) { f.setMiniFat(f.startSector("small"), 0xFFFFFFFE); }, "small", 64},
        {"small sector outside the container", [](auto& f) { f.setEntryField("small", 116, 5000); }, "small", 0},
        // read as a big stream from what is a small sector number
        {"size far beyond the file", [](auto& f) { f.setEntryField("other", 120, 0xFFFFFFF0); }, "other", SIZE_MAX - 1},
        {"sibling points at itself", [](auto& f) { f.setEntryField("st", 68, f.entryNumber("st")); }, "st/inner", 128},
        {"sibling points at the root", [](auto& f) { f.setEntryField("small", 72, 0); }, "small", 320},
        {"storage child loops to its parent",
         [](auto& f) { f.setEntryField("st/deep", 76, f.entryNumber("st")); }, "st/deep/st/inner", 128},
        {"thousands of master sectors claimed",
         [](auto& f) { f.setHeader32(44, 5000), f.setHeader32(68, 0), f.setHeader32(72, 0xFFFFFFFF); }, "big",
         SIZE_MAX - 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        CompoundFile file = sample();
        c.damage(file);
        auto mole = qh::Mole::initWithData(file.bytes);
        std::optional<qh::Blob> stream = mole ? mole->getStream(c.path) : std::nullopt;
        if (c.bytes == SIZE_MAX - 2) {
            // whatever it finds, it finds quietly
        } else if (c.bytes == SIZE_MAX - 1) {
            // a loop repeats sectors, never more than the file holds
            ASSERT_TRUE(stream);
            EXPECT_LE(stream->size(), file.bytes.size());
        } else {
            ASSERT_TRUE(stream);
            EXPECT_EQ(stream->size(), c.bytes);
        }
        EXPECT_LE(exercise(file.bytes), 64 * file.bytes.size());
    }
}

TEST(Hostile, TruncatedFilesNeverReadPastTheirEnd) {
    qh::Log::setSystemLogEnabled(false);
    const CompoundFile file = sample();
    for (std::size_t size = 0; size <= file.bytes.size(); size += 97) {
        qh::Bytes cut(file.bytes.begin(), file.bytes.begin() + size);
        (void)exercise(cut);
    }
    // cut in the middle of the big stream: the whole sectors that remain
    qh::Bytes cut(file.bytes.begin(), file.bytes.begin() + file.sectorOffset(file.startSector("big")) + 700);
    auto mole = qh::Mole::initWithData(cut);
    ASSERT_TRUE(mole);
    EXPECT_EQ(mole->getStream("big")->size(), 700u);
    qh::Dict dict = mole->getOLEDictionary(true);
    EXPECT_EQ(dict.findBytes("big")->size(), 700u);
}

TEST(Hostile, EntriesSharingOneChainShareOneBuffer) {
    CompoundWriter writer;
    writer.addStream("long", qh::Bytes(64 * 1024, 1));
    for (int i = 0; i < 200; ++i) writer.addStream("s" + std::to_string(1000 + i), qh::Bytes(4096, 2));
    CompoundFile file = writer.build();
    const std::uint32_t start = file.startSector("long");
    for (int i = 0; i < 200; ++i) file.setEntryField("s" + std::to_string(1000 + i), 116, start);

    auto mole = qh::Mole::initWithData(file.bytes);
    ASSERT_TRUE(mole);
    qh::Dict whole = mole->getOLEDictionary();
    std::set<const std::uint8_t*> buffers;
    for (const auto& [name, value] : whole) buffers.insert(value.bytes()->data());
    EXPECT_EQ(buffers.size(), 1u);

    // With exact streams of 200 different sizes the buffers cannot be shared:
    // past a budget of twice the file the streams are held as null values.
    for (int i = 0; i < 200; ++i) file.setEntryField("s" + std::to_string(1000 + i), 120, 60000 + i);
    mole = qh::Mole::initWithData(file.bytes);
    qh::Dict exact = mole->getOLEDictionary(true);
    std::size_t held = 0, nulls = 0;
    for (const auto& [name, value] : exact) {
        if (value.isNull()) ++nulls;
        else held += value.bytes()->size();
    }
    EXPECT_GT(nulls, 0u);
    EXPECT_LE(held, 2 * file.bytes.size() + 64 * 1024);
}

TEST(Hostile, DeepNestingIsWalkedToABoundedDepth) {
    std::string path;
    for (int i = 0; i < 300; ++i) path += "d/";
    auto mole = qh::Mole::initWithData(CompoundWriter().addStream(path + "leaf", "x").bytes());
    ASSERT_TRUE(mole);
    EXPECT_TRUE(mole->getStream(path + "leaf"));  // a path lookup has no depth limit
    qh::Dict dict = mole->getOLEDictionary();
    EXPECT_GT(depth(dict), 100u);
    EXPECT_LT(depth(dict), 300u);
    EXPECT_LT(mole->getDirectory().size(), 300u);
}
