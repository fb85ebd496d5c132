#include "richtext/RTFConverter.h"

#include <algorithm>

#include "richtext/RTFKeywords.h"

namespace qh {
namespace {

using rtfwords::Keyword;
using rtfwords::KeywordEntry;

bool isBlank(std::uint8_t c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The target of a HYPERLINK field instruction: its URL, with "#anchor" for a \l switch.
std::string hyperlinkTarget(std::string_view instruction) {
    std::vector<std::string_view> arguments;
    std::size_t i = 0;
    while (i < instruction.size()) {
        while (i < instruction.size() && isBlank(static_cast<std::uint8_t>(instruction[i]))) ++i;
        if (i >= instruction.size()) break;
        if (instruction[i] == '"') {
            std::size_t close = instruction.find('"', i + 1);
            if (close == std::string_view::npos) close = instruction.size();
            arguments.push_back(instruction.substr(i + 1, close - i - 1));
            i = close + 1;
        } else {
            std::size_t end = i;
            while (end < instruction.size() && !isBlank(static_cast<std::uint8_t>(instruction[end]))) ++end;
            arguments.push_back(instruction.substr(i, end - i));
            i = end;
        }
    }
    if (arguments.empty()) return {};
    std::string keyword(arguments[0]);
    std::transform(keyword.begin(), keyword.end(), keyword.begin(),
                   [](char c) { return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c; });
    if (keyword != "HYPERLINK") return {};
    std::string_view url, anchor;
    for (std::size_t k = 1; k < arguments.size(); ++k) {
        std::string_view argument = arguments[k];
        if (argument.size() == 2 && argument[0] == '\\') {
            // \l names an anchor; \o (tooltip) and \t (target frame) carry an argument of their own.
            const char option = argument[1];
            if (option == 'l' && k + 1 < arguments.size()) anchor = arguments[++k];
            else if ((option == 'o' || option == 't') && k + 1 < arguments.size()) ++k;
            continue;
        }
        if (url.empty()) url = argument;
    }
    std::string target(url);
    if (!anchor.empty()) target.append("#").append(anchor);
    return target;
}

}  // namespace

namespace {

// Where the document group begins: after leading blanks.
std::size_t documentStart(ByteView rtf) {
    std::size_t i = 0;
    while (i < rtf.size() && isBlank(rtf[i])) ++i;
    return i;
}

}  // namespace

bool RTFConverter::looksLikeRTF(ByteView rtf) {
    return asText(rtf.subspan(documentStart(rtf))).starts_with("{\\rtf");
}

std::optional<std::string> RTFConverter::convert(ByteView rtf) {
    if (!looksLikeRTF(rtf)) return std::nullopt;
    rtf = rtf.subspan(documentStart(rtf));
    stack_.clear();
    stack_.reserve(kMaxGroupDepth + 1);
    stack_.push_back(GroupState{});  // outside the document group
    body_.reserve(output_ == Output::HTML ? rtf.size() / 2 : rtf.size() / 4);

    RTFTokenizer tokenizer(rtf);
    tokenizer_ = &tokenizer;
    for (;;) {
        RTFToken token = tokenizer.next();
        if (token.kind == RTFToken::Kind::End) break;

        if (skipCount_ > 0) {
            // Characters standing in for a \u character: a control word, a \'hh
            // byte or a \bin block counts as one; braces end the run.
            if (token.kind == RTFToken::Kind::Text) {
                std::size_t dropped = std::min(skipCount_, token.bytes.size());
                skipCount_ -= dropped;
                token.bytes = token.bytes.subspan(dropped);
                if (token.bytes.empty()) continue;
            } else if (token.kind != RTFToken::Kind::GroupOpen && token.kind != RTFToken::Kind::GroupClose) {
                --skipCount_;
                continue;
            } else {
                skipCount_ = 0;
            }
        }

        if (token.kind == RTFToken::Kind::Text || token.kind == RTFToken::Kind::HexByte) {
            ignorableNext_ = false;
            if (token.kind == RTFToken::Kind::Text) textBytes(token.bytes);
            else textBytes(ByteView(&token.byte, 1));
            continue;
        }
        if (token.kind == RTFToken::Kind::ControlSymbol &&
            (token.byte == '\\' || token.byte == '{' || token.byte == '}')) {
            // An escaped backslash or brace may be the trail byte of a
            // double-byte character whose lead byte is pending (Shift-JIS
            // 0x95 0x5C is written \'95\\): it joins the pending bytes.
            controlSymbol(token.byte);
            continue;
        }
        flushPending();
        if (token.kind == RTFToken::Kind::GroupOpen) {
            groupOpen();
            if (state().destination == Destination::Skip && !skipRestOfGroup()) break;
        } else if (token.kind == RTFToken::Kind::GroupClose) {
            if (!groupClose()) break;  // the document group has ended
        } else if (token.kind == RTFToken::Kind::Binary) {
            ignorableNext_ = false;
        } else if (token.kind == RTFToken::Kind::ControlWord) {
            controlWord(token);
            // A destination without text is passed over in one scan.
            if (state().destination == Destination::Skip && !skipRestOfGroup()) break;
        } else if (token.kind == RTFToken::Kind::ControlSymbol) {
            controlSymbol(token.byte);
        }
    }
    tokenizer_ = nullptr;
    flushPending();
    emitUnitsEnd();

    if (output_ == Output::Text || encapsulatedHTML_) return std::move(body_);
    return finishHTML();
}

bool RTFConverter::wantsText(const GroupState& group) const {
    switch (group.destination) {
        case Destination::Document:
            if (output_ == Output::HTML && encapsulatedHTML_) return !group.htmlrtf;
            return !group.hidden;
        case Destination::HtmlTag:
            return !group.htmlrtf;
        case Destination::FieldInstruction:
            return fieldInstruction_.size() < kMaxFieldInstruction;
        default:
            return false;
    }
}

void RTFConverter::textBytes(ByteView bytes) {
    const GroupState& group = state();
    if (!wantsText(group)) return;
    emitUnitsEnd();
    const std::uint16_t codePage = fonts_.codePageOf(group.font);
    if (!pendingBytes_.empty() && codePage != pendingCodePage_) flushPending();
    if (pendingBytes_.empty()) {
        // Plain ASCII goes straight out; anything else waits for the bytes that
        // follow it, since a double-byte character may be split across escapes.
        bool ascii = std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b < 0x80; });
        if (ascii) {
            emitText(asText(bytes));
            return;
        }
        pendingCodePage_ = codePage;
    }
    pendingBytes_.append(asText(bytes));
}

void RTFConverter::flushPending() {
    if (pendingBytes_.empty()) return;
    std::string decoded;
    fonts_.decoder().appendDecoded(asBytes(pendingBytes_), pendingCodePage_, decoded);
    pendingBytes_.clear();
    emitText(decoded);
}

void RTFConverter::emitText(std::string_view utf8) {
    if (utf8.empty()) return;
    const GroupState& group = state();
    if (!wantsText(group)) return;
    switch (group.destination) {
        case Destination::FieldInstruction:
            fieldInstruction_.append(utf8.substr(0, kMaxFieldInstruction - fieldInstruction_.size()));
            return;
        case Destination::HtmlTag:
            body_.append(utf8);
            return;
        case Destination::Document:
            if (output_ == Output::Text || encapsulatedHTML_) {
                body_.append(utf8);
            } else {
                htmlSyncFormatting(group);
                htmlAppendEscaped(utf8);
            }
            return;
        default:
            return;
    }
}

void RTFConverter::emitCodePoint(char32_t codePoint) {
    std::string utf8;
    RTFCodePages::appendUTF8(codePoint, utf8);
    emitText(utf8);
}

void RTFConverter::emitUnitsEnd() {
    units_.endRun([this](char32_t codePoint) { emitCodePoint(codePoint); });
}

void RTFConverter::emitBreak(Break kind) {
    const GroupState& group = state();
    if (!wantsText(group)) return;
    if (group.destination == Destination::FieldInstruction) {
        emitText(" ");
        return;
    }
    if (output_ == Output::Text) {
        body_.push_back('\n');
        return;
    }
    if (encapsulatedHTML_) {
        // The encapsulated HTML had CR LF where the RTF has \par or \line.
        body_.append("\r\n");
        return;
    }
    if (kind == Break::Line) {
        htmlSyncFormatting(group);
        body_.append("<br>");
        return;
    }
    if (!paragraphOpen_) {
        body_.append("<p><br></p>\n");
        return;
    }
    htmlCloseInline();
    body_.append("</p>\n");
    paragraphOpen_ = false;
}

void RTFConverter::groupOpen() {
    ignorableNext_ = false;
    GroupState inner = stack_.back();
    // The deepest level takes no text: its group and everything in it are skipped.
    if (stack_.size() >= kMaxGroupDepth) inner.destination = Destination::Skip;
    stack_.push_back(inner);
}

bool RTFConverter::skipRestOfGroup() {
    skipCount_ = 0;
    if (!tokenizer_->skipGroup()) return false;
    return groupClose();
}

bool RTFConverter::groupClose() {
    ignorableNext_ = false;
    emitUnitsEnd();
    if (stack_.size() <= 2) return false;  // the document group closes: what follows is not part of it
    stack_.pop_back();
    return true;
}

void RTFConverter::fieldResult() {
    GroupState& group = state();
    group.destination = Destination::Document;
    std::string target = hyperlinkTarget(fieldInstruction_);
    fieldInstruction_.clear();
    if (target.empty()) return;
    links_.push_back(Link{std::move(target)});
    group.link = static_cast<std::uint32_t>(links_.size());
}

void RTFConverter::controlSymbol(std::uint8_t symbol) {
    ignorableNext_ = false;
    if (state().destination == Destination::Skip) return;
    rtfControlSymbol(
        symbol, ignorableNext_,
        [this](std::uint8_t literal) {
            textBytes(ByteView(&literal, 1));
            flushPending();
        },
        [this](char32_t codePoint) { emitCodePoint(codePoint); }, [this](std::string_view text) { emitText(text); });
}

void RTFConverter::controlWord(const RTFToken& token) {
    const bool ignorable = ignorableNext_;
    ignorableNext_ = false;
    GroupState& group = state();
    if (group.destination == Destination::Skip) return;

    const KeywordEntry* found = rtfwords::find(token.word);
    if (!found) {
        // An unknown destination marked \* is skipped with everything in it.
        if (ignorable) group.destination = Destination::Skip;
        return;
    }
    const Keyword keyword = found->keyword;
    const std::int32_t parameter = token.parameter;
    const bool on = !token.hasParameter || parameter != 0;

    if (group.destination == Destination::FontTable) {
        if (!fonts_.fontTableWord(keyword, parameter) && (keyword == Keyword::SkipDestination || ignorable))
            group.destination = Destination::Skip;
        return;
    }

    if (rtfSharedWord(group, fonts_, keyword, parameter, on)) return;
    switch (keyword) {
        case Keyword::SkipDestination:
            group.destination = Destination::Skip;
            return;
        case Keyword::FontTable:
            group.destination = Destination::FontTable;
            fonts_.startFontTable();
            return;
        case Keyword::FieldInstruction:
            group.destination = Destination::FieldInstruction;
            fieldInstruction_.clear();
            return;
        case Keyword::FieldResult:
            fieldResult();
            return;
        case Keyword::Field:
            fieldInstruction_.clear();
            return;
        case Keyword::HtmlTag:
            group.destination = (output_ == Output::HTML && encapsulatedHTML_) ? Destination::HtmlTag : Destination::Skip;
            return;
        case Keyword::Bold:
            group.bold = on;
            return;
        case Keyword::Italic:
            group.italic = on;
            return;
        case Keyword::Underline:
            group.underline = on;
            return;
        case Keyword::UnderlineNone:
            group.underline = false;
            return;
        case Keyword::Hidden:
            group.hidden = on;
            return;
        case Keyword::Plain:
            group.bold = group.italic = group.underline = group.hidden = false;
            group.font = -1;
            return;
        case Keyword::Unicode:
            if (!token.hasParameter) return;
            if (group.destination != Destination::Skip)
                units_.unit(parameter, [this](char32_t codePoint) { emitCodePoint(codePoint); });
            skipCount_ = static_cast<std::size_t>(group.ucSkip);
            return;
        case Keyword::FromHtml:
            // Only a document that declares it before any text is read as encapsulated HTML.
            if (output_ == Output::HTML && on && body_.empty() && !paragraphOpen_) encapsulatedHTML_ = true;
            return;
        case Keyword::Par:
        case Keyword::Row:
            emitBreak(Break::Paragraph);
            return;
        case Keyword::Line:
            emitBreak(Break::Line);
            return;
        case Keyword::Tab:
        case Keyword::Cell:
            emitText("\t");
            return;
        case Keyword::Character:
            emitCodePoint(found->character);
            return;
        default:
            return;  // \fcharsetN and \cpgN outside the font table, and the words taken above
    }
}

void RTFConverter::htmlCloseInline() {
    if (openUnderline_) body_.append("</u>");
    if (openItalic_) body_.append("</i>");
    if (openBold_) body_.append("</b>");
    openBold_ = openItalic_ = openUnderline_ = false;
    if (openLink_) {
        body_.append("</a>");
        links_[openLink_ - 1].closed = true;
    }
    openLink_ = 0;
}

void RTFConverter::htmlSyncFormatting(const GroupState& group) {
    if (!paragraphOpen_) {
        body_.append("<p>");
        paragraphOpen_ = true;
    }
    // A link once closed (by a paragraph mark, or by a field nested in its
    // result) is not opened again: a hostile document could otherwise have
    // its long target written out over and over.
    std::uint32_t link = group.link;
    if (link && links_[link - 1].closed) link = 0;
    if (link != openLink_) {
        htmlCloseInline();
        if (link) {
            body_.append("<a href=\"");
            htmlAppendEscaped(links_[link - 1].href);
            body_.append("\">");
            openLink_ = link;
        }
    }
    if (openBold_ != group.bold || openItalic_ != group.italic || openUnderline_ != group.underline) {
        if (openUnderline_) body_.append("</u>");
        if (openItalic_) body_.append("</i>");
        if (openBold_) body_.append("</b>");
        if (group.bold) body_.append("<b>");
        if (group.italic) body_.append("<i>");
        if (group.underline) body_.append("<u>");
        openBold_ = group.bold;
        openItalic_ = group.italic;
        openUnderline_ = group.underline;
    }
}

void RTFConverter::htmlAppendEscaped(std::string_view text) {
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char* entity = nullptr;
        switch (text[i]) {
            case '&': entity = "&amp;"; break;
            case '<': entity = "&lt;"; break;
            case '>': entity = "&gt;"; break;
            case '"': entity = "&quot;"; break;
            default: continue;
        }
        body_.append(text.substr(start, i - start));
        body_.append(entity);
        start = i + 1;
    }
    body_.append(text.substr(start));
}

std::string RTFConverter::finishHTML() {
    if (paragraphOpen_) {
        htmlCloseInline();
        body_.append("</p>\n");
        paragraphOpen_ = false;
    }
    std::string document;
    document.reserve(body_.size() + 256);
    document.append(
        "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n"
        "<style>p { margin: 0; white-space: pre-wrap; }</style>\n</head>\n<body>\n");
    document.append(body_);
    document.append("</body>\n</html>\n");
    return document;
}

}  // namespace qh
