// View pages, as text and in a real browser (Debian's chromium, headless; the
// browser half is skipped where it is not installed). Chromium takes seconds
// to start, so the corpus is checked in one run: every message's page body
// goes into one page set under the page's own head (its policy and style), and
// the test looks for each subject in the DOM the browser built.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ViewFixtures.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include <quillhaven/MessageReader.h>
#include "support/Oracle.h"
#include "util/HtmlSanitizer.h"

namespace {

namespace fs = std::filesystem;

const char* chromium() {
    for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"})
        if (::access(path, X_OK) == 0) return path;
    return nullptr;
}

#define QH_REQUIRE_CHROMIUM()                                         \
    do {                                                              \
        if (!chromium()) GTEST_SKIP() << "chromium is not installed"; \
    } while (0)

// Runs headless chromium on a page and returns what it printed. `isolated`:
// in a network namespace of its own when the machine allows it, and told to
// resolve nothing and to use a dead proxy in any case.
std::string runChromium(const qhclitest::ScratchDir& scratch, const fs::path& page, const std::vector<std::string>& action,
                        bool isolated) {
    static const bool canUnshare = qhtest::runProgram({"/usr/bin/unshare", "-n", "/bin/true"}).exitCode == 0;
    std::vector<std::string> argv = {"/usr/bin/timeout", "120", chromium(), "--headless", "--no-sandbox",
                                     "--disable-gpu", "--hide-scrollbars", "--no-first-run", "--disable-extensions",
                                     "--user-data-dir=" + (scratch.path() / "profile").string()};
    if (isolated && canUnshare) argv.insert(argv.begin(), {"/usr/bin/unshare", "-n"});
    if (isolated) argv.insert(argv.end(), {"--proxy-server=127.0.0.1:9", "--host-resolver-rules=MAP * ~NOTFOUND"});
    argv.insert(argv.end(), action.begin(), action.end());
    argv.push_back("file://" + page.string());
    return qhtest::runProgram(argv).out;
}

// How a text node's content comes back in chromium's serialised DOM.
std::string asSerialised(std::string_view text) {
    std::string escaped = qh::HtmlSanitizer::escape(text);
    std::string out;
    for (std::size_t at = 0, from = 0;; from = at + 2) {
        at = escaped.find("\xC2\xA0", from);
        out.append(escaped, from, at == std::string::npos ? std::string::npos : at - from);
        if (at == std::string::npos) break;
        out += "&nbsp;";
    }
    std::string unquoted;
    for (std::size_t at = 0, from = 0;; from = at + 6) {
        at = out.find("&quot;", from);
        unquoted.append(out, from, at == std::string::npos ? std::string::npos : at - from);
        if (at == std::string::npos) break;
        unquoted += "\"";
    }
    return unquoted;
}

// A port on this machine that answers every request with 404 and counts them.
class Listener {
public:
    Listener() {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd_, 16) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] {
            while (!stop_) {
                pollfd entry{fd_, POLLIN, 0};
                if (::poll(&entry, 1, 100) <= 0) continue;
                int client = ::accept(fd_, nullptr, nullptr);
                if (client < 0) continue;
                ++requests_;
                char buffer[4096];
                (void)::recv(client, buffer, sizeof buffer, 0);
                static constexpr char kAnswer[] = "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n";
                (void)::send(client, kAnswer, sizeof kAnswer - 1, MSG_NOSIGNAL);
                ::close(client);
            }
        });
    }
    ~Listener() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (fd_ >= 0) ::close(fd_);
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(port_); }
    int requests() const { return requests_; }
    bool ready() const { return port_ != 0; }

private:
    int fd_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<int> requests_{0};
    std::thread thread_;
};

std::string viewPage(const std::string& message) {
    auto result = qhtest::runCli({"view", "-"}, message);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out;
}

// The page's text first (without a browser), then what chromium makes of it.
TEST(Browser, HostileMessageFetchesNothingAndRunsNothing) {
    Listener listener;
    ASSERT_TRUE(listener.ready());
    const std::string page = viewPage(qhviewtest::hostileMessage(listener.host()));
    EXPECT_NE(page.find("Body text survives"), std::string::npos);
    EXPECT_NE(page.find("<meta http-equiv=\"Content-Security-Policy\""), std::string::npos);
    EXPECT_NE(page.find("remote images were blocked"), std::string::npos);
    EXPECT_NE(page.find("href=\"https://example.com/ok\""), std::string::npos);
    for (const char* banned : {"<script", "<iframe", "<object", "<embed", "<form", "<input", "<video", "<svg", "<base",
                               "<link", "refresh", "onload", "onerror", "onfocus", "javascript:", "vbscript:", "file:",
                               "@import", "127.0.0.1", "\\\\", "PWNED"})
        EXPECT_EQ(page.find(banned), std::string::npos) << banned;

    QH_REQUIRE_CHROMIUM();
    qhclitest::ScratchDir scratch;

    // The control: a page that does load an image from the listener, so
    // silence below means the page asked for nothing.
    const std::string control = scratch.write("control.html", "<img src=\"http://" + listener.host() + "/control.png\">");
    runChromium(scratch, control, {"--dump-dom"}, false);
    int controlRequests = listener.requests();

    std::string dom = runChromium(scratch, scratch.write("hostile.html", page), {"--dump-dom"}, false);
    ASSERT_NE(dom.find("Body text survives"), std::string::npos) << dom;
    EXPECT_EQ(listener.requests(), controlRequests) << "the page fetched from the network";
    if (controlRequests == 0) ADD_FAILURE() << "the control page reached no listener: the fetch check proves nothing";
    EXPECT_EQ(dom.find("PWNED"), std::string::npos);
    EXPECT_EQ(dom.find("<script"), std::string::npos);
    EXPECT_EQ(dom.find(listener.host()), std::string::npos);
    EXPECT_NE(dom.find("<a href=\"https://example.com/ok\" id=\"safe\" rel=\"noopener noreferrer\""), std::string::npos);
    EXPECT_NE(dom.find("<a id=\"js\">js link</a>"), std::string::npos);
}

TEST(Browser, NewsletterRendersOfflineWithoutItsPixelOrScript) {
    QH_REQUIRE_CHROMIUM();
    qhclitest::ScratchDir scratch;
    const std::string news = scratch.write("news.html", viewPage(qhviewtest::newsletterMessage("tracker.example")));
    std::string dom = runChromium(scratch, news, {"--dump-dom"}, true);
    EXPECT_NE(dom.find("Read all about it"), std::string::npos) << dom;
    EXPECT_NE(dom.find("1 remote image was blocked"), std::string::npos);
    EXPECT_EQ(dom.find("SCRIPT RAN"), std::string::npos);
    EXPECT_EQ(dom.find("tracker.example"), std::string::npos);
    runChromium(scratch, news, {"--window-size=900,600", "--screenshot=" + (scratch.path() / "news.png").string()}, true);
    std::string png = qhclitest::readText(scratch.path() / "news.png");
    EXPECT_GT(png.size(), 1000u);
    EXPECT_EQ(png.substr(0, 4), "\x89PNG");
}

// Every corpus message gives a whole page; in chromium, each shows its subject.
TEST(Browser, EveryCorpusMessageShowsItsSubject) {
    QH_REQUIRE_CORPUS("");
    std::string head, bodies;
    std::vector<std::pair<std::string, std::string>> expected;  // file, subject as serialised
    for (const auto& path : qhtest::corpusOf("mail")) {
        std::string name = path.filename().string();
        auto result = qhtest::runCli({"view", path.string()});
        EXPECT_EQ(result.exitCode, 0) << name << ": " << result.err;
        EXPECT_TRUE(result.out.ends_with("</article>\n</body>\n</html>\n")) << name;
        std::size_t body = result.out.find("<body>\n"), end = result.out.rfind("</body>");
        if (body == std::string::npos || end == std::string::npos) {
            ADD_FAILURE() << name << ": no page body";
            continue;
        }
        if (head.empty()) head = result.out.substr(0, body);
        bodies += "<section data-file=\"" + name + "\">" + result.out.substr(body + 7, end - body - 7) + "</section>\n";

        qh::Bytes data = qhtest::readFileBytes(path);
        std::optional<qh::Dict> message = qh::MessageReader::read(data, qh::ReadOptions::complete());
        ASSERT_TRUE(message) << name;
        const std::string* subject = message->findString(qh::keys::kSubject);
        std::string shown = subject ? qh::TextEncoding::trimWhitespaceAndNewlines(qh::TextEncoding::sanitizeUTF8(*subject)) : "";
        if (shown.empty()) shown = "(no subject)";
        std::string lines;  // the browser reads every line break as "\n"
        for (std::size_t i = 0; i < shown.size(); ++i) {
            if (shown[i] == '\r') {
                lines += '\n';
                if (i + 1 < shown.size() && shown[i + 1] == '\n') ++i;
            } else {
                lines += shown[i];
            }
        }
        expected.emplace_back(name, asSerialised(lines));
    }
    ASSERT_GT(expected.size(), 100u);
    QH_REQUIRE_CHROMIUM();
    qhclitest::ScratchDir scratch;
    const std::string corpusPage = scratch.write("corpus.html", head + "<body>\n" + bodies + "</body>\n</html>\n");
    std::string dom = runChromium(scratch, corpusPage, {"--dump-dom"}, true);
    ASSERT_NE(dom.find("</html>"), std::string::npos) << "chromium gave no DOM";
    for (const auto& [name, subject] : expected) {
        std::size_t section = dom.find("<section data-file=\"" + name + "\">");
        ASSERT_NE(section, std::string::npos) << name;
        std::size_t heading = dom.find("<h1 class=\"qh-subject\" dir=\"auto\">", section);
        ASSERT_NE(heading, std::string::npos) << name;
        EXPECT_EQ(dom.compare(heading + 34, subject.size(), subject), 0)
            << name << ": " << dom.substr(heading, subject.size() + 60) << " / " << subject;
    }
    EXPECT_EQ(dom.find("<script"), std::string::npos);
}

}  // namespace
