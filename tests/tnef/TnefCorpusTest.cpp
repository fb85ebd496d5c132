// Real TNEF files (corpus/tnef and the winmail.dat inside the corpus .eml
// files), in both readings: every one reads, the bodies match the expected
// outputs shipped beside them, the attachments agree with what Debian's `tnef`
// program extracts, and (complete) subject, sender and plain body agree with
// its attribute dump; every difference is listed with its reason.
#include <fstream>
#include <set>

#include <quillhaven/MessageKeys.h>
#include "core/Base64.h"
#include "core/Log.h"
#include "readers/mime/ReadEML.h"
#include "readers/tnef/ReadTNEF.h"
#include "support/Oracle.h"

namespace {

namespace fs = std::filesystem;
namespace keys = qh::keys;
using qh::Reading;
using qhtest::json;

constexpr Reading kReadings[] = {Reading::classic, Reading::complete};

struct Sample {
    std::string name;
    fs::path path;  // where the bytes are as a file (the tnef program reads files)
    qh::Bytes data;
};

// corpus/tnef, then every TNEF stream attached to a corpus .eml (as the
// classic MIME reader decodes it), written out for the tnef program.
const std::vector<Sample>& samples() {
    static const qhclitest::ScratchDir scratch;
    static const std::vector<Sample> all = [] {
        std::vector<Sample> found;
        for (const auto& path : qhtest::corpusOf("tnef"))
            found.push_back({path.filename().string(), path, qhtest::readFileBytes(path)});
        for (const auto& path : qhtest::corpusOf("eml")) {
            auto reader = qh::ReadEML::initWithData(qhtest::readFileBytes(path));
            for (const qh::Value& item : qhtest::listOf(*reader->returnFullDictionary(), keys::kAttachmentList)) {
                const qh::Blob* data = item.dict()->findBytes(keys::kAttachData);
                if (data == nullptr || !data->text().starts_with("\x78\x9F\x3E\x22")) continue;
                const std::string name = path.filename().string();
                found.push_back({name + "/winmail.dat", scratch.path() / (name + ".tnef"),
                                 qh::Bytes(data->view().begin(), data->view().end())});
                std::ofstream(found.back().path, std::ios::binary) << data->text();
            }
        }
        return found;
    }();
    return all;
}

std::optional<qh::Dict> readAs(const Sample& sample, Reading reading) {
    auto reader = qh::ReadTNEF::initWithData(sample.data, {reading, true});
    if (reader->returnFullDictionary() == nullptr) return std::nullopt;
    return *reader->returnFullDictionary();
}

// One peer stored its HTML with LF line ends; the stream has CR LF.
std::string withoutCR(std::string body) {
    std::erase(body, '\r');
    while (!body.empty() && body.back() == '\0') body.pop_back();
    return body;
}

// Every sample reads in both readings, and gives what the peers expect: the
// bodies stored beside the samples, and a few facts of their tests.
TEST(TnefCorpus, EveryFileReadsInBothReadingsWithTheExpectedOutputs) {
    QH_REQUIRE_CORPUS("tnef");
    qh::Log::setSystemLogEnabled(false);
    ASSERT_GE(samples().size(), 19u);
    const std::map<std::string, json> facts = {
        {"poi-quick-winmail.dat", {{"subject", "This is a test message"}}},
        {"poi-bug52400-winmail-simple.dat", {{"html holds", "This is the message body."}}},
    };
    qhtest::FieldTable table("tnef / expected outputs");
    for (const Sample& sample : samples()) {
        json expected = facts.count(sample.name) ? facts.at(sample.name) : json::object();
        for (const std::string kind : {"rtf", "html"}) {
            const fs::path stored = sample.path.string() + ".expected-body." + kind;
            const std::string body = fs::exists(stored) ? qhclitest::readText(stored) : "";
            if (!body.empty()) expected[kind] = kind == "rtf" ? body : withoutCR(body);
        }
        for (Reading reading : kReadings) {
            SCOPED_TRACE(sample.name);
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
            EXPECT_TRUE(sample.name == "tp-minimal_attachment.tnef" || !dictionary->empty());
            const std::string html = qhtest::text(*dictionary, keys::kHTML);
            const qh::Blob* rtf = dictionary->findBytes(keys::kRTF);
            const bool holds = html.find(expected.value("html holds", "")) != std::string::npos;
            table.compare(sample.name,
                          {{"rtf", rtf ? json(rtf->text()) : json()}, {"html", withoutCR(html)},
                           {"subject", qhtest::text(*dictionary, keys::kSubject)},
                           {"html holds", holds ? expected.value("html holds", "") : html}},
                          expected);
        }
    }
    EXPECT_EQ(table.count("rtf") + table.count("html"), 20u);
}

// The attachments as the command writes them: names without the terminating
// zero the search pass keeps; a name taken twice gets " (2)" as on disk.
json attachmentsOf(const qh::Dict& dictionary) {
    json files = json::object();
    for (const qh::Value& item : qhtest::listOf(dictionary, keys::kAttachmentList)) {
        if (item.dict()->findString(keys::kAttachName) == nullptr) continue;
        std::string name = *item.dict()->findString(keys::kAttachName);
        while (!name.empty() && name.back() == '\0') name.pop_back();
        if (files.contains(name)) name = fs::path(name).stem().string() + " (2)" + fs::path(name).extension().string();
        const qh::Blob* data = item.dict()->findBytes(keys::kAttachData);
        files[name] = data ? qh::Base64::encode(data->view()) : "";
    }
    return files;
}

// Where a reading's attachments differ from the tnef program's, on purpose.
// `pairs`: our name -> the name of tnef's file with the same bytes ("" for an
// empty file). `oursOnly` / `theirsOnly`: files the other side does not write.
struct KnownDifference {
    Reading reading;
    std::string file;
    std::string reason;
    std::map<std::string, std::string> pairs;
    std::set<std::string> oursOnly;
    std::set<std::string> theirsOnly;
};

const std::vector<KnownDifference> kAttachmentDifferences = {
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
     {{"quick.doc", "quick.html"}, {"QUICK~1.HTM", "quick.pdf"}, {"quick.pdf", "quick.txt"}, {"quick.txt", "quick.xml"}},
     {}, {"quick.doc", "quick.html", "quick.xml"}},
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

// What tnef extracts, with a known difference applied: its files set apart
// taken out, ours mapped through the listed pairs; our files set apart are
// taken out of `ours` (each must be there, and not empty).
json expectedAttachments(const json& theirs, const KnownDifference& known, json& ours) {
    json expected = json::object();
    for (const auto& [name, bytes] : theirs.items()) {
        if (!known.theirsOnly.count(name)) expected[name] = bytes;
    }
    for (const auto& [ourName, theirName] : known.pairs) {
        expected.erase(theirName);
        expected[ourName] = theirName.empty() ? json("") : theirs.value(theirName, json("missing from tnef's files"));
    }
    for (const std::string& name : known.oursOnly) {
        EXPECT_NE(ours.value(name, json("")), "") << name;
        ours.erase(name);
    }
    return expected;
}

TEST(TnefCorpus, AttachmentsAndTheAttributeDumpAgreeWithTheTnefProgram) {
    QH_REQUIRE_CORPUS("tnef");
    std::vector<fs::path> paths;
    for (const Sample& sample : samples()) paths.push_back(sample.path);
    const auto oracle = qhtest::runOracle({"tnef/tnef_oracle.py", "json", "/usr/bin/tnef"}, paths);
    QH_REQUIRE_ORACLE(oracle);
    qh::Log::setSystemLogEnabled(false);
    qhtest::FieldTable dump("tnef complete / tnef's attribute dump");
    qhtest::FieldTable files("tnef attachments / tnef");
    int senders = 0;
    for (std::size_t i = 0; i < samples().size(); ++i) {
        const Sample& sample = samples()[i];
        const json& theirs = oracle.readings[i];
        SCOPED_TRACE(sample.name);
        if (sample.name == "tw-badchecksum.tnef") {
            EXPECT_NE(theirs["exit"], 0);  // no signature: neither side reads it
            continue;
        }
        ASSERT_EQ(theirs["exit"], 0) << "the tnef program failed";
        for (Reading reading : kReadings) {
            json ours = attachmentsOf(readAs(sample, reading).value());
            auto known = std::find_if(kAttachmentDifferences.begin(), kAttachmentDifferences.end(),
                                      [&](const auto& d) { return d.reading == reading && sample.name == d.file; });
            json expected = known == kAttachmentDifferences.end() ? theirs["files"]
                                                                   : expectedAttachments(theirs["files"], *known, ours);
            files.compare(sample.name, {{reading == Reading::classic ? "classic" : "complete", ours}},
                          {{reading == Reading::classic ? "classic" : "complete", expected}});
        }
        // tnef's dump of the attribute-id-less stream stops on an assertion.
        if (sample.name == "tp-minimal_attachment.tnef") continue;
        ASSERT_EQ(theirs["dumpExit"], 0) << "the tnef program's dump failed";
        ASSERT_TRUE(theirs["dumped"]) << "the tnef program's dump is empty";
        // The complete reading; the sender's name stands in by its address
        // where the dump has none.
        const qh::Dict ours = *readAs(sample, Reading::complete);
        const qh::Array& from = qhtest::listOf(ours, keys::kFrom);
        const std::string name = theirs["from"]["name"], address = theirs["from"]["address"];
        json expected = {{"subject", theirs["subject"]}, {"from", json()}};
        if (!name.empty() || !address.empty()) expected["from"] = {name.empty() ? address : name, address};
        if (theirs["body"] != "") expected["body"] = theirs["body"];
        dump.compare(sample.name,
                     {{"subject", qhtest::text(ours, keys::kSubject)}, {"body", qhtest::text(ours, keys::kBody)},
                      {"from", from.empty() ? json() : json{qhtest::text(*from[0].dict(), keys::kName),
                                                            qhtest::text(*from[0].dict(), keys::kAddress)}}},
                     expected);
        senders += !from.empty();
    }
    EXPECT_GE(senders, 6);
}

}  // namespace
