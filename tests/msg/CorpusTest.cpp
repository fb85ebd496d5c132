// Every corpus message through the reader: no crash in either stream mode,
// the dictionary's invariants, agreement with an independent reader
// (olefile) on subjects, plain bodies and attachment bytes, appointment
// times against the peers' dumps, and vCard / iCalendar text accepted by
// independent parsers.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include <quillhaven/ItemKeys.h>
#include "core/DateFormatting.h"
#include "core/Log.h"
#include "core/Messages.h"
#include <quillhaven/Reading.h>
#include "readers/msg/ReadMSG.h"
#include "support/Corpus.h"
#include "util/StringWangers.h"
#include <quillhaven/WriteEML.h>

namespace {

using qh::Dict;
using qh::ReadMSG;

// The output of one of this folder's Python oracles over `files`; failing or
// saying nothing is a failure (the oracle is installed: checked before).
std::string runPython(const std::string& script, const std::vector<std::filesystem::path>& files) {
    std::vector<std::string> argv{"/usr/bin/python3", std::string(QH_SOURCE_DIR) + "/tests/msg/" + script};
    for (const auto& file : files) argv.push_back(file.string());
    qhtest::CliResult run = qhtest::runProgram(argv);
    EXPECT_EQ(run.exitCode, 0) << script << ": " << run.err;
    EXPECT_FALSE(run.out.empty()) << script << " printed nothing";
    return run.out;
}

// olefile's reading of each file (tests/msg/olefile_oracle.py), by path.
std::map<std::string, nlohmann::json> olefileOracle(const std::vector<std::filesystem::path>& files) {
    std::istringstream lines(runPython("olefile_oracle.py", files));
    std::map<std::string, nlohmann::json> oracle;
    for (std::string line; std::getline(lines, line);) {
        auto entry = nlohmann::json::parse(line);
        oracle[entry["file"].get<std::string>()] = entry;
    }
    return oracle;
}

std::string fnv1a64(qh::ByteView bytes) {
    std::uint64_t value = 0xCBF29CE484222325ull;
    for (std::uint8_t byte : bytes) {
        value ^= byte;
        value *= 0x100000001B3ull;
    }
    char text[24];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
    return text;
}

std::string gremlinsZapped(const std::string& text) { return qh::StringWangers::zapGremlins(text).value_or(""); }

std::string firstLine(const std::string& text) { return text.substr(0, text.find_first_of("\r\n\v\f")); }

// Equal texts, or where they first part, briefly.
::testing::AssertionResult sameText(const std::string& ours, const std::string& theirs) {
    if (ours == theirs) return ::testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < ours.size() && at < theirs.size() && ours[at] == theirs[at]) ++at;
    return ::testing::AssertionFailure() << "texts differ at byte " << at << " of " << ours.size() << " / "
                                         << theirs.size() << ": ours \"" << ours.substr(at, 40) << "\", theirs \""
                                         << theirs.substr(at, 40) << "\"";
}

std::unique_ptr<ReadMSG> readFile(const std::filesystem::path& path, bool exact) {
    qh::Bytes bytes = qhtest::readFileBytes(path);
    return ReadMSG::initWithData(bytes, exact);
}

TEST(MsgCorpus, EveryFileReadsInBothModesWithTheInvariants) {
    QH_REQUIRE_CORPUS("msg");
    qh::Log::Capture quiet;
    for (const auto& path : qhtest::corpusFiles("msg", ".msg")) {
        for (bool exact : {false, true}) {
            auto reader = readFile(path, exact);
            ASSERT_TRUE(reader) << path;
            const Dict& message = *reader->returnFullDictionary();
            SCOPED_TRACE(path.filename().string() + (exact ? " exact" : " whole sectors"));
            ASSERT_TRUE(message.findArray("To"));
            ASSERT_TRUE(message.findArray("From"));
            EXPECT_EQ(message.findArray("From")->size(), 1u);
            EXPECT_TRUE(message.findString("Header"));
            if (const auto* list = message.findArray("AttachmentList")) EXPECT_FALSE(list->empty());
            for (const char* key : {"Body", "HTML"}) {
                if (const auto* text = message.findString(key)) EXPECT_FALSE(text->empty()) << key;
            }
            EXPECT_FALSE(reader->getContent("NoSuchKey"));
            // The writer takes every dictionary.
            EXPECT_FALSE(qh::WriteEML(message).formatOutputFile().empty());
            EXPECT_TRUE(ReadMSG::getSummaryForMessage(qhtest::readFileBytes(path), exact));
        }
    }
}

std::string jsonText(const nlohmann::json& value) { return value.is_string() ? value.get<std::string>() : ""; }
std::string textOf(const Dict& dict, std::string_view key) {
    const std::string* value = dict.findString(key);
    return value ? *value : std::string();
}

const Dict* firstRecord(const Dict& message, std::string_view key) {
    const qh::Array* list = message.findArray(key);
    return list && !list->empty() ? (*list)[0].dict() : nullptr;
}

// Files where olefile's reading (tests/msg/olefile_oracle.py) is not what the
// file means, by the field it gets wrong.
// A file listed here is still compared on every other field.
const std::map<std::string, std::pair<std::string, std::string>> kOracleWrong = {
    {"poi-clusterfuzz-testcase-minimized-POIHSMFFuzzer-4735011465854976.msg",
     {"attachments", "damaged directory tree (a fuzzer's minimized case) whose links olefile follows where our "
                     "compound reader stops: it lists a second attachment storage that ours does not"}},
};

// Each reading against olefile's (tests/msg/olefile_oracle.py): the classic
// one on the stored strings, the complete one on every field the oracle gives
// (attachment bytes are the same in both readings).
TEST(MsgCorpus, BothReadingsAgreeWithOlefile) {
    QH_REQUIRE_CORPUS("msg");
    if (!qhtest::pythonHas("olefile, json")) GTEST_SKIP() << "python3-olefile is not installed";
    auto files = qhtest::corpusFiles("msg", ".msg");
    std::map<std::string, nlohmann::json> oracle = olefileOracle(files);
    // An oracle that fails is a failure, not a skip.
    ASSERT_EQ(oracle.size(), files.size());

    const std::string unnamed = qh::Messages::localizedString("unnamedName");
    qh::Log::Capture quiet;
    std::size_t compared = 0, bodies = 0, htmls = 0, recipients = 0;
    for (const auto& path : files) {
        const std::string file = path.filename().string();
        SCOPED_TRACE(file);
        const nlohmann::json& entry = oracle[path.string()];
        if (entry.contains("error")) continue;  // olefile declines the file
        {
            const nlohmann::json& expected = entry;
            auto reader = readFile(path, true);
            ASSERT_TRUE(reader);
            const Dict& message = *reader->returnFullDictionary();
            // Subjects: the stored subject's first line, cleaned as every stored
            // string is (cut at a NUL or after a run of Latin text followed by CJK,
            // percent escapes decoded, trimmed). Where the file has none the
            // header's subject may stand in.
            if (expected["subject"].is_string()) {
                std::string subject = gremlinsZapped(firstLine(gremlinsZapped(expected["subject"].get<std::string>())));
                if (!subject.empty()) {
                    EXPECT_TRUE(sameText(textOf(message, "Subject"), subject)) << "subject";
                }
            }
            // Plain bodies, whole; a voice-note text may stand in for a missing one.
            if (expected["body"].is_string()) {
                std::string body = gremlinsZapped(expected["body"].get<std::string>());
                if (!body.empty()) {
                    EXPECT_TRUE(sameText(textOf(message, "Body"), body)) << "body";
                }
            }
        }
        ASSERT_TRUE(entry.contains("complete"));
        const nlohmann::json& expected = entry["complete"];
        ASSERT_FALSE(expected.contains("error")) << expected["error"];
        auto wrong = kOracleWrong.find(file);
        auto oracleRight = [&](std::string_view field) { return wrong == kOracleWrong.end() || wrong->second.first != field; };

        auto reader = ReadMSG::initWithData(qhtest::readFileBytes(path), qh::ReadOptions::complete());
        ASSERT_TRUE(reader);
        const Dict& message = *reader->returnFullDictionary();
        auto text = [&](std::string_view key) { return textOf(message, key); };

        if (expected["subject"].is_string() && oracleRight("subject")) {
            EXPECT_TRUE(sameText(text("Subject"), jsonText(expected["subject"]))) << "subject";
        }
        const Dict* from = firstRecord(message, "From");
        ASSERT_TRUE(from);
        for (auto [ours, theirs] : {std::pair{"Address", "address"}, std::pair{"Name", "name"}}) {
            const nlohmann::json& value = expected["from"][theirs];
            if (oracleRight("from") && value.is_string()) {
                EXPECT_EQ(textOf(*from, ours), jsonText(value)) << "sender";
            }
        }
        // Recipients by type: "name <address>", whatever the storage order.
        bool anyRecipient = false;
        for (const char* kind : {"To", "CC", "BCC"}) anyRecipient |= !expected["recipients"][kind].empty();
        if (anyRecipient && oracleRight("recipients")) {
            ++recipients;
            for (const char* kind : {"To", "CC", "BCC"}) {
                std::multiset<std::string> theirs, ours;
                for (const auto& record : expected["recipients"][kind]) {
                    std::string address = jsonText(record["address"]);
                    std::string name = record["name"].is_string() ? jsonText(record["name"]) : address;
                    theirs.insert(name + " <" + address + ">");
                }
                if (const qh::Array* list = message.findArray(kind)) {
                    for (const auto& value : *list) {
                        const std::string* name = value.dict()->findString("Name");
                        const std::string* address = value.dict()->findString("Address");
                        ours.insert((name ? *name : "") + " <" + (address ? *address : "<absent>") + ">");
                    }
                }
                EXPECT_EQ(ours, theirs) << kind;
            }
        }
        // Bodies: the plain body whole. The oracle reads no RTF text, so the
        // text of RTF-only files is left to the RTF reader's corpus test.
        if (expected["body"].is_string() && oracleRight("body")) {
            EXPECT_TRUE(sameText(text("Body"), jsonText(expected["body"]))) << "body";
            ++bodies;
        }
        if (oracleRight("html")) {
            if (expected["html"].is_string()) {
                EXPECT_TRUE(sameText(text("HTML"), jsonText(expected["html"]))) << "html";
                ++htmls;
            } else if (expected["rtfHtml"].get<bool>()) {
                EXPECT_NE(text("HTML").find("<"), std::string::npos) << "html from the RTF";
            } else {
                EXPECT_FALSE(message.contains("HTML")) << "html";
            }
        }
        // Attachments: names and bytes; embedded items by the start of their name.
        if (oracleRight("attachments")) {
            std::multiset<std::string> theirs, ours, theirsEmbedded, oursEmbedded;
            for (const auto& attachment : expected["attachments"]) {
                std::string name = attachment["name"].is_string() ? jsonText(attachment["name"]) : unnamed;
                if (attachment["embedded"].get<bool>()) {
                    if (name.size() > 4 && name.ends_with(".msg")) name.resize(name.size() - 4);
                    theirsEmbedded.insert(name);
                    continue;
                }
                std::string bytes = attachment.contains("hash") ? jsonText(attachment["hash"]) + "/" +
                                                                      std::to_string(attachment["size"].get<std::int64_t>())
                                                                : "-";
                theirs.insert(name + " " + bytes);
            }
            if (const qh::Array* list = message.findArray("AttachmentList")) {
                for (const auto& value : *list) {
                    const Dict& item = *value.dict();
                    std::string name = *item.findString("name");
                    const std::string* type = item.findString("mimeType");
                    const qh::Blob* data = item.findBytes("data");
                    if (name == "Windows CE VoiceNote.wav") continue;
                    if (type && (*type == "message/rfc822" || *type == "text/vcard" || *type == "text/calendar") &&
                        data && !data->empty() && (name.ends_with(".eml") || name.ends_with(".vcf") || name.ends_with(".ics"))) {
                        std::string base = name.substr(0, name.size() - 4);
                        oursEmbedded.insert(base);
                        continue;
                    }
                    if (name == unnamed + ".eml") name = unnamed;
                    theirs.count(name + " -") ? ours.insert(name + " -")
                                              : ours.insert(name + " " + (data ? fnv1a64(data->view()) + "/" + std::to_string(data->size()) : "-"));
                }
            }
            EXPECT_EQ(ours, theirs) << "attachments";
            EXPECT_EQ(oursEmbedded.size(), theirsEmbedded.size()) << "embedded items";
            for (const std::string& name : theirsEmbedded) {
                bool found = std::any_of(oursEmbedded.begin(), oursEmbedded.end(),
                                         [&](const std::string& ourName) { return ourName.starts_with(name); });
                EXPECT_TRUE(found) << "embedded item " << name;
            }
        }
        ++compared;
    }
    EXPECT_GT(compared, files.size() * 3 / 4);
    EXPECT_GE(bodies, 40u);
    EXPECT_GE(htmls, 8u);
    EXPECT_GE(recipients, 30u);
}

TEST(MsgCorpus, AppointmentFieldsMatchThePeerDumps) {
    QH_REQUIRE_CORPUS("msg");
    qh::Log::Capture quiet;
    std::size_t checked = 0;
    for (const auto& path : qhtest::corpusFiles("msg", ".msg")) {
        std::filesystem::path dump = path.string() + ".expected.json";
        if (!std::filesystem::exists(dump)) continue;
        std::ifstream in(dump);
        auto expected = nlohmann::json::parse(in, nullptr, false);
        if (!expected.is_object() || !expected.contains("apptStartWhole")) continue;
        SCOPED_TRACE(path.filename().string());
        auto reader = readFile(path, true);
        ASSERT_TRUE(reader);
        const Dict& message = *reader->returnFullDictionary();
        EXPECT_EQ(*message.findString("MessageType"), "Calendar");
        for (auto [key, field] : {std::pair{qh::ItemKeys::kStartTime, "apptStartWhole"},
                                  std::pair{qh::ItemKeys::kEndTime, "apptEndWhole"}}) {
            const qh::Value* value = message.find(key);
            ASSERT_TRUE(value && value->date()) << key;
            // The dumps write "Mon, 12 Dec 2022 07:00:00 GMT".
            auto theirs = qh::DateFormatting::parse(expected[field].get<std::string>(), "E, d MMM yyyy HH:mm:ss z", "UTC");
            ASSERT_TRUE(theirs) << expected[field];
            EXPECT_EQ(value->date()->unixSeconds, theirs->unixSeconds) << key;
        }
        std::string location = expected.value("apptLocation", "");
        EXPECT_EQ(message.findString(qh::ItemKeys::kLocation) ? *message.findString(qh::ItemKeys::kLocation) : "",
                  location);
        if (expected.contains("apptRecur")) {
            const auto& pattern = expected["apptRecur"]["recurrencePattern"];
            const std::string* rule = message.findString(qh::ItemKeys::kRecurrenceRule);
            ASSERT_TRUE(rule);
            if (pattern["endType"] == 0x2022) {
                EXPECT_NE(rule->find(";COUNT=" + std::to_string(pattern["occurrenceCount"].get<int>())), std::string::npos)
                    << *rule;
            }
            EXPECT_EQ(rule->starts_with("FREQ=DAILY"), pattern["recurFrequency"] == 0x200A && pattern["patternType"] == 0)
                << *rule;
        }
        ++checked;
    }
    EXPECT_GE(checked, 5u);
}

TEST(MsgCorpus, ContactAndAppointmentTextParsesIndependently) {
    QH_REQUIRE_CORPUS("msg");
    if (!qhtest::pythonHas("icalendar, vobject")) GTEST_SKIP() << "python3-icalendar / python3-vobject are not installed";
    std::filesystem::path folder = std::filesystem::temp_directory_path() / ("qh-msg-items-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::vector<std::filesystem::path> written;
    qh::Log::Capture quiet;
    for (const auto& path : qhtest::corpusFiles("msg", ".msg")) {
        auto reader = readFile(path, true);
        if (!reader) continue;
        const Dict& message = *reader->returnFullDictionary();
        const std::string* type = message.findString("MessageType");
        if (!type || (*type != "Contact" && *type != "Calendar")) continue;
        qh::WriteEML writer(message);
        bool contact = *type == "Contact";
        std::filesystem::path out = folder / (path.stem().string() + (contact ? ".vcf" : ".ics"));
        std::ofstream(out, std::ios::binary) << (contact ? writer.exportContacts() : writer.exportAppointment());
        written.push_back(out);
    }
    ASSERT_GE(written.size(), 5u);
    std::istringstream lines(runPython("item_validator.py", written));
    std::size_t ok = 0;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.starts_with("ok ")) << line;
        ok += line.starts_with("ok ");
    }
    EXPECT_EQ(ok, written.size());
    std::filesystem::remove_all(folder);
}

}  // namespace
