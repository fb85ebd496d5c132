// The RTF reader on small documents: plain text, HTML, encapsulated HTML, and
// inputs built to break it.
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <quillhaven/Bytes.h>
#include "richtext/RTFConverter.h"
#include "richtext/RTFEncapsulatedHTML.h"
#include "richtext/RTFReader.h"

namespace {

using qh::RTFReader;

std::optional<std::string> text(std::string_view rtf) { return RTFReader::stringFromRTFData(qh::asBytes(rtf)); }
std::optional<std::string> html(std::string_view rtf) { return RTFReader::htmlFromRTFData(qh::asBytes(rtf)); }

// What stands between <body> and </body> in the reader's HTML document.
std::string htmlBody(std::string_view rtf) {
    std::optional<std::string> document = html(rtf);
    if (!document) return "(none)";
    const std::string open = "<body>\n";
    std::size_t start = document->find(open);
    std::size_t end = document->rfind("</body>");
    if (start == std::string::npos || end == std::string::npos || end < start) return "(no body) " + *document;
    return document->substr(start + open.size(), end - start - open.size());
}

struct Case {
    const char* name;
    std::string rtf;
    std::string expected;
};

TEST(RTFReader, PlainText) {
    const Case cases[] = {
        Case{"Paragraphs", R"({\rtf1\ansi Hello\par World\par})", "Hello\nWorld\n"},
        Case{"LineEndsInSourceIgnored", "{\\rtf1 a\r\nb\nc}", "abc"},
        Case{"BackslashNewlineIsParagraph", "{\\rtf1 a\\\nb}", "a\nb"},
        Case{"EscapedSymbols", R"({\rtf1 \{x\}\\})", "{x}\\"},
        Case{"AnsiCodePage", R"({\rtf1\ansi\ansicpg1251 \'cf\'f0\'e8\'e2\'e5\'f2})", "Привет"},
        Case{"DefaultIsWindows1252", R"({\rtf1\ansi \'80\'e9})", "€é"},
        Case{"FontCharsetWins", R"({\rtf1\ansi\ansicpg1252{\fonttbl{\f0 Arial;}{\f1\fcharset238 Arial CE;}}\f1 \'b9\f0 \'b9})",
             "ą¹"},
        Case{"FontCodePage", R"({\rtf1\ansi{\fonttbl{\f3\cpg1253 Greek;}}\f3 \'e1})", "α"},
        Case{"DefaultFontCharset", R"({\rtf1\ansi\deff2{\fonttbl{\f2\fcharset204 Cyr;}}\'e0})", "а"},
        Case{"DoubleByteAcrossEscapes", R"({\rtf1\ansi\ansicpg932 \'82\'a0\'82\'a2})", "あい"},
        Case{"DoubleByteTrailIsAscii", R"({\rtf1\ansi\ansicpg932 \'83T})", "サ"},
        Case{"DoubleByteTrailIsEscapedBackslash", R"({\rtf1\ansi\ansicpg932 \'95\\ \'83\{x})", "表 ボx"},
        Case{"FontCharsetShiftJis", R"({\rtf1\ansi{\fonttbl{\f0 Arial;}{\f1\fcharset128 MS Gothic;}}Hello\par J \f1\'82\'b1\'82\'f1\f0 !})",
             "Hello\nJ こん!"},
        Case{"FontCharsetGbk", R"({\rtf1\ansi{\fonttbl{\f1\fcharset134 SimSun;}}\f1 C \'c4\'e3\'ba\'c3})", "C 你好"},
        Case{"FontCharsetHangul", R"({\rtf1\ansi{\fonttbl{\f1\fcharset129 Gulim;}}\f1 K \'be\'c8\'b3\'e7})", "K 안녕"},
        Case{"FontCharsetBig5", R"({\rtf1\ansi{\fonttbl{\f1\fcharset136 MingLiU;}}\f1 T \'a7\'41\'a6\'6e})", "T 你好"},
        Case{"UnknownCodePageReadsAsWindows1252", R"({\rtf1\ansi\ansicpg12345 \'e9})", "é"},
        Case{"FontNamesInOwnCodePage", R"({\rtf1\ansi\ansicpg932{\fonttbl{\f1\fcharset128 \'82\'6c\'82\'72;}}\f1 x})", "x"},
        Case{"UnicodeWithDefaultSkip", R"({\rtf1 a\u8364?b})", "a€b"},
        Case{"UnicodeSkipsEscapes", R"({\rtf1\uc2 \u8364\'80\'80c})", "€c"},
        Case{"UnicodeNoSkip", R"({\rtf1\uc0\u8364 x})", "€x"},
        Case{"UnicodeSkipCountsControlWords", R"({\rtf1\uc1\u8212\emdash x})", "—x"},
        Case{"NegativeUnicode", R"({\rtf1 \u-24?})", "\uFFE8"},
        Case{"SurrogatePair", R"({\rtf1 \u-10179?\u-8704?})", "😀"},
        Case{"LoneSurrogate", R"({\rtf1\uc0 \u-10179 x})", "\uFFFDx"},
        Case{"SkipEndsAtGroup", R"({\rtf1\uc3 {\u8364 a}b})", "€b"},
        Case{"UcIsGroupScoped", R"({\rtf1 {\uc2 x}\u8364?y})", "x€y"},
        Case{"DestinationsSkipped",
             R"({\rtf1{\fonttbl{\f0 Arial;}}{\colortbl;\red0\green0\blue0;}{\stylesheet{\s0 Normal;}})"
             R"({\info{\title T}{\author A}}{\*\generator G;}{\*\unknown U{\nested N}}{\pict\pngblip 89504e47}Text})",
             "Text"},
        Case{"EscapesInSkippedGroup", R"({\rtf1{\*\x a\}b\{{c}\\}d})", "d"},
        Case{"KnownDestinationUnderStar", R"({\rtf1{\*\fldinst x}y})", "y"},
        Case{"SpecialCharacters", R"({\rtf1 \emdash\endash\bullet\lquote\rquote\ldblquote\rdblquote\~\tab x\line y})",
             "—–•‘’“”\u00A0\tx\ny"},
        Case{"OptionalHyphenAndNonBreakingHyphen", R"({\rtf1 a\-b\_c})", "ab\u2011c"},
        Case{"HiddenText", R"({\rtf1 a{\v hidden}b\v c\v0 d})", "abd"},
        Case{"PlainEndsHidden", R"({\rtf1\v a\plain b})", "b"},
        Case{"FieldShowsResult", R"({\rtf1 {\field{\*\fldinst HYPERLINK "http://a.b/"}{\fldrslt link}} end})",
             "link end"},
        Case{"BinaryPayloadSkipped", R"({\rtf1 a{\pict\bin4 }}{}}b\bin2 xyc})", "abc"},
        Case{"TextAfterDocumentIgnored", R"({\rtf1 a}b{c})", "a"},
        Case{"NulPaddingIgnored", std::string("{\\rtf1 a}\0\0\0", 12), "a"},
        Case{"ListBulletsKept", R"({\rtf1{\pntext\'b7\tab}{\*\pn{\pntxtb\'b7}}item})", "·\titem"},
        Case{"TableCells", R"({\rtf1 a\cell b\cell\row c})", "a\tb\t\nc"},
        Case{"LeadingWhiteSpace", " \r\n{\\rtf1 x}", "x"},
        // What is not RTF gives no text and no HTML.
        Case{"Empty", "", "(none)"},
        Case{"CutSignature", "{\\rt", "(none)"},
        Case{"NoBackslash", "{rtf1 x}", "(none)"},
        // Inputs made to break a parser: the text that stands before the damage.
        Case{"UnclosedGroups", "{\\rtf1 a{{{{ b", "a b"},
        Case{"ExtraClosings", "{\\rtf1 a}}}}}", "a"},
        Case{"HugeUc", "{\\rtf1\\uc2147483647 \\u65 abc}d", "A"},
        Case{"UcBeyondLong", "{\\rtf1\\uc99999999999999999999 \\u66 x}", "B"},
        Case{"HugeU", "{\\rtf1\\u99999999999 x}", "\uFFFF"},
        Case{"HugeBin", "{\\rtf1 a\\bin99999999999 xyz}", "a"},
        Case{"NegativeBin", "{\\rtf1 a\\bin-5 b}", "ab"},
        Case{"HexEscapeCut", "{\\rtf1 a\\'", "a"},
        Case{"HexEscapeHalf", "{\\rtf1 a\\'4", "a\x04"},
        Case{"HexEscapeNotHex", "{\\rtf1 a\\'zz", "azz"},
        Case{"BackslashAtEnd", "{\\rtf1 a\\", "a"},
        Case{"UnicodeCut", "{\\rtf1 a\\u", "a"},
        Case{"UnicodeSignOnly", "{\\rtf1 a\\u-", "a-"},
        Case{"HugeCodePage", "{\\rtf1\\ansicpg99999 \\'e9}", "é"},
        Case{"NegativeCodePage", "{\\rtf1\\ansicpg-1 \\'e9}", "é"},
        Case{"NegativeFont", "{\\rtf1{\\fonttbl{\\f-3\\fcharset128 x;}}\\f-3 \\'e9}", "é"},
        Case{"LongControlWord", "{\\rtf1 " + std::string(100, 'x') + "\\" + std::string(1000, 'a') + "5 y}",
             std::string(100, 'x') + "y"},
        // Far deeper than any writer goes: the groups beyond the bound are
        // skipped, the text around them survives.
        Case{"DeepNesting", "{\\rtf1 a" + std::string(200000, '{') + "x" + std::string(200000, '}') + "b}", "ab"},
        Case{"DeepUnclosed", "{\\rtf1 a" + std::string(200000, '{') + "x", "a"},
        Case{"ModerateNesting", "{\\rtf1 a" + std::string(100, '{') + "x" + std::string(100, '}') + "b}", "axb"},
        Case{"ManyTruncatedEscapes", [] {
                 std::string escapes = "{\\rtf1 ";
                 for (int i = 0; i < 200000; ++i) escapes += "\\'";
                 return escapes;
             }(),
             ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(text(c.rtf).value_or("(none)"), c.expected) << c.name;
        EXPECT_EQ(html(c.rtf).has_value(), c.expected != "(none)") << c.name;
    }
}

TEST(RTFReader, Html) {
    const Case cases[] = {
        Case{"ParagraphsAndEscaping", R"({\rtf1 Hello \b bold\b0  & <x> "q"\par next})",
             "<p>Hello <b>bold</b> &amp; &lt;x&gt; &quot;q&quot;</p>\n<p>next</p>\n"},
        Case{"NestedFormatting", R"({\rtf1 {\i\ul iu}\ulnone x{\b\i y}})", "<p><i><u>iu</u></i>x<b><i>y</i></b></p>\n"},
        Case{"FormattingClosedAtParagraph", R"({\rtf1 \b a\par b})", "<p><b>a</b></p>\n<p><b>b</b></p>\n"},
        Case{"EmptyParagraph", R"({\rtf1 a\par\par b})", "<p>a</p>\n<p><br></p>\n<p>b</p>\n"},
        Case{"LineBreak", R"({\rtf1 a\line b})", "<p>a<br>b</p>\n"},
        Case{"Hyperlink",
             R"({\rtf1 see {\field{\*\fldinst{HYPERLINK "http://x.org/?a=1&b=2"}}{\fldrslt{\ul link}}} now})",
             "<p>see <a href=\"http://x.org/?a=1&amp;b=2\"><u>link</u></a> now</p>\n"},
        Case{"HyperlinkToAnchor", R"({\rtf1 {\field{\*\fldinst HYPERLINK \\l "top" \\o "tip"}{\fldrslt up}}})",
             "<p><a href=\"#top\">up</a></p>\n"},
        Case{"OtherFieldsAreText", R"({\rtf1 {\field{\*\fldinst PAGE}{\fldrslt 3}}})", "<p>3</p>\n"},
        Case{"HyperlinkNotReopenedAfterParagraph",
             R"({\rtf1 {\field{\*\fldinst HYPERLINK "u"}{\fldrslt a\par b}}})",
             "<p><a href=\"u\">a</a></p>\n<p>b</p>\n"},
        Case{"NestedFieldEndsOuterLink",
             R"({\rtf1 {\field{\*\fldinst HYPERLINK "o"}{\fldrslt a{\field{\*\fldinst HYPERLINK "i"}{\fldrslt b}}c}}})",
             "<p><a href=\"o\">a</a><a href=\"i\">b</a>c</p>\n"},
        Case{"UnicodeEscaped", R"({\rtf1 \u60?\u8364?})", "<p>&lt;€</p>\n"},
        Case{"HiddenDropped", R"({\rtf1 a{\v b}c})", "<p>ac</p>\n"},
        Case{"HtmlTagsIgnoredWithoutFromHtml", R"({\rtf1 {\*\htmltag4 <b>}x})", "<p>x</p>\n"},
        Case{"FromHtmlAfterTextIgnored", R"({\rtf1 x\fromhtml1 {\*\htmltag4 <b>}y})", "<p>xy</p>\n"},
    };
    for (const Case& c : cases) EXPECT_EQ(htmlBody(c.rtf), c.expected) << c.name;
}

TEST(RTFReaderHtml, IsACompleteDocument) {
    std::optional<std::string> document = html(R"({\rtf1 x})");
    ASSERT_TRUE(document);
    EXPECT_TRUE(document->starts_with("<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">"));
    EXPECT_TRUE(document->ends_with("</body>\n</html>\n"));
}

// RTF that carries an HTML message: the HTML comes back from the tag groups and
// the text outside \htmlrtf; the plain text is the RTF rendering.
TEST(RTFReader, EncapsulatedHtml) {
    struct Encapsulated {
        const char* name;
        std::string rtf, html, text;
    } cases[] = {
        Encapsulated{"TagsTextAndSuppressedRtf",
                     R"({\rtf1\ansi\fromhtml1 \deff0{\fonttbl{\f0 Arial;}}{\*\htmltag19 <html>}{\*\htmltag34 <body>})"
                     R"(\htmlrtf {\b\htmlrtf0 Hi{\*\htmltag84 &amp;}\htmlrtf &\htmlrtf0 you\htmlrtf }\htmlrtf0 \par)"
                     R"({\*\htmltag0 </body></html>}})",
                     "<html><body>Hi&amp;you\r\n</body></html>", "Hi&you\n"},
        Encapsulated{"TagControlsAndEscapes",
                     R"({\rtf1\ansi\ansicpg1252\fromhtml1 {\*\htmltag241 <style>\par p \{a:b\}\tab x\'e9</style>}})",
                     "<style>\r\np {a:b}\tx\u00e9</style>", ""},
        Encapsulated{"ModifiedTagsIgnored",
                     R"({\rtf1\fromhtml1 {\*\mhtmltag4 <img src="a">}{\*\htmltag4 <img src="cid:b">}})",
                     "<img src=\"cid:b\">", ""},
        Encapsulated{"CodePageOfDocument",
                     R"({\rtf1\ansi\ansicpg932\fromhtml1 {\*\htmltag0 <p>}\'82\'a0{\*\htmltag0 </p>}})", "<p>あ</p>",
                     "あ"},
    };
    for (const Encapsulated& c : cases) {
        EXPECT_EQ(html(c.rtf).value_or("(none)"), c.html) << c.name;
        EXPECT_EQ(text(c.rtf).value_or("(none)"), c.text) << c.name;
    }
}

// A random HTML-in-RTF document as mail clients write them, with the damage
// hostile or cut files bring: tag groups, \htmlrtf runs, escapes in several
// code pages, \u with its stand-ins, fields, skipped destinations, unbalanced
// and deep groups, \bin payloads, stray bytes, and a cut anywhere.
class EncapsulatedDocument {
public:
    explicit EncapsulatedDocument(std::uint32_t seed) : random_(seed) {}

    std::string make() {
        out_ = "{\\rtf1\\ansi";
        if (chance(70)) out_ += pick({"\\ansicpg1252", "\\ansicpg932", "\\ansicpg936", "\\ansicpg1251",
                                      "\\ansicpg950", "\\ansicpg65001", "\\ansicpg12345", "\\ansicpg949"});
        // What may stand before \fromhtml1; now and then something that makes
        // the converter read the document as ordinary RTF.
        for (int words = below(3); words > 0; --words)
            out_ += pick({"\\uc2", "\\f1", "\\deff2", "\\htmlrtf", "\\htmlrtf0", "\\b", "\\plain", "\\v",
                          "\\fbidis", "\\cpg936", "\\fromhtml0", "\\mac", "\\pca"});
        if (chance(5)) out_ += pick({" x", "{\\fonttbl}", "\\par", "\\u65?", "\\*\\x", "\\'41", "\\~"});
        out_ += chance(90) ? "\\fromhtml1" : "\\fromhtml";
        out_ += pick({" ", " ", "\r\n", ""});
        if (chance(80)) fontTable();
        for (int pieces = 1 + below(60); pieces > 0; --pieces) piece(0);
        if (chance(85)) out_ += "}";
        if (chance(20)) out_.resize(below(static_cast<int>(out_.size()) + 1));  // a cut file
        if (chance(3)) {
            for (int flips = 1 + below(4); flips > 0 && !out_.empty(); --flips)
                out_[below(static_cast<int>(out_.size()))] = static_cast<char>(below(256));
        }
        return out_;
    }

private:
    int below(int n) { return static_cast<int>(random_() % static_cast<std::uint32_t>(n)); }
    bool chance(int percent) { return below(100) < percent; }
    const char* pick(std::initializer_list<const char*> choices) { return choices.begin()[below(int(choices.size()))]; }

    void fontTable() {
        out_ += "{\\fonttbl";
        for (int fonts = below(5); fonts > 0; --fonts) {
            out_ += "{\\f" + std::to_string(below(5));
            if (chance(70)) out_ += pick({"\\fcharset0", "\\fcharset128", "\\fcharset134", "\\fcharset204",
                                          "\\fcharset2", "\\fcharset136", "\\fcharset129", "\\fcharset77"});
            if (chance(15)) out_ += pick({"\\cpg1253", "\\cpg950", "\\cpg0", "\\cpg70000"});
            if (chance(10)) out_ += pick({"{\\*\\panose 020b}", "\\*\\htmltag1", "{\\*\\falt X}", "\\'82\\'a0",
                                          "\\*\\\r\n", "{\\*\\htmltag4 <b>}",
                                          "\\*\\htmlrtf\\fcharset128"});
            out_ += " Font;}";
        }
        out_ += "}";
        if (chance(50)) out_ += "\r\n{\\colortbl;\\red0\\green0\\blue0;}";
    }

    void hexEscape() {
        static const char* const kHex = "0123456789abcdefABCDEF";
        out_ += "\\'";
        if (chance(3)) return;  // no digit
        if (chance(60)) {
            // A lead or trail byte of the double-byte code pages, or Latin.
            static const char* const kCommon[] = {"82", "a0", "a1", "b0", "c4", "e3", "95", "5c", "e9", "80", "ff", "3f", "41"};
            out_ += kCommon[below(13)];
            return;
        }
        out_ += kHex[below(22)];
        if (chance(95)) out_ += kHex[below(22)];
    }

    void text(int words) {
        for (; words > 0; --words) {
            switch (below(12)) {
                case 0: out_ += pick({"<p>", "</p>", "<b>", "<a href=\"x?a=1&b=2\">", "<br>", "&amp;", "<o:p>"}); break;
                case 1: hexEscape(); break;
                case 2: out_ += pick({"\\par ", "\\line ", "\\tab ", "\\cell ", "\\row ", "\\sect ", "\\par\r\n"}); break;
                case 3: out_ += pick({"\\{", "\\}", "\\\\", "\\~", "\\_", "\\-", "\\\t", "\\|", "\\\r\n", "\\\n"}); break;
                case 4:
                    if (chance(25)) out_.push_back('\0');
                    else out_ += pick({"\r\n", "\n", " "});
                    break;
                case 5: out_ += pick({"\xe9t\xe9", "\x82\xa0", "\xc4\xe3", "\xff", "\xc3\xa9"}); break;
                case 6: out_ += pick({"\\emdash ", "\\bullet ", "\\rquote ", "\\zwj ", "\\lquote"}); break;
                default: out_ += pick({"Hello", " world", "p.MsoNormal", " {margin:0cm;}", "x", " ", "mso-list:l0"}); break;
            }
        }
    }

    void unicode() {
        if (chance(30)) out_ += "\\uc" + std::to_string(below(5) - 1);
        static const int kUnits[] = {65, 233, 8364, 20320, -10179, -8704, 55357, 56832, 0, -1, 32767, -32768};
        out_ += "\\u" + std::to_string(chance(90) ? kUnits[below(12)] : static_cast<int>(random_() % 200000) - 100000);
        out_ += pick({"?", "\\'3f", " ?", "", "\\'82\\'a0", "??", "{x}", "\\par "});
    }

    void piece(int depth) {
        switch (below(20)) {
            case 0:
            case 1:
            case 2:
                out_ += "{\\*\\htmltag" + std::to_string(below(256)) + " ";
                text(1 + below(6));
                out_ += "}";
                break;
            case 3:
                out_ += "\\htmlrtf ";
                if (chance(50)) out_ += "{";
                text(below(4));
                if (chance(30)) unicode();
                out_ += pick({"\\htmlrtf0 ", "}\\htmlrtf0 ", "\\htmlrtf0", "\\htmlrtf1 "});
                break;
            case 4:
            case 5:
                text(1 + below(5));
                break;
            case 6:
                unicode();
                break;
            case 7:
                out_ += pick({"\\f0 ", "\\f1 ", "\\f2 ", "\\f3 ", "\\f-1 ", "\\plain ", "\\deff1 ", "\\ansicpg936 ",
                              "\\ansi ", "\\pc ", "\\fs24 ", "\\b ", "\\v ", "\\ulnone "});
                break;
            case 8:
                out_ += pick({"{\\*\\mhtmltag4 <img>}", "{\\*\\unknown a{b}\\'\\}c}", "{\\colortbl\\red1;}",
                              "{\\pict\\bin4 }}{}}", "\\bin3 a}b", "{\\*\\pn{\\pntxtb\\'b7}}", "{\\info{\\title T}}",
                              "\\*\\fldinst", "\\*\\zz", "\\*\\b x", "\\*\\htmltag", "\\bin", "\\bin-2 x",
                              "\\bin99999999999 x"});
                break;
            case 9: {
                out_ += "{\\field{\\*\\fldinst{HYPERLINK \"";
                if (chance(10)) out_ += std::string(4090 + below(10), 'u');
                text(below(3));
                if (chance(30)) unicode();
                if (chance(20)) out_ += pick({"x{\\fldrslt z}", "{\\fldrslt z}"});
                out_ += "\"}}{\\fldrslt{";
                text(1 + below(3));
                out_ += "}}}";
                break;
            }
            case 10:
                if (depth < 4) {
                    out_ += "{";
                    for (int pieces = below(4); pieces > 0; --pieces) piece(depth + 1);
                    if (chance(90)) out_ += "}";
                }
                break;
            case 11:
                out_ += pick({"{", "}", "}}", "{{"});
                break;
            case 12:
                if (chance(10)) out_ += std::string(300, '{') + "x" + std::string(below(2) ? 300 : 10, '}');
                break;
            case 13:
                out_ += "\\" + std::string(below(40) + 1, pick({"a", "q", "Z"})[0]) + pick({"", "12", "-3", "99999999999", " "});
                break;
            default:
                out_ += "{\\*\\htmltag" + std::to_string(below(256)) + " ";
                text(1 + below(3));
                out_ += "}\\htmlrtf {\\htmlrtf0 ";
                text(below(3));
                out_ += "\\htmlrtf }\\htmlrtf0 ";
                break;
        }
    }

    std::mt19937 random_;
    std::string out_;
};

std::string printable(std::string_view bytes) {
    std::string shown;
    for (unsigned char c : bytes) {
        if (c >= 0x20 && c < 0x7F) shown += static_cast<char>(c);
        else shown += "<" + std::to_string(c) + ">";
    }
    return shown;
}

// The one-pass extraction gives what the converter gives, on every document it takes.
TEST(RTFReader, EncapsulatedHtmlPassMatchesConverter) {
    constexpr int kDocuments = 4000;
    int taken = 0, differing = 0;
    for (int seed = 0; seed < kDocuments && differing < 5; ++seed) {
        const std::string rtf = EncapsulatedDocument(static_cast<std::uint32_t>(seed)).make();
        std::optional<std::string> fast = qh::RTFEncapsulatedHTML::extract(qh::asBytes(rtf));
        if (!fast) continue;
        ++taken;
        std::optional<std::string> reference = qh::RTFConverter(qh::RTFConverter::Output::HTML).convert(qh::asBytes(rtf));
        if (fast == reference) continue;
        ++differing;
        ADD_FAILURE() << "seed " << seed << "\nrtf:       " << printable(rtf) << "\nfast:      " << printable(*fast)
                      << "\nreference: " << printable(reference.value_or("(none)"));
    }
    // Most documents open as mail clients write them; the rest are the converter's.
    EXPECT_GT(taken, kDocuments * 8 / 10);
}

// Which documents the pass takes, and corners the random documents rarely reach.
TEST(RTFReader, EncapsulatedHtmlPassTakesOnlyWhatItIsSureOf) {
    const std::string longInstruction(qh::RTFConverter::kMaxFieldInstruction + 4, 'u');
    const std::pair<std::string, bool> cases[] = {
        // A high surrogate in a field instruction past its bound waits for the field's result.
        {R"({\rtf1\fromhtml1 {\*\fldinst )" + longInstruction + R"(\u-10179?x{\fldrslt z}}})", true},
        {R"({\rtf1\fromhtml1 a)" + std::string(300, '{') + "x" + std::string(300, '}') + "b}", true},
        // \htmlrtf with numbers and letters after it, whatever the sixteen bytes ahead hold.
        {R"({\rtf1\fromhtml1 a\htmlrtf01 b\htmlrtf0 c\htmlrtf-0 d\htmlrtf0\htmlrtfz e\htmlrtf1\par f\htmlrtf0{\*\htmltag0 g}}   )"
         R"(                )", true},
        // Numbers past nine digits are clamped to the largest 32-bit one.
        {R"({\rtf1\fromhtml1 \uc12345678901 \u65 abc\u-99999999999 x\u4294967361 ?{\*\htmltag0 y}})", true},
        {R"({\rtf1\ansi\ansicpg1252\fromhtml1 \deff0{\fonttbl{\f0 A;}}{\*\htmltag0 <p>}})", true},
        {" \r\n{\\rtf1\\fromhtml1 x}", true},
        {R"({\rtf1\uc2\htmlrtf\fromhtml1 x})", true},
        {R"({\rtf1\fromhtml0\fromhtml1 x})", true},
        {R"({\rtf1\ansi x\fromhtml1 y})", false},         // text first
        {R"({\rtf1{\fonttbl}\fromhtml1 y})", false},      // a group first
        {R"({\rtf1\*\fromhtml1 y})", false},              // a symbol first
        {R"({\rtf1\par\fromhtml1 y})", false},            // a paragraph first
        {R"({\rtf1\ansi\deff0{\fonttbl{\f0 A;}}x})", false},  // ordinary RTF
        {R"({\rtf1\fromhtml0 x})", false},
        {"{\\rtf1\\fromhtml", true},
        {"{\\rtf1\\fro", false},                       // cut before the word is whole
        {"{\\rt", false},
        {"", false},
    };
    for (const auto& [rtf, taken] : cases) {
        std::optional<std::string> fast = qh::RTFEncapsulatedHTML::extract(qh::asBytes(rtf));
        EXPECT_EQ(fast.has_value(), taken) << rtf.substr(0, 80);
        if (fast) {
            EXPECT_EQ(fast, qh::RTFConverter(qh::RTFConverter::Output::HTML).convert(qh::asBytes(rtf))) << rtf.substr(0, 80);
        }
    }
}

TEST(RTFReader, RtfStringFromDataTriesUtf8ThenLatin1) {
    const std::pair<std::string, std::string> cases[] = {
        {"{\\rtf1 \xC3\xA9}", "{\\rtf1 \u00e9}"},  // valid UTF-8 stays as it is
        {"{\\rtf1 \xE9}", "{\\rtf1 \u00e9}"},      // not UTF-8: ISO Latin-1
        {"", ""},
    };
    for (const auto& [input, expected] : cases)
        EXPECT_EQ(RTFReader::rtfStringFromData(qh::asBytes(input)).value_or("(none)"), expected);
}

}  // namespace
