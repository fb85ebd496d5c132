// The HTML sanitiser: what mail HTML keeps and what it loses, one line each.
#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "util/HtmlSanitizer.h"

namespace {

using qh::HtmlSanitizer;

struct Case {
    const char* input;
    const char* expected;  // the whole result
};

class SanitizerCases : public ::testing::TestWithParam<Case> {};

TEST_P(SanitizerCases, GivesExactly) {
    auto resolver = [](std::string_view reference) -> std::optional<std::string> {
        if (reference == "cid:logo@x" || reference == "image001.png") return std::string("data:image/png;base64,AA==");
        return std::nullopt;
    };
    EXPECT_EQ(HtmlSanitizer::sanitize(GetParam().input, resolver).html, GetParam().expected) << GetParam().input;
}

INSTANTIATE_TEST_SUITE_P(
    Html, SanitizerCases,
    ::testing::Values(
        // Kept as written (attributes re-quoted, names lower-cased).
        Case{"<P ALIGN=center class='a'>Hi &amp; bye &eacute;</P>", "<p align=\"center\" class=\"a\">Hi &amp; bye &eacute;</p>"},
        Case{"<table border=1><tr><td bgcolor=#fff>x</td></tr></table>",
             "<table border=\"1\"><tr><td bgcolor=\"#fff\">x</td></tr></table>"},
        Case{"<div dir=rtl lang=he>שלום</div>", "<div dir=\"rtl\" lang=\"he\">שלום</div>"},
        Case{"a < b > c & d", "a &lt; b &gt; c &amp; d"},
        // Scripts and active content go, with what they hold where it is code.
        Case{"<script>alert(1)</script>ok", "ok"},
        Case{"<SCRIPT type=x>a</script >ok", "ok"},
        Case{"<script>never closed", ""},
        Case{"<iframe src=http://x/>inside</iframe>ok", "ok"},
        Case{"<object data=x><p>fallback</p></object>ok", "ok"},
        Case{"<embed src=x>ok", "ok"},
        Case{"<svg><script>alert(1)</script><circle/></svg>ok", "ok"},
        Case{"<form action=http://x><input name=q><button>Send</button></form>", "Send"},
        Case{"<textarea><b>x</b></textarea>ok", "ok"},
        Case{"<noscript><img src=http://x></noscript>ok", "ok"},
        Case{"<meta http-equiv=refresh content='0;url=http://x'><link rel=stylesheet href=http://x><base href=http://x/>ok",
             "ok"},
        Case{"<!-- <script>alert(1)</script> -->ok<!--->", "ok"},
        Case{"<![if !mso]>ok<![endif]>", "ok"},
        // Event handlers and unknown attributes.
        Case{"<p onclick=alert(1) ONMOUSEOVER='x' title=t>x</p>", "<p title=\"t\">x</p>"},
        Case{"<img src=x onerror=alert(1)>", "<img>"},
        Case{"<p title=\"a&quot;b\" =x>y</p>", "<p title=\"a&quot;b\">y</p>"},
        // Links.
        Case{"<a href=\"https://example.com/?a=1&amp;b=2\">x</a>",
             "<a href=\"https://example.com/?a=1&amp;b=2\" rel=\"noopener noreferrer\" target=\"_blank\">x</a>"},
        Case{"<a href='mailto:a@b'>m</a>", "<a href=\"mailto:a@b\" rel=\"noopener noreferrer\" target=\"_blank\">m</a>"},
        Case{"<a href='#top'>t</a>", "<a href=\"#top\" rel=\"noopener noreferrer\" target=\"_blank\">t</a>"},
        Case{"<a href=javascript:alert(1)>j</a>", "<a>j</a>"},
        Case{"<a href=' JaVa&#x53;cript&colon;alert(1)'>j</a>", "<a>j</a>"},
        Case{"<a href='java&Tab;script:alert(1)'>j</a>", "<a>j</a>"},
        Case{"<a href=vbscript:msgbox>v</a>", "<a>v</a>"},
        Case{"<a href=file:///etc/passwd>f</a>", "<a>f</a>"},
        Case{"<a href='\\\\server\\share'>u</a>", "<a>u</a>"},
        Case{"<a href='//server/share'>u</a>", "<a>u</a>"},
        Case{"<a href='data:text/html,<script>'>d</a>", "<a>d</a>"},
        Case{"<a href='relative/page.html'>r</a>", "<a>r</a>"},
        Case{"<a href=http://x target=_self rel=opener>x</a>",
             "<a href=\"http://x\" rel=\"noopener noreferrer\" target=\"_blank\">x</a>"},
        // Images: inline parts resolved, data: images kept, everything else never fetched.
        Case{"<img src='cid:logo@x' alt=l>", "<img src=\"data:image/png;base64,AA==\" alt=\"l\">"},
        Case{"<img src=image001.png>", "<img src=\"data:image/png;base64,AA==\">"},
        Case{"<img src='cid:missing'>", "<img>"},
        Case{"<img src='data:image/gif;base64,R0lG'>", "<img src=\"data:image/gif;base64,R0lG\">"},
        Case{"<img src='data:text/html;base64,PHNjcmlwdD4='>", "<img>"},
        Case{"<img src=http://tracker/p.gif alt=t>", "<img alt=\"t\" data-blocked=\"remote\">"},
        Case{"<img src='\\\\attacker\\share\\a.png'>", "<img data-blocked=\"remote\">"},
        Case{"<img src='file:///c:/a.png'>", "<img data-blocked=\"remote\">"},
        Case{"<img srcset='http://x/a.png 2x' lowsrc=http://x>", "<img>"},
        Case{"<td background=http://x/bg.png>c</td>", "<td>c</td>"},
        // CSS.
        Case{"<p style=\"color:red;background:url(http://x/a.png)\">s</p>", "<p style=\"color:red;background:none\">s</p>"},
        Case{"<p style=\"background:u\\72l('http://x')\">s</p>", "<p style=\"background:none\">s</p>"},
        Case{"<p style=\"background:url(data:image/png;base64,AA==)\">s</p>",
             "<p style=\"background:url(data:image/png;base64,AA==)\">s</p>"},
        Case{"<p style=\"width:expression(alert(1))\">s</p>", "<p style=\"width:x-expression(alert(1))\">s</p>"},
        Case{"<p style=\"font-family:\\5B8B\\4F53\">s</p>", "<p style=\"font-family:宋体\">s</p>"},
        Case{"<style>@import url(http://x/a.css); @IMPORT 'b.css';p{color:red}</style>", "<style> p{color:red}</style>"},
        Case{"<style>p{background:url(\"http://x\")}</style>", "<style>p{background:none}</style>"},
        Case{"<style>p::after{content:'</style><script>alert(1)</script>'}</style>",
             "<style>p::after{content:'</style>'}"},
        Case{"<style>p{content:'\\3C/style>'}</style>", "<style>p{content:'\\3C /style>'}</style>"},
        // Structure: what it opens it closes; it never closes what it did not open.
        Case{"<div><b>unclosed", "<div><b>unclosed</b></div>"},
        Case{"</div></article></body>text", "text"},
        Case{"<b><i>x</b>y</i>", "<b><i>x</i></b>y"},
        Case{"<html><head><title>t</title></head><body bgcolor=red><o:p>word</o:p></body></html>", "word"},
        Case{"<p>broken <img src='x", "<p>broken </p>"},
        Case{"<br/><hr><wbr>", "<br><hr>"}));

TEST(HtmlSanitizer, CountsWhatItBlocksAndResolves) {
    auto resolver = [](std::string_view reference) -> std::optional<std::string> {
        if (reference == "cid:a") return std::string("data:image/png;base64,AA==");
        return std::nullopt;
    };
    auto result = HtmlSanitizer::sanitize(
        "<body dir=rtl><img src=http://a><img src=https://b><img src='\\\\c\\d'><p style='background:url(http://e)'>"
        "<img src=cid:a><script></script><iframe></iframe><form></form><meta http-equiv=Refresh content=0>",
        resolver);
    EXPECT_EQ(result.remoteImagesBlocked, 4u);
    EXPECT_EQ(result.inlineImagesResolved, 1u);
    EXPECT_EQ(result.elementsRemoved, 4u);
    EXPECT_EQ(result.direction, "rtl");
}

TEST(HtmlSanitizer, DeepNestingIsBoundedAndClosed) {
    std::string html;
    for (int i = 0; i < 100000; ++i) html += "<div>";
    html += "x";
    auto result = HtmlSanitizer::sanitize(html);
    std::size_t opened = 0, closed = 0;
    for (std::size_t at = 0; (at = result.html.find("<div>", at)) != std::string::npos; ++at) ++opened;
    for (std::size_t at = 0; (at = result.html.find("</div>", at)) != std::string::npos; ++at) ++closed;
    EXPECT_EQ(opened, closed);
    EXPECT_LE(opened, 256u);
    EXPECT_NE(result.html.find('x'), std::string::npos);
}

// Inputs whose cost could grow with the square of their size finish at once.
TEST(HtmlSanitizer, HostileRepetitionsStayLinear) {
    std::string imports = "<style>", attributes = "<p", disarmed = "<p style='";
    for (int i = 0; i < 200000; ++i) {
        imports += "@import;";
        attributes += " a" + std::to_string(i) + "=1";
        disarmed += "expression";
    }
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(HtmlSanitizer::sanitize(imports + "</style>").html, "<style></style>");
    EXPECT_EQ(HtmlSanitizer::sanitize(attributes + " title=t>x</p>").html, "<p>x</p>");
    EXPECT_EQ(HtmlSanitizer::sanitize(disarmed + "'>x</p>").html.size(), 200000u * 12 + 17);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
}

TEST(HtmlSanitizer, InvalidUtf8AndNulsNeverPassThrough) {
    static constexpr char kInput[] = "a\xFF\xFE<p title='\xC0'>b\0c</p>";
    auto result = HtmlSanitizer::sanitize(std::string(kInput, sizeof kInput - 1));
    EXPECT_EQ(result.html, "a\xEF\xBF\xBD\xEF\xBF\xBD<p title=\"\xEF\xBF\xBD\">bc</p>");
}

}  // namespace
