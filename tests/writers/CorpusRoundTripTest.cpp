// Every corpus message of the three kinds, converted by the command, checked
// by independent readers: Python's email package (no defect anywhere, the
// same subject, addresses, date, bodies and attachments as our complete
// reading of the source), our complete .eml reader, and a real mail client
// (neomutt, driven in tmux, lists every subject of the whole corpus as one mbox).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include <quillhaven/MessageKeys.h>
#include <quillhaven/MessageReader.h>
#include <quillhaven/MimeWriter.h>
#include "core/Base64.h"
#include "core/TextEncoding.h"
#include "richtext/RTFReader.h"
#include "support/MimeShape.h"
#include "support/Oracle.h"
#include "writers/MimeEncoding.h"

namespace {

namespace fs = std::filesystem;
using qhtest::json;

bool haveTool(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

// White space runs as one blank, trimmed: how header text compares after folding.
std::string collapsed(std::string_view text) {
    std::string out = qh::mime::cleanText(text);
    out.erase(std::unique(out.begin(), out.end(), [](char a, char b) { return a == ' ' && b == ' '; }), out.end());
    return out;
}

// Body text as it compares: LF line ends, no trailing blank lines.
std::string bodyText(std::string_view text) {
    std::string out = qh::TextEncoding::sanitizeUTF8(text), lf;
    for (std::size_t i = 0; i < out.size(); ++i) {
        lf.push_back(out[i] == '\r' ? '\n' : out[i]);
        if (out[i] == '\r' && i + 1 < out.size() && out[i + 1] == '\n') ++i;
    }
    while (!lf.empty() && (lf.back() == '\n' || lf.back() == ' ')) lf.pop_back();
    return lf;
}

// A body (a text or null) as it compares: none for an absent or empty one.
json bodyOf(const json& body) {
    const std::string text = bodyText(qhtest::text(body));
    return text.empty() ? json() : json(text);
}

std::optional<std::string> textUnder(const qh::Dict& message, std::string_view key) {
    const qh::Value* value = message.find(key);
    std::optional<std::string> text;
    if (value && value->string()) text = *value->string();
    if (value && value->bytes()) text = std::string(value->bytes()->text());
    if (text && qh::TextEncoding::trimWhitespaceAndNewlines(*text).empty()) text.reset();
    return text;
}

// What a reader of the converted message should find, from the source's
// complete reading, as the fields Python's checker gives: subject, address
// lists ([name, address]), date, bodies, attachments ([name, base64], "*"
// where the bytes differ by design).
json expectedOf(const qh::Dict& source) {
    json e = {{"subject", collapsed(qhtest::text(source, qh::keys::kSubject))}, {"date", json()}};
    const std::pair<std::string_view, std::string> fields[] = {
        {qh::keys::kFrom, "from"}, {qh::keys::kTo, "to"}, {qh::keys::kCC, "cc"}, {qh::keys::kBCC, "bcc"},
        {qh::keys::kReplyTo, "reply_to"}};
    for (const auto& [key, field] : fields) {
        e[field] = json::array();
        for (const qh::Value& value : qhtest::listOf(source, key)) {
            if (!value.dict()) continue;
            std::string addr = qh::mime::cleanText(qhtest::text(*value.dict(), qh::keys::kAddress));
            if (addr.size() > 2 && addr.front() == '<' && addr.back() == '>') addr = addr.substr(1, addr.size() - 2);
            if (!qh::mime::isAddrSpec(addr)) continue;
            const std::string shown = collapsed(qhtest::text(*value.dict(), qh::keys::kName));
            e[field].push_back({shown == addr ? "" : shown, addr});
        }
    }
    if (const qh::Value* stamp = source.find(qh::keys::kTimeStamp); stamp && stamp->date())
        e["date"] = std::floor(stamp->date()->unixSeconds);
    std::optional<std::string> plain = textUnder(source, qh::keys::kBody), html = textUnder(source, qh::keys::kHTML);
    std::multiset<std::pair<std::string, std::string>> attachments;
    const qh::Blob* rtf = source.findBytes(qh::keys::kRTF);
    if (rtf && !rtf->empty()) {
        auto rtfText = qh::RTFReader::stringFromRTFData(rtf->view());
        bool saysSomething = rtfText && !qh::TextEncoding::trimWhitespaceAndNewlines(*rtfText).empty();
        bool fromText = rtf->text().substr(0, 1024).find("\\fromtext") != std::string_view::npos;
        if (!html && saysSomething && !fromText) html = qh::RTFReader::htmlFromRTFData(rtf->view());
        if (!plain && saysSomething) plain = rtfText;
        if (!plain && !html && (!rtfText || rtf->text().find("\\pict") != std::string_view::npos ||
                                rtf->text().find("\\object") != std::string_view::npos))
            attachments.emplace("body.rtf", qh::Base64::encode(rtf->view()));
    }
    e["plain"] = bodyOf(plain ? json(*plain) : json());
    e["html"] = bodyOf(html ? json(*html) : json());
    // Appointments and contacts also go out as iCalendar and vCard files (tested with their writers).
    const std::string kind = qhtest::text(source, qh::keys::kMessageType);
    if (kind == "Calendar") attachments.emplace("appointment.ics", "*");
    if (kind == "Contact") attachments.emplace("contact.vcf", "*");
    for (const qh::Value& value : qhtest::listOf(source, qh::keys::kAttachmentList)) {
        if (!value.dict()) continue;
        const qh::Dict& item = *value.dict();
        std::string shown = qh::mime::cleanText(qhtest::text(item, qh::keys::kAttachName));
        bool message = qhtest::text(item, qh::keys::kAttachMimeType).starts_with("message/rfc822") ||
                       (shown.size() >= 4 && qh::TextEncoding::lowercase(shown.substr(shown.size() - 4)) == ".eml");
        const qh::Blob* data = item.findBytes(qh::keys::kAttachData);
        // An attached message is read and written again: its bytes change, its name does not. So do
        // messages the source reading itself writes out with fresh boundaries (classic .msg items).
        std::string_view head = data ? data->text().substr(0, 256) : std::string_view();
        bool written = head.starts_with("Generated-By: ") || head.find("\r\nMIME-Version: 1.0\r\n") != std::string_view::npos;
        attachments.emplace(shown, !message && !written ? qh::Base64::encode(data ? data->view() : qh::ByteView()) : "*");
    }
    e["attachments"] = attachments;
    return e;
}

// `found` in the terms of `expected`: each attachment matched by one there
// (the same name and bytes, "*" matching any bytes, and a nameless one any
// name a reader made up for it) takes its entry; the rest stay as they are.
json matched(const json& expected, json found) {
    std::set<std::string> names;
    for (const json& a : expected) names.insert(a[0].get<std::string>());
    json out = json::array();
    for (const json& want : expected) {
        auto match = std::find_if(found.begin(), found.end(), [&](const json& a) {
            bool nameMatches = a[0] == want[0] || (want[0] == "" && !names.contains(a[0].get<std::string>()));
            return nameMatches && (a[1] == want[1] || want[1] == "*" || a[1] == "*");
        });
        if (match == found.end()) continue;
        out.push_back(want);
        found.erase(match);
    }
    for (const json& a : found) out.push_back(a);
    std::sort(out.begin(), out.end());
    return out;
}

TEST(MimeCorpus, ConvertedMessagesAreWellFormedAndKeepWhatTheSourceSays) {
    QH_REQUIRE_CORPUS("");
    const std::vector<fs::path> sources = qhtest::corpusOf("mail");
    ASSERT_GT(sources.size(), 50u);
    qhclitest::ScratchDir scratch;
    std::vector<std::string> args = {"convert", "-d", (scratch.path() / "out").string()};
    for (const fs::path& path : sources) args.push_back(path.string());
    qhtest::CliResult converted = qhtest::runCli(args);

    // One status line per input, in order; our own shape check: only our
    // fields, every boundary closed, CR LF lines.
    std::vector<fs::path> outputs;
    for (const std::string& line : qhclitest::lines(converted.out)) {
        ASSERT_TRUE(line.starts_with("ok\t")) << line << "\n" << converted.err;
        outputs.emplace_back(line.substr(line.rfind('\t') + 1));
        qhtest::MimeShape shape = qhtest::MimeShape::read(qhclitest::readText(outputs.back()),
                                                          [](std::string_view name) { return qh::MimeWriter::isOwnField(name); });
        EXPECT_TRUE(shape.problem.empty()) << line << ": " << shape.problem;
    }
    ASSERT_EQ(outputs.size(), sources.size()) << converted.err;

    const auto python = qhtest::runOracle({"writers/mime_check.py", "email.policy"}, outputs);
    QH_REQUIRE_ORACLE(python);
    qhtest::FieldTable checker("converted / Python's checker"), reread("converted / our complete .eml reader");
    std::set<std::string> messageIds;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const std::string file = sources[i].filename().string();
        const json& theirs = python.readings[i];
        EXPECT_TRUE(messageIds.insert(theirs["message_id"].get<std::string>()).second) << file << ": Message-ID shared";
        std::optional<qh::Dict> source = qh::MessageReader::read(qhtest::readFileBytes(sources[i]), qh::ReadOptions::complete());
        ASSERT_TRUE(source) << file;
        const json expected = expectedOf(*source);
        json want = expected;
        want["problems"] = json::array();
        if (want["date"].is_null()) want.erase("date");
        json found = {{"subject", collapsed(qhtest::text(theirs["subject"]))}, {"date", theirs["date"]},
                      {"plain", bodyOf(theirs["plain"])}, {"html", bodyOf(theirs["html"])},
                      {"problems", theirs["problems"]}, {"attachments", json::array()}};
        for (const char* field : {"from", "to", "cc", "bcc", "reply_to"}) {
            found[field] = json::array();
            for (const json& pair : theirs[field]) found[field].push_back({collapsed(pair[0].get<std::string>()), pair[1]});
        }
        for (const json& a : theirs["attachments"]) found["attachments"].push_back({a["name"], a["base64"]});
        found["attachments"] = matched(expected["attachments"], found["attachments"]);
        checker.compare(file, found, want);

        // Our complete .eml reader on the converted text.
        std::optional<qh::Dict> again = qh::MessageReader::read(qhtest::readFileBytes(outputs[i]), qh::MessageKind::eml,
                                                                qh::ReadOptions::complete());
        ASSERT_TRUE(again) << file;
        json ours = expectedOf(*again);
        ours["attachments"] = matched(expected["attachments"], ours["attachments"]);
        reread.compare(file, ours, expected);
    }
}

// The whole corpus as one mbox, opened in neomutt inside tmux: every subject
// shows in the index (paging down when the screen is full).
TEST(MimeCorpus, NeomuttListsEverySubjectOfTheMbox) {
    QH_REQUIRE_CORPUS("");
    if (!haveTool("/usr/bin/neomutt") || !haveTool("/usr/bin/tmux")) GTEST_SKIP() << "neomutt or tmux is not installed";
    std::vector<fs::path> sources = qhtest::corpusOf("mail");
    qhclitest::ScratchDir scratch;
    std::string mbox = (scratch.path() / "corpus.mbox").string();
    std::vector<std::string> args = {"convert", "--mbox", mbox};
    for (const fs::path& path : sources) args.push_back(path.string());
    qhtest::CliResult converted = qhtest::runCli(args);
    ASSERT_EQ(converted.exitCode, 0) << converted.err;

    // The subjects neomutt should show, as our complete reading has them;
    // the index shows the first 40 characters or so, so compare a prefix.
    std::vector<std::string> subjects;
    for (const fs::path& path : sources) {
        auto message = qh::MessageReader::read(qhtest::readFileBytes(path), qh::ReadOptions::complete());
        const std::string* subject = message ? message->findString(qh::keys::kSubject) : nullptr;
        std::string shown = subject ? collapsed(*subject) : "";
        if (!shown.empty()) subjects.push_back(shown);
    }
    ASSERT_FALSE(subjects.empty());

    const std::string session = "qh-neomutt-" + std::to_string(::getpid());
    const std::string socket = (scratch.path() / "tmux.sock").string();
    auto tmux = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"/usr/bin/tmux", "-S", socket});
        return qhtest::runProgram(args);
    };
    // A private server, a throwaway configuration, read-only, a tall pane; subject first in the index.
    const std::string neomutt = "env TERM=xterm-256color LC_ALL=C.UTF-8 HOME=" + scratch.str() +
                                " neomutt -n -F /dev/null -R -e 'set folder=" + scratch.str() +
                                "' -e 'set index_format=\"%s\"' -e 'set sort=mailbox-order' "
                                "-e 'bind index z next-page' -f " + mbox;
    const auto started =
        tmux({"-u", "-f", "/dev/null", "new-session", "-d", "-s", session, "-x", "200", "-y", "120", neomutt});
    ASSERT_EQ(started.exitCode, 0) << started.err;
    struct Cleanup {
        std::function<void()> kill;
        ~Cleanup() { kill(); }
    } cleanup{[&] { tmux({"kill-server"}); }};

    // With index_format "%s" each line of the index is one subject, cut at the
    // pane's width. Until neomutt has read the mbox the pane is blank or shows
    // its progress; generous, since the machine may be busy.
    std::set<std::string> missing(subjects.begin(), subjects.end());
    std::string screen;
    bool sawIndex = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (int pages = 0; !missing.empty() && std::chrono::steady_clock::now() < deadline && pages <= 20;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto captured = tmux({"capture-pane", "-p", "-t", session});
        ASSERT_EQ(captured.exitCode, 0) << "tmux capture-pane failed: " << captured.err;
        screen = captured.out;
        for (const std::string& row : qhclitest::lines(screen)) {
            std::erase_if(missing, [&, shown = collapsed(row)](const std::string& subject) {
                return subject == shown || (subject.size() > 150 && shown.starts_with(subject.substr(0, 150)));
            });
        }
        sawIndex |= screen.find("Msgs:") != std::string::npos;
        if (!missing.empty() && screen.find("Msgs:") != std::string::npos) {
            tmux({"send-keys", "-t", session, "z"});  // the next page of the index
            ++pages;
        }
    }
    for (const std::string& subject : missing) ADD_FAILURE() << "not in neomutt's index: " << subject;
    EXPECT_TRUE(sawIndex) << screen;
}

}  // namespace
