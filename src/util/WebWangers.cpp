#include "util/WebWangers.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <unicode/utf8.h>

#include "core/ByteWords.h"
#include "core/TextEncoding.h"
#include "util/DataWangers.h"

namespace qh {

namespace {

int hexDigitValue(char16_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isUpperHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    out.reserve(text.size());
    std::size_t position = 0;
    for (std::size_t found = text.find(from); found != std::string_view::npos; found = text.find(from, position)) {
        out.append(text.substr(position, found - position));
        out.append(to);
        position = found + from.size();
    }
    out.append(text.substr(position));
    return out;
}

// Splits at every occurrence of `separator` (ASCII case-insensitive): the text
// before the first one, then the text after each up to the next.
std::vector<std::string_view> splitIgnoringCase(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    std::size_t position = 0;
    for (std::size_t found = TextEncoding::findIgnoringASCIICase(text, separator); found != std::string_view::npos;
         found = TextEncoding::findIgnoringASCIICase(text, separator, position)) {
        pieces.push_back(text.substr(position, found - position));
        position = found + separator.size();
    }
    pieces.push_back(text.substr(position));
    return pieces;
}

// A whitespace-skipping, case-insensitive scanner over the text, as the
// Q-word decoder has always walked it.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool scanString(std::string_view s) {
        skipBlanks();
        if (TextEncoding::findIgnoringASCIICase(text_.substr(position_, s.size()), s) != 0 ||
            text_.size() - position_ < s.size())
            return false;
        position_ += s.size();
        return true;
    }
    // The text up to `stop` (or the end); false when nothing was scanned.
    bool scanUpToString(std::string_view stop, std::string_view& scanned) {
        skipBlanks();
        std::size_t found = TextEncoding::findIgnoringASCIICase(text_, stop, position_);
        if (found == std::string_view::npos) found = text_.size();
        if (found == position_) return false;
        scanned = text_.substr(position_, found - position_);
        position_ = found;
        return true;
    }
    bool atEnd() const { return position_ >= text_.size(); }

private:
    void skipBlanks() {
        while (position_ < text_.size()) {
            char c = text_[position_];
            if (c != ' ' && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != '\v') break;
            ++position_;
        }
    }
    std::string_view text_;
    std::size_t position_ = 0;
};

// Whether the text is an address by the published RFC 5322 address
// expression, matched whole and in any case:
//   (?:[a-z0-9!#$%\&'*+/=?\^_`{|}~-]+(?:\.[a-z0-9!#$%\&'*+/=?\^_`{|}~-]+)*
//      |"(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21\x23-\x5b\x5d-\x7f]|\\[\x01-\x09\x0b\x0c\x0e-\x7f])*")
//   @(?:(?:[a-z0-9](?:[a-z0-9-]*[a-z0-9])?\.)+[a-z0-9](?:[a-z0-9-]*[a-z0-9])?
//      |\[(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\.){3}(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?
//      |[a-z0-9-]*[a-z0-9]:(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21-\x5a\x53-\x7f]|\\[\x01-\x09\x0b\x0c\x0e-\x7f])+)\])
// read with plain code: compiling that expression was the largest cost of
// reading a message with recipients. Two things of the expression are kept:
// classic: its general-literal class overlaps itself (\x21-\x5a and
// \x53-\x7f, so "\" and "]" are in it); and any case means that U+017F
// (long s) and U+212A (Kelvin sign) count as the letters s and k, as a
// case-blind match of the expression takes them. The MSG reader's sender
// candidates are chosen by it.
class AddressExpression {
public:
    static bool matches(std::string_view text) {
        // The code points as bytes: the two letters' case partners as those
        // letters, anything else above ASCII (or undecodable) as NUL, which
        // no class of the expression takes.
        std::string ascii;
        ascii.reserve(text.size());
        const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
        const auto length = static_cast<std::int32_t>(text.size());
        for (std::int32_t i = 0; i < length;) {
            UChar32 c;
            U8_NEXT(s, i, length, c);
            ascii += c >= 0 && c < 0x80 ? char(c) : c == 0x17F ? 's' : c == 0x212A ? 'k' : '\0';
        }
        std::string_view in = ascii;
        std::size_t at = in.find('@');
        if (!in.empty() && in.front() == '"') {
            at = quotedEnd(in);
            if (at == std::string_view::npos || at >= in.size() || in[at] != '@') return false;
        } else if (at == std::string_view::npos || !dotAtom(in.substr(0, at))) {
            return false;
        }
        const std::string_view domain = in.substr(at + 1);
        if (!domain.empty() && domain.front() == '[') return literal(domain);
        return hostName(domain);
    }

private:
    static bool letterOrDigit(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    }
    static bool atomText(char c) {
        return letterOrDigit(c) || std::string_view("!#$%&'*+/=?^_`{|}~-").find(c) != std::string_view::npos;
    }
    static bool quotedText(char c) {
        auto u = static_cast<unsigned char>(c);
        return (u >= 0x01 && u <= 0x08) || u == 0x0b || u == 0x0c || (u >= 0x0e && u <= 0x1f) || u == 0x21 ||
               (u >= 0x23 && u <= 0x5b) || (u >= 0x5d && u <= 0x7f);
    }
    static bool quotedPair(char c) {
        auto u = static_cast<unsigned char>(c);
        return (u >= 0x01 && u <= 0x09) || u == 0x0b || u == 0x0c || (u >= 0x0e && u <= 0x7f);
    }
    static bool literalText(char c) {
        auto u = static_cast<unsigned char>(c);
        return (u >= 0x01 && u <= 0x08) || u == 0x0b || u == 0x0c || (u >= 0x0e && u <= 0x1f) || (u >= 0x21 && u <= 0x7f);
    }
    // One or more runs of atom text joined by single dots.
    static bool dotAtom(std::string_view text) {
        bool run = false;
        for (char c : text) {
            if (c == '.' && run) run = false;
            else if (atomText(c)) run = true;
            else return false;
        }
        return run;
    }
    // The offset just past the closing quote of the quoted string at the
    // start of `text`, or npos.
    static std::size_t quotedEnd(std::string_view text) {
        for (std::size_t i = 1; i < text.size(); ++i) {
            if (text[i] == '"') return i + 1;
            if (text[i] == '\\') {
                if (++i >= text.size() || !quotedPair(text[i])) return std::string_view::npos;
            } else if (!quotedText(text[i])) {
                return std::string_view::npos;
            }
        }
        return std::string_view::npos;
    }
    // Letters, digits and hyphens, beginning (when `strictStart`) and ending with a letter or digit.
    static bool label(std::string_view text, bool strictStart) {
        if (text.empty() || !letterOrDigit(text.back()) || (strictStart && !letterOrDigit(text.front()))) return false;
        return std::all_of(text.begin(), text.end(), [](char c) { return letterOrDigit(c) || c == '-'; });
    }
    // Two or more labels joined by dots.
    static bool hostName(std::string_view text) {
        std::size_t labels = 0;
        for (std::size_t start = 0;; ++labels) {
            const std::size_t dot = text.find('.', start);
            if (!label(text.substr(start, dot - start), true)) return false;
            if (dot == std::string_view::npos) return labels >= 1;
            start = dot + 1;
        }
    }
    // 25[0-5] | 2[0-4][0-9] | [01]?[0-9][0-9]?
    static bool octet(std::string_view text) {
        if (text.empty() || text.size() > 3) return false;
        if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) return false;
        return text.size() < 3 || text.compare("255") <= 0;
    }
    // "[" three octets and dots, then an octet or a tag, ":" and literal text, "]".
    static bool literal(std::string_view text) {
        if (text.size() < 2 || text.back() != ']') return false;
        std::string_view rest = text.substr(1, text.size() - 2);
        for (int n = 0; n < 3; ++n) {
            const std::size_t dot = rest.find('.');
            if (dot == std::string_view::npos || !octet(rest.substr(0, dot))) return false;
            rest.remove_prefix(dot + 1);
        }
        if (octet(rest)) return true;
        const std::size_t colon = rest.find(':');
        if (colon == std::string_view::npos || !label(rest.substr(0, colon), false)) return false;
        // Literal text, or a quoted pair: a tab or a space needs the "\" before it.
        const std::string_view body = rest.substr(colon + 1);
        if (body.empty()) return false;
        for (std::size_t i = 0; i < body.size(); ++i) {
            if (literalText(body[i])) continue;
            if (!quotedPair(body[i]) || i == 0 || body[i - 1] != '\\') return false;
        }
        return true;
    }
};

}  // namespace

std::string WebWangers::decodeQuotedPrintableString(std::string_view text, std::string_view encoding) {
    if (encoding != "quoted-printable") return TextEncoding::trimWhitespaceAndNewlines(text);
    // Soft breaks: the callers hand over text whose line ends are LF already.
    std::string work = replaceAll(text, "=\n", "");
    // Upper-case escapes =01 to =FE become percent escapes. Escapes cannot
    // overlap, so one pass does what replacing them code by code would.
    // classic: =00, =FF and lower-case escapes stay as they are; the classic
    // MIME reading's bodies keep them.
    for (std::size_t i = 0; i + 2 < work.size(); ++i) {
        if (work[i] != '=' || !isUpperHexDigit(work[i + 1]) || !isUpperHexDigit(work[i + 2])) continue;
        int code = hexDigitValue(work[i + 1]) << 4 | hexDigitValue(work[i + 2]);
        if (code >= 1 && code <= 254) work[i] = '%';
    }
    std::optional<std::string> decoded = TextEncoding::removePercentEncoding(work);
    if (!decoded) decoded = decodedQuotedPrintable(text);
    return TextEncoding::trimWhitespaceAndNewlines(*decoded);
}

std::string WebWangers::decodedQuotedPrintable(std::string_view text) {
    std::string joined = replaceAll(replaceAll(text, "=\r\n", ""), "=\n", "");
    const std::u16string units = TextEncoding::toUTF16(joined);
    const std::size_t length = units.size();
    std::u16string out;
    out.reserve(length);
    // classic: the first character is never an escape's start, and an escape
    // within the last four characters stays (below); the classic MIME
    // reading's bodies keep both.
    std::size_t next = 0;
    if (length > 0) out.push_back(units[next++]);
    while (next < length) {
        std::size_t equals = units.find(u'=', next);
        // An escape within the last four characters stays as it is. Each
        // decoded escape shortens the text by two, and so does the position of
        // every later "=": the test reads the same on the original positions.
        if (equals == std::u16string::npos || equals + 5 > length) break;
        out.append(units, next, equals - next);
        unsigned code = 0;
        for (std::size_t k = equals + 1; k < equals + 3; ++k) {
            int digit = hexDigitValue(units[k]);
            if (digit < 0) break;
            code = code << 4 | unsigned(digit);
        }
        out.push_back(char16_t(code));
        next = equals + 3;
    }
    out.append(units, next, std::u16string::npos);
    return TextEncoding::fromUTF16(out);
}

std::string WebWangers::createQuotedPrintableFromString(std::string_view text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    // At most three bytes out for one in, written through a pointer.
    std::string out(text.size() * 3, '\0');
    char* o = out.data();
    for (const char *p = text.data(), *end = p + text.size(); p < end; ++p) {
        // Eight bytes at a time while all are printable.
        for (; end - p >= 8 && words::allPrintable(words::load(p)); p += 8, o += 8) std::memcpy(o, p, 8);
        if (p == end) break;
        auto byte = static_cast<unsigned char>(*p);
        if ((byte >= 32 && byte <= 126) || byte == 10) {
            *o++ = *p;
        } else {
            o[0] = '=';
            o[1] = kHex[byte >> 4];
            o[2] = kHex[byte & 15];
            o += 3;
        }
    }
    out.resize(static_cast<std::size_t>(o - out.data()));
    return out;
}

std::string WebWangers::decodeUTF8B(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::int32_t counter = 0;
    // classic: the first piece is read like the others, so a "?=" in plain
    // text ends an encoded word even where no marker came before it, and the
    // blanks between words are kept; the classic MIME reading's subjects.
    for (std::string_view piece : splitIgnoringCase(text, "=?UTF-8?B?")) {
        std::size_t end = piece.find("?=");
        if (end == std::string_view::npos) {
            out.append(piece);
            continue;
        }
        std::optional<Bytes> bytes = DataWangers::b64DecodeDataString(piece.substr(0, end));
        std::optional<std::string> word =
            bytes ? DataWangers::getStringFromData(*bytes, StringEncoding::UTF8, "decodeUTF8B", counter) : std::nullopt;
        if (word) out.append(*word);
        out.append(piece.substr(end + 2));
        ++counter;
    }
    return out;
}

std::string WebWangers::decodeUTF8Q(std::string_view text) {
    constexpr std::string_view kMarker = "=?UTF-8?Q?";
    std::string out;
    Scanner scanner(text);
    while (true) {
        if (!scanner.scanString(kMarker)) {
            std::string_view before;
            if (!scanner.scanUpToString(kMarker, before) || scanner.atEnd()) break;
            out.append(before);
            scanner.scanString(kMarker);
        }
        std::string_view word;
        if (!scanner.scanUpToString("?=", word)) break;
        scanner.scanString("?=");
        std::string escaped = replaceAll(replaceAll(replaceAll(word, "%", "=25"), "=", "%"), "_", " ");
        // A word whose escapes do not decode adds nothing.
        if (auto decoded = TextEncoding::removePercentEncoding(escaped)) out.append(*decoded);
    }
    return out;
}

std::optional<std::string> WebWangers::removePercentEncodingFromString(std::string_view text, const void*) {
    return TextEncoding::removePercentEncoding(text);
}

bool WebWangers::validateEmailAddress(std::string_view text) { return AddressExpression::matches(text); }

}  // namespace qh
