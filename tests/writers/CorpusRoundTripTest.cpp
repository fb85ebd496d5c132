// Every corpus message of the three kinds, converted by the command, checked
// by independent readers: Python's email package (no defect anywhere, the
// same subject, addresses, date, bodies and attachments as our complete
// reading of the source), our complete .eml reader, and a real mail client
// (neomutt, driven in tmux, lists every subject of the whole corpus as one mbox).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/Base64.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include <quillhaven/MessageReader.h>
#include "richtext/RTFReader.h"
#include "support/Corpus.h"
#include "support/MimeShape.h"
#include "writers/MimeEncoding.h"
#include <quillhaven/MimeWriter.h>

namespace {

namespace fs = std::filesystem;
using json = nlohmann::json;

// A scratch folder, removed with its contents.
struct Scratch {
    fs::path path = fs::temp_directory_path() / ("qh-mime-corpus-" + std::to_string(::getpid()));
    Scratch() { fs::create_directories(path); }
    ~Scratch() { fs::remove_all(path); }
};

bool haveTool(const std::string& path) { return ::access(path.c_str(), X_OK) == 0; }

std::string quote(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::vector<fs::path> corpusMessages() {
    std::vector<fs::path> files;
    for (const auto& [sub, suffix] : std::vector<std::pair<std::string, std::string>>{
             {"msg", ".msg"}, {"eml", ".eml"}, {"tnef", ".tnef"}, {"tnef", ".dat"}})
        for (const fs::path& path : qhtest::corpusFiles(sub, suffix)) files.push_back(path);
    return files;
}

// White space runs as one blank, trimmed: how header text compares after folding.
std::string collapsed(std::string_view text) {
    std::string out;
    for (char c : qh::mime::cleanText(text)) {
        if (c == ' ' && !out.empty() && out.back() == ' ') continue;
        out.push_back(c);
    }
    return out;
}

// Body text as it compares: LF line ends, no trailing blank lines.
std::string bodyText(std::string_view text) {
    std::string out = qh::TextEncoding::sanitizeUTF8(text);
    std::string lf;
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (out[i] == '\r') {
            lf.push_back('\n');
            if (i + 1 < out.size() && out[i + 1] == '\n') ++i;
        } else {
            lf.push_back(out[i]);
        }
    }
    while (!lf.empty() && (lf.back() == '\n' || lf.back() == ' ')) lf.pop_back();
    return lf;
}

// Python's reading of a body: none for an absent or empty one.
std::optional<std::string> pythonBody(const json& value) {
    if (value.is_null()) return std::nullopt;
    std::string text = bodyText(value.get<std::string>());
    if (text.empty()) return std::nullopt;
    return text;
}

std::optional<std::string> textUnder(const qh::Dict& message, std::string_view key) {
    const qh::Value* value = message.find(key);
    std::optional<std::string> text;
    if (value && value->string()) text = *value->string();
    if (value && value->bytes()) text = std::string(value->bytes()->text());
    if (text && qh::TextEncoding::trimWhitespaceAndNewlines(*text).empty()) text.reset();
    return text;
}

// What a reader of the converted message should find, from the source's complete reading.
struct Expected {
    std::string subject;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> addresses;  // field -> (name, address)
    std::optional<double> date;
    std::optional<std::string> plain, html;
    std::multiset<std::pair<std::string, std::string>> attachments;  // (name, base64; "*" where bytes differ by design)
};

Expected expectedOf(const qh::Dict& source) {
    Expected e;
    if (const std::string* subject = source.findString(qh::keys::kSubject)) e.subject = collapsed(*subject);
    const std::pair<std::string_view, std::string> fields[] = {
        {qh::keys::kFrom, "from"}, {qh::keys::kTo, "to"}, {qh::keys::kCC, "cc"}, {qh::keys::kBCC, "bcc"},
        {qh::keys::kReplyTo, "reply_to"}};
    for (const auto& [key, field] : fields) {
        auto& list = e.addresses[field];
        if (const qh::Array* records = source.findArray(key)) {
            for (const qh::Value& value : *records) {
                const qh::Dict* record = value.dict();
                if (!record) continue;
                const std::string* name = record->findString(qh::keys::kName);
                const std::string* address = record->findString(qh::keys::kAddress);
                std::string addr = address ? qh::mime::cleanText(*address) : "";
                if (addr.size() > 2 && addr.front() == '<' && addr.back() == '>') addr = addr.substr(1, addr.size() - 2);
                if (!qh::mime::isAddrSpec(addr)) continue;
                std::string shown = name ? collapsed(*name) : "";
                list.emplace_back(shown == addr ? "" : shown, addr);
            }
        }
    }
    if (const qh::Value* stamp = source.find(qh::keys::kTimeStamp); stamp && stamp->date())
        e.date = std::floor(stamp->date()->unixSeconds);
    e.plain = textUnder(source, qh::keys::kBody);
    e.html = textUnder(source, qh::keys::kHTML);
    const qh::Blob* rtf = source.findBytes(qh::keys::kRTF);
    bool rtfAttached = false;
    if (rtf && !rtf->empty()) {
        auto rtfText = qh::RTFReader::stringFromRTFData(rtf->view());
        bool saysSomething = rtfText && !qh::TextEncoding::trimWhitespaceAndNewlines(*rtfText).empty();
        bool fromText = rtf->text().substr(0, 1024).find("\\fromtext") != std::string_view::npos;
        if (!e.html && saysSomething && !fromText) e.html = qh::RTFReader::htmlFromRTFData(rtf->view());
        if (!e.plain && saysSomething) e.plain = rtfText;
        rtfAttached = !e.plain && !e.html &&
                      (!rtfText || rtf->text().find("\\pict") != std::string_view::npos ||
                       rtf->text().find("\\object") != std::string_view::npos);
    }
    if (rtfAttached) e.attachments.emplace("body.rtf", qh::Base64::encode(rtf->view()));
    // Appointments and contacts also go out as iCalendar and vCard files (tested with their writers).
    if (const std::string* kind = source.findString(qh::keys::kMessageType)) {
        if (*kind == "Calendar") e.attachments.emplace("appointment.ics", "*");
        if (*kind == "Contact") e.attachments.emplace("contact.vcf", "*");
    }
    if (const qh::Array* items = source.findArray(qh::keys::kAttachmentList)) {
        for (const qh::Value& value : *items) {
            const qh::Dict* item = value.dict();
            if (!item) continue;
            const std::string* name = item->findString(qh::keys::kAttachName);
            std::string shown = name ? qh::mime::cleanText(*name) : "";
            const std::string* type = item->findString(qh::keys::kAttachMimeType);
            bool message = (type && type->starts_with("message/rfc822")) ||
                           (shown.size() >= 4 && qh::TextEncoding::lowercase(shown.substr(shown.size() - 4)) == ".eml");
            const qh::Blob* data = item->findBytes(qh::keys::kAttachData);
            // An attached message is read and written again: its bytes change, its name does not. So do
            // messages the source reading itself writes out with fresh boundaries (classic .msg items).
            std::string_view head = data ? data->text().substr(0, 256) : std::string_view();
            bool written = head.starts_with("Generated-By: ") || head.find("\r\nMIME-Version: 1.0\r\n") != std::string_view::npos;
            bool compareBytes = !message && !written;
            e.attachments.emplace(shown, compareBytes ? qh::Base64::encode(data ? data->view() : qh::ByteView()) : "*");
        }
    }
    return e;
}

// Whether `found` holds the attachments `expected` lists: the same names and
// bytes, "*" matching any bytes, and a nameless one matching any name a
// reader made up for it.
using Attachments = std::multiset<std::pair<std::string, std::string>>;
bool sameAttachments(const Attachments& expected, Attachments found) {
    std::set<std::string> names;
    for (const auto& [name, bytes] : expected) names.insert(name);
    for (const auto& [name, bytes] : expected) {
        auto match = std::find_if(found.begin(), found.end(), [&](const auto& a) {
            bool nameMatches = a.first == name || (name.empty() && !names.contains(a.first));
            return nameMatches && (a.second == bytes || bytes == "*" || a.second == "*");
        });
        if (match == found.end()) return false;
        found.erase(match);
    }
    return found.empty();
}

std::string describe(const Attachments& attachments) {
    std::string out;
    for (const auto& [name, bytes] : attachments) out += "(" + name + ", " + bytes.substr(0, 40) + ") ";
    return out;
}

TEST(MimeCorpus, ConvertedMessagesAreWellFormedAndKeepWhatTheSourceSays) {
    QH_REQUIRE_CORPUS("");
    std::vector<fs::path> sources = corpusMessages();
    ASSERT_GT(sources.size(), 50u);
    Scratch scratch;
    std::vector<std::string> args = {"convert", "-d", (scratch.path / "out").string()};
    for (const fs::path& path : sources) args.push_back(path.string());
    qhtest::CliResult converted = qhtest::runCli(args);

    // One status line per input, in order.
    std::vector<std::string> outputs;
    std::istringstream lines(converted.out);
    for (std::string line; std::getline(lines, line);) {
        std::size_t tab = line.rfind('\t');
        ASSERT_TRUE(line.starts_with("ok\t")) << line << "\n" << converted.err;
        outputs.push_back(line.substr(tab + 1));
    }
    ASSERT_EQ(outputs.size(), sources.size()) << converted.err;

    // Our own shape check: only our fields, every boundary closed, CR LF lines.
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        std::string text(qh::asText(qhtest::readFileBytes(outputs[i])));
        qhtest::MimeShape shape =
            qhtest::MimeShape::read(text, [](std::string_view name) { return qh::MimeWriter::isOwnField(name); });
        EXPECT_TRUE(shape.problem.empty()) << sources[i] << ": " << shape.problem;
    }

    if (!haveTool("/usr/bin/python3")) GTEST_SKIP() << "python3 is not installed";
    std::vector<std::string> checker = {"/usr/bin/python3",
                                        std::string(QH_SOURCE_DIR) + "/tests/writers/mime_check.py"};
    checker.insert(checker.end(), outputs.begin(), outputs.end());
    const qhtest::CliResult report = qhtest::runProgram(checker);
    ASSERT_EQ(report.exitCode, 0) << "the Python checker failed: " << report.err;
    std::vector<json> python;
    std::istringstream reportLines(report.out);
    for (std::string line; std::getline(reportLines, line);) python.push_back(json::parse(line));
    ASSERT_EQ(python.size(), outputs.size());

    std::set<std::string> messageIds;
    std::size_t rereadCompared = 0;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        SCOPED_TRACE(sources[i].filename().string());
        const json& theirs = python[i];
        EXPECT_EQ(theirs["problems"], json::array()) << theirs["problems"].dump();
        EXPECT_TRUE(messageIds.insert(theirs["message_id"].get<std::string>()).second) << "Message-ID shared";

        qh::Bytes sourceBytes = qhtest::readFileBytes(sources[i]);
        std::optional<qh::Dict> source = qh::MessageReader::read(sourceBytes, qh::ReadOptions::complete());
        ASSERT_TRUE(source);
        Expected expected = expectedOf(*source);
        EXPECT_EQ(theirs["subject"].is_null() ? "" : collapsed(theirs["subject"].get<std::string>()), expected.subject);
        for (const auto& [field, list] : expected.addresses) {
            std::vector<std::pair<std::string, std::string>> found;
            for (const json& pair : theirs[field]) found.emplace_back(collapsed(pair[0].get<std::string>()), pair[1]);
            EXPECT_EQ(found, list) << field;
        }
        if (expected.date) {
            EXPECT_EQ(theirs["date"], *expected.date);
        }
        EXPECT_EQ(pythonBody(theirs["plain"]), expected.plain ? std::optional<std::string>(bodyText(*expected.plain)) : std::nullopt);
        EXPECT_EQ(pythonBody(theirs["html"]), expected.html ? std::optional<std::string>(bodyText(*expected.html)) : std::nullopt);
        Attachments attachments;
        for (const json& a : theirs["attachments"]) attachments.emplace(a["name"], a["base64"].get<std::string>());
        EXPECT_TRUE(sameAttachments(expected.attachments, attachments))
            << "expected " << describe(expected.attachments) << "\nfound " << describe(attachments);

        // Our complete .eml reader on the converted text. Until it reads
        // completely (it then gives the Message-ID), only the writer is under
        // test here and its reading is not held against it.
        std::optional<qh::Dict> reread = qh::MessageReader::read(qhtest::readFileBytes(outputs[i]), qh::MessageKind::eml,
                                                                 qh::ReadOptions::complete());
        ASSERT_TRUE(reread);
        if (!reread->contains(qh::keys::kMessageID)) continue;
        ++rereadCompared;
        Expected again = expectedOf(*reread);
        EXPECT_EQ(again.subject, expected.subject);
        EXPECT_EQ(again.addresses, expected.addresses);
        EXPECT_EQ(again.date, expected.date);
        EXPECT_EQ(again.plain ? std::optional<std::string>(bodyText(*again.plain)) : std::nullopt,
                  expected.plain ? std::optional<std::string>(bodyText(*expected.plain)) : std::nullopt);
        EXPECT_EQ(again.html ? std::optional<std::string>(bodyText(*again.html)) : std::nullopt,
                  expected.html ? std::optional<std::string>(bodyText(*expected.html)) : std::nullopt);
        EXPECT_TRUE(sameAttachments(expected.attachments, again.attachments))
            << "expected " << describe(expected.attachments) << "\nread back " << describe(again.attachments);
    }
    std::printf("converted %zu messages; %zu compared with the complete .eml reader's reading\n", sources.size(),
                rereadCompared);
}

// The whole corpus as one mbox, opened in neomutt inside tmux: every subject
// shows in the index (paging down when the screen is full).
TEST(MimeCorpus, NeomuttListsEverySubjectOfTheMbox) {
    QH_REQUIRE_CORPUS("");
    if (!haveTool("/usr/bin/neomutt") || !haveTool("/usr/bin/tmux")) GTEST_SKIP() << "neomutt or tmux is not installed";
    std::vector<fs::path> sources = corpusMessages();
    Scratch scratch;
    std::string mbox = (scratch.path / "corpus.mbox").string();
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
    const std::string socket = (scratch.path / "tmux.sock").string();
    auto tmux = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"/usr/bin/tmux", "-S", socket});
        return qhtest::runProgram(args);
    };
    // A private server, a throwaway configuration, read-only, a tall pane; subject first in the index.
    const std::string neomutt = "env TERM=xterm-256color LC_ALL=C.UTF-8 HOME=" + scratch.path.string() +
                                " neomutt -n -F /dev/null -R -e 'set folder=" + scratch.path.string() +
                                "' -e 'set index_format=\"%s\"' -e 'set sort=mailbox-order' "
                                "-e 'bind index z next-page' -f " + quote(mbox);
    const auto started =
        tmux({"-u", "-f", "/dev/null", "new-session", "-d", "-s", session, "-x", "200", "-y", "120", neomutt});
    ASSERT_EQ(started.exitCode, 0) << started.err;
    struct Cleanup {
        std::function<void()> kill;
        ~Cleanup() { kill(); }
    } cleanup{[&] { tmux({"kill-server"}); }};

    // With index_format "%s" each line of the index is one subject, cut at the pane's width.
    std::set<std::string> shownLines;
    std::string lastScreen;
    bool sawIndex = false;
    std::set<std::string> missing(subjects.begin(), subjects.end());
    // Generous: the machine may be busy, and neomutt reads the whole mbox first.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    int pages = 0;
    while (!missing.empty() && std::chrono::steady_clock::now() < deadline && pages <= 20) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto captured = tmux({"capture-pane", "-p", "-t", session});
        ASSERT_EQ(captured.exitCode, 0) << "tmux capture-pane failed: " << captured.err;
        const std::string& screen = captured.out;
        lastScreen = screen;
        // Until neomutt has read the mbox the pane is blank or shows its progress.
        sawIndex = sawIndex || screen.find("Msgs:") != std::string::npos;
        std::istringstream rows(screen);
        for (std::string row; std::getline(rows, row);) shownLines.insert(collapsed(row));
        for (auto it = missing.begin(); it != missing.end();) {
            bool shown = shownLines.contains(*it) ||
                         std::any_of(shownLines.begin(), shownLines.end(), [&](const std::string& row) {
                             return it->size() > 150 && row.starts_with(it->substr(0, 150));
                         });
            it = shown ? missing.erase(it) : std::next(it);
        }
        if (!missing.empty() && screen.find("Msgs:") != std::string::npos) {
            tmux({"send-keys", "-t", session, "z"});  // the next page of the index
            ++pages;
        }
    }
    for (const std::string& subject : missing) ADD_FAILURE() << "not in neomutt's index: " << subject;
    EXPECT_TRUE(sawIndex) << lastScreen;
}

}  // namespace
