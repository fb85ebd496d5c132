// Agreement with an independent compound-file reader (python3-olefile): every
// entry of every corpus message, and the writer's own fixtures. `ls` and `cat`
// run as commands; exact-size contents must equal the first `size` bytes of
// the whole-sector buffer.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include <quillhaven/Mole.h>
#include "support/CompoundWriter.h"
#include "support/Corpus.h"

namespace {

struct OracleEntry {
    bool stream = false;
    std::uint64_t size = 0;
    qh::Bytes data;
};
using Listing = std::map<std::string, OracleEntry>;

std::string python() {
    return std::filesystem::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}

qh::Bytes fromHex(std::string_view hex) {
    qh::Bytes out(hex.size() / 2);
    auto nibble = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<std::uint8_t>(nibble(hex[2 * i]) * 16 + nibble(hex[2 * i + 1]));
    return out;
}

// Whether python3 with olefile is installed: only its absence skips a test.
bool olefileInstalled() {
    return std::system((python() + " -c 'import olefile' >/dev/null 2>&1").c_str()) == 0;
}

// The listings olefile makes of `files`, by file, from one run of the
// script; none when the script fails.
std::optional<std::map<std::string, Listing>> oracle(const std::vector<std::filesystem::path>& files) {
    std::string command = python() + " " QH_SOURCE_DIR "/tests/compound/olefile_listing.py";
    for (const auto& file : files) command += " '" + file.string() + "'";
    command += " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return std::nullopt;
    std::string text;
    char chunk[65536];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) text.append(chunk, got);
    const int status = pclose(pipe);
    if (status != 0) return std::nullopt;
    std::map<std::string, Listing> listings;
    Listing* listing = nullptr;
    std::size_t position = 0;
    while (position < text.size()) {
        std::size_t end = text.find('\n', position);
        std::string_view line(text.data() + position, end - position);
        position = end + 1;
        std::vector<std::string_view> fields;
        for (std::size_t start = 0;;) {
            std::size_t tab = line.find('\t', start);
            fields.push_back(line.substr(start, tab == std::string_view::npos ? std::string_view::npos : tab - start));
            if (tab == std::string_view::npos) break;
            start = tab + 1;
        }
        if (fields[0] == "F") {
            listing = &listings[std::string(fields[1])];
            continue;
        }
        if (!listing) return std::nullopt;
        OracleEntry entry;
        entry.stream = fields[0] == "S";
        if (entry.stream) {
            entry.size = std::stoull(std::string(fields[2]));
            entry.data = fromHex(fields[3]);
        }
        (*listing)[std::string(fields[1])] = std::move(entry);
    }
    return listings;
}

std::optional<Listing> oracle(const std::filesystem::path& file) {
    auto listings = oracle(std::vector<std::filesystem::path>{file});
    if (!listings || !listings->count(file.string())) return std::nullopt;
    return listings->at(file.string());
}

// path -> size text, from `quillhaven ls`, or (not `viaCommand`) from the
// facade's directory walk that ls prints.
std::map<std::string, std::string> lsListing(const std::string& file, bool viaCommand) {
    std::map<std::string, std::string> out;
    if (!viaCommand) {
        const qh::Bytes bytes = qhtest::readFileBytes(file);
        auto mole = qh::Mole::initWithData(bytes);
        EXPECT_TRUE(mole) << file;
        if (!mole) return out;
        for (const qh::Value& record : mole->getDirectory()) {
            const qh::Dict* entry = record.dict();
            if (!entry) continue;
            const std::string* name = entry->findString("entryname");
            const qh::Value* size = entry->find("entrysize");
            const std::string path = name ? *name : std::string();
            EXPECT_TRUE(out.emplace(path, size ? std::to_string(size->integer()) : "").second) << "listed twice: " << path;
        }
        return out;
    }
    auto run = qhtest::runCli({"ls", file});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::size_t position = 0;
    while (position < run.out.size()) {
        std::size_t end = run.out.find('\n', position);
        std::string line = run.out.substr(position, end - position);
        position = end + 1;
        auto tab = line.find('\t');
        EXPECT_NE(tab, std::string::npos) << line;
        EXPECT_TRUE(out.emplace(line.substr(0, tab), line.substr(tab + 1)).second) << "listed twice: " << line;
    }
    return out;
}

std::size_t wholeSectors(std::uint64_t size, std::size_t bigSector) {
    const std::size_t unit = size < 4096 ? 64 : bigSector;
    return (size + unit - 1) / unit * unit;
}

// Compares ls and cat (as commands when `viaCommand`, else the facade calls they print from) with the oracle.
void agree(const std::filesystem::path& file, const Listing& expected, bool viaCommand, std::size_t bigSector) {
    SCOPED_TRACE(file.string());
    auto listed = lsListing(file.string(), viaCommand);
    // A sibling link of 0 makes the walk list the root among a storage's
    // children, while the name search treats the same link as absent: such a
    // (damaged) file shows "Root Entry" entries and streams the search misses.
    bool linkZero = false;
    for (const auto& [path, size] : listed) {
        const bool rootAsChild = path.size() > 11 && path.ends_with("/Root Entry");
        linkZero |= rootAsChild;
        if (!expected.count(path)) EXPECT_TRUE(rootAsChild) << "only listed by ls: " << path;
    }
    const qh::Bytes bytes = qhtest::readFileBytes(file);
    auto mole = qh::Mole::initWithData(bytes);
    ASSERT_TRUE(mole);
    for (const auto& [path, entry] : expected) {
        SCOPED_TRACE(path);
        auto found = listed.find(path);
        ASSERT_NE(found, listed.end());
        if (entry.stream && found->second.empty() && linkZero) continue;
        EXPECT_EQ(found->second, entry.stream ? std::to_string(entry.size) : "");
        if (!entry.stream) continue;
        qh::Bytes cat;
        if (viaCommand) {
            auto run = qhtest::runCli({"cat", file.string(), path});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            cat.assign(run.out.begin(), run.out.end());
        } else {
            auto stream = mole->getStream(path);
            ASSERT_TRUE(stream);
            cat.assign(stream->data(), stream->data() + stream->size());
        }
        // Whole sectors: at least the size rounded up, more when the chain is
        // longer than the size says (the read is not cut at the size).
        EXPECT_GE(cat.size(), wholeSectors(entry.size, bigSector));
        EXPECT_EQ(cat.size() % (entry.size < 4096 ? 64 : bigSector), 0u);
        ASSERT_GE(cat.size(), entry.size);
        EXPECT_TRUE(std::equal(entry.data.begin(), entry.data.end(), cat.begin()));
    }
}

std::filesystem::path writeTemp(const qh::Bytes& bytes, const std::string& name) {
    auto path = std::filesystem::temp_directory_path() / ("qh-compound-" + std::to_string(::getpid()) + "-" + name);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return path;
}

}  // namespace

TEST(Oracle, CorpusMessagesAgreeWithAnIndependentReader) {
    QH_REQUIRE_CORPUS("msg");
    auto files = qhtest::corpusFiles("msg", ".msg");
    ASSERT_FALSE(files.empty());
    if (!olefileInstalled()) GTEST_SKIP() << "python3-olefile is not installed";
    // One run of the oracle for every file: starting Python and olefile per
    // file took most of the test's time.
    auto listings = oracle(files);
    ASSERT_TRUE(listings) << "the olefile listing failed";
    std::size_t index = 0;
    for (const auto& file : files) {
        auto expected = listings->find(file.string());
        ASSERT_NE(expected, listings->end()) << file;
        // ls and cat run as commands for a few files; for the rest the facade
        // calls they print from are compared, to keep the test quick.
        agree(file, expected->second, index++ % 16 == 0, 512);
    }
}

TEST(Oracle, WriterFixturesAgreeWithAnIndependentReader) {
    qh::Bytes big(70000);
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 13 + (i >> 8));
    struct Case {
        const char* name;
        qhtest::CompoundWriter writer;
        std::size_t bigSector;
    } cases[] = {
        {"nested", qhtest::CompoundWriter::fromDescription(R"(
            __substg1.0_0037001F: "S\x00u\x00b\x00"
            __recip_version1.0_#00000000/__substg1.0_3001001F: "N\x00a\x00m\x00e\x00"
            __attach_version1.0_#00000000/__substg1.0_37010102: 5000 * 5a
            __attach_version1.0_#00000000/__substg1.0_3701000D/__substg1.0_0037001F: "inner"
            __nameid_version1.0/__substg1.0_00020102: hex 00 11 22 33
            empty: ""
            storage/
        )"), 512},
        {"master-sector-chain", qhtest::CompoundWriter().addStream("big", big).addStream("small", "x").extraFatSectors(240), 512},
        {"4096-byte-sectors", qhtest::CompoundWriter(12).addStream("big", big).addStream("d/small", "tiny"), 4096},
    };
    if (!olefileInstalled()) GTEST_SKIP() << "python3-olefile is not installed";
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto path = writeTemp(c.writer.bytes(), c.name);
        auto expected = oracle(path);
        if (!expected) std::filesystem::remove(path);
        ASSERT_TRUE(expected) << "olefile_listing.py failed";
        agree(path, *expected, true, c.bigSector);
        std::filesystem::remove(path);
    }
}
