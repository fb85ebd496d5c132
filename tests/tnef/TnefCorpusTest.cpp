// Real TNEF files: every one reads, the bodies match the expected outputs
// shipped beside them, and the attachments agree with what Debian's `tnef`
// program extracts, except where our rules say otherwise (listed below).
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "core/Log.h"
#include "readers/tnef/ReadTNEF.h"
#include "support/Corpus.h"

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;  // name -> bytes

std::vector<fs::path> tnefFiles() {
    std::vector<fs::path> files;
    for (const auto& path : qhtest::corpusFiles("tnef", "")) {
        if (path.filename().string().find(".expected") == std::string::npos) files.push_back(path);
    }
    return files;
}

// The attachments as the command writes them: the names the search pass
// takes from titles keep their terminating zero, which the file name drops.
Files attachmentsOf(const qh::Dict* dictionary) {
    Files files;
    if (dictionary == nullptr) return files;
    const qh::Array* list = dictionary->findArray("AttachmentList");
    if (list == nullptr) return files;
    for (const qh::Value& item : *list) {
        const qh::Dict* attachment = item.dict();
        if (attachment == nullptr || attachment->findString("name") == nullptr) continue;
        std::string name = *attachment->findString("name");
        while (!name.empty() && name.back() == '\0') name.pop_back();
        const qh::Blob* data = attachment->findBytes("data");
        files[name] = data ? std::string(data->text()) : std::string();
    }
    return files;
}

Files extractedBy(const fs::path& tnefProgram, const fs::path& input, const fs::path& dir) {
    fs::create_directories(dir);
    const std::string command = "'" + tnefProgram.string() + "' --overwrite -f '" + input.string() + "' -C '" +
                                dir.string() + "' >/dev/null 2>&1";
    (void)std::system(command.c_str());
    Files files;
    for (const auto& entry : fs::directory_iterator(dir)) {
        files[entry.path().filename().string()] = std::string(
            reinterpret_cast<const char*>(qhtest::readFileBytes(entry.path()).data()), fs::file_size(entry.path()));
    }
    return files;
}

std::string sizesOf(const Files& files) {
    std::string out;
    for (const auto& [name, bytes] : files) out += name + "(" + std::to_string(bytes.size()) + ") ";
    return out;
}

// Where our result differs from the tnef program's, on purpose. Listed: what we write.
struct KnownDifference {
    const char* file;
    const char* reason;
    Files ours;
};

const std::vector<KnownDifference>& knownDifferences() {
    static const std::vector<KnownDifference> differences = {
        {"mk-MAPI_OBJECT.tnef",
         "the attachment's bytes sit in an object property of its property block; only \"Attach Data\" "
         "attributes give attachments",
         {}},
        {"tp-minimal_attachment.tnef",
         "its attribute ids lack the type half (0x00009002) and its first attribute has size 0, which ends "
         "decoding; the search finds no data id either",
         {}},
        {"mk-data-before-name.tnef",
         "data precedes each title; the search pairs a title with the data after it, and from two pairs on "
         "its list replaces the decoder's (the last title finds no data)",
         {{"AUTOEXEC.BAT", ""}, {"CONFIG.SYS", "boot.ini"}}},
        {"poi-quick-winmail.dat",
         "the same pairing: four pairs, each title with the next attachment's data, names from the titles",
         {{"quick.doc", "quick.html"}, {"QUICK~1.HTM", "quick.pdf"}, {"quick.pdf", "quick.txt"},
          {"quick.txt", "quick.xml"}}},
    };
    return differences;
}

TEST(TnefCorpus, EveryFileReads) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    for (const fs::path& path : tnefFiles()) {
        SCOPED_TRACE(path.filename().string());
        const qh::Bytes data = qhtest::readFileBytes(path);
        auto reader = qh::ReadTNEF::initWithData(data);
        auto summary = qh::ReadTNEF::getSummaryForMessage(data);
        ASSERT_TRUE(summary.has_value());
        if (path.filename() == "tw-badchecksum.tnef") {
            // Its signature is destroyed: no dictionary, the error summary.
            EXPECT_EQ(reader->returnFullDictionary(), nullptr);
            EXPECT_EQ(*summary->findString("Subject"), "** Error Reading Message **");
            continue;
        }
        ASSERT_NE(reader->returnFullDictionary(), nullptr);
        if (path.filename() != "tp-minimal_attachment.tnef") EXPECT_FALSE(reader->returnFullDictionary()->empty());
    }
}

TEST(TnefCorpus, BodiesMatchTheExpectedOutputs) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    int compared = 0;
    for (const fs::path& path : tnefFiles()) {
        for (const char* suffix : {".expected-body.rtf", ".expected-body.html"}) {
            const fs::path expectedPath = path.string() + suffix;
            if (!fs::exists(expectedPath)) continue;
            SCOPED_TRACE(expectedPath.filename().string());
            const qh::Bytes expected = qhtest::readFileBytes(expectedPath);
            auto reader = qh::ReadTNEF::initWithData(qhtest::readFileBytes(path));
            ASSERT_NE(reader->returnFullDictionary(), nullptr);
            if (std::string(suffix).ends_with("rtf")) {
                const qh::Value* rtf = reader->getContent("RTF");
                ASSERT_NE(rtf, nullptr);
                ASSERT_NE(rtf->bytes(), nullptr);
                EXPECT_TRUE(rtf->bytes()->view().size() == expected.size() &&
                            std::equal(expected.begin(), expected.end(), rtf->bytes()->data()));
            } else {
                const qh::Value* html = reader->getContent("HTML");
                ASSERT_NE(html, nullptr);
                ASSERT_NE(html->string(), nullptr);
                // One peer stored its copy with LF line ends; the stream has CR LF.
                auto normalised = [](std::string text) {
                    std::erase(text, '\r');
                    while (!text.empty() && text.back() == '\0') text.pop_back();
                    return text;
                };
                EXPECT_EQ(normalised(*html->string()), normalised(std::string(qh::asText(expected))));
            }
            ++compared;
        }
    }
    EXPECT_EQ(compared, 10);
}

TEST(TnefCorpus, ExpectedFacts) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    const fs::path dir = qhtest::corpusDir("tnef");
    auto quick = qh::ReadTNEF::initWithData(qhtest::readFileBytes(dir / "poi-quick-winmail.dat"));
    ASSERT_NE(quick->getContent("Subject"), nullptr);
    EXPECT_EQ(*quick->getContent("Subject")->string(), "This is a test message");

    auto simple = qh::ReadTNEF::initWithData(qhtest::readFileBytes(dir / "poi-bug52400-winmail-simple.dat"));
    ASSERT_NE(simple->getContent("HTML"), nullptr);
    EXPECT_NE(simple->getContent("HTML")->string()->find("This is the message body."), std::string::npos);
}

TEST(TnefCorpus, AttachmentsAgreeWithTheTnefProgram) {
    QH_REQUIRE_CORPUS("tnef");
    const fs::path program = "/usr/bin/tnef";
    if (!fs::exists(program)) GTEST_SKIP() << "Debian's tnef is not installed";
    qh::Log::setSystemLogEnabled(false);
    const fs::path scratch = fs::temp_directory_path() / ("qh-tnef-" + std::to_string(::getpid()));
    for (const fs::path& path : tnefFiles()) {
        const std::string name = path.filename().string();
        SCOPED_TRACE(name);
        auto reader = qh::ReadTNEF::initWithData(qhtest::readFileBytes(path));
        const Files ours = attachmentsOf(reader->returnFullDictionary());
        const Files theirs = extractedBy(program, path, scratch / name);
        auto known = std::find_if(knownDifferences().begin(), knownDifferences().end(),
                                  [&](const KnownDifference& d) { return name == d.file; });
        if (known == knownDifferences().end()) {
            EXPECT_EQ(ours, theirs) << "ours: " << sizesOf(ours) << " tnef: " << sizesOf(theirs);
            continue;
        }
        SCOPED_TRACE(known->reason);
        EXPECT_NE(ours, theirs);
        // Ours is listed by the name we write and by the name of the file of the
        // tnef program's output that holds the same bytes.
        Files expected;
        for (const auto& [ourName, theirName] : known->ours) {
            if (theirName.empty()) {
                expected[ourName] = "";
            } else {
                ASSERT_TRUE(theirs.count(theirName)) << theirName;
                expected[ourName] = theirs.at(theirName);
            }
        }
        EXPECT_EQ(ours, expected) << "ours: " << sizesOf(ours);
    }
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
}

}  // namespace
