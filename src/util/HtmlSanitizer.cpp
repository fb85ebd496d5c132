#include "util/HtmlSanitizer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <vector>

#include "core/TextEncoding.h"

namespace qh {

namespace {

// Open elements deeper than this are not opened (their text is kept): real
// mail nests tables a few dozen deep; the bound keeps the closing tags we owe
// at the end small.
constexpr std::size_t kMaxOpenElements = 256;
// data: URLs handed out for inline parts, in bytes, over the whole body: a
// thousand <img src="cid:x"> must not make a thousand copies of a large image.
constexpr std::size_t kInlineBudget = 48u << 20;
// Attributes kept per tag.
constexpr std::size_t kMaxAttributes = 64;

bool isAsciiAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isAsciiDigit(char c) { return c >= '0' && c <= '9'; }
bool isHtmlSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }
char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

std::string lowered(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = lowerAscii(c);
    return out;
}

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (lowerAscii(text[i]) != prefix[i]) return false;
    return true;
}

template <std::size_t N>
bool isOneOf(std::string_view name, const std::array<std::string_view, N>& names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Shown as they are, with the attributes below.
constexpr std::array<std::string_view, 79> kAllowedElements = {
    "a",      "abbr",    "acronym", "address", "article", "aside",      "b",       "bdi",    "bdo",     "big",
    "blockquote", "br",  "caption", "center",  "cite",    "code",       "col",     "colgroup", "dd",    "del",
    "details", "dfn",    "div",     "dl",      "dt",      "em",         "fieldset", "figcaption", "figure", "font",
    "footer", "h1",      "h2",      "h3",      "h4",      "h5",         "h6",      "header", "hgroup",  "hr",
    "i",      "img",     "ins",     "kbd",     "label",   "legend",     "li",      "main",   "mark",    "nav",
    "ol",     "p",       "pre",     "q",       "rp",      "rt",         "ruby",    "s",      "samp",    "section",
    "small",  "span",    "strike",  "strong",  "sub",     "summary",    "sup",     "table",  "tbody",   "td",
    "tfoot",  "th",      "thead",   "time",    "tr",      "tt",         "u",       "ul",     "var"};
constexpr std::array<std::string_view, 5> kVoidElements = {"br", "col", "hr", "img", "wbr"};
// Their text is not markup (the browser reads it up to the matching end tag);
// all but style are dropped with it.
constexpr std::array<std::string_view, 10> kRawTextElements = {"script", "style",    "xmp",      "iframe", "noembed",
                                                               "noframes", "noscript", "textarea", "title",  "plaintext"};
// Dropped with everything inside them.
constexpr std::array<std::string_view, 8> kDroppedWithContent = {"applet", "object", "svg",    "math",
                                                                 "template", "select", "frameset", "datalist"};
// Counted as active content when met.
constexpr std::array<std::string_view, 12> kActiveElements = {"script", "iframe", "frame", "frameset", "object", "embed",
                                                              "applet", "form",   "base",  "link",     "noscript", "svg"};
constexpr std::array<std::string_view, 45> kAllowedAttributes = {
    "abbr",    "align",   "alt",     "axis",    "bgcolor", "border",  "cellpadding", "cellspacing", "char",
    "charoff", "class",   "clear",   "color",   "cols",    "colspan", "compact",     "datetime",    "dir",
    "face",    "frame",   "headers", "height",  "hspace",  "id",      "label",       "lang",        "name",
    "noshade", "nowrap",  "open",    "reversed", "rows",   "rowspan", "rules",       "scope",       "size",
    "span",    "start",   "summary", "title",   "type",    "valign",  "value",       "vspace",      "width"};
constexpr std::array<std::string_view, 5> kLinkSchemes = {"http", "https", "mailto", "tel", "ftp"};

void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp == 0 || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | (cp >> 6));
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | (cp >> 12));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | (cp >> 18));
        out += char(0x80 | ((cp >> 12) & 0x3F));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

// Character references in an attribute value. What we decode is what the
// browser gets (re-escaped), so a reference we do not know stays literal text
// and cannot turn into anything else on the way.
std::string decodeReferences(std::string_view text) {
    static constexpr std::pair<std::string_view, std::uint32_t> kNamed[] = {
        {"amp", '&'},      {"lt", '<'},        {"gt", '>'},        {"quot", '"'},     {"apos", '\''},
        {"nbsp", 0xA0},    {"copy", 0xA9},     {"reg", 0xAE},      {"trade", 0x2122}, {"hellip", 0x2026},
        {"mdash", 0x2014}, {"ndash", 0x2013},  {"lsquo", 0x2018},  {"rsquo", 0x2019}, {"ldquo", 0x201C},
        {"rdquo", 0x201D}, {"laquo", 0xAB},    {"raquo", 0xBB},    {"euro", 0x20AC},  {"bull", 0x2022},
        {"middot", 0xB7},  {"Tab", '\t'},      {"NewLine", '\n'},  {"colon", ':'},    {"sol", '/'},
        {"lpar", '('},     {"rpar", ')'},      {"period", '.'},    {"comma", ','},    {"num", '#'},
        {"quest", '?'},    {"equals", '='},    {"excl", '!'},      {"percnt", '%'},   {"bsol", '\\'},
    };
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (c != '&') {
            out += c;
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        if (j < text.size() && text[j] == '#') {
            ++j;
            bool hex = j < text.size() && (text[j] == 'x' || text[j] == 'X');
            if (hex) ++j;
            std::size_t digitsStart = j;
            std::uint32_t cp = 0;
            while (j < text.size() && (hex ? std::isxdigit(static_cast<unsigned char>(text[j])) : isAsciiDigit(text[j]))) {
                char d = lowerAscii(text[j]);
                std::uint32_t digit = isAsciiDigit(d) ? std::uint32_t(d - '0') : std::uint32_t(d - 'a' + 10);
                if (cp <= 0x10FFFF) cp = cp * (hex ? 16 : 10) + digit;
                ++j;
            }
            if (j == digitsStart) {
                out += c;
                ++i;
                continue;
            }
            if (j < text.size() && text[j] == ';') ++j;
            appendUtf8(out, cp);
            i = j;
            continue;
        }
        while (j < text.size() && j - i <= 8 && (isAsciiAlpha(text[j]) || isAsciiDigit(text[j]))) ++j;
        bool decoded = false;
        if (j < text.size() && text[j] == ';') {
            std::string_view name = text.substr(i + 1, j - i - 1);
            for (const auto& [known, cp] : kNamed) {
                if (known == name) {
                    appendUtf8(out, cp);
                    i = j + 1;
                    decoded = true;
                    break;
                }
            }
        }
        if (!decoded) {
            out += c;
            ++i;
        }
    }
    return out;
}

// A URL as the browser would read it: surrounding spaces and controls gone,
// tabs and line breaks inside removed.
std::string cleanUrl(std::string_view raw) {
    std::string out;
    out.reserve(raw.size());
    for (char c : raw)
        if (c != '\t' && c != '\n' && c != '\r') out += c;
    std::size_t begin = 0, end = out.size();
    while (begin < end && static_cast<unsigned char>(out[begin]) <= 0x20) ++begin;
    while (end > begin && static_cast<unsigned char>(out[end - 1]) <= 0x20) --end;
    return out.substr(begin, end - begin);
}

// The lower-case scheme of a URL, empty when it has none (a relative reference).
std::string schemeOf(std::string_view url) {
    if (url.empty() || !isAsciiAlpha(url[0])) return {};
    for (std::size_t i = 1; i < url.size(); ++i) {
        char c = url[i];
        if (c == ':') return lowered(url.substr(0, i));
        if (!isAsciiAlpha(c) && !isAsciiDigit(c) && c != '+' && c != '-' && c != '.') return {};
    }
    return {};
}

// A path a page opened from disk would fetch from the file system or a
// Windows share: "\\server\share", "//host/x", "/etc", "C:\...".
bool isPathLike(std::string_view url) {
    return !url.empty() && (url[0] == '/' || url[0] == '\\' || schemeOf(url).size() == 1);
}

enum class ImageSource { keep, inlined, remote, drop };

struct Sanitizer {
    const HtmlSanitizer::Resolver& resolver;
    HtmlSanitizer::Result& result;
    std::size_t inlineBytes = 0;

    // What to do with an image URL; `url` becomes the URL to write.
    ImageSource image(std::string& url) {
        url = cleanUrl(url);
        if (url.empty()) return ImageSource::drop;
        std::string scheme = schemeOf(url);
        if (scheme == "data") return startsWithIgnoringCase(url, "data:image/") ? ImageSource::keep : ImageSource::drop;
        if (scheme == "cid" || (scheme.empty() && !isPathLike(url))) {
            std::optional<std::string> resolved = resolver ? resolver(url) : std::nullopt;
            if (!resolved || resolved->size() > kInlineBudget - std::min(inlineBytes, kInlineBudget))
                return ImageSource::drop;
            inlineBytes += resolved->size();
            url = std::move(*resolved);
            ++result.inlineImagesResolved;
            return ImageSource::inlined;
        }
        // The network, a Windows share (which hands over the reader's
        // credentials), the file system: never fetched.
        if (scheme == "http" || scheme == "https" || scheme == "ftp" || scheme == "file" || isPathLike(url)) {
            ++result.remoteImagesBlocked;
            return ImageSource::remote;
        }
        return ImageSource::drop;
    }

    static bool linkAllowed(std::string& url) {
        url = cleanUrl(url);
        if (url.empty()) return false;
        if (url[0] == '#') return true;
        return isOneOf(schemeOf(url), kLinkSchemes);
    }
};

struct Attribute {
    std::string name;
    std::string value;
};

struct Tag {
    std::string name;
    std::vector<Attribute> attributes;
    bool selfClosing = false;
};

// Parses a tag from `pos` (just after "<" or "</"). Returns the position after
// its ">", or npos when the input ends inside the tag (the browser drops such
// a tag and so do we).
std::size_t parseTag(std::string_view text, std::size_t pos, Tag& tag) {
    std::size_t i = pos;
    while (i < text.size() && !isHtmlSpace(text[i]) && text[i] != '/' && text[i] != '>') tag.name += lowerAscii(text[i++]);
    while (i < text.size()) {
        char c = text[i];
        if (isHtmlSpace(c)) {
            ++i;
            continue;
        }
        if (c == '>') return i + 1;
        if (c == '/') {
            ++i;
            if (i < text.size() && text[i] == '>') {
                tag.selfClosing = true;
                return i + 1;
            }
            continue;
        }
        Attribute attribute;
        // A first "=" belongs to the name, as the browser reads it.
        attribute.name += lowerAscii(text[i++]);
        while (i < text.size() && !isHtmlSpace(text[i]) && text[i] != '/' && text[i] != '>' && text[i] != '=')
            attribute.name += lowerAscii(text[i++]);
        std::size_t j = i;
        while (j < text.size() && isHtmlSpace(text[j])) ++j;
        if (j < text.size() && text[j] == '=') {
            i = j + 1;
            while (i < text.size() && isHtmlSpace(text[i])) ++i;
            if (i >= text.size()) return std::string_view::npos;
            if (text[i] == '"' || text[i] == '\'') {
                std::size_t close = text.find(text[i], i + 1);
                if (close == std::string_view::npos) return std::string_view::npos;
                attribute.value = decodeReferences(text.substr(i + 1, close - i - 1));
                i = close + 1;
            } else {
                std::size_t start = i;
                while (i < text.size() && !isHtmlSpace(text[i]) && text[i] != '>') ++i;
                attribute.value = decodeReferences(text.substr(start, i - start));
            }
        }
        // The first of a name wins, as in the browser; past a few dozen, the
        // rest are read over and dropped (no mail needs them, and checking for
        // duplicates must not grow with the square of a hostile tag's length).
        bool duplicate = std::any_of(tag.attributes.begin(), tag.attributes.end(),
                                     [&](const Attribute& a) { return a.name == attribute.name; });
        if (!duplicate && tag.attributes.size() < kMaxAttributes) tag.attributes.push_back(std::move(attribute));
    }
    return std::string_view::npos;
}

// Where the raw text of `name` ends: the start of "</name" followed by a
// space, "/" or ">"; npos when it never does.
std::size_t findRawTextEnd(std::string_view text, std::size_t from, std::string_view name) {
    std::size_t i = from;
    while ((i = text.find("</", i)) != std::string_view::npos) {
        std::size_t after = i + 2 + name.size();
        if (startsWithIgnoringCase(text.substr(i + 2), name) &&
            (after >= text.size() || isHtmlSpace(text[after]) || text[after] == '/' || text[after] == '>'))
            return i;
        i += 2;
    }
    return std::string_view::npos;
}

void appendEscaped(std::string& out, std::string_view text) {
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\0': break;
            default: out += c;
        }
    }
}

// Text between tags: character references are left for the browser (they can
// only ever make text there); a lone "&" and angle brackets are escaped.
void appendText(std::string& out, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '&') {
            bool reference = i + 1 < text.size() && (text[i + 1] == '#' || isAsciiAlpha(text[i + 1]));
            out += reference ? "&" : "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c != '\0') {
            out += c;
        }
    }
}

// CSS escapes decoded and comments removed, so that "u\72l(" and
// "exp/**/ression" are seen for what they are.
std::string decodeCss(std::string_view css) {
    std::string out;
    out.reserve(css.size());
    std::size_t i = 0;
    while (i < css.size()) {
        char c = css[i];
        if (c == '/' && i + 1 < css.size() && css[i + 1] == '*') {
            std::size_t close = css.find("*/", i + 2);
            i = close == std::string_view::npos ? css.size() : close + 2;
            continue;
        }
        if (c != '\\') {
            if (c != '\0') out += c;
            ++i;
            continue;
        }
        ++i;
        if (i >= css.size()) break;
        if (std::isxdigit(static_cast<unsigned char>(css[i]))) {
            std::uint32_t cp = 0;
            std::size_t digits = 0;
            while (i < css.size() && digits < 6 && std::isxdigit(static_cast<unsigned char>(css[i]))) {
                char d = lowerAscii(css[i]);
                cp = cp * 16 + (isAsciiDigit(d) ? std::uint32_t(d - '0') : std::uint32_t(d - 'a' + 10));
                ++i;
                ++digits;
            }
            if (i < css.size() && isHtmlSpace(css[i])) ++i;
            appendUtf8(out, cp);
        } else if (css[i] == '\n') {
            ++i;  // a line continuation inside a string
        } else {
            out += css[i++];
        }
    }
    return out;
}

std::size_t findIgnoringCase(std::string_view text, std::string_view needle, std::size_t from) {
    return TextEncoding::findIgnoringASCIICase(text, needle, from);
}

}  // namespace

std::string HtmlSanitizer::escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    appendEscaped(out, text);
    return out;
}

std::string HtmlSanitizer::sanitizeCss(std::string_view css, Result& result) {
    std::string decoded;
    {
        // @import pulls in a style sheet from anywhere: gone, up to its ";".
        std::string withImports = decodeCss(css);
        decoded.reserve(withImports.size());
        std::size_t from = 0;
        for (std::size_t at; (at = findIgnoringCase(withImports, "@import", from)) != std::string::npos;) {
            decoded.append(withImports, from, at - from);
            std::size_t end = withImports.find(';', at);
            from = end == std::string::npos ? withImports.size() : end + 1;
        }
        decoded.append(withImports, from, std::string::npos);
    }
    std::string out;
    out.reserve(decoded.size());
    std::size_t i = 0;
    while (i < decoded.size()) {
        std::size_t url = findIgnoringCase(decoded, "url(", i);
        if (url == std::string::npos) {
            out.append(decoded, i, std::string::npos);
            break;
        }
        out.append(decoded, i, url - i);
        std::size_t j = url + 4;
        while (j < decoded.size() && isHtmlSpace(decoded[j])) ++j;
        std::size_t argumentStart = j, argumentEnd = 0;
        bool quoted = j < decoded.size() && (decoded[j] == '"' || decoded[j] == '\'');
        if (quoted) {
            std::size_t quote = decoded.find(decoded[j], j + 1);
            argumentStart = j + 1;
            j = argumentEnd = quote == std::string::npos ? decoded.size() : quote;
        }
        std::size_t close = decoded.find(')', j);
        std::size_t end = close == std::string::npos ? decoded.size() : close + 1;
        if (!quoted) argumentEnd = close == std::string::npos ? decoded.size() : close;
        std::string argument = cleanUrl(std::string_view(decoded).substr(argumentStart, argumentEnd - argumentStart));
        if (startsWithIgnoringCase(argument, "data:")) {
            out.append(decoded, url, end - url);
        } else {
            out += "none";
            ++result.remoteImagesBlocked;
        }
        i = end;
    }
    // Old browsers ran script from these; newer ones fetch with image-set().
    static constexpr std::string_view kDisarmed[] = {"expression", "image-set", "cross-fade", "behavior",
                                                     "-moz-binding", "javascript:", "vbscript:"};
    for (std::string_view word : kDisarmed) {
        if (findIgnoringCase(out, word, 0) == std::string::npos) continue;
        std::string disarmed;
        disarmed.reserve(out.size() + out.size() / 4);
        std::size_t from = 0;
        for (std::size_t at; (at = findIgnoringCase(out, word, from)) != std::string::npos; from = at + word.size()) {
            disarmed.append(out, from, at - from);
            disarmed += "x-";
            disarmed.append(out, at, word.size());
        }
        disarmed.append(out, from, std::string::npos);
        out = std::move(disarmed);
    }
    return out;
}

HtmlSanitizer::Result HtmlSanitizer::sanitize(std::string_view input, const Resolver& resolver) {
    Result result;
    const std::string source = TextEncoding::sanitizeUTF8(input);
    const std::string_view text = source;
    std::string& out = result.html;
    out.reserve(text.size() + text.size() / 8);
    Sanitizer rules{resolver, result};

    std::vector<std::string> open;  // allowed elements we opened, innermost last
    std::string skipping;           // an element dropped with its content
    std::size_t skipDepth = 0;

    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t lt = text.find('<', i);
        if (lt == std::string_view::npos) lt = text.size();
        if (skipDepth == 0) appendText(out, text.substr(i, lt - i));
        if (lt >= text.size()) break;
        i = lt;
        std::string_view rest = text.substr(lt);
        if (rest.starts_with("<!--")) {
            // "<!-->" and "<!--->" are empty comments.
            std::size_t end;
            if (rest.substr(4).starts_with(">")) end = lt + 5;
            else if (rest.substr(4).starts_with("->")) end = lt + 6;
            else {
                std::size_t close = text.find("-->", lt + 4);
                end = close == std::string_view::npos ? text.size() : close + 3;
            }
            i = end;
            continue;
        }
        bool endTag = rest.size() > 2 && rest[1] == '/' && isAsciiAlpha(rest[2]);
        bool startTag = rest.size() > 1 && isAsciiAlpha(rest[1]);
        if (!endTag && !startTag) {
            if (rest.size() > 1 && (rest[1] == '!' || rest[1] == '?' || rest[1] == '/')) {
                // Doctype, processing instruction, "</ >": a bogus comment up to ">".
                std::size_t close = text.find('>', lt + 1);
                i = close == std::string_view::npos ? text.size() : close + 1;
                continue;
            }
            if (skipDepth == 0) out += "&lt;";
            i = lt + 1;
            continue;
        }
        Tag tag;
        std::size_t after = parseTag(text, lt + (endTag ? 2 : 1), tag);
        if (after == std::string_view::npos) break;
        i = after;

        if (skipDepth > 0) {
            if (tag.name == skipping) {
                if (endTag) --skipDepth;
                else if (!tag.selfClosing) ++skipDepth;
            }
            continue;
        }
        if (isOneOf(tag.name, kActiveElements) && !endTag) ++result.elementsRemoved;
        if (tag.name == "meta" && !endTag) {
            for (const Attribute& a : tag.attributes)
                if (a.name == "http-equiv" && lowered(a.value) == "refresh") ++result.elementsRemoved;
            continue;
        }

        if (!endTag && isOneOf(tag.name, kRawTextElements)) {
            std::size_t close = tag.name == "plaintext" ? std::string_view::npos : findRawTextEnd(text, i, tag.name);
            std::string_view content = text.substr(i, close == std::string_view::npos ? std::string_view::npos : close - i);
            if (tag.name == "style" && open.size() < kMaxOpenElements) {
                std::string css = sanitizeCss(content, result);
                out += "<style>";
                // Nothing in it may end the element early.
                for (char c : css) {
                    if (c == '<') out += "\\3C ";
                    else out += c;
                }
                out += "</style>";
            }
            if (close == std::string_view::npos) break;
            Tag ignored;
            std::size_t endOfEndTag = parseTag(text, close + 2, ignored);
            if (endOfEndTag == std::string_view::npos) break;
            i = endOfEndTag;
            continue;
        }
        if (!endTag && isOneOf(tag.name, kDroppedWithContent)) {
            if (!tag.selfClosing) {
                skipping = tag.name;
                skipDepth = 1;
            }
            continue;
        }
        if ((tag.name == "html" || tag.name == "body") && !endTag) {
            // The page keeps the body's direction: right-to-left mail stays so.
            for (const Attribute& a : tag.attributes)
                if (a.name == "dir" && (lowered(a.value) == "rtl" || lowered(a.value) == "ltr"))
                    result.direction = lowered(a.value);
        }
        if (!isOneOf(tag.name, kAllowedElements)) continue;  // the tag goes, its content stays
        bool isVoid = isOneOf(tag.name, kVoidElements);

        if (endTag) {
            if (isVoid) continue;
            auto match = std::find(open.rbegin(), open.rend(), tag.name);
            if (match == open.rend()) continue;  // never opened here: it must not close the page's markup
            std::size_t keep = static_cast<std::size_t>(open.rend() - match) - 1;
            while (open.size() > keep) {
                out += "</" + open.back() + ">";
                open.pop_back();
            }
            continue;
        }
        if (!isVoid && open.size() >= kMaxOpenElements) continue;

        std::string element = "<" + tag.name;
        bool isLink = false;
        bool blockedImage = false;
        for (Attribute& attribute : tag.attributes) {
            const std::string& name = attribute.name;
            std::string value = attribute.value;
            if (name == "style") {
                value = sanitizeCss(value, result);
            } else if (name == "href") {
                if (tag.name != "a" || !Sanitizer::linkAllowed(value)) continue;
                isLink = true;
            } else if (name == "src" || name == "background") {
                if ((name == "src") != (tag.name == "img")) {
                    if (name == "src") continue;
                    if (!isOneOf(tag.name, std::array<std::string_view, 4>{"table", "td", "th", "tr"})) continue;
                }
                ImageSource source = rules.image(value);
                if (source == ImageSource::remote) blockedImage = true;
                if (source == ImageSource::remote || source == ImageSource::drop) continue;
            } else if (!isOneOf(name, kAllowedAttributes)) {
                continue;
            }
            element += " " + name + "=\"";
            appendEscaped(element, value);
            element += "\"";
        }
        if (isLink) element += " rel=\"noopener noreferrer\" target=\"_blank\"";
        if (blockedImage && tag.name == "img") element += " data-blocked=\"remote\"";
        element += ">";
        out += element;
        if (!isVoid) open.push_back(tag.name);
    }
    while (!open.empty()) {
        out += "</" + open.back() + ">";
        open.pop_back();
    }
    return result;
}

}  // namespace qh
