// The view page: what a message dictionary becomes (table of dictionaries and
// the text their page must and must not hold), and the command around it.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ViewFixtures.h"
#include <quillhaven/MessageKeys.h>
#include "richtext/RTFReader.h"
#include "support/CliTestSupport.h"
#include "support/EnvironmentGuard.h"
#include <quillhaven/HtmlView.h>

namespace {

using qh::Array;
using qh::Dict;
using qh::HtmlView;
using qh::Value;
namespace keys = qh::keys;

Value bytes(std::string_view text) { return Value(qh::Bytes(text.begin(), text.end())); }
Dict address(std::string name, std::string mail) { return Dict{{"Name", name}, {"Address", mail}}; }

std::size_t count(const std::string& text, const std::string& needle) {
    std::size_t n = 0;
    for (std::size_t at = 0; (at = text.find(needle, at)) != std::string::npos; at += needle.size()) ++n;
    return n;
}

struct PageCase {
    const char* what;
    Dict message;
    std::vector<std::string> present;
    std::vector<std::string> absent;
};

std::vector<PageCase> pageCases() {
    const std::string png = "\x89PNG\r\n\x1a\nrest";
    return {
        {"header block",
         Dict{{"Subject", " Quarterly <report> "},
              {"From", Array{address("Bob & Co", "bob@example.com")}},
              {"To", Array{address("Ada", "ada@example.com"), address("", "eve@example.com")}},
              {"CC", Array{address("Carol", "carol@example.com")}},
              {"Body", "Hi"}},
         {"<title>Quarterly &lt;report&gt;</title>", ">Quarterly &lt;report&gt;</h1>",
          "<dt>From</dt><dd dir=\"auto\"><bdi>Bob &amp; Co</bdi> <span class=\"qh-address\">&lt;bob@example.com&gt;</span>",
          "<bdi>Ada</bdi> <span class=\"qh-address\">&lt;ada@example.com&gt;</span>, <span class=\"qh-address\">&lt;eve@example.com&gt;",
          "<dt>Cc</dt>",
          "content=\"default-src 'none'; img-src data:; style-src 'unsafe-inline'\""},
         {"<dt>Bcc</dt>", "<dt>Attachments</dt>"}},
        {"no subject, no body", Dict{{"Subject", ""}}, {"(no subject)", "This message has no text."}, {}},
        {"plain body escaped, links clickable, direction left to the text",
         Dict{{"Body", "See https://example.com/a?b=1&c=2. Or www.example.org, <b>not bold</b>\nשלום"}},
         {"<pre class=\"qh-plain\" dir=\"auto\">",
          "<a href=\"https://example.com/a?b=1&amp;c=2\" rel=\"noopener noreferrer\" target=\"_blank\">https://example.com/a?b=1&amp;c=2</a>. ",
          "<a href=\"http://www.example.org\" rel=\"noopener noreferrer\" target=\"_blank\">www.example.org</a>,",
          "&lt;b&gt;not bold&lt;/b&gt;", "שלום"},
         {"<b>"}},
        {"HTML beats plain; declared charset honoured",
         Dict{{"Body", "plain text"},
              {"HTML", bytes("<html><head><meta charset=windows-1252></head><body dir=rtl><p>caf\xE9</p></body></html>")}},
         {"<div class=\"qh-body\" dir=\"rtl\">", "<p>café</p>"}, {"plain text"}},
        {"RTF body when there is nothing else",
         Dict{{"RTF", bytes("{\\rtf1\\ansi {\\b Bold} words\\par}")}}, {"Bold", "words"}, {"This message has no text."}},
        {"RTF that wraps HTML wins over the plain body",
         Dict{{"Body", "plain fallback"},
              {"RTF", bytes("{\\rtf1\\ansi\\fromhtml1 {\\*\\htmltag <p>}from html{\\*\\htmltag </p>}}")}},
         {"from html"}, {"plain fallback"}},
        {"inline image by content id, remote image counted",
         Dict{{"HTML", "<p>logo <img src=\"cid:logo@x\"> <img src=\"https://t.example/p.gif\"></p>"},
              {"AttachmentList", Array{Dict{{"name", "logo.png"}, {"data", bytes(png)}, {"AttachContentID", "<logo@x>"}}}}},
         {"<img src=\"data:image/png;base64,iVBORw0KGgpyZXN0\">", "1 remote image was blocked",
          "download=\"logo.png\"", "(12 bytes)</span> <span class=\"qh-size\">inline</span>"},
         {"https://t.example"}},
        {"attachments: data: downloads, never a page",
         Dict{{"Body", "x"},
              {"AttachmentList", Array{Dict{{"name", "a\"b.html"}, {"data", bytes("<script>x</script>")}},
                                       Dict{{"name", "notes.txt"}, {"data", "text data"}},
                                       Dict{{"name", "gone.bin"}, {"size", 2048}}}}},
         {"<a download=\"a&quot;b.html\" href=\"data:application/octet-stream;base64,PHNjcmlwdD54PC9zY3JpcHQ+\">",
          "<a download=\"notes.txt\" href=\"data:application/octet-stream;base64,dGV4dCBkYXRh\">notes.txt</a> "
          "<span class=\"qh-size\">(9 bytes)</span>",
          "<bdi>gone.bin</bdi> <span class=\"qh-size\">(2.0 KB)</span>"},
         {"<script>x"}},
        {"appointment: when, where, how often",
         Dict{{"Subject", "Standup"},
              {"Start Time", qh::Date{1709632923}},
              {"Location", "Room <1>"},
              {"Recurrence Pattern", "every day"}},
         {"<dt>Start</dt>", "Room &lt;1&gt;", "<dt>Recurs</dt><dd dir=\"auto\">every day</dd>"},
         {"<dt>End</dt>"}},
    };
}

TEST(HtmlView, PagesHoldWhatTheyMust) {
    qhtest::EnvironmentGuard environment;
    environment.locale("en_US.UTF-8", "UTC");
    for (const PageCase& c : pageCases()) {
        std::string page = HtmlView::page(c.message);
        for (const std::string& text : c.present) EXPECT_NE(page.find(text), std::string::npos) << c.what << ": " << text;
        for (const std::string& text : c.absent) EXPECT_EQ(page.find(text), std::string::npos) << c.what << ": " << text;
        EXPECT_EQ(count(page, "<article"), count(page, "</article>")) << c.what;
    }
}

TEST(HtmlView, DatesInTheReadersLocaleAndZone) {
    qhtest::EnvironmentGuard environment;
    const Dict stamped{{"TimeStamp", qh::Date{1709632923}}};  // 2024-03-05 10:02:03 UTC
    const Dict mimeDate{{"Date", "Tue, 5 Mar 2024 10:02:03 +0000"}};
    const Dict oddDate{{"Date", "sometime <soon>"}};
    environment.locale("de_DE.UTF-8", "Europe/Berlin");
    EXPECT_NE(HtmlView::page(stamped).find("<dt>Date</dt><dd dir=\"auto\">05.03.2024, 11:02</dd>"), std::string::npos);
    EXPECT_NE(HtmlView::page(mimeDate).find("05.03.2024, 11:02"), std::string::npos);
    EXPECT_NE(HtmlView::page(oddDate).find("sometime &lt;soon&gt;"), std::string::npos);
}

TEST(HtmlView, LargeAttachmentsAreListedWithTheCommandThatSavesThem) {
    Dict message{{"Body", "x"},
                 {"AttachmentList", Array{Dict{{"name", "small.txt"}, {"data", bytes("1234")}},
                                          Dict{{"name", "big.iso"}, {"data", bytes("123456789")}},
                                          Dict{{"name", "second.txt"}, {"data", bytes("abcd")}}}}};
    HtmlView::Options options;
    options.embedLimit = 8;
    options.embedTotal = 6;  // the first small file uses most of it
    options.sourceName = "mail <1>.eml";
    std::string page = HtmlView::page(message, options);
    EXPECT_NE(page.find("download=\"small.txt\""), std::string::npos);
    EXPECT_EQ(page.find("download=\"big.iso\""), std::string::npos);
    EXPECT_EQ(page.find("download=\"second.txt\""), std::string::npos);
    EXPECT_EQ(count(page, "<code>quillhaven attachments -d DIR mail &lt;1&gt;.eml</code>"), 2u);
}

TEST(HtmlView, AttachedMessagesNestAndStopAtTheDepthLimit) {
    // Every attached message holds another one: the page shows kMaxNesting levels.
    Dict inner{{"Subject", "Inner"},
               {"Body", "inner text"},
               {"AttachmentList", Array{Dict{{"name", "again.msg"}, {"data", bytes("x")}}}}};
    int opened = 0;
    HtmlView::Options options;
    options.openEmbedded = [&](qh::ByteView) -> std::optional<Dict> {
        ++opened;
        return inner;
    };
    Dict outer{{"Subject", "Outer"},
               {"Body", "outer text"},
               {"AttachmentList", Array{Dict{{"name", "fwd.eml"}, {"data", bytes("x")}},
                                        Dict{{"name", "photo.jpg"}, {"data", bytes("x")}},
                                        Dict{{"name", "blob"}, {"mimeType", "message/rfc822"}, {"data", bytes("")}}}}};
    std::string page = HtmlView::page(outer, options);
    EXPECT_EQ(opened, HtmlView::kMaxNesting - 1);
    EXPECT_EQ(count(page, "<article class=\"qh-message\">"), std::size_t(HtmlView::kMaxNesting));
    EXPECT_EQ(count(page, "Attached message: <bdi>"), std::size_t(HtmlView::kMaxNesting));
    EXPECT_EQ(count(page, "Nested too deep"), 1u);
    EXPECT_NE(page.find("Attached message: <bdi>fwd.eml</bdi>"), std::string::npos);

    options.openEmbedded = [](qh::ByteView) { return std::optional<Dict>(); };
    EXPECT_NE(HtmlView::page(outer, options).find("holds no message that could be read"), std::string::npos);
}

TEST(HtmlView, TextForATerminal) {
    qhtest::EnvironmentGuard environment;
    environment.locale("en_US.UTF-8", "UTC");
    Dict message{{"Subject", "Hello\x1b[31m red"},
                 {"From", Array{address("Bob", "bob@example.com")}},
                 {"To", Array{address("Ada", "ada@example.com")}},
                 {"TimeStamp", qh::Date{1709632923}},
                 {"HTML", "<p>First</p><p>Second &amp; <b>last</b></p><script>x()</script>"},
                 {"AttachmentList", Array{Dict{{"name", "a.txt"}, {"data", bytes("abc")}}}}};
    EXPECT_EQ(HtmlView::text(message),
              "Subject: Hello[31m red\nFrom: Bob <bob@example.com>\nTo: Ada <ada@example.com>\n"
              "Date: Mar 5, 2024, 10:02\xE2\x80\xAF" "AM\nAttachments: a.txt (3 bytes)\n\nFirst\nSecond & last\n");
    message.set("RTF", bytes("{\\rtf1\\ansi Rich {\\b text}\\par}"));
    EXPECT_NE(HtmlView::text(message).find("\n\nRich text\n"), std::string::npos);
}

// The command around the page.

TEST(ViewCommand, OutputsExitCodesAndOpening) {
    qhclitest::ScratchDir scratch;
    const std::filesystem::path& dir = scratch.path();
    std::string message = scratch.write("news.eml", qhviewtest::newsletterMessage("127.0.0.1:9"));

    std::string page = (dir / "page.html").string();
    auto written = qhtest::runCli({"view", "-o", page, message});
    EXPECT_EQ(written.exitCode, 0) << written.err;
    EXPECT_EQ(written.out, "");
    EXPECT_NE(qhclitest::readText(page).find("Read all about it"), std::string::npos);

    auto text = qhtest::runCli({"view", "--text", message});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(text.out.rfind("Subject: Weekly news\n", 0), 0u) << text.out;

    EXPECT_EQ(qhtest::runCli({"view", "--as", "msg", "-"}, "not a compound document").exitCode, 1);
    EXPECT_EQ(qhtest::runCli({"view", (dir / "missing.msg").string()}).exitCode, 2);
    EXPECT_EQ(qhtest::runCli({"view", "-o", (dir / "no/such/dir/p.html").string(), message}).exitCode, 2);

    // --open hands the page, by its absolute path, to the desktop's opener.
    std::string opener = scratch.write("xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + (dir / "opened").string() + "'\n");
    std::filesystem::permissions(opener, std::filesystem::perms::owner_all);
    qhtest::EnvironmentGuard environment;
    environment.set("PATH", dir.string() + ":/usr/bin:/bin");
    environment.set("TMPDIR", dir.string());
    auto opened = qhtest::runCli({"view", "--open", message});
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    ASSERT_FALSE(opened.out.empty());
    std::string temporary = opened.out.substr(0, opened.out.size() - 1);
    EXPECT_EQ(qhclitest::readText(dir / "opened"), temporary + "\n");
    EXPECT_EQ(temporary.rfind((dir / "quillhaven-view-").string(), 0), 0u) << temporary;
    EXPECT_NE(qhclitest::readText(temporary).find("Read all about it"), std::string::npos);
    auto relative = qhtest::runCli({"view", "--open", "-o", page, message});
    EXPECT_EQ(relative.exitCode, 0);
    EXPECT_EQ(qhclitest::readText(dir / "opened"), std::filesystem::absolute(page).string() + "\n");
}

}  // namespace
