// Real messages: every corpus .eml, and every message that `quillhaven convert`
// makes of the corpus .msg files, reads back; subject, addresses, bodies and
// attachment bytes agree with Python's email package except where this
// reader's rules say otherwise (listed below with their reasons).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <span>
#include <string>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "core/Base64.h"
#include <quillhaven/Value.h>
#include "readers/mime/ReadEML.h"
#include "util/DataWangers.h"
#include "support/Corpus.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// Where this reader and Python's email package part ways on the corpus, and why.
struct KnownDifference {
    const char* file;
    const char* field;  // "from", "body", "html", "attachment:<name>"
    const char* reason;
};

const KnownDifference kKnownDifferences[] = {
    {"mk-issue358.eml", "from",
     "the display name holds an unquoted '@'; Python takes the name as the address, this reader takes the "
     "address in angle brackets"},
    {"mk-issue358.eml", "body",
     "a line in the header block is neither a header nor folded; Python ends the headers there and reads the "
     "rest as body, this reader skips the line and goes on reading headers"},
    {"mk-issue358.eml", "html", "as for the body"},
    {"msgr-TestWithAttachmentsAndInlines.eml", "html",
     "quoted-printable bodies are percent-decoded as a whole, so %3A and %2F already in the HTML are decoded too"},
    {"msgr-TestWithInlineHavingContentDisposition.eml", "html", "as above"},
    {"msgr-TestWithAttachmentsAndInlines.eml", "attachment:attachment3d",
     "a part without a file name is named after its Content-Description; Python lists no name for it"},
};

bool listed(std::span<const KnownDifference> differences, const std::string& file, const std::string& field) {
    return std::any_of(differences.begin(), differences.end(),
                       [&](const KnownDifference& d) { return file == d.file && field == d.field; });
}

bool known(const std::string& file, const std::string& field) { return listed(kKnownDifferences, file, field); }

// Python's reading of each message, in order, or none when python3 or its
// email package is missing. An oracle that is there but fails (an error, no
// output, output that is no JSON) fails the test. One run for all files: the
// interpreter's start costs more than reading a message.
std::optional<std::vector<json>> oracle(const std::vector<fs::path>& messages) {
    static const bool available = qhtest::pythonHas("email.policy");
    if (!available) return std::nullopt;
    std::vector<std::string> argv = {"/usr/bin/python3", std::string(QH_SOURCE_DIR) + "/tests/mime/eml_oracle.py"};
    for (const fs::path& message : messages) argv.push_back(message.string());
    const qhtest::CliResult run = qhtest::runProgram(argv);
    if (run.exitCode != 0) {
        ADD_FAILURE() << "the oracle failed: " << run.err;
        return std::nullopt;
    }
    std::vector<json> results;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        results.push_back(json::parse(line, nullptr, false));
        if (results.back().is_discarded()) {
            ADD_FAILURE() << "the oracle wrote no JSON: " << line.substr(0, 200);
            return std::nullopt;
        }
    }
    if (results.size() != messages.size()) {
        ADD_FAILURE() << "the oracle read " << results.size() << " of " << messages.size() << " messages";
        return std::nullopt;
    }
    return results;
}

// Bodies compared line by line without the empty lines ("content" keeps only
// the non-empty ones) and without trailing blanks.
std::string normalised(std::string text, bool rewriteLinks) {
    std::string out;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') text[i] = '\n';
    }
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
        if (line.find_first_not_of(" \t") != std::string::npos) {
            if (!out.empty()) out.push_back('\n');
            out += line;
        }
        start = end + 1;
    }
    if (rewriteLinks) {
        // Every "http:" in a decoded body becomes "https:".
        for (std::size_t at = out.find("http:"); at != std::string::npos; at = out.find("http:", at + 6)) {
            out.replace(at, 5, "https:");
        }
    }
    return out;
}

std::string text(const qh::Dict& mail, std::string_view key) {
    const std::string* value = mail.findString(key);
    return value ? *value : std::string();
}

std::vector<std::string> addressesOf(const qh::Dict& mail, const char* key) {
    std::vector<std::string> out;
    if (const qh::Array* list = mail.findArray(key)) {
        for (const qh::Value& entry : *list) {
            const std::string* address = entry.dict() ? entry.dict()->findString("Address") : nullptr;
            if (address && !address->empty()) out.push_back(*address);
        }
    }
    return out;
}

// The header named on the first line, which is never read.
std::string firstLineHeader(const fs::path& message) {
    std::ifstream in(message, std::ios::binary);
    std::string line;
    std::getline(in, line);
    return line.substr(0, line.find(':'));
}

// The classic reading against Python's.
void compareWithOracle(const qh::Dict& mail, const json& expected, const std::string& file,
                       const std::string& unreadHeader) {
    EXPECT_EQ(text(mail, "Subject"), expected["subject"].get<std::string>());
    for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}}) {
        if (known(file, field)) continue;
        if (unreadHeader == key) {
            EXPECT_FALSE(mail.contains(key)) << key << " is on the first line";
            continue;
        }
        EXPECT_EQ(addressesOf(mail, key), expected[field].get<std::vector<std::string>>()) << key;
    }

    if (expected["plain"].is_string() && !known(file, "body")) {
        EXPECT_EQ(normalised(text(mail, "Body"), false), normalised(expected["plain"].get<std::string>(), true));
    }
    if (expected["html"].is_string() && !expected["html"].get<std::string>().empty() && !known(file, "html")) {
        EXPECT_EQ(normalised(text(mail, "HTML"), false), normalised(expected["html"].get<std::string>(), true));
    }

    // Attachments by name: this reader's names are lower-case and keep what
    // follows the file name in the disposition ("a.txt; size=10").
    std::map<std::string, const qh::Dict*> ours;
    if (const qh::Array* list = mail.findArray("AttachmentList")) {
        for (const qh::Value& item : *list) {
            const std::string* name = item.dict()->findString("name");
            ASSERT_NE(name, nullptr);
            ours.emplace(name->substr(0, name->find(';')), item.dict());
        }
    }
    std::set<std::string> matched;
    for (const json& attachment : expected["attachments"]) {
        const std::string name = attachment["name"].get<std::string>();
        auto found = ours.find(name);
        if (found == ours.end()) {
            ADD_FAILURE() << "missing attachment " << name;
            continue;
        }
        matched.insert(name);
        const std::string bytes = attachment["base64"].get<std::string>();
        if (const qh::Blob* data = found->second->findBytes("data")) {
            EXPECT_EQ(qh::Base64::encode(data->view()), bytes) << name;
        } else if (const std::string* content = found->second->findString("data")) {
            // A part that is not base64 keeps its content text as it stands.
            auto pythonBytes = qh::DataWangers::b64DecodeDataString(std::string_view(bytes));
            std::string pythonText = pythonBytes ? std::string(qh::asText(*pythonBytes)) : std::string();
            EXPECT_EQ(normalised(*content, false), normalised(pythonText, false)) << name;
        }
    }
    for (const auto& [name, item] : ours) {
        if (!matched.count(name)) {
            EXPECT_TRUE(known(file, "attachment:" + name)) << "unexpected attachment " << name;
        }
    }
}

// Where the complete reading and Python's email package part ways on the
// corpus, and why: each is the peer's own reading of a malformed message.
const KnownDifference kCompleteDifferences[] = {
    {"mk-issue358.eml", "from",
     "the display name holds an unquoted '@' before the angle address; Python takes the name as the address"},
    {"mk-issue358.eml", "plain",
     "a line in the header block is neither a header nor folded; Python ends the headers there and reads the "
     "base64 text/plain part undecoded as the body"},
    {"mk-issue358.eml", "html", "as for the plain body"},
    {"mk-issue358.eml", "attachments", "as for the plain body"},
    {"mk-empty-multipart.eml", "attachments",
     "a multipart/alternative without a single part holds nothing; Python lists it as an empty leaf"},
};

bool knownComplete(const std::string& file, const std::string& field) { return listed(kCompleteDifferences, file, field); }

std::vector<std::pair<std::string, std::string>> mailboxesOf(const qh::Dict& mail, std::string_view key) {
    std::vector<std::pair<std::string, std::string>> out;
    if (const qh::Array* list = mail.findArray(key)) {
        for (const qh::Value& entry : *list)
            out.emplace_back(text(*entry.dict(), "Name"), text(*entry.dict(), "Address"));
    }
    return out;
}

// Every corpus message in both readings against Python's. The classic one:
// subject, addresses, bodies and attachment bytes. The complete one: subject,
// address lists with their names, the date, the message id, both bodies, and
// every attachment in order with its type, name, content id and bytes.
TEST(EmlCorpus, BothReadingsAgreeWithPython) {
    QH_REQUIRE_CORPUS("eml");
    auto files = qhtest::corpusFiles("eml", ".eml");
    ASSERT_FALSE(files.empty());
    auto expected = oracle(files);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string file = files[i].filename().string();
        SCOPED_TRACE(file);
        qh::Bytes bytes = qhtest::readFileBytes(files[i]);
        auto classic = qh::ReadEML::initWithData(bytes);
        auto reader = qh::ReadEML::initWithData(bytes, qh::ReadOptions::complete());
        ASSERT_NE(classic, nullptr);
        ASSERT_NE(reader, nullptr);
        EXPECT_TRUE(classic->returnFullDictionary()->contains("Header"));
        if (!expected) continue;
        compareWithOracle(*classic->returnFullDictionary(), (*expected)[i], file, firstLineHeader(files[i]));
        const qh::Dict& mail = *reader->returnFullDictionary();
        const json& theirs = (*expected)[i]["complete"];
        EXPECT_EQ(text(mail, "Subject"), (*expected)[i]["subject"].get<std::string>());
        for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}, {"replyTo", "ReplyTo"}}) {
            if (knownComplete(file, field)) continue;
            std::vector<std::pair<std::string, std::string>> want;
            for (const json& entry : theirs[field]) {
                std::string name = entry[0].get<std::string>(), address = entry[1].get<std::string>();
                want.emplace_back(name.empty() ? address : name, address);  // a nameless mailbox shows its address
            }
            EXPECT_EQ(mailboxesOf(mail, key), want) << key;
        }
        const qh::Value* stamp = mail.find("TimeStamp");
        if (theirs["date"].is_string()) {
            ASSERT_TRUE(stamp && stamp->date()) << "TimeStamp";
            EXPECT_EQ(json::parse(stamp->toJsonText())["$date"].get<std::string>(), theirs["date"].get<std::string>());
        } else {
            EXPECT_EQ(stamp, nullptr);
        }
        EXPECT_EQ(text(mail, "MessageID"), theirs["messageId"].get<std::string>());
        for (auto [field, key] : {std::pair{"plain", "Body"}, {"html", "HTML"}}) {
            if (knownComplete(file, field)) continue;
            std::string want = theirs[field].is_string() ? theirs[field].get<std::string>() : std::string();
            EXPECT_EQ(normalised(text(mail, key), false), normalised(want, false)) << key;
        }
        if (knownComplete(file, "attachments")) continue;
        const qh::Array* list = mail.findArray("AttachmentList");
        const json& attachments = theirs["attachments"];
        ASSERT_EQ(list ? list->size() : 0u, attachments.size()) << "attachments";
        for (std::size_t k = 0; k < attachments.size(); ++k) {
            const qh::Dict& item = *(*list)[k].dict();
            const json& want = attachments[k];
            const std::string name = *item.findString("name");
            SCOPED_TRACE(name);
            EXPECT_EQ(*item.findString("mimeType"), want["type"].get<std::string>());
            if (want["name"].is_string()) {
                EXPECT_EQ(name, want["name"].get<std::string>());
            } else if (want["type"] == "message/rfc822") {
                // Named after the attached message's subject, else numbered.
                EXPECT_TRUE(name.size() > 4 && name.substr(name.size() - 4) == ".eml");
            } else {
                EXPECT_EQ(name.rfind("attachment-" + std::to_string(k + 1) + ".", 0), 0u);
            }
            EXPECT_EQ(text(item, "AttachContentID"),
                      want["contentId"].is_string() ? want["contentId"].get<std::string>() : "");
            const qh::Blob* data = item.findBytes("data");
            ASSERT_NE(data, nullptr);
            EXPECT_EQ(item.find("size")->integer(), static_cast<std::int64_t>(data->size()));
            if (want["base64"].is_string()) EXPECT_EQ(qh::Base64::encode(data->view()), want["base64"].get<std::string>());
        }
    }
    if (!expected) GTEST_SKIP() << "python3 with its email package is not available";
}

// The messages the command writes of the corpus .msg files read back. The
// writer puts a "Generated-By" line first (never read) and writes "Cc" in
// mixed case (kept as text, not as an address list); bodies are not compared
// here, since the writer chooses their encoding and the MSG bodies are
// compared by the MSG tests.
TEST(EmlCorpus, ConvertedMsgFilesReadBack) {
    QH_REQUIRE_CORPUS("msg");
    auto files = qhtest::corpusFiles("msg", ".msg");
    ASSERT_FALSE(files.empty());
    const fs::path folder = fs::temp_directory_path() / ("qh-mime-roundtrip-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    std::vector<fs::path> written;
    std::vector<qh::Dict> dictionaries, completeDictionaries;
    for (const fs::path& path : files) {
        // The classic writer's text (convert writes MIME of the complete reading by default).
        qhtest::CliResult result = qhtest::runCli({"convert", "--classic", path.string()});
        if (result.exitCode != 0) continue;  // no dictionary: nothing to read back
        auto reader = qh::ReadEML::initWithData(qh::asBytes(result.out));
        ASSERT_NE(reader, nullptr) << path;
        EXPECT_TRUE(reader->returnFullDictionary()->contains("Header")) << path;
        dictionaries.push_back(*reader->returnFullDictionary());
        auto complete = qh::ReadEML::initWithData(qh::asBytes(result.out), qh::ReadOptions::complete());
        ASSERT_NE(complete, nullptr) << path;
        completeDictionaries.push_back(*complete->returnFullDictionary());
        written.push_back(folder / (path.stem().string() + ".eml"));
        std::ofstream(written.back(), std::ios::binary) << result.out;
    }
    EXPECT_GT(written.size(), 0u);
    auto expected = oracle(written);
    for (std::size_t i = 0; expected && i < written.size(); ++i) {
        SCOPED_TRACE(written[i].filename().string());
        const qh::Dict& mail = dictionaries[i];
        const json& theirs = (*expected)[i];
        EXPECT_EQ(text(mail, "Subject"), theirs["subject"].get<std::string>());
        EXPECT_EQ(addressesOf(mail, "From"), theirs["from"].get<std::vector<std::string>>());
        EXPECT_EQ(addressesOf(mail, "To"), theirs["to"].get<std::vector<std::string>>());
        // The complete reading reads the first line too, and every attachment.
        const qh::Dict& whole = completeDictionaries[i];
        EXPECT_EQ(text(whole, "Subject"), theirs["subject"].get<std::string>());
        for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}}) {
            EXPECT_EQ(addressesOf(whole, key), theirs[field].get<std::vector<std::string>>()) << "complete " << key;
        }
        std::size_t completeCount = whole.findArray("AttachmentList") ? whole.findArray("AttachmentList")->size() : 0;
        // A multipart without a single part holds nothing; Python lists it as an empty leaf.
        std::size_t theirCount = 0;
        for (const json& attachment : theirs["complete"]["attachments"]) {
            if (attachment["type"].get<std::string>().rfind("multipart/", 0) != 0) ++theirCount;
        }
        EXPECT_EQ(completeCount, theirCount) << "complete attachments";
        std::multiset<std::string> theirBytes;
        for (const json& attachment : theirs["attachments"]) theirBytes.insert(attachment["base64"].get<std::string>());
        // Every attachment this reader keeps is one Python finds, byte for byte.
        if (const qh::Array* list = mail.findArray("AttachmentList")) {
            for (const qh::Value& item : *list) {
                if (const qh::Blob* data = item.dict()->findBytes("data")) {
                    EXPECT_TRUE(theirBytes.count(qh::Base64::encode(data->view())))
                        << "attachment bytes differ: " << *item.dict()->findString("name");
                }
            }
        }
    }
    fs::remove_all(folder);
    if (!expected) GTEST_SKIP() << "python3 with its email package is not available";
}

}  // namespace
