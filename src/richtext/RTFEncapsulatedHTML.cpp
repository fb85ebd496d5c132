#include "richtext/RTFEncapsulatedHTML.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <cstdint>
#include <limits>
#include <string_view>
#include <unordered_map>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "richtext/RTFCodePages.h"
#include "richtext/RTFConverter.h"
#include "richtext/RTFKeywords.h"
#include "richtext/RTFTextState.h"

namespace qh {
namespace {

using rtfwords::Keyword;
using rtfwords::KeywordEntry;

// The pass keeps RTFConverter's bounds: the same group depth, the same
// length of field instruction counted (which decides whether text inside a
// long instruction is still taken up).
constexpr std::size_t kMaxGroupDepth = RTFConverter::kMaxGroupDepth;
constexpr std::size_t kMaxFieldInstruction = RTFConverter::kMaxFieldInstruction;
constexpr std::size_t kMaxControlWordLength = RTFTokenizer::kMaxControlWordLength;

enum ByteClass : std::uint8_t { kOrdinary, kIgnored, kGroupOpen, kGroupClose, kEscape };

// Line ends and NULs carry nothing between tokens (decompressed bodies are
// often NUL-padded); they also end a run of text.
constexpr std::array<std::uint8_t, 256> kClass = [] {
    std::array<std::uint8_t, 256> table{};
    table['\r'] = table['\n'] = table[0] = kIgnored;
    table['{'] = kGroupOpen;
    table['}'] = kGroupClose;
    table['\\'] = kEscape;
    return table;
}();

constexpr bool isLetter(std::uint8_t c) { return static_cast<std::uint8_t>((c | 0x20) - 'a') < 26; }
constexpr bool isDigit(std::uint8_t c) { return static_cast<std::uint8_t>(c - '0') < 10; }
constexpr bool isBlank(std::uint8_t c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int hexValue(std::uint8_t c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Where a run of literal text that starts at `from` ends (at a brace, a
// backslash, CR, LF, NUL or the end); `high` tells whether a byte of the run
// is 0x80 or above.
[[gnu::always_inline]] inline std::size_t textRunEnd(const std::uint8_t* data, std::size_t from, std::size_t size,
                                                     bool& high) {
    std::size_t i = from;
    bool anyHigh = false;
#if defined(__SSE2__)
    const __m128i open = _mm_set1_epi8('{');
    const __m128i close = _mm_set1_epi8('}');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i cr = _mm_set1_epi8('\r');
    const __m128i lf = _mm_set1_epi8('\n');
    const __m128i zero = _mm_setzero_si128();
    while (size - i >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        const __m128i stops = _mm_or_si128(
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, open), _mm_cmpeq_epi8(bytes, close)),
                         _mm_or_si128(_mm_cmpeq_epi8(bytes, backslash), _mm_cmpeq_epi8(bytes, cr))),
            _mm_or_si128(_mm_cmpeq_epi8(bytes, lf), _mm_cmpeq_epi8(bytes, zero)));
        const unsigned stopMask = static_cast<unsigned>(_mm_movemask_epi8(stops));
        const unsigned highMask = static_cast<unsigned>(_mm_movemask_epi8(bytes));
        if (stopMask) {
            const unsigned at = static_cast<unsigned>(__builtin_ctz(stopMask));
            high = anyHigh || (highMask & ((1u << at) - 1)) != 0;
            return i + at;
        }
        anyHigh = anyHigh || highMask != 0;
        i += 16;
    }
#endif
    for (; i < size; ++i) {
        const std::uint8_t c = data[i];
        if (kClass[c] != kOrdinary) break;
        anyHigh = anyHigh || c >= 0x80;
    }
    high = anyHigh;
    return i;
}

bool anyHighByte(ByteView bytes) {
    return std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b >= 0x80; });
}

// Where the HTML goes inside a group. RTFConverter's document text and its
// \*\htmltag destination behave alike once the document is encapsulated
// HTML, so both are Body here; Skip groups are passed over as soon as they
// are known.
enum class Mode : std::uint8_t { Body, FontTable, FieldInstruction, Skip };

struct Group {
    Mode mode = Mode::Body;
    bool htmlrtf = false;    // inside \htmlrtf: RTF written for RTF readers only
    std::int32_t ucSkip = 1;
    std::int32_t font = -1;  // -1: the document's default font
};

struct Word {
    std::string_view letters;  // cut to kMaxControlWordLength
    rtfwords::WordKey key;
    bool hasParameter = false;
    bool binary = false;  // \binN: its payload has been stepped over
    std::int32_t parameter = 0;
};

// Where the run of ASCII letters that starts at `at` ends.
std::size_t lettersEnd(const std::uint8_t* data, std::size_t at, std::size_t size) {
#if defined(__SSE2__)
    const __m128i caseBit = _mm_set1_epi8(0x20);
    const __m128i lowerA = _mm_set1_epi8('a');
    const __m128i lastLetter = _mm_set1_epi8(25);
    const __m128i zero = _mm_setzero_si128();
    while (size - at >= 16) {
        // Folded to lower case and counted from 'a', letters are 0 to 25 and
        // every other byte is negative or above 25 as a signed byte.
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
        const __m128i folded = _mm_sub_epi8(_mm_or_si128(bytes, caseBit), lowerA);
        const __m128i other = _mm_or_si128(_mm_cmplt_epi8(folded, zero), _mm_cmpgt_epi8(folded, lastLetter));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(other));
        if (mask) return at + static_cast<unsigned>(__builtin_ctz(mask));
        at += 16;
    }
#endif
    while (at < size && isLetter(data[at])) ++at;
    return at;
}

// The first `n` bytes of eight, in memory order, for n below 8.
constexpr std::array<std::uint64_t, 8> kPrefixMasks = [] {
    std::array<std::uint64_t, 8> masks{};
    for (std::size_t n = 0; n < 8; ++n) masks[n] = (std::uint64_t{1} << (8 * n)) - 1;
    return masks;
}();

// The key of the `length` letters at `letters`, `available` bytes being readable there.
rtfwords::WordKey keyOfLetters(const std::uint8_t* letters, std::size_t length, std::size_t available) {
    if constexpr (std::endian::native == std::endian::little) {
        if (available >= 8) {
            rtfwords::WordKey key;
            key.length = static_cast<std::uint32_t>(length);
            std::memcpy(&key.prefix, letters, 8);
            if (length < 8) key.prefix &= kPrefixMasks[length];
            return key;
        }
    }
    return rtfwords::keyOf(std::string_view(reinterpret_cast<const char*>(letters), length));
}

// The HTML as it is written. Short pieces (most are: the text between two
// tags) gather in a chunk, copied in with two sixteen-byte moves, and go to
// the text a chunk at a time.
class Output {
public:
    static constexpr std::size_t kShort = 32;

    void reserve(std::size_t size) { text_.reserve(size); }
    // Appends `count` bytes at `bytes`, after which `readable` bytes (at least `count`) may be read.
    [[gnu::always_inline]] void append(const char* bytes, std::size_t count, std::size_t readable) {
#if defined(__SSE2__)
        if (count <= kShort && readable >= kShort) {
            if (used_ > kChunk - kShort) flush();
            char* target = chunk_ + used_;
            _mm_storeu_si128(reinterpret_cast<__m128i*>(target),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(target + 16),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 16)));
            used_ += count;
            return;
        }
#endif
        if (count <= 4) {
            if (used_ > kChunk - 4) flush();
            for (std::size_t i = 0; i < count; ++i) chunk_[used_ + i] = bytes[i];
            used_ += count;
            return;
        }
        text().append(bytes, count);
    }
    void append(std::string_view bytes) { append(bytes.data(), bytes.size(), bytes.size()); }
    // The text so far, to append to directly.
    std::string& text() {
        flush();
        return text_;
    }

private:
    // Below the size from which glibc's memcpy moves bytes with string
    // instructions, which valgrind counts a byte at a time.
    static constexpr std::size_t kChunk = 2048;

    void flush() {
        text_.append(chunk_, used_);
        used_ = 0;
    }

    std::string text_;
    char chunk_[kChunk];  // written before it is read: no need to clear it
    std::size_t used_ = 0;
};

// "{\*\htmltag" after its brace, and the key of \htmlrtf.
constexpr std::string_view kTagGroup = "\\*\\htmltag";
constexpr rtfwords::WordKey constantKey(std::string_view word) {
    rtfwords::WordKey key;
    key.length = static_cast<std::uint32_t>(word.size());
    for (std::size_t i = 0; i < word.size() && i < 8; ++i) {
        const unsigned shift = std::endian::native == std::endian::little ? 8 * i : 56 - 8 * i;
        key.prefix |= std::uint64_t{static_cast<std::uint8_t>(word[i])} << shift;
    }
    return key;
}
constexpr rtfwords::WordKey kHtmlRtf = constantKey("htmlrtf");

class Pass {
public:
    explicit Pass(ByteView rtf) : data_(rtf.data()), size_(rtf.size()) {}
    std::optional<std::string> run();

private:
    Group& top() { return stack_[depth_ - 1]; }
    bool wants(const Group& group) const {
        return group.mode == Mode::Body ? !group.htmlrtf
                                        : group.mode == Mode::FieldInstruction && fieldInstruction_ < kMaxFieldInstruction;
    }

    bool readPrefix();
    void readBody();
    [[gnu::always_inline]] std::size_t readWord(std::size_t at, Word& word) const;
    [[gnu::always_inline]] bool readHtmlRtf(std::size_t& at, Word& word) const;
    std::size_t readParameter(std::size_t at, Word& word) const;
    std::size_t stepOverBinary(std::size_t at, Word& word) const;
    bool skipGroup();

    bool takeSkipped();
    // `readable`: how many bytes may be read from the start of `bytes` (at least its size).
    [[gnu::always_inline]] void textBytes(ByteView bytes, bool high, std::size_t readable);
    void flushPending() {
        if (!pendingBytes_.empty()) decodePending();
    }
    void decodePending();
    [[gnu::always_inline]] void emitText(std::string_view utf8);
    void emitCodePoint(char32_t codePoint);
    void emitUnitsEnd();
    [[gnu::always_inline]] void emitBreak();
    [[gnu::always_inline]] void controlWord(const Word& word, const KeywordEntry* entry);
    void controlSymbol(std::uint8_t symbol);
    bool groupOpen();
    bool groupClose();
    bool skipRestOfGroup();

    const std::uint8_t* data_;
    std::size_t size_;
    const rtfwords::KeywordTable& keywords_ = rtfwords::table();
    std::size_t position_ = 0;

    std::array<Group, kMaxGroupDepth + 1> stack_{};
    std::size_t depth_ = 0;
    bool ignorableNext_ = false;
    std::size_t skipCount_ = 0;
    RTFUnicodeUnits units_;
    RTFFontCodePages fonts_;

    std::string pendingBytes_;
    std::uint16_t pendingCodePage_ = 0;
    std::string decoded_;

    Output body_;
    std::size_t fieldInstruction_ = 0;  // bytes of the field instruction, which the HTML does not show
};

std::optional<std::string> Pass::run() {
    std::size_t start = 0;
    while (start < size_ && isBlank(data_[start])) ++start;
    if (!RTFConverter::looksLikeRTF(ByteView(data_ + start, size_ - start))) return std::nullopt;
    position_ = start + 1;  // the document group's brace
    stack_[0] = Group{};    // outside the document group
    stack_[1] = Group{};
    depth_ = 2;
    if (!readPrefix()) return std::nullopt;
    // Room for the whole input: HTML mail's RTF is larger than its HTML, so
    // the text is rarely moved as it grows.
    body_.reserve(size_);
    readBody();
    flushPending();
    emitUnitsEnd();
    return std::move(body_.text());
}

// The control words before \fromhtml1. Only those that change nothing but
// the group's state or the document's code pages are taken; text, groups,
// symbols or destinations first leave the document to RTFConverter, which
// does not read it as encapsulated HTML when they write anything.
bool Pass::readPrefix() {
    for (;;) {
        while (position_ < size_ && kClass[data_[position_]] == kIgnored) ++position_;
        if (position_ + 1 >= size_ || data_[position_] != '\\' || !isLetter(data_[position_ + 1])) return false;
        Word word;
        position_ = readWord(position_ + 1, word);
        if (word.binary) return false;
        const KeywordEntry* entry = keywords_.find(word.letters, word.key);
        if (!entry) continue;  // a word the reader ignores
        switch (entry->keyword) {
            case Keyword::FromHtml:
                if (!word.hasParameter || word.parameter != 0) return true;
                continue;
            case Keyword::Bold:
            case Keyword::Italic:
            case Keyword::Underline:
            case Keyword::UnderlineNone:
            case Keyword::Hidden:
            case Keyword::Plain:
            case Keyword::Font:
            case Keyword::DefaultFont:
            case Keyword::FontCharset:
            case Keyword::FontCodePage:
            case Keyword::UnicodeSkip:
            case Keyword::AnsiCodePage:
            case Keyword::Ansi:
            case Keyword::Mac:
            case Keyword::Pc:
            case Keyword::Pca:
            case Keyword::HtmlRtf:
            case Keyword::Field:
                controlWord(word, entry);
                continue;
            default:
                return false;
        }
    }
}

void Pass::readBody() {
    const std::uint8_t* const data = data_;
    const std::size_t size = size_;
    std::size_t at = position_;  // kept in a register; position_ is set for the few calls that move it
    // After a word that made the group a destination to skip, the rest of the
    // group is passed over; false when the text ends inside it.
    auto passSkippedGroup = [&] {
        if (top().mode != Mode::Skip) return true;
        position_ = at;
        const bool closed = skipRestOfGroup();
        at = position_;
        return closed;
    };
    while (at < size) {
        const std::uint8_t c = data[at];
        switch (kClass[c]) {
            case kOrdinary: {
                bool high = false;
                const std::size_t end = textRunEnd(data, at + 1, size, high);
                high = high || c >= 0x80;
                ByteView bytes(data + at, end - at);
                at = end;
                if (skipCount_ > 0) {
                    // Characters standing in for a \u character.
                    const std::size_t dropped = std::min(skipCount_, bytes.size());
                    skipCount_ -= dropped;
                    bytes = bytes.subspan(dropped);
                    if (bytes.empty()) continue;
                    high = high && anyHighByte(bytes);
                }
                ignorableNext_ = false;
                textBytes(bytes, high, size - static_cast<std::size_t>(bytes.data() - data));
                continue;
        }
            case kIgnored:
                ++at;
                continue;
            case kGroupOpen: {
                ++at;
                skipCount_ = 0;
                flushPending();
                // Tag groups, a third of the tokens of HTML mail and often one
                // line after another: "{", "\*" and "\htmltag" in one step,
                // with the same effect, and the tag and its closing brace when
                // nothing else is in the group. (In a font table the word after
                // \* makes the group one to skip.)
                bool handled = false;
                while (size - at >= 16 && std::memcmp(data + at, kTagGroup.data(), kTagGroup.size()) == 0 &&
                       !isLetter(data[at + kTagGroup.size()]) && depth_ < kMaxGroupDepth &&
                       top().mode != Mode::FontTable) {
                    handled = true;
                    Group inner = top();
                    inner.mode = Mode::Body;
                    stack_[depth_++] = inner;
                    ignorableNext_ = false;
                    // The word's number (the tag's kind, which the HTML does
                    // not need) and its blank are stepped over.
                    at += kTagGroup.size();
                    if (at + 1 < size && data[at] == '-' && isDigit(data[at + 1])) ++at;
                    while (at < size && isDigit(data[at])) ++at;
                    if (at < size && data[at] == ' ') ++at;
                    bool high = false;
                    const std::size_t end = at < size ? textRunEnd(data, at, size, high) : at;
                    if (end >= size || data[end] != '}') break;  // more in the group: the main loop reads it
                    if (end > at) {
                        ignorableNext_ = false;
                        textBytes(ByteView(data + at, end - at), high, size - at);
                    }
                    flushPending();
                    groupClose();  // an inner group: never the document's
                    at = end + 1;
                    // Line ends carry nothing; the brace of a next group finds
                    // nothing pending and no characters to skip.
                    while (at < size && (data[at] == '\r' || data[at] == '\n')) ++at;
                    if (at >= size || data[at] != '{') break;
                    ++at;
                    handled = false;
                }
                if (handled) continue;
                position_ = at;
                const bool open = groupOpen();
                at = position_;
                if (!open) return;
                continue;
            }
            case kGroupClose:
                ++at;
                skipCount_ = 0;
                flushPending();
                if (!groupClose()) return;  // the document group has ended
                continue;
            default:
                break;  // a backslash
        }

        // A backslash.
        ++at;
        if (at >= size) return;  // a lone backslash at the very end
        const std::uint8_t after = data[at];
        if (isLetter(after)) {
            Word word;
            if (after != 'h' || !readHtmlRtf(at, word)) at = readWord(at, word);
            if (takeSkipped()) continue;
            flushPending();
            if (word.binary) {
                ignorableNext_ = false;  // a \binN payload: no text
                continue;
            }
            if (word.key.prefix == kHtmlRtf.prefix && word.key.length == kHtmlRtf.length &&
                top().mode != Mode::FontTable) {
                // \htmlrtf and \htmlrtf0, a third of the words: what controlWord does with them.
                ignorableNext_ = false;
                top().htmlrtf = !word.hasParameter || word.parameter != 0;
                continue;
            }
            controlWord(word, keywords_.find(word.letters, word.key));
            if (!passSkippedGroup()) return;
            continue;
        }
        if (after == '\'') {
            ++at;
            int value = -1;
            // A truncated escape keeps the digits it has.
            for (int i = 0; i < 2 && at < size; ++i) {
                const int digit = hexValue(data[at]);
                if (digit < 0) break;
                value = (value < 0 ? 0 : value * 16) + digit;
                ++at;
            }
            if (takeSkipped()) continue;
            if (value < 0) {
                // "\'" without a digit: an empty symbol.
                flushPending();
                controlSymbol('\'');
                continue;
            }
            const std::uint8_t byte = static_cast<std::uint8_t>(value);
            ignorableNext_ = false;
            textBytes(ByteView(&byte, 1), byte >= 0x80, 1);
            continue;
        }
        ++at;
        if (takeSkipped()) continue;
        if (after == '\r' || after == '\n') {
            // A backslash before a line end is a paragraph mark.
            flushPending();
            Word par;
            par.letters = "par";
            par.key = rtfwords::keyOf(par.letters);
            controlWord(par, keywords_.find(par.letters, par.key));
            // In a font table after \*, it makes the table a destination to skip.
            if (!passSkippedGroup()) return;
            continue;
        }
        if (after == '\\' || after == '{' || after == '}') {
            // An escaped backslash or brace may be the trail byte of a
            // double-byte character whose lead byte is pending: it joins the
            // pending bytes before they are decoded.
            controlSymbol(after);
            continue;
        }
        flushPending();
        controlSymbol(after);
    }
}

// A token that stands in for the character of a \u before it: dropped.
bool Pass::takeSkipped() {
    if (skipCount_ == 0) return false;
    --skipCount_;
    return true;
}

// The signed number after a control word's letters, if one is at `at`.
inline std::size_t Pass::readParameter(std::size_t at, Word& word) const {
    const std::uint8_t* const data = data_;
    const std::size_t size = size_;
    bool negative = false;
    if (at + 1 < size && data[at] == '-' && isDigit(data[at + 1])) {
        negative = true;
        ++at;
    }
    if (at < size && isDigit(data[at])) {
        word.hasParameter = true;
        std::int64_t value = 0;
        constexpr std::int64_t kLimit = std::numeric_limits<std::int32_t>::max();
        while (at < size && isDigit(data[at])) {
            if (value <= kLimit) value = value * 10 + (data[at] - '0');
            ++at;
        }
        if (value > kLimit) value = kLimit;
        word.parameter = static_cast<std::int32_t>(negative ? -value : value);
    }
    return at;
}

// After \binN (and its blank): N raw bytes follow; a count beyond the data
// takes what remains. Other words of three letters pass unchanged.
inline std::size_t Pass::stepOverBinary(std::size_t at, Word& word) const {
    if (word.letters != "bin") return at;
    std::size_t count = word.parameter > 0 ? static_cast<std::size_t>(word.parameter) : 0;
    if (!fits(at, count, size_)) count = size_ - at;
    word.binary = true;
    return at + count;
}

// \htmlrtf, \htmlrtf0 and \htmlrtf1, a third of the words of HTML mail,
// told by their bytes: true, with `at` after the word, when one is at `at`.
inline bool Pass::readHtmlRtf(std::size_t& at, Word& word) const {
    if constexpr (std::endian::native != std::endian::little) return false;
    if (size_ - at < 16) return false;
    std::uint64_t letters;
    std::memcpy(&letters, data_ + at, 8);
    if ((letters & kPrefixMasks[7]) != kHtmlRtf.prefix) return false;
    const std::uint8_t after = data_[at + 7];
    std::size_t next = at + 7;
    if (after == '0' || after == '1') {
        if (isDigit(data_[at + 8])) return false;  // a longer number: the general reading
        word.hasParameter = true;
        word.parameter = after - '0';
        ++next;
    } else if (isLetter(after) || after == '-' || isDigit(after)) {
        return false;
    }
    if (data_[next] == ' ') ++next;  // the delimiting blank belongs to the word
    word.letters = std::string_view(reinterpret_cast<const char*>(data_) + at, 7);
    word.key = kHtmlRtf;
    at = next;
    return true;
}

// A control word from its first letter at `at`: the letters, an optional
// signed number, the blank that ends it; a \binN payload is stepped over.
// Gives the position after it.
inline std::size_t Pass::readWord(std::size_t at, Word& word) const {
    const std::uint8_t* const data = data_;
    const std::size_t size = size_;
#if defined(__SSE2__)
    if (size - at >= 16) {
        // Most words are shorter than sixteen letters: their end is found in one step.
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
        const __m128i folded = _mm_sub_epi8(_mm_or_si128(bytes, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
        const unsigned notLetter = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(
            _mm_cmplt_epi8(folded, _mm_setzero_si128()), _mm_cmpgt_epi8(folded, _mm_set1_epi8(25)))));
        if (notLetter) {
            const unsigned length = static_cast<unsigned>(__builtin_ctz(notLetter));
            word.letters = std::string_view(reinterpret_cast<const char*>(data) + at, length);
            if constexpr (std::endian::native == std::endian::little) {
                word.key.length = length;
                word.key.prefix = static_cast<std::uint64_t>(_mm_cvtsi128_si64(bytes));
                if (length < 8) word.key.prefix &= kPrefixMasks[length];
            } else {
                word.key = rtfwords::keyOf(word.letters);
            }
            const std::size_t wordStart = at;
            at += length;  // below size: a byte that is not a letter is there
            const std::uint8_t next = data[at];
            if (next == '-' || isDigit(next)) {
                // A number of up to nine digits within the sixteen bytes: no
                // bound to check, no overflow to clamp.
                const __m128i digits = _mm_sub_epi8(bytes, _mm_set1_epi8('0'));
                const unsigned notDigit =
                    static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(
                        _mm_cmplt_epi8(digits, _mm_setzero_si128()), _mm_cmpgt_epi8(digits, _mm_set1_epi8(9))))) |
                    0xFFFF0000u;
                unsigned first = length + (next == '-' ? 1 : 0);
                const unsigned count = static_cast<unsigned>(__builtin_ctz(notDigit >> first));
                if (count > 0 && count <= 9 && first + count < 16) {
                    std::int32_t value = 0;
                    for (unsigned i = 0; i < count; ++i) value = value * 10 + (data[wordStart + first + i] - '0');
                    word.hasParameter = true;
                    word.parameter = next == '-' ? -value : value;
                    at = wordStart + first + count;
                } else {
                    at = readParameter(at, word);
                }
            }
            if (at < size && data[at] == ' ') ++at;  // the delimiting blank belongs to the word
            if (word.hasParameter && length == 3) at = stepOverBinary(at, word);
            return at;
        }
    }
#endif
    const std::size_t start = at;
    at = lettersEnd(data, at, size);
    const std::size_t length = std::min(at - start, kMaxControlWordLength);
    word.letters = std::string_view(reinterpret_cast<const char*>(data) + start, length);
    word.key = keyOfLetters(data + start, length, size - start);
    at = readParameter(at, word);
    if (at < size && data[at] == ' ') ++at;  // the delimiting blank belongs to the word
    if (word.hasParameter && length == 3) at = stepOverBinary(at, word);
    return at;
}

// Past the rest of the group open now, nested groups and \binN payloads
// included: true when its closing brace was found.
bool Pass::skipGroup() {
    std::size_t depth = 1;
    while (position_ < size_) {
        const std::uint8_t c = data_[position_++];
        const std::uint8_t kind = kClass[c];
        if (kind == kGroupOpen) {
            ++depth;
        } else if (kind == kGroupClose) {
            if (--depth == 0) return true;
        } else if (kind == kEscape && position_ < size_) {
            // A control word is read whole so that a \binN payload is stepped
            // over; any other escape is two bytes (\{, \}, \\ and the rest).
            if (isLetter(data_[position_])) {
                Word word;
                position_ = readWord(position_, word);
            } else {
                ++position_;
            }
        }
    }
    return false;
}

inline void Pass::textBytes(ByteView bytes, bool high, std::size_t readable) {
    const Group& group = top();
    if (group.mode == Mode::Body && !group.htmlrtf && !high && pendingBytes_.empty() && !units_.pending()) {
        // Most of an HTML body: ASCII between tags, straight out.
        body_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size(), readable);
        return;
    }
    if (!wants(group)) return;
    emitUnitsEnd();
    if (pendingBytes_.empty() && !high) {
        // Plain ASCII goes straight out.
        emitText(asText(bytes));
        return;
    }
    const std::uint16_t codePage = fonts_.codePageOf(group.font);
    if (!pendingBytes_.empty() && codePage != pendingCodePage_) flushPending();
    if (pendingBytes_.empty()) {
        // Anything but ASCII waits for the bytes that follow it: a
        // double-byte character may be split across escapes.
        if (!high) {
            emitText(asText(bytes));
            return;
        }
        pendingCodePage_ = codePage;
    }
    if (bytes.size() == 1) pendingBytes_.push_back(static_cast<char>(bytes[0]));  // a \'hh escape
    else pendingBytes_.append(asText(bytes));
}

void Pass::decodePending() {
    const Group& group = top();
    if (group.mode == Mode::Body && wants(group)) {
        fonts_.decoder().appendDecoded(asBytes(pendingBytes_), pendingCodePage_, body_.text());
    } else if (wants(group)) {
        // Decoded only to be counted: a field instruction is not shown.
        decoded_.clear();
        fonts_.decoder().appendDecoded(asBytes(pendingBytes_), pendingCodePage_, decoded_);
        emitText(decoded_);
    }
    pendingBytes_.clear();
}

inline void Pass::emitText(std::string_view utf8) {
    if (utf8.empty()) return;
    const Group& group = top();
    if (!wants(group)) return;
    if (group.mode == Mode::FieldInstruction) {
        fieldInstruction_ = std::min(kMaxFieldInstruction, fieldInstruction_ + utf8.size());
        return;
    }
    body_.append(utf8);
}

void Pass::emitCodePoint(char32_t codePoint) {
    char utf8[4];
    std::size_t length;
    if (codePoint < 0x80) {
        utf8[0] = static_cast<char>(codePoint);
        length = 1;
    } else if (codePoint < 0x800) {
        utf8[0] = static_cast<char>(0xC0 | (codePoint >> 6));
        utf8[1] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 2;
    } else if (codePoint < 0x10000) {
        utf8[0] = static_cast<char>(0xE0 | (codePoint >> 12));
        utf8[1] = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        utf8[2] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 3;
    } else {
        utf8[0] = static_cast<char>(0xF0 | (codePoint >> 18));
        utf8[1] = static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        utf8[2] = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        utf8[3] = static_cast<char>(0x80 | (codePoint & 0x3F));
        length = 4;
    }
    emitText(std::string_view(utf8, length));
}

void Pass::emitUnitsEnd() {
    units_.endRun([this](char32_t codePoint) { emitCodePoint(codePoint); });
}

inline void Pass::emitBreak() {
    const Group& group = top();
    if (!wants(group)) return;
    if (group.mode == Mode::FieldInstruction) {
        emitText(" ");
        return;
    }
    // The encapsulated HTML had CR LF where the RTF has \par or \line.
    body_.append("\r\n");
}

bool Pass::groupOpen() {
    ignorableNext_ = false;
    Group inner = top();
    // The deepest level takes no text: its group and everything in it are skipped.
    if (depth_ >= kMaxGroupDepth) inner.mode = Mode::Skip;
    stack_[depth_++] = inner;
    if (inner.mode == Mode::Skip) return skipRestOfGroup();
    return true;
}

bool Pass::groupClose() {
    ignorableNext_ = false;
    emitUnitsEnd();
    if (depth_ <= 2) return false;  // the document group closes: what follows is not part of it
    --depth_;
    return true;
}

bool Pass::skipRestOfGroup() {
    skipCount_ = 0;
    if (!skipGroup()) return false;
    return groupClose();
}

void Pass::controlSymbol(std::uint8_t symbol) {
    ignorableNext_ = false;
    rtfControlSymbol(
        symbol, ignorableNext_,
        [this](std::uint8_t literal) {
            textBytes(ByteView(&literal, 1), false, 1);
            flushPending();
        },
        [this](char32_t codePoint) { emitCodePoint(codePoint); }, [this](std::string_view text) { emitText(text); });
}

inline void Pass::controlWord(const Word& word, const KeywordEntry* entry) {
    const bool ignorable = ignorableNext_;
    ignorableNext_ = false;
    Group& group = top();
    if (!entry) {
        // An unknown destination marked \* is skipped with everything in it.
        if (ignorable) group.mode = Mode::Skip;
        return;
    }
    const std::int32_t parameter = word.parameter;
    const bool on = !word.hasParameter || parameter != 0;

    if (group.mode == Mode::FontTable) {
        if (!fonts_.fontTableWord(entry->keyword, parameter) && (entry->keyword == Keyword::SkipDestination || ignorable))
            group.mode = Mode::Skip;
        return;
    }

    if (rtfSharedWord(group, fonts_, entry->keyword, parameter, on)) return;
    switch (entry->keyword) {
        case Keyword::SkipDestination:
            group.mode = Mode::Skip;
            return;
        case Keyword::FontTable:
            group.mode = Mode::FontTable;
            fonts_.startFontTable();
            return;
        case Keyword::FieldInstruction:
            group.mode = Mode::FieldInstruction;
            fieldInstruction_ = 0;
            return;
        case Keyword::FieldResult:
            // The field's result is document text; the HTML carries no link of its own.
            group.mode = Mode::Body;
            fieldInstruction_ = 0;
            return;
        case Keyword::Field:
            fieldInstruction_ = 0;
            return;
        case Keyword::HtmlTag:
            group.mode = Mode::Body;
            return;
        case Keyword::Plain:
            group.font = -1;
            return;
        case Keyword::Unicode:
            if (!word.hasParameter) return;
            units_.unit(parameter, [this](char32_t codePoint) { emitCodePoint(codePoint); });
            skipCount_ = static_cast<std::size_t>(top().ucSkip);
            return;
        case Keyword::Par:
        case Keyword::Row:
        case Keyword::Line:
            emitBreak();
            return;
        case Keyword::Tab:
        case Keyword::Cell:
            emitText("\t");
            return;
        case Keyword::Character:
            emitCodePoint(entry->character);
            return;
        default:
            return;  // formatting the HTML has in its own markup (bold, italic, underline, hidden), and the words taken above
    }
}

}  // namespace

std::optional<std::string> RTFEncapsulatedHTML::extract(ByteView rtf) { return Pass(rtf).run(); }

}  // namespace qh
