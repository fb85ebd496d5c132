// Agreement with an independent compound-file reader (python3-olefile): every
// entry of every corpus message, and the writer's own fixtures. `ls` and `cat`
// run as commands; exact-size contents must equal the first `size` bytes of
// the whole-sector buffer.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include <quillhaven/Mole.h>
#include "core/Base64.h"
#include "support/CompoundWriter.h"
#include "support/Oracle.h"

namespace {

// path -> size text, from `quillhaven ls`, or (not `viaCommand`) from the
// facade's directory walk that ls prints.
std::map<std::string, std::string> lsListing(const std::string& file, bool viaCommand) {
    std::map<std::string, std::string> out;
    auto add = [&](const std::string& path, const std::string& size) {
        EXPECT_TRUE(out.emplace(path, size).second) << "listed twice: " << path;
    };
    if (!viaCommand) {
        auto mole = qh::Mole::initWithData(qhtest::readFileBytes(file));
        EXPECT_TRUE(mole) << file;
        for (const qh::Value& record : mole ? mole->getDirectory() : qh::Array()) {
            const qh::Value* size = record.dict()->find("entrysize");
            add(*record.dict()->findString("entryname"), size ? std::to_string(size->integer()) : "");
        }
        return out;
    }
    auto run = qhtest::runCli({"ls", file});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        auto tab = line.find('\t');
        EXPECT_NE(tab, std::string::npos) << line;
        add(line.substr(0, tab), line.substr(tab + 1));
    }
    return out;
}

// Compares ls and cat (as commands when `viaCommand`, else the facade calls
// they print from) with olefile's listing (tests/compound/olefile_listing.py).
void agree(const std::filesystem::path& file, const qhtest::json& expected, bool viaCommand, std::size_t bigSector) {
    SCOPED_TRACE(file.string());
    auto listed = lsListing(file.string(), viaCommand);
    // A sibling link of 0 makes the walk list the root among a storage's
    // children, while the name search treats the same link as absent: such a
    // (damaged) file shows "Root Entry" entries and streams the search misses.
    bool linkZero = false;
    for (const auto& [path, size] : listed) {
        const bool rootAsChild = path.size() > 11 && path.ends_with("/Root Entry");
        linkZero |= rootAsChild;
        EXPECT_TRUE(expected.contains(path) || rootAsChild) << "only listed by ls: " << path;
    }
    auto mole = qh::Mole::initWithData(qhtest::readFileBytes(file));
    ASSERT_TRUE(mole);
    for (const auto& [path, entry] : expected.items()) {
        SCOPED_TRACE(path);
        auto found = listed.find(path);
        ASSERT_NE(found, listed.end());
        if (!entry.is_null() && found->second.empty() && linkZero) continue;
        EXPECT_EQ(found->second, entry.is_null() ? "" : std::to_string(entry["size"].get<std::uint64_t>()));
        if (entry.is_null()) continue;
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
        const std::uint64_t size = entry["size"];
        const std::size_t unit = size < 4096 ? 64 : bigSector;
        EXPECT_GE(cat.size(), (size + unit - 1) / unit * unit);
        EXPECT_EQ(cat.size() % unit, 0u);
        const qh::Bytes data = qh::Base64::decode(qh::asBytes(entry["base64"].get<std::string>()));
        ASSERT_GE(cat.size(), size);
        EXPECT_TRUE(std::equal(data.begin(), data.end(), cat.begin()));
    }
}

const qhtest::Oracle kOlefile{"compound/olefile_listing.py", "olefile"};

}  // namespace

TEST(Oracle, CorpusMessagesAgreeWithAnIndependentReader) {
    QH_REQUIRE_CORPUS("msg");
    const auto files = qhtest::corpusOf("msg");
    ASSERT_FALSE(files.empty());
    const auto listings = qhtest::runOracle(kOlefile, files);
    QH_REQUIRE_ORACLE(listings);
    // ls and cat run as commands for a few files; for the rest the facade
    // calls they print from are compared, to keep the test quick.
    for (std::size_t i = 0; i < files.size(); ++i) agree(files[i], listings.readings[i]["entries"], i % 16 == 0, 512);
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
            __nameid_version1.0/__substg1.0_00020102: "\x00\x11\x22\x33"
            empty: ""
            storage/
        )"), 512},
        {"master-sector-chain", qhtest::CompoundWriter().addStream("big", big).addStream("small", "x").extraFatSectors(240), 512},
        {"4096-byte-sectors", qhtest::CompoundWriter(12).addStream("big", big).addStream("d/small", "tiny"), 4096},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.name);
        const qhtest::TemporaryFile file(c.writer.bytes(), c.name);
        const auto listing = qhtest::runOracle(kOlefile, {file.path()});
        QH_REQUIRE_ORACLE(listing);
        agree(file.path(), listing.readings[0]["entries"], true, c.bigSector);
    }
}
