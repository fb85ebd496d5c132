// Real messages: every corpus .eml, and every message that `quillhaven convert`
// makes of the corpus .msg files, reads back; subject, addresses, bodies and
// attachment bytes agree with Python's email package except where this
// reader's rules say otherwise (listed below with their reasons).
#include <algorithm>
#include <sstream>

#include "core/Base64.h"
#include "readers/mime/ReadEML.h"
#include "support/Oracle.h"
#include "util/DataWangers.h"

namespace {

namespace fs = std::filesystem;
using qhtest::json;
using qhtest::text;

const qhtest::Oracle kPython{"mime/eml_oracle.py", "email.policy"};

// Where the classic reading and Python's email package part ways on the corpus, and why.
const std::vector<qhtest::Difference> kClassicDifferences = {
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

// Where the complete reading and Python's part ways: each is the peer's own
// reading of a malformed message.
const std::vector<qhtest::Difference> kCompleteDifferences = {
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

// Bodies compared line by line without the empty lines and trailing blanks;
// `rewriteLinks`: every "http:" becomes "https:", as this reader's bodies have it.
std::string normalised(std::string body, bool rewriteLinks = false) {
    std::replace(body.begin(), body.end(), '\r', '\n');
    std::string out;
    std::istringstream lines(body);
    for (std::string line; std::getline(lines, line);) {
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        out += (out.empty() ? "" : "\n") + line;
    }
    for (std::size_t at = out.find("http:"); rewriteLinks && at != std::string::npos; at = out.find("http:", at + 6))
        out.replace(at, 5, "https:");
    return out;
}

json addressesOf(const qh::Dict& mail, std::string_view key) {
    json out = json::array();
    for (const qh::Value& entry : qhtest::listOf(mail, key)) {
        const std::string address = entry.dict() ? text(*entry.dict(), "Address") : "";
        if (!address.empty()) out.push_back(address);
    }
    return out;
}

// The classic reading as Python gives it: the header on the first line is
// never read (it must be absent), bodies with their links rewritten, and
// attachments by name with their bytes and their text.
json theirClassicView(const json& reading, const std::string& unread) {
    json out = {{"subject", reading["subject"]}, {"attachments", json::object()}};
    for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}})
        out[field] = unread == key ? json("absent") : reading[field];
    if (reading["plain"].is_string()) out["body"] = normalised(reading["plain"], true);
    if (!text(reading["html"]).empty()) out["html"] = normalised(reading["html"], true);
    for (const json& attachment : reading["attachments"]) {
        const std::string bytes = attachment["base64"];
        auto decoded = qh::DataWangers::b64DecodeDataString(std::string_view(bytes));
        out["attachments"][text(attachment["name"])] = {
            {"base64", bytes}, {"text", normalised(decoded ? std::string(qh::asText(*decoded)) : "")}};
    }
    return out;
}

// Ours: names are lower-case and keep what follows the file name in the
// disposition ("a.txt; size=10"); a part that is not base64 keeps its content
// text as it stands, and is compared by its text alone, the rest by bytes.
json ourClassicView(const qh::Dict& mail, const std::string& file, const json& theirs) {
    json out = {{"subject", text(mail, "Subject")}, {"body", normalised(text(mail, "Body"))},
                {"html", normalised(text(mail, "HTML"))}, {"attachments", json::object()}};
    for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}}) {
        const bool unread = theirs[field] == "absent";
        out[field] = unread ? json(mail.contains(key) ? "read" : "absent") : addressesOf(mail, key);
    }
    for (const qh::Value& item : qhtest::listOf(mail, "AttachmentList")) {
        std::string name = text(*item.dict(), "name");
        name = name.substr(0, name.find(';'));
        if (qhtest::listed(kClassicDifferences, file, "attachment:" + name)) continue;
        const json theirItem = theirs["attachments"].value(name, json::object());
        const qh::Blob* data = item.dict()->findBytes("data");
        out["attachments"][name] = {
            {"base64", data ? qh::Base64::encode(data->view()) : theirItem.value("base64", "")},
            {"text", data ? theirItem.value("text", "") : normalised(text(*item.dict(), "data"))}};
    }
    return out;
}

json mailboxesOf(const qh::Dict& mail, std::string_view key) {
    json out = json::array();
    for (const qh::Value& entry : qhtest::listOf(mail, key))
        out.push_back({text(*entry.dict(), "Name"), text(*entry.dict(), "Address")});
    return out;
}

// The complete reading as Python gives it: address lists with their names (a
// nameless mailbox shows its address), the date, the message id, both bodies,
// and every attachment in order with its type, name, content id and bytes.
json theirCompleteView(const json& reading) {
    const json& complete = reading["complete"];
    json out = {{"subject", reading["subject"]}, {"date", complete["date"]}, {"messageId", complete["messageId"]},
                {"plain", normalised(text(complete["plain"]))}, {"html", normalised(text(complete["html"]))},
                {"attachments", json::array()}};
    for (const char* field : {"from", "to", "cc", "replyTo"}) {
        out[field] = json::array();
        for (const json& entry : complete[field]) out[field].push_back({text(entry[0]).empty() ? entry[1] : entry[0], entry[1]});
    }
    for (const json& attachment : complete["attachments"]) {
        out["attachments"].push_back({{"type", attachment["type"]}, {"name", attachment["name"]},
                                      {"contentId", text(attachment["contentId"])}, {"base64", attachment["base64"]},
                                      {"size", true}});
    }
    return out;
}

// Ours, where Python has no name taking a name after the attached message's
// subject (an .eml) or a number, and where it has no bytes (an attached
// message, written again) any.
json ourCompleteView(const qh::Dict& mail, const json& theirs) {
    json out = {{"subject", text(mail, "Subject")}, {"messageId", text(mail, "MessageID")}, {"date", json()},
                {"plain", normalised(text(mail, "Body"))}, {"html", normalised(text(mail, "HTML"))},
                {"attachments", json::array()}};
    for (auto [field, key] : {std::pair{"from", "From"}, {"to", "To"}, {"cc", "CC"}, {"replyTo", "ReplyTo"}})
        out[field] = mailboxesOf(mail, key);
    if (const qh::Value* stamp = mail.find("TimeStamp"); stamp && stamp->date())
        out["date"] = json::parse(stamp->toJsonText())["$date"];
    const qh::Array& list = qhtest::listOf(mail, "AttachmentList");
    for (std::size_t k = 0; k < list.size(); ++k) {
        const qh::Dict& item = *list[k].dict();
        const qh::Blob* data = item.findBytes("data");
        const json want = k < theirs["attachments"].size() ? theirs["attachments"][k] : json::object();
        std::string name = text(item, "name");
        const bool numbered = want.value("type", "") == "message/rfc822"
                                  ? name.size() > 4 && name.ends_with(".eml")
                                  : name.starts_with("attachment-" + std::to_string(k + 1) + ".");
        out["attachments"].push_back(
            {{"type", text(item, "mimeType")},
             {"name", want.contains("name") && want["name"].is_null() && numbered ? json() : json(name)},
             {"contentId", text(item, "AttachContentID")},
             {"base64", want.contains("base64") && want["base64"].is_null() ? json()
                        : json(data ? qh::Base64::encode(data->view()) : "")},
             {"size", data && item.find("size")->integer() == static_cast<std::int64_t>(data->size())}});
    }
    return out;
}

// The header named on the first line.
std::string firstLineHeader(const fs::path& message) {
    const std::string text = qhclitest::readText(message);
    return text.substr(0, std::min(text.find(':'), text.find('\n')));
}

TEST(EmlCorpus, BothReadingsAgreeWithPython) {
    QH_REQUIRE_CORPUS("eml");
    const auto files = qhtest::corpusOf("eml");
    ASSERT_FALSE(files.empty());
    for (const fs::path& path : files) {
        auto classic = qh::ReadEML::initWithData(qhtest::readFileBytes(path));
        ASSERT_NE(classic, nullptr) << path;
        EXPECT_TRUE(classic->returnFullDictionary()->contains("Header")) << path;
    }
    const auto oracle = qhtest::runOracle(kPython, files);
    QH_REQUIRE_ORACLE(oracle);
    qhtest::FieldTable classicTable("eml classic / Python", kClassicDifferences);
    qhtest::FieldTable completeTable("eml complete / Python", kCompleteDifferences);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string file = files[i].filename().string();
        const qh::Bytes bytes = qhtest::readFileBytes(files[i]);
        const json classic = theirClassicView(oracle.readings[i], firstLineHeader(files[i]));
        auto reader = qh::ReadEML::initWithData(bytes);
        classicTable.compare(file, ourClassicView(*reader->returnFullDictionary(), file, classic), classic);
        const json complete = theirCompleteView(oracle.readings[i]);
        reader = qh::ReadEML::initWithData(bytes, qh::ReadOptions::complete());
        ASSERT_NE(reader, nullptr) << file;
        completeTable.compare(file, ourCompleteView(*reader->returnFullDictionary(), complete), complete);
    }
}

// The classic writer's text of the corpus .msg files read back in both
// readings. The writer puts a "Generated-By" line first (never read in the
// classic reading) and writes "Cc" in mixed case (kept as text, not as an
// address list there); bodies are left to the msg corpus test, since the
// writer chooses their encoding. Every attachment the classic reading keeps
// is one Python finds, byte for byte; the complete one keeps every one
// (Python lists a multipart without a single part as an empty leaf).
TEST(EmlCorpus, ConvertedMsgFilesReadBack) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir folder;
    std::vector<std::string> args{"convert", "--classic", "-d", folder.path().string()};
    for (const fs::path& path : qhtest::corpusOf("msg")) args.push_back(path.string());
    const qhtest::CliResult converted = qhtest::runCli(args);
    std::vector<fs::path> written;
    for (const std::string& line : qhclitest::lines(converted.out)) {
        if (line.starts_with("ok\t")) written.emplace_back(line.substr(line.rfind('\t') + 1));
    }
    ASSERT_GT(written.size(), 0u) << converted.err;
    const auto oracle = qhtest::runOracle(kPython, written);
    QH_REQUIRE_ORACLE(oracle);
    qhtest::FieldTable classicTable("converted msg, eml classic / Python");
    qhtest::FieldTable completeTable("converted msg, eml complete / Python");
    for (std::size_t i = 0; i < written.size(); ++i) {
        const qh::Bytes bytes = qhtest::readFileBytes(written[i]);
        auto classic = qh::ReadEML::initWithData(bytes);
        auto complete = qh::ReadEML::initWithData(bytes, qh::ReadOptions::complete());
        ASSERT_TRUE(classic && complete) << written[i];
        const qh::Dict& mail = *classic->returnFullDictionary();
        const qh::Dict& whole = *complete->returnFullDictionary();
        EXPECT_TRUE(mail.contains("Header")) << written[i];
        const json& theirs = oracle.readings[i];
        json notFound = json::array();
        for (const qh::Value& item : qhtest::listOf(mail, "AttachmentList")) {
            const qh::Blob* data = item.dict()->findBytes("data");
            const json bytes = data ? qh::Base64::encode(data->view()) : "";
            const auto& all = theirs["attachments"];
            if (data && std::none_of(all.begin(), all.end(), [&](const json& a) { return a["base64"] == bytes; }))
                notFound.push_back(text(*item.dict(), "name"));
        }
        classicTable.compare(written[i].filename().string(),
                             {{"subject", text(mail, "Subject")}, {"from", addressesOf(mail, "From")},
                              {"to", addressesOf(mail, "To")}, {"attachments Python lacks", notFound}},
                             {{"subject", theirs["subject"]}, {"from", theirs["from"]}, {"to", theirs["to"]},
                              {"attachments Python lacks", json::array()}});
        std::size_t count = 0;
        for (const json& attachment : theirs["complete"]["attachments"])
            count += !text(attachment["type"]).starts_with("multipart/");
        completeTable.compare(written[i].filename().string(),
                              {{"subject", text(whole, "Subject")}, {"from", addressesOf(whole, "From")},
                               {"to", addressesOf(whole, "To")}, {"cc", addressesOf(whole, "CC")},
                               {"attachments", qhtest::listOf(whole, "AttachmentList").size()}},
                              {{"subject", theirs["subject"]}, {"from", theirs["from"]}, {"to", theirs["to"]},
                               {"cc", theirs["cc"]}, {"attachments", count}});
    }
}

}  // namespace
