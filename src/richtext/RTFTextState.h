#pragma once
// What the RTF converter and the encapsulated-HTML pass keep alike while
// they read text: the code pages that the font table and the document name,
// the pairing of \uN surrogate halves, and the meaning of control symbols.
// The two must give the same bytes for the same document, so they share
// this one definition of each.
#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "richtext/RTFCodePages.h"
#include "richtext/RTFKeywords.h"

namespace qh {

// The code pages of the fonts (\fcharsetN, \cpgN in the font table) and of
// the document (\ansicpgN, \ansi, \mac, \pc, \pca), and the default font.
class RTFFontCodePages {
public:
    // A word read inside the font table: true when it is one of the table's
    // own (\fN, \fcharsetN, \cpgN), which it takes.
    bool fontTableWord(rtfwords::Keyword keyword, std::int32_t parameter) {
        using rtfwords::Keyword;
        switch (keyword) {
            case Keyword::Font:
                fontBeingDefined_ = parameter;
                return true;
            case Keyword::FontCharset:
                if (fontBeingDefined_ >= 0) define(RTFCodePages::codePageForCharset(parameter));
                return true;
            case Keyword::FontCodePage:
                if (fontBeingDefined_ >= 0 && parameter > 0 && parameter < 65536)
                    define(static_cast<std::uint16_t>(parameter));
                return true;
            default:
                return false;
        }
    }
    // \ansicpgN, \ansi, \mac, \pc or \pca: the document's code page.
    void documentWord(rtfwords::Keyword keyword, std::int32_t parameter) {
        if (const auto page = rtfwords::documentCodePage(keyword, parameter)) ansiCodePage_ = *page;
    }
    // \deffN.
    void defaultFont(std::int32_t font) { defaultFont_ = font; }
    // \fonttbl: the fonts defined next are the table's.
    void startFontTable() { fontBeingDefined_ = -1; }

    // The code page of text in `font` (negative: the default font). Asked
    // once per escape while escapes follow each other, so the last answer
    // stands until the font, the document's code page or the table changes.
    std::uint16_t codePageOf(std::int32_t font) const {
        if (font < 0) font = defaultFont_;
        if (font == lastFont_ && ansiCodePage_ == lastAnsiCodePage_ && changes_ == lastChanges_) return lastCodePage_;
        auto found = fonts_.find(font);
        const std::uint16_t codePage = found != fonts_.end() && found->second != 0 ? found->second : ansiCodePage_;
        lastFont_ = font;
        lastAnsiCodePage_ = ansiCodePage_;
        lastChanges_ = changes_;
        lastCodePage_ = codePage;
        return codePage;
    }

    RTFCodePages& decoder() { return decoder_; }

private:
    void define(std::uint16_t codePage) {
        fonts_[fontBeingDefined_] = codePage;
        ++changes_;
    }

    RTFCodePages decoder_;
    std::uint16_t ansiCodePage_ = RTFCodePages::kDefaultCodePage;
    std::int32_t defaultFont_ = 0;
    std::int32_t fontBeingDefined_ = -1;
    std::unordered_map<std::int32_t, std::uint16_t> fonts_;
    std::uint64_t changes_ = 0;
    mutable std::int32_t lastFont_ = 0;
    mutable std::uint16_t lastAnsiCodePage_ = 0;  // no code page: the first question is answered afresh
    mutable std::uint64_t lastChanges_ = 0;
    mutable std::uint16_t lastCodePage_ = 0;
};

// \uN code units in a row: a high surrogate waits for the low half that
// follows it; a half without its partner is U+FFFD.
class RTFUnicodeUnits {
public:
    bool pending() const { return pending_ != 0; }

    // \uN, a signed 16-bit value (negative numbers stand for units above
    // 0x7FFF): the code points it completes go to `emit`; \u0 gives none.
    template <class Emit>
    void unit(std::int32_t parameter, Emit&& emit) {
        const char16_t unit = static_cast<char16_t>(parameter < 0 ? parameter + 65536 : parameter);
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (pending_) emit(char32_t{0xFFFD});
            pending_ = unit;
            return;
        }
        if (unit >= 0xDC00 && unit <= 0xDFFF) {
            if (!pending_) {
                emit(char32_t{0xFFFD});
                return;
            }
            const char32_t codePoint = 0x10000 + ((char32_t(pending_) - 0xD800) << 10) + (unit - 0xDC00);
            pending_ = 0;
            emit(codePoint);
            return;
        }
        endRun(emit);
        if (unit != 0) emit(char32_t{unit});
    }
    // Anything but another \uN (text, a group's end, the document's end): a
    // high surrogate still waiting is U+FFFD.
    template <class Emit>
    void endRun(Emit&& emit) {
        if (!pending_) return;
        pending_ = 0;
        emit(char32_t{0xFFFD});
    }

private:
    char16_t pending_ = 0;
};

// The words both readers take alike: a group's font (\fN), \ucN and
// \htmlrtf, the default font and the document's code page. True when
// `keyword` is one of them, which it took.
template <class Group>
bool rtfSharedWord(Group& group, RTFFontCodePages& fonts, rtfwords::Keyword keyword, std::int32_t parameter, bool on) {
    using rtfwords::Keyword;
    switch (keyword) {
        case Keyword::Font:
            group.font = parameter >= 0 ? parameter : -1;
            return true;
        case Keyword::DefaultFont:
            fonts.defaultFont(parameter);
            return true;
        case Keyword::UnicodeSkip:
            group.ucSkip = parameter > 0 ? parameter : 0;
            return true;
        case Keyword::AnsiCodePage:
        case Keyword::Ansi:
        case Keyword::Mac:
        case Keyword::Pc:
        case Keyword::Pca:
            fonts.documentWord(keyword, parameter);
            return true;
        case Keyword::HtmlRtf:
            group.htmlrtf = on;
            return true;
        default:
            return false;
    }
}

// A control symbol: \* marks the word after it as an ignorable destination;
// \\, \{ and \} are those characters (`literal`); \~ is a no-break space and
// \_ a non-breaking hyphen (`codePoint`); a backslash before a tab is a tab
// (`text`); the rest (\- optional hyphen, \| and \: formula and index marks)
// show nothing.
template <class Literal, class CodePoint, class Text>
void rtfControlSymbol(std::uint8_t symbol, bool& ignorableNext, Literal&& literal, CodePoint&& codePoint, Text&& text) {
    switch (symbol) {
        case '*':
            ignorableNext = true;
            return;
        case '\\':
        case '{':
        case '}':
            literal(symbol);
            return;
        case '~':
            codePoint(char32_t{0x00A0});
            return;
        case '_':
            codePoint(char32_t{0x2011});
            return;
        case '\t':
            text(std::string_view("\t"));
            return;
        default:
            return;
    }
}

}  // namespace qh
