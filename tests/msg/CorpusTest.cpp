// Every corpus message through the reader: no crash in either stream mode,
// the dictionary's invariants, agreement with an independent reader
// (olefile) in both readings, appointment fields against the peers' dumps,
// and vCard / iCalendar text accepted by independent parsers.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include <quillhaven/ItemKeys.h>
#include <quillhaven/Reading.h>
#include <quillhaven/WriteEML.h>
#include "core/Base64.h"
#include "core/DateFormatting.h"
#include "core/Log.h"
#include "core/Messages.h"
#include "readers/msg/ReadMSG.h"
#include "support/Oracle.h"
#include "util/StringWangers.h"

namespace {

namespace fs = std::filesystem;
using qh::Dict;
using qh::ReadMSG;
using qhtest::json;
using qhtest::text;

std::string gremlinsZapped(const std::string& value) { return qh::StringWangers::zapGremlins(value).value_or(""); }

// The classic reading compared here is the one of exact-size streams.
const qh::ReadOptions kClassic = qh::ReadOptions::classic(true);

// The reader's dictionary of `path` (the test fails on none).
Dict readFile(const fs::path& path, qh::ReadOptions options) {
    auto reader = ReadMSG::initWithData(qhtest::readFileBytes(path), options);
    EXPECT_TRUE(reader) << path;
    return reader ? *reader->returnFullDictionary() : Dict();
}

TEST(MsgCorpus, EveryFileReadsInBothModesWithTheInvariants) {
    QH_REQUIRE_CORPUS("msg");
    qh::Log::Capture quiet;
    for (const auto& path : qhtest::corpusOf("msg")) {
        for (bool exact : {false, true}) {
            SCOPED_TRACE(path.filename().string() + (exact ? " exact" : " whole sectors"));
            auto reader = ReadMSG::initWithData(qhtest::readFileBytes(path), exact);
            ASSERT_TRUE(reader);
            const Dict& message = *reader->returnFullDictionary();
            ASSERT_TRUE(message.findArray("To"));
            ASSERT_TRUE(message.findArray("From"));
            EXPECT_EQ(message.findArray("From")->size(), 1u);
            EXPECT_TRUE(message.findString("Header"));
            const auto* list = message.findArray("AttachmentList");
            EXPECT_TRUE(!list || !list->empty());
            for (const char* key : {"Body", "HTML"}) {
                EXPECT_TRUE(!message.findString(key) || !message.findString(key)->empty()) << key;
            }
            EXPECT_FALSE(reader->getContent("NoSuchKey"));
            EXPECT_FALSE(qh::WriteEML(message).formatOutputFile().empty());
            EXPECT_TRUE(ReadMSG::getSummaryForMessage(qhtest::readFileBytes(path), exact));
        }
    }
}

// The sender's field, and the recipients by type as "name <address>", sorted.
json fromField(const Dict& message, const char* key) {
    const qh::Array* from = message.findArray("From");
    const Dict* sender = from && !from->empty() ? (*from)[0].dict() : nullptr;
    return sender ? json(text(*sender, key)) : json();
}

json recipientsOf(const Dict& message) {
    json out = json::object();
    for (const char* kind : {"To", "CC", "BCC"}) {
        std::multiset<std::string> names;
        for (const qh::Value& value : qhtest::listOf(message, kind)) {
            const std::string* address = value.dict()->findString("Address");
            names.insert(text(*value.dict(), "Name") + " <" + (address ? *address : "<absent>") + ">");
        }
        out[kind] = names;
    }
    return out;
}

// Attachments as "name base64" ("name -" where the oracle has no bytes),
// embedded items apart by name (as far as the oracle names them), both sorted.
json attachmentsOf(const Dict& message, const json& theirs) {
    static const std::string unnamed = qh::Messages::localizedString("unnamedName");
    std::multiset<std::string> files, embedded;
    for (const qh::Value& value : qhtest::listOf(message, "AttachmentList")) {
        const Dict& item = *value.dict();
        std::string name = text(item, "name");
        const std::string type = text(item, "mimeType");
        const qh::Blob* data = item.findBytes("data");
        if (name == "Windows CE VoiceNote.wav") continue;
        const bool written = type == "message/rfc822" || type == "text/vcard" || type == "text/calendar";
        if (written && data && !data->empty() && (name.ends_with(".eml") || name.ends_with(".vcf") || name.ends_with(".ics"))) {
            name.resize(name.size() - 4);
            for (const std::string theirName : theirs["embedded"]) {
                if (name.starts_with(theirName)) name = theirName;
            }
            embedded.insert(name);
            continue;
        }
        if (name == unnamed + ".eml") name = unnamed;
        const bool noBytes = std::count(theirs["files"].begin(), theirs["files"].end(), name + " -") > 0;
        files.insert(name + " " + (data && !noBytes ? qh::Base64::encode(data->view()) : "-"));
    }
    return {{"files", files}, {"embedded", embedded}};
}

json theirAttachments(const json& reading) {
    static const std::string unnamed = qh::Messages::localizedString("unnamedName");
    std::multiset<std::string> files, embedded;
    for (const json& attachment : reading["attachments"]) {
        std::string name = attachment["name"].is_string() ? text(attachment["name"]) : unnamed;
        if (attachment["embedded"].get<bool>()) {
            embedded.insert(name.size() > 4 && name.ends_with(".msg") ? name.substr(0, name.size() - 4) : name);
        } else {
            files.insert(name + " " + attachment.value("base64", "-"));
        }
    }
    return {{"files", files}, {"embedded", embedded}};
}

// The complete reading as olefile gives it (the text of RTF-only files is
// left to the RTF reader's corpus test), and ours.
json theirCompleteView(const json& reading) {
    json out = {{"attachments", theirAttachments(reading)}};
    for (const char* field : {"subject", "body"}) {
        if (reading[field].is_string()) out[field] = reading[field];
    }
    for (const std::string field : {"address", "name"}) {
        if (reading["from"][field].is_string()) out["from." + field] = reading["from"][field];
    }
    json recipients = json::object();
    bool any = false;
    for (const char* kind : {"To", "CC", "BCC"}) {
        std::multiset<std::string> names;
        for (const json& record : reading["recipients"][kind]) {
            const std::string address = text(record["address"]);
            names.insert((record["name"].is_string() ? text(record["name"]) : address) + " <" + address + ">");
        }
        any |= !names.empty();
        recipients[kind] = names;
    }
    if (any) out["recipients"] = recipients;
    if (reading["html"].is_string() || !reading["rtfHtml"].get<bool>()) {
        out["html"] = reading["html"];
    } else {
        out["html from the RTF"] = true;
    }
    return out;
}

json ourCompleteView(const Dict& message, const json& theirs) {
    return {{"subject", text(message, "Subject")},
            {"body", text(message, "Body")},
            {"from.address", fromField(message, "Address")},
            {"from.name", fromField(message, "Name")},
            {"recipients", recipientsOf(message)},
            {"html", message.contains("HTML") ? json(text(message, "HTML")) : json()},
            {"html from the RTF", text(message, "HTML").find('<') != std::string::npos},
            {"attachments", attachmentsOf(message, theirs["attachments"])}};
}

// The classic reading against the strings the file stores: the subject's first
// line and the plain body, cleaned as every stored string is (cut at a NUL or
// after a run of Latin text followed by CJK, percent escapes decoded, trimmed).
json theirClassicView(const json& reading) {
    json out = json::object();
    const std::string zapped = gremlinsZapped(text(reading["subject"]));
    const std::string subject = gremlinsZapped(zapped.substr(0, zapped.find_first_of("\r\n\v\f")));
    if (!subject.empty()) out["subject"] = subject;
    const std::string body = gremlinsZapped(text(reading["body"]));
    if (!body.empty()) out["body"] = body;
    return out;
}

TEST(MsgCorpus, BothReadingsAgreeWithOlefile) {
    QH_REQUIRE_CORPUS("msg");
    const auto files = qhtest::corpusOf("msg");
    const auto oracle = qhtest::runOracle({"msg/olefile_oracle.py", "olefile, json"}, files);
    QH_REQUIRE_ORACLE(oracle);
    qhtest::FieldTable classic("msg classic / olefile");
    qhtest::FieldTable complete("msg complete / olefile",
        {{"poi-clusterfuzz-testcase-minimized-POIHSMFFuzzer-4735011465854976.msg", "attachments",
          "damaged directory tree (a fuzzer's minimized case) whose links olefile follows where our compound "
          "reader stops: it lists a second attachment storage that ours does not"}});
    qh::Log::Capture quiet;
    std::size_t compared = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string file = files[i].filename().string();
        const json& reading = oracle.readings[i];
        if (reading.contains("error")) continue;  // olefile declines the file
        ASSERT_FALSE(reading["complete"].contains("error")) << file << ": " << reading["complete"]["error"];
        const Dict ours = readFile(files[i], kClassic);
        classic.compare(file, {{"subject", text(ours, "Subject")}, {"body", text(ours, "Body")}}, theirClassicView(reading));
        const json theirs = theirCompleteView(reading["complete"]);
        complete.compare(file, ourCompleteView(readFile(files[i], qh::ReadOptions::complete()), theirs), theirs);
        ++compared;
    }
    EXPECT_GT(compared, files.size() * 3 / 4);
    EXPECT_GE(complete.count("body"), 40u);
    EXPECT_GE(complete.count("html"), 8u);
    EXPECT_GE(complete.count("recipients"), 30u);
}

// Appointment times, location and recurrence against the peers' dumps, which
// write dates as "Mon, 12 Dec 2022 07:00:00 GMT".
json ourDate(const Dict& message, std::string_view key) {
    const qh::Value* value = message.find(key);
    return value && value->date() ? json(value->date()->unixSeconds) : json();
}

TEST(MsgCorpus, AppointmentFieldsMatchThePeerDumps) {
    QH_REQUIRE_CORPUS("msg");
    qhtest::FieldTable table("msg appointments / peer dumps");
    qh::Log::Capture quiet;
    for (const auto& path : qhtest::corpusOf("msg")) {
        std::ifstream in(path.string() + ".expected.json");
        const json dump = json::parse(in, nullptr, false);
        if (!dump.is_object() || !dump.contains("apptStartWhole")) continue;
        json theirs = {{"type", "Calendar"}, {"location", dump.value("apptLocation", "")}};
        for (const char* field : {"apptStartWhole", "apptEndWhole"}) {
            auto date = qh::DateFormatting::parse(dump[field].get<std::string>(), "E, d MMM yyyy HH:mm:ss z", "UTC");
            theirs[field] = date ? json(date->unixSeconds) : dump[field];
        }
        const Dict message = readFile(path, kClassic);
        const std::string* rule = message.findString(qh::ItemKeys::kRecurrenceRule);
        json ours = {{"type", text(message, "MessageType")}, {"location", text(message, qh::ItemKeys::kLocation)},
                     {"apptStartWhole", ourDate(message, qh::ItemKeys::kStartTime)},
                     {"apptEndWhole", ourDate(message, qh::ItemKeys::kEndTime)},
                     {"daily", rule ? json(rule->starts_with("FREQ=DAILY")) : json()}};
        if (dump.contains("apptRecur")) {
            const json& pattern = dump["apptRecur"]["recurrencePattern"];
            theirs["daily"] = pattern["recurFrequency"] == 0x200A && pattern["patternType"] == 0;
            if (pattern["endType"] == 0x2022) {
                const std::string count = ";COUNT=" + pattern["occurrenceCount"].dump();
                theirs["count"] = count;
                ours["count"] = rule && rule->find(count) != std::string::npos ? count : (rule ? *rule : "");
            }
        }
        table.compare(path.filename().string(), ours, theirs);
    }
    EXPECT_GE(table.count("apptStartWhole"), 5u);
}

TEST(MsgCorpus, ContactAndAppointmentTextParsesIndependently) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir folder;
    std::vector<fs::path> written;
    qh::Log::Capture quiet;
    for (const auto& path : qhtest::corpusOf("msg")) {
        const Dict message = readFile(path, kClassic);
        const std::string type = text(message, "MessageType");
        if (type != "Contact" && type != "Calendar") continue;
        qh::WriteEML writer(message);
        written.push_back(folder.path() / (path.stem().string() + (type == "Contact" ? ".vcf" : ".ics")));
        std::ofstream(written.back(), std::ios::binary)
            << (type == "Contact" ? writer.exportContacts() : writer.exportAppointment());
    }
    ASSERT_GE(written.size(), 5u);
    const auto oracle = qhtest::runOracle({"msg/item_validator.py", "icalendar, vobject"}, written);
    QH_REQUIRE_ORACLE(oracle);
    for (const json& verdict : oracle.readings) EXPECT_EQ(verdict["problem"], nullptr) << verdict["file"];
}

}  // namespace
