#include "writers/MimeEncoding.h"

#include <algorithm>
#include <cstring>

#include "core/Base64.h"
#include "core/ByteWords.h"
#include "core/TextEncoding.h"
#include "writers/Format.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qh::mime {

namespace {

constexpr char kHex[] = "0123456789ABCDEF";

void appendHex(std::string& out, unsigned char byte, char escape) {
    out.push_back(escape);
    out.push_back(kHex[byte >> 4]);
    out.push_back(kHex[byte & 0x0F]);
}

// The length of the UTF-8 sequence that starts with `lead` (the text is valid UTF-8).
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if ((lead & 0xE0) == 0xC0) return 2;
    if ((lead & 0xF0) == 0xE0) return 3;
    return 4;
}

// The characters of valid UTF-8 text, one sequence each, visited in place: a
// list of them would hold 16 bytes for every byte of the text (160 MB for a
// subject of 10 MB).
class Characters {
public:
    explicit Characters(std::string_view text) : text_(text) {}
    class Iterator {
    public:
        Iterator(std::string_view text, std::size_t at) : text_(text), at_(at) {}
        std::string_view operator*() const { return text_.substr(at_, length()); }
        Iterator& operator++() {
            at_ += length();
            return *this;
        }
        bool operator!=(const Iterator& other) const { return at_ != other.at_; }

    private:
        std::size_t length() const {
            return std::min(sequenceLength(static_cast<unsigned char>(text_[at_])), text_.size() - at_);
        }
        std::string_view text_;
        std::size_t at_;
    };
    Iterator begin() const { return {text_, 0}; }
    Iterator end() const { return {text_, text_.size()}; }

private:
    std::string_view text_;
};

Characters characters(std::string_view text) { return Characters(text); }

// RFC 5322 3.2.3 atext.
bool isAtext(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

// RFC 2047 5(3): the characters a Q word may hold as they are in a phrase.
bool isQSafe(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '!' || c == '*' ||
           c == '+' || c == '-' || c == '/';
}

// RFC 2231 7 attribute-char: what an extended value may hold without a percent escape.
bool isAttributeChar(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!#$&+-.^_`|~").find(static_cast<char>(c)) != std::string_view::npos;
}

bool isPrintableASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

std::size_t qLength(std::string_view text) {
    std::size_t length = 0;
    for (unsigned char byte : text) length += (byte == ' ' || isQSafe(byte)) ? 1 : 3;
    return length;
}

using WordSink = std::function<void(std::string_view word)>;

void encodeQ(std::string_view text, const WordSink& emit) {
    constexpr std::size_t kPayload = kEncodedWordLength - (std::string_view("=?UTF-8?Q?").size() + 2);
    std::string payload;
    for (std::string_view character : characters(text)) {
        std::string piece;
        for (unsigned char byte : character) {
            if (byte == ' ') piece.push_back('_');
            else if (isQSafe(byte)) piece.push_back(static_cast<char>(byte));
            else appendHex(piece, byte, '=');
        }
        if (!payload.empty() && payload.size() + piece.size() > kPayload) {
            emit("=?UTF-8?Q?" + payload + "?=");
            payload.clear();
        }
        payload += piece;
    }
    if (!payload.empty()) emit("=?UTF-8?Q?" + payload + "?=");
}

void encodeB(std::string_view text, const WordSink& emit) {
    constexpr std::size_t kPayload = kEncodedWordLength - (std::string_view("=?UTF-8?B?").size() + 2);
    constexpr std::size_t kBytes = kPayload / 4 * 3;
    std::string chunk;
    auto flush = [&] {
        emit("=?UTF-8?B?" + Base64::encode(asBytes(chunk)) + "?=");
        chunk.clear();
    };
    for (std::string_view character : characters(text)) {
        if (!chunk.empty() && chunk.size() + character.size() > kBytes) flush();
        chunk += character;
    }
    if (!chunk.empty()) flush();
}

// Q keeps mostly-Latin text readable in raw form; B is shorter for other scripts.
void encodeShorter(std::string_view text, const WordSink& emit) {
    if (qLength(text) * 2 <= (text.size() + 2) / 3 * 4 * 3) return encodeQ(text, emit);
    encodeB(text, emit);
}

std::vector<std::string> collected(void (*encode)(std::string_view, const WordSink&), std::string_view text) {
    std::vector<std::string> words;
    encode(text, [&](std::string_view word) { words.emplace_back(word); });
    return words;
}

// Written as it stands at any column of a quoted-printable line: printable
// ASCII other than "=".
constexpr bool plainPrintable(unsigned char c) { return c >= 33 && c <= 126 && c != '='; }

// How many of the bytes from text[i] on (at most `most`) are written as they
// stand: printable ASCII other than "=", and blanks that a printable one
// follows (so that no line ends in them).
std::size_t literalRun(std::string_view text, std::size_t i, std::size_t most) {
    const std::size_t size = text.size();
    std::size_t run = 0;
#if defined(__SSE2__)
    const auto printable = [](__m128i v) {
        // Signed compares: bytes from 0x80 up are negative, so below 33.
        return _mm_andnot_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('=')),
                                _mm_and_si128(_mm_cmpgt_epi8(v, _mm_set1_epi8(32)),
                                              _mm_cmplt_epi8(v, _mm_set1_epi8(127))));
    };
    while (run < most && size - (i + run) >= 17) {
        const char* at = text.data() + i + run;
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 1));
        const __m128i blank = _mm_or_si128(_mm_cmpeq_epi8(chunk, _mm_set1_epi8(' ')),
                                           _mm_cmpeq_epi8(chunk, _mm_set1_epi8('\t')));
        const auto literal = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_or_si128(printable(chunk), _mm_and_si128(blank, printable(next)))));
        if (literal != 0xFFFF) return std::min(most, run + static_cast<std::size_t>(__builtin_ctz(~literal)));
        run += 16;
    }
#endif
    for (; run < most && i + run < size; ++run) {
        const auto c = static_cast<unsigned char>(text[i + run]);
        if (plainPrintable(c)) continue;
        if ((c == ' ' || c == '\t') && i + run + 1 < size && plainPrintable(static_cast<unsigned char>(text[i + run + 1])))
            continue;
        break;
    }
    return std::min(most, run);
}

}  // namespace

FieldWriter::FieldWriter(std::string_view name) : text_(std::string(name) + ":") {}

void FieldWriter::add(std::string_view word, std::string_view space) {
    std::size_t lineLength = text_.size() - lineStart_;
    if (!space.empty() && words_ > 0 && (foldNext_ || lineLength + space.size() + word.size() > kFoldWidth)) {
        text_.append(kCRLF);
        lineStart_ = text_.size();
    }
    if (!space.empty()) foldNext_ = false;
    text_.append(space).append(word);
    ++words_;
}

void FieldWriter::keepTogether(std::size_t length) {
    foldNext_ = words_ > 0 && text_.size() - lineStart_ + length > kFoldWidth;
}

std::string FieldWriter::finish() const { return text_ + std::string(kCRLF); }

std::string cleanText(std::string_view text) {
    std::string valid = TextEncoding::sanitizeUTF8(text);
    std::string out;
    out.reserve(valid.size());
    for (std::size_t at = 0; at < valid.size(); ++at) {
        unsigned char c = static_cast<unsigned char>(valid[at]);
        // C1 controls (U+0080 to U+009F) are two bytes, C2 80 to C2 9F.
        if (c == 0xC2 && at + 1 < valid.size() && static_cast<unsigned char>(valid[at + 1]) < 0xA0) {
            out.push_back(' ');
            ++at;
        } else if (c == 0) {
            // NULs pad fixed-size fields; they never stand for a character.
        } else if (c < 0x20 || c == 0x7F) {
            out.push_back(' ');
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    std::size_t first = out.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return out.substr(first, out.find_last_not_of(' ') - first + 1);
}

bool isASCII(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::vector<std::string> encodedWordsB(std::string_view text) { return collected(encodeB, text); }

std::vector<std::string> encodedWords(std::string_view text) { return collected(encodeShorter, text); }

std::vector<Word> unstructuredWords(std::string_view text) {
    std::vector<Word> out;
    unstructuredWords(text, [&](std::string_view space, std::string_view word) {
        out.push_back({std::string(space), std::string(word)});
    });
    return out;
}

void unstructuredWords(std::string_view text,
                       const std::function<void(std::string_view space, std::string_view word)>& emit) {
    const std::string clean = cleanText(text);
    const std::string_view all(clean);
    // A reader would decode a word that looks like an encoded word, and
    // cannot fold one longer than a line: both go out encoded.
    auto needsEncoding = [](std::string_view word) {
        return !isASCII(word) || word.find("=?") != std::string_view::npos || word.size() > kLongestPlainWord;
    };
    bool first = true;
    auto put = [&](std::string_view space, std::string_view word) {
        emit(first ? std::string_view(" ") : space, word);
        first = false;
    };
    // Adjacent encoded words are joined without the white space between them
    // (RFC 2047 6.2), so a run of such words carries its inner blanks: the run
    // is the text from its first word to its last, encoded as one.
    std::size_t runStart = std::string_view::npos, runEnd = 0;
    std::string_view runSpace;
    auto flushRun = [&] {
        if (runStart == std::string_view::npos) return;
        std::string_view space = runSpace;
        encodeShorter(all.substr(runStart, runEnd - runStart), [&](std::string_view word) {
            put(space, word);
            space = " ";
        });
        runStart = std::string_view::npos;
    };
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t wordStart = all.find_first_not_of(' ', at);
        if (wordStart == std::string_view::npos) break;
        const std::size_t wordEnd = std::min(all.find(' ', wordStart), all.size());
        const std::string_view space = all.substr(at, wordStart - at);
        const std::string_view word = all.substr(wordStart, wordEnd - wordStart);
        if (needsEncoding(word)) {
            if (runStart == std::string_view::npos) runStart = wordStart, runSpace = space;
            runEnd = wordEnd;
        } else {
            flushRun();
            put(space, word);
        }
        at = wordEnd;
    }
    flushRun();
}

std::string quotedString(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out.push_back('\\');
        out.push_back(c);
    }
    out.push_back('"');
    return out;
}

std::vector<Word> phraseWords(std::string_view name) {
    std::string clean = cleanText(name);
    std::vector<Word> out;
    if (clean.empty()) return out;
    if (isASCII(clean) && clean.find("=?") == std::string::npos) {
        bool atoms = true;
        for (char c : clean) atoms = atoms && (c == ' ' || isAtext(c));
        if (atoms && clean.find("  ") == std::string::npos) {
            for (std::size_t at = 0; at < clean.size();) {
                std::size_t end = std::min(clean.find(' ', at), clean.size());
                out.push_back({" ", clean.substr(at, end - at)});
                at = end + 1;
            }
            bool foldable = std::all_of(out.begin(), out.end(), [](const Word& w) { return w.word.size() <= kLongestPlainWord; });
            if (foldable) return out;
            out.clear();
        } else if (clean.size() <= kLongestPlainWord) {
            out.push_back({" ", quotedString(clean)});
            return out;
        }
    }
    for (std::string& word : encodedWords(clean)) out.push_back({" ", std::move(word)});
    return out;
}

bool isDotAtomText(std::string_view text) {
    if (text.empty() || text.front() == '.' || text.back() == '.' || text.find("..") != std::string_view::npos)
        return false;
    return std::all_of(text.begin(), text.end(), [](char c) { return c == '.' || isAtext(c); });
}

bool isAddrSpec(std::string_view text) {
    // RFC 5321 4.5.3.1.3: no path holds more than 256 octets.
    if (text.size() > 254) return false;
    std::size_t at = text.rfind('@');
    if (at == std::string_view::npos) return false;
    std::string_view local = text.substr(0, at), domain = text.substr(at + 1);
    bool localValid = isDotAtomText(local);
    if (!localValid && local.size() >= 2 && local.front() == '"' && local.back() == '"') {
        // quoted-string: qtext and quoted-pairs of printable ASCII.
        localValid = isPrintableASCII(local);
        for (std::size_t i = 1; localValid && i + 1 < local.size(); ++i) {
            if (local[i] == '\\') ++i;
            else if (local[i] == '"') localValid = false;
        }
        if (localValid && local.size() >= 3 && local[local.size() - 2] == '\\') {
            std::size_t slashes = 0;
            for (std::size_t i = local.size() - 2; i > 0 && local[i] == '\\'; --i) ++slashes;
            localValid = slashes % 2 == 0;
        }
    }
    if (!localValid) return false;
    if (isDotAtomText(domain)) return true;
    // domain-literal: "[" *dtext "]", dtext being printable ASCII but "[", "]", "\".
    if (domain.size() < 2 || domain.front() != '[' || domain.back() != ']') return false;
    std::string_view inner = domain.substr(1, domain.size() - 2);
    return std::all_of(inner.begin(), inner.end(),
                       [](char c) { return c > 0x20 && c < 0x7F && c != '[' && c != ']' && c != '\\'; });
}

bool isMsgIdContent(std::string_view text) {
    if (text.size() > 250) return false;
    std::size_t at = text.rfind('@');
    if (at == std::string_view::npos || !isDotAtomText(text.substr(0, at))) return false;
    std::string_view right = text.substr(at + 1);
    if (isDotAtomText(right)) return true;
    if (right.size() < 2 || right.front() != '[' || right.back() != ']') return false;
    std::string_view inner = right.substr(1, right.size() - 2);
    return std::all_of(inner.begin(), inner.end(),
                       [](char c) { return c > 0x20 && c < 0x7F && c != '[' && c != ']' && c != '\\'; });
}

std::vector<std::string> parameter(std::string_view attribute, std::string_view value) {
    std::string clean = cleanText(value);
    std::string name(attribute);
    if (isASCII(clean)) {
        if (clean.size() <= kParameterSegment) return {name + "=" + quotedString(clean)};
        std::vector<std::string> pieces;
        for (std::size_t at = 0, n = 0; at < clean.size(); at += kParameterSegment, ++n)
            pieces.push_back(name + "*" + std::to_string(n) + "=" +
                             quotedString(std::string_view(clean).substr(at, kParameterSegment)));
        return pieces;
    }
    // Percent escapes never split a character, so that a client decoding
    // each segment on its own still reads whole characters.
    std::vector<std::string> segments(1);
    for (std::string_view character : characters(clean)) {
        std::string piece;
        for (unsigned char byte : character) {
            if (isAttributeChar(byte)) piece.push_back(static_cast<char>(byte));
            else appendHex(piece, byte, '%');
        }
        if (!segments.back().empty() && segments.back().size() + piece.size() > kParameterSegment)
            segments.emplace_back();
        segments.back() += piece;
    }
    if (segments.size() == 1) return {name + "*=utf-8''" + segments.front()};
    std::vector<std::string> pieces;
    for (std::size_t n = 0; n < segments.size(); ++n)
        pieces.push_back(name + "*" + std::to_string(n) + "*=" + (n == 0 ? "utf-8''" : "") + segments[n]);
    return pieces;
}

std::string encodedWordParameter(std::string_view attribute, std::string_view value) {
    std::string clean = cleanText(value);
    if (isASCII(clean)) return {};
    std::string words;
    for (const std::string& word : encodedWordsB(clean)) words += (words.empty() ? "" : " ") + word;
    // Such a value cannot be folded; one that would not fit a line is left to the RFC 2231 form.
    if (words.size() + attribute.size() + 8 > kMaxLineLength) return {};
    return std::string(attribute) + "=\"" + words + "\"";
}

std::string crlfLineEnds(std::string_view text) {
    // Written through a pointer into room for the worst case (every byte a
    // line feed), then cut: a character costs a few instructions, not a
    // push_back's capacity check.
    std::string out(text.size() * 2, '\0');
    char* to = out.data();
    const std::size_t size = text.size();
    for (std::size_t i = 0; i < size; ++i) {
        // Eight bytes at a time while none is below 0x0E (CR and LF are).
        for (; size - i >= 8 && !words::anyBelow(words::load(text.data() + i), 0x0E); i += 8, to += 8)
            std::memcpy(to, text.data() + i, 8);
        if (i == size) break;
        const char c = text[i];
        if (c == '\r' || c == '\n') {
            *to++ = '\r';
            *to++ = '\n';
            if (c == '\r' && i + 1 < size && text[i + 1] == '\n') ++i;
        } else {
            *to++ = c;
        }
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    return out;
}

std::string_view transferEncodingName(TransferEncoding encoding) {
    switch (encoding) {
    case TransferEncoding::sevenBit: return "7bit";
    case TransferEncoding::quotedPrintable: return "quoted-printable";
    case TransferEncoding::base64: return "base64";
    }
    return "base64";
}

TransferEncoding chooseTextEncoding(std::string_view text) {
    std::size_t escaped = 0, lineLength = 0;
    bool sevenBit = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        // Inside a line, eight bytes at a time while all are printable and
        // none is "=": they only make the line longer.
        if (lineLength > 0) {
#if defined(__SSE2__)
            // Sixteen at a time while none is a control or from 0x7F up;
            // each "=" among them is an escape, counted without stopping.
            while (text.size() - i >= 16) {
                const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
                // A signed compare: bytes from 0x80 up are negative, so below 0x20.
                const __m128i special = _mm_or_si128(_mm_cmplt_epi8(chunk, _mm_set1_epi8(0x20)),
                                                     _mm_cmpeq_epi8(chunk, _mm_set1_epi8(0x7F)));
                if (_mm_movemask_epi8(special) != 0) break;
                escaped += static_cast<std::size_t>(__builtin_popcount(
                    static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, _mm_set1_epi8('='))))));
                i += 16;
                lineLength += 16;
            }
#endif
            while (text.size() - i >= 8) {
                const std::uint64_t word = words::load(text.data() + i);
                if (!words::allPrintable(word) || words::anyEqual(word, '=')) break;
                i += 8;
                lineLength += 8;
            }
            if (lineLength > kBodyLineLength) sevenBit = false;
            if (i == text.size()) break;
        }
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            // Trailing blanks may be stripped in transport (RFC 2045 6.7 (3)).
            if (lineLength > 0 && (text[i - 1] == ' ' || text[i - 1] == '\t')) sevenBit = false;
            lineLength = 0;
            ++i;
            continue;
        }
        if (lineLength == 0 && text.substr(i, 5) == "From ") sevenBit = false;
        ++lineLength;
        if (lineLength > kBodyLineLength) sevenBit = false;
        if (c == '=' || c >= 0x7F || (c < 0x20 && c != '\t')) {
            ++escaped;
            if (c != '=') sevenBit = false;
        }
    }
    if (lineLength > 0 && (text.back() == ' ' || text.back() == '\t')) sevenBit = false;
    if (sevenBit) return TransferEncoding::sevenBit;
    // Each escape costs two more characters; base64 costs a third of everything.
    return escaped * 2 <= text.size() / 3 ? TransferEncoding::quotedPrintable : TransferEncoding::base64;
}

std::string quotedPrintable(std::string_view text) {
    const std::size_t size = text.size();
    // Room for the worst case, every byte escaped with a soft break after
    // every 25 escapes; written through a pointer, then cut.
    std::string out(size * 3 + (size / 25 + 1) * 3, '\0');
    char* to = out.data();
    std::size_t column = 0;
    for (std::size_t i = 0; i < size; ++i) {
        // Runs of characters written as they stand, while the line has room
        // for them and the soft break (a line's first "F" may start "From ").
        if (column < kBodyLineLength - 1 && !(column == 0 && text[i] == 'F')) {
            const std::size_t run = literalRun(text, i, kBodyLineLength - 1 - column);
            std::memcpy(to, text.data() + i, run);
            to += run;
            column += run;
            i += run;
            if (i == size) break;
        }
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const bool printable = plainPrintable(c);
        if (c == '\r' && i + 1 < size && text[i + 1] == '\n') {
            *to++ = '\r';
            *to++ = '\n';
            column = 0;
            ++i;
            continue;
        }
        const bool lineEnds = i + 1 == size || (text[i + 1] == '\r' && i + 2 < size && text[i + 2] == '\n');
        // The character as it is written at `atColumn`: itself, or "=XX".
        auto literalAt = [&](std::size_t atColumn) {
            bool literal = printable || ((c == ' ' || c == '\t') && !lineEnds);
            if (literal && atColumn == 0 && text.substr(i, 5) == "From ") literal = false;
            return literal;
        };
        bool literal = literalAt(column);
        // The last character of a line may use column 76; any other leaves room for the soft break "=".
        const std::size_t limit = lineEnds ? kBodyLineLength : kBodyLineLength - 1;
        if (column + (literal ? 1 : 3) > limit) {
            *to++ = '=';
            *to++ = '\r';
            *to++ = '\n';
            column = 0;
            literal = literalAt(0);
        }
        if (literal) {
            *to++ = static_cast<char>(c);
            column += 1;
        } else {
            *to++ = '=';
            *to++ = kHex[c >> 4];
            *to++ = kHex[c & 0x0F];
            column += 3;
        }
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    return out;
}

std::string base64Lines(ByteView data) {
    return Base64::encode(data, kBase64LineBytes / 3 * 4);
}

std::string encodeText(std::string_view crlfText, TransferEncoding encoding) {
    switch (encoding) {
    case TransferEncoding::sevenBit: return std::string(crlfText);
    case TransferEncoding::quotedPrintable: return quotedPrintable(crlfText);
    case TransferEncoding::base64: return base64Lines(asBytes(crlfText));
    }
    return base64Lines(asBytes(crlfText));
}

}  // namespace qh::mime
