// Real TNEF files (corpus/tnef and the winmail.dat inside the corpus .eml
// files), in both readings: every one reads, the bodies match the expected
// outputs shipped beside them, the attachments agree with what Debian's `tnef`
// program extracts, and (complete) subject, sender and plain body agree with
// its attribute dump; every difference is listed with its reason.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "readers/mime/ReadEML.h"
#include "readers/tnef/ReadTNEF.h"
#include "support/Corpus.h"

namespace {

namespace fs = std::filesystem;
namespace keys = qh::keys;
using Files = std::map<std::string, std::string>;  // name -> bytes

const fs::path kTnefProgram = "/usr/bin/tnef";

struct Sample {
    std::string name;
    fs::path path;  // where the bytes are as a file (the tnef program reads files)
    qh::Bytes data;
};

fs::path scratchDir() {
    static const fs::path dir = fs::temp_directory_path() / ("qh-tnef-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    return dir;
}

// corpus/tnef, then every TNEF stream attached to a corpus .eml (as the
// classic MIME reader decodes it), written out for the tnef program.
const std::vector<Sample>& samples() {
    static const std::vector<Sample> all = [] {
        std::vector<Sample> found;
        for (const auto& path : qhtest::corpusFiles("tnef", "")) {
            if (path.filename().string().find(".expected") != std::string::npos) continue;
            found.push_back({path.filename().string(), path, qhtest::readFileBytes(path)});
        }
        for (const auto& path : qhtest::corpusFiles("eml", ".eml")) {
            auto reader = qh::ReadEML::initWithData(qhtest::readFileBytes(path));
            const qh::Dict* message = reader ? reader->returnFullDictionary() : nullptr;
            const qh::Array* list = message ? message->findArray(keys::kAttachmentList) : nullptr;
            if (list == nullptr) continue;
            for (const qh::Value& item : *list) {
                const qh::Blob* data = item.dict() ? item.dict()->findBytes(keys::kAttachData) : nullptr;
                if (data == nullptr || data->size() < 4 || data->text().substr(0, 4) != "\x78\x9F\x3E\x22") continue;
                Sample sample{path.filename().string() + "/winmail.dat", scratchDir() / (path.filename().string() + ".tnef"),
                              qh::Bytes(data->view().begin(), data->view().end())};
                std::ofstream(sample.path, std::ios::binary).write(data->text().data(), std::streamsize(data->size()));
                found.push_back(std::move(sample));
            }
        }
        return found;
    }();
    return all;
}

std::optional<qh::Dict> readAs(const Sample& sample, qh::Reading reading) {
    auto reader = qh::ReadTNEF::initWithData(sample.data, {reading, true});
    if (reader->returnFullDictionary() == nullptr) return std::nullopt;
    return *reader->returnFullDictionary();
}

// The attachments as the command writes them: names without the terminating
// zero the search pass keeps; a name taken twice gets " (2)" as on disk.
Files attachmentsOf(const std::optional<qh::Dict>& dictionary) {
    Files files;
    if (!dictionary) return files;
    const qh::Array* list = dictionary->findArray(keys::kAttachmentList);
    if (list == nullptr) return files;
    for (const qh::Value& item : *list) {
        const qh::Dict* attachment = item.dict();
        if (attachment == nullptr || attachment->findString(keys::kAttachName) == nullptr) continue;
        std::string name = *attachment->findString(keys::kAttachName);
        while (!name.empty() && name.back() == '\0') name.pop_back();
        if (files.count(name)) name = fs::path(name).stem().string() + " (2)" + fs::path(name).extension().string();
        const qh::Blob* data = attachment->findBytes(keys::kAttachData);
        files[name] = data ? std::string(data->text()) : std::string();
    }
    return files;
}


// What the tnef program extracts; its exit status is checked by the caller.
std::pair<int, Files> extractedBy(const Sample& sample) {
    const fs::path dir = scratchDir() / ("x-" + fs::path(sample.name).string());
    fs::remove_all(dir);
    fs::create_directories(dir);
    const qhtest::CliResult result =
        qhtest::runProgram({kTnefProgram.string(), "--overwrite", "-f", sample.path.string(), "-C", dir.string()});
    Files files;
    for (const auto& entry : fs::directory_iterator(dir)) {
        const qh::Bytes bytes = qhtest::readFileBytes(entry.path());
        files[entry.path().filename().string()] = std::string(qh::asText(bytes));
    }
    return {result.exitCode, files};
}

std::string sizesOf(const Files& files) {
    std::string out;
    for (const auto& [name, bytes] : files) out += name + "(" + std::to_string(bytes.size()) + ") ";
    return out;
}

// Where a reading's result differs from the tnef program's, on purpose.
// `pairs`: our name -> the name of tnef's file with the same bytes ("" for an
// empty file). `oursOnly` / `theirsOnly`: files the other side does not write.
struct KnownDifference {
    qh::Reading reading;
    const char* file;
    const char* reason;
    Files pairs;
    std::set<std::string> oursOnly;
    std::set<std::string> theirsOnly;
};

const std::vector<KnownDifference>& knownDifferences() {
    using qh::Reading;
    static const std::vector<KnownDifference> differences = {
        {Reading::classic, "mk-MAPI_OBJECT.tnef",
         "classic: the attachment's bytes sit in an object property of its property block; only \"Attach Data\" "
         "attributes give attachments", {}, {}, {"Untitled_Attachment"}},
        {Reading::classic, "tp-minimal_attachment.tnef",
         "classic: its attribute ids lack the type half (0x00009002) and its first attribute has size 0, which "
         "ends decoding; the search finds no data id either", {}, {}, {"tnef-tmp"}},
        {Reading::classic, "mk-data-before-name.tnef",
         "classic: data precedes each title; the search pairs a title with the data after it, and from two "
         "pairs on its list replaces the decoder's (the last title finds no data)",
         {{"AUTOEXEC.BAT", ""}, {"CONFIG.SYS", "boot.ini"}}, {}, {"boot.ini"}},
        {Reading::classic, "poi-quick-winmail.dat",
         "classic: the same pairing: four pairs, each title with the next attachment's data, names from the titles",
         {{"quick.doc", "quick.html"}, {"QUICK~1.HTM", "quick.pdf"}, {"quick.pdf", "quick.txt"},
          {"quick.txt", "quick.xml"}}, {}, {"quick.doc", "quick.html", "quick.xml"}},
        {Reading::classic, "mk-rich-text.eml/winmail.dat",
         "classic: the same pairing: the JPEG's title meets the placeholder text of an attached message, and "
         "the attached messages keep only that text",
         {}, {"KITTEN~1.JPG", "Untitled Attachment"}, {"Untitled Attachment", "kitten-playing-with-a-christmas-tree.jpg"}},
        {Reading::complete, "tp-minimal_attachment.tnef",
         "the stream names its one attachment nowhere; tnef writes it under its temporary file name",
         {{"Unnamed Attachment", "tnef-tmp"}}, {}, {}},
        {Reading::complete, "mk-rich-text.eml/winmail.dat",
         "the two attached messages (method 5) are read and converted to MIME; tnef writes their raw objects "
         "under one name, the second overwriting the first",
         {}, {"Build a train table.eml", "Christmas Celebration!.eml"}, {"Untitled Attachment"}},
    };
    return differences;
}

TEST(TnefCorpus, EveryFileReadsInBothReadings) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    ASSERT_GE(samples().size(), 19u);
    for (const Sample& sample : samples()) {
        SCOPED_TRACE(sample.name);
        for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
            const std::optional<qh::Dict> dictionary = readAs(sample, reading);
            auto summary = qh::ReadTNEF::getSummaryForMessage(sample.data, {reading, true});
            ASSERT_TRUE(summary.has_value());
            if (sample.name == "tw-badchecksum.tnef") {
                // Its signature is destroyed: no dictionary, the error summary.
                EXPECT_FALSE(dictionary.has_value());
                EXPECT_EQ(*summary->findString(keys::kSubject), "** Error Reading Message **");
                continue;
            }
            ASSERT_TRUE(dictionary.has_value());
            if (sample.name != "tp-minimal_attachment.tnef") EXPECT_FALSE(dictionary->empty());
        }
    }
}

TEST(TnefCorpus, BodiesMatchTheExpectedOutputs) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    // One peer stored its copy with LF line ends; the stream has CR LF.
    auto normalised = [](std::string text) {
        std::erase(text, '\r');
        while (!text.empty() && text.back() == '\0') text.pop_back();
        return text;
    };
    int compared = 0;
    for (const Sample& sample : samples()) {
        for (const char* suffix : {".expected-body.rtf", ".expected-body.html"}) {
            const fs::path expectedPath = sample.path.string() + suffix;
            if (!fs::exists(expectedPath)) continue;
            SCOPED_TRACE(expectedPath.filename().string());
            const qh::Bytes expected = qhtest::readFileBytes(expectedPath);
            for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
                const std::optional<qh::Dict> dictionary = readAs(sample, reading);
                ASSERT_TRUE(dictionary.has_value());
                if (std::string(suffix).ends_with("rtf")) {
                    const qh::Blob* rtf = dictionary->findBytes(keys::kRTF);
                    ASSERT_NE(rtf, nullptr);
                    EXPECT_EQ(rtf->text(), qh::asText(expected));
                } else {
                    const std::string* html = dictionary->findString(keys::kHTML);
                    ASSERT_NE(html, nullptr);
                    EXPECT_EQ(normalised(*html), normalised(std::string(qh::asText(expected))));
                }
                ++compared;
            }
        }
    }
    EXPECT_EQ(compared, 20);
}

TEST(TnefCorpus, ExpectedFacts) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    const fs::path dir = qhtest::corpusDir("tnef");
    for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
        auto quick = qh::ReadTNEF::initWithData(qhtest::readFileBytes(dir / "poi-quick-winmail.dat"), {reading, true});
        ASSERT_NE(quick->getContent(keys::kSubject), nullptr);
        EXPECT_EQ(*quick->getContent(keys::kSubject)->string(), "This is a test message");
        auto simple =
            qh::ReadTNEF::initWithData(qhtest::readFileBytes(dir / "poi-bug52400-winmail-simple.dat"), {reading, true});
        ASSERT_NE(simple->getContent(keys::kHTML), nullptr);
        EXPECT_NE(simple->getContent(keys::kHTML)->string()->find("This is the message body."), std::string::npos);
    }
}

TEST(TnefCorpus, AttachmentsAgreeWithTheTnefProgram) {
    QH_REQUIRE_CORPUS("tnef");
    if (!fs::exists(kTnefProgram)) GTEST_SKIP() << "Debian's tnef is not installed";
    qh::Log::setSystemLogEnabled(false);
    for (const Sample& sample : samples()) {
        SCOPED_TRACE(sample.name);
        const auto [exitCode, theirs] = extractedBy(sample);
        if (sample.name == "tw-badchecksum.tnef") {
            EXPECT_NE(exitCode, 0);  // no signature: neither side reads it
            continue;
        }
        ASSERT_EQ(exitCode, 0) << "the tnef program failed";
        for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
            SCOPED_TRACE(reading == qh::Reading::classic ? "classic" : "complete");
            const Files ours = attachmentsOf(readAs(sample, reading));
            auto known = std::find_if(knownDifferences().begin(), knownDifferences().end(), [&](const auto& d) {
                return d.reading == reading && sample.name == d.file;
            });
            if (known == knownDifferences().end()) {
                EXPECT_EQ(ours, theirs) << "ours: " << sizesOf(ours) << " tnef: " << sizesOf(theirs);
                continue;
            }
            SCOPED_TRACE(known->reason);
            // Ours, with the listed files set apart, is theirs with theirs set apart,
            // our names mapped through the listed pairs.
            Files expected;
            for (const auto& [name, bytes] : theirs) {
                if (!known->theirsOnly.count(name)) expected[name] = bytes;
            }
            for (const auto& [ourName, theirName] : known->pairs) {
                expected.erase(theirName);
                if (theirName.empty()) {
                    expected[ourName] = "";
                } else {
                    ASSERT_TRUE(theirs.count(theirName)) << theirName;
                    expected[ourName] = theirs.at(theirName);
                }
            }
            Files compared;
            for (const auto& [name, bytes] : ours) {
                if (known->oursOnly.count(name)) {
                    EXPECT_FALSE(bytes.empty()) << name;
                } else {
                    compared[name] = bytes;
                }
            }
            for (const std::string& name : known->oursOnly) EXPECT_TRUE(ours.count(name)) << name;
            EXPECT_EQ(compared, expected) << "ours: " << sizesOf(ours) << " tnef: " << sizesOf(theirs);
        }
    }
}

// The value the attribute dump prints after `marker`: "='v'" on its line for
// an attribute, "= 'v'" on the next for a MAPI property; "" when absent.
std::string dumpValue(const std::string& dump, const std::string& marker) {
    std::size_t at = dump.find(marker);
    if (at == std::string::npos) return "";
    const std::size_t quote = dump.find("'", at);
    if (quote == std::string::npos) return "";
    const std::size_t end = dump.find("'\n", quote + 1);
    return end == std::string::npos ? "" : dump.substr(quote + 1, end - quote - 1);
}

std::string firstOf(std::initializer_list<std::string> values) {
    for (const std::string& value : values) {
        if (!value.empty()) return value;
    }
    return "";
}

TEST(TnefCorpus, CompleteReadingAgreesWithTheAttributeDump) {
    QH_REQUIRE_CORPUS("tnef");
    if (!fs::exists(kTnefProgram)) GTEST_SKIP() << "Debian's tnef is not installed";
    qh::Log::setSystemLogEnabled(false);
    int senders = 0;
    for (const Sample& sample : samples()) {
        if (sample.name == "tw-badchecksum.tnef") continue;
        SCOPED_TRACE(sample.name);
        // tnef's dump of the attribute-id-less stream stops on an assertion.
        const bool dumpFails = sample.name == "tp-minimal_attachment.tnef";
        qhtest::CliResult dump =
            qhtest::runProgram({kTnefProgram.string(), "--debug", "-t", "-f", sample.path.string()});
        dump.out += dump.err;
        if (dumpFails) continue;
        ASSERT_EQ(dump.exitCode, 0) << "the tnef program failed";
        ASSERT_FALSE(dump.out.empty());
        const std::optional<qh::Dict> ours = readAs(sample, qh::Reading::complete);
        ASSERT_TRUE(ours.has_value());
        auto text = [&](std::string_view key) {
            const std::string* value = ours->findString(key);
            return value ? *value : std::string();
        };

        EXPECT_EQ(text(keys::kSubject),
                  firstOf({dumpValue(dump.out, "MAPI_SUBJECT <0037>"), dumpValue(dump.out, "(MESS) Subject <8004>"),
                           dumpValue(dump.out, "MAPI_CONVERSATION_TOPIC <0070>")}));

        std::string name = firstOf({dumpValue(dump.out, "MAPI_SENT_REPRESENTING_NAME <0042>"),
                                    dumpValue(dump.out, "MAPI_SENDER_NAME <0c1a>"),
                                    dumpValue(dump.out, "sender_display_name=")});
        // The SMTP addresses (0x5D02, 0x5D01) have no name in the dump.
        std::string address = firstOf({dumpValue(dump.out, "(MAPI) 5d02 "), dumpValue(dump.out, "(MAPI) 5d01 "),
                                       dumpValue(dump.out, "MAPI_SENT_REPRESENTING_EMAIL_ADDRESS <0065>"),
                                       dumpValue(dump.out, "MAPI_SENDER_EMAIL_ADDRESS <0c1f>"),
                                       dumpValue(dump.out, "sender_address=")});
        if (address.starts_with("SMTP:")) address.erase(0, 5);
        const qh::Array* from = ours->findArray(keys::kFrom);
        if (name.empty() && address.empty()) {
            EXPECT_EQ(from, nullptr);
        } else {
            ASSERT_NE(from, nullptr);
            const qh::Dict& sender = *from->front().dict();
            EXPECT_EQ(*sender.findString(keys::kName), name.empty() ? address : name);
            EXPECT_EQ(*sender.findString(keys::kAddress), address);
            ++senders;
        }

        const std::string body = firstOf({dumpValue(dump.out, "MAPI_BODY <1000>"), dumpValue(dump.out, "(MESS) Body <800c>")});
        if (!body.empty()) EXPECT_EQ(text(keys::kBody), body);
    }
    EXPECT_GE(senders, 6);
}

}  // namespace
