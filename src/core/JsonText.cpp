// The one JSON encoder of the message dictionary (Value::appendJson): written
// straight into one string, without building a JSON tree first and without
// escaping base64 text a second time.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>

#include <nlohmann/json.hpp>

#include "core/Processor.h"

#if QH_HAVE_AVX2_PATHS
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/Base64.h"
#include <quillhaven/Value.h>

namespace qh {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// How the bytes at text[i] begin a UTF-8 sequence (Unicode table 3-7: no
// overlong forms, no surrogates, nothing above U+10FFFF): `length` is the
// sequence length when it is well formed, else 0; `prefix` is the maximal
// subpart that one U+FFFD replaces (at least 1).
struct Utf8Scan {
    std::size_t length, prefix;
};
Utf8Scan scanUtf8(std::string_view text, std::size_t i) {
    auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = at(i);
    std::size_t length;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return {0, 1};
    }
    std::size_t k = 1;
    for (; k < length && i + k < text.size(); ++k) {
        const unsigned char byte = at(i + k);
        if (byte < (k == 1 ? low : 0x80) || byte > (k == 1 ? high : 0xBF)) break;
    }
    return {k == length ? length : 0, k};
}

// The end of the well-formed multi-byte sequences that follow each other
// from text[i] (i itself when none is). Two- and three-byte sequences, most
// of the world's text, are checked inline; others as scanUtf8 checks them.
std::size_t wellFormedRun(std::string_view text, std::size_t i) {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t n = text.size();
    while (i < n && s[i] >= 0x80) {
        const unsigned char lead = s[i];
        if (lead >= 0xE0 && lead <= 0xEF && n - i >= 3) {
            const unsigned char second = s[i + 1];
            const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
            if (second >= low && second <= high && (s[i + 2] & 0xC0) == 0x80) {
                i += 3;
                continue;
            }
            break;
        }
        if (lead >= 0xC2 && lead <= 0xDF && n - i >= 2) {
            if ((s[i + 1] & 0xC0) != 0x80) break;
            i += 2;
            continue;
        }
        const Utf8Scan scan = scanUtf8(text, i);
        if (!scan.length) break;
        i += scan.length;
    }
    return i;
}

// Bytes that end a run of text copied as it is.
const std::array<bool, 256>& specialBytes() {
    static const std::array<bool, 256> table = [] {
        std::array<bool, 256> special{};
        for (int b = 0; b < 0x20; ++b) special[b] = true;
        for (int b = 0x80; b < 0x100; ++b) special[b] = true;
        special['"'] = special['\\'] = true;
        return special;
    }();
    return table;
}

// The letter after the backslash of the escapes JSON has for these bytes; 0 for the rest.
constexpr auto kShortEscapes = [] {
    std::array<char, 128> letters{};
    letters['"'] = '"';
    letters['\\'] = '\\';
    letters['\b'] = 'b';
    letters['\f'] = 'f';
    letters['\n'] = 'n';
    letters['\r'] = 'r';
    letters['\t'] = 't';
    return letters;
}();

// Room the block loops need ahead of the output pointer: a block of sixteen
// bytes comes out as at most thirty-two.
constexpr std::size_t kBlockRoom = 32;

// Copies blocks of sixteen bytes from s[i] that need no escape, while there
// is room before `end`; at a block that holds such a byte, stores it whole
// and stops at that byte. Returns where the text was left and moves `dst`
// past what was written.
std::size_t copyPlainBlocks(const unsigned char* s, std::size_t n, std::size_t i, char*& dst, char* end) {
#if defined(__SSE2__)
    // The output pointer is kept in a local: stores of chars may alias the
    // caller's pointer, which would then be reloaded at every block.
    char* to = dst;
    const __m128i space = _mm_set1_epi8(0x20), quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
    while (n - i >= 16 && static_cast<std::size_t>(end - to) >= kBlockRoom) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), chunk);
        // A signed compare: bytes from 0x80 up are negative, so below 0x20 too.
        const __m128i found = _mm_or_si128(_mm_cmplt_epi8(chunk, space),
                                           _mm_or_si128(_mm_cmpeq_epi8(chunk, quote), _mm_cmpeq_epi8(chunk, backslash)));
        if (const int mask = _mm_movemask_epi8(found)) {
            const auto ahead = static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
            dst = to + ahead;
            return i + ahead;
        }
        i += 16;
        to += 16;
    }
    dst = to;
#else
    static_cast<void>(s), static_cast<void>(n), static_cast<void>(dst), static_cast<void>(end);
#endif
    return i;
}

#if QH_HAVE_AVX2_PATHS
// Text with a quote or a line break every few words (bodies, HTML above all)
// is escaped eight bytes at a time without a branch per escape: for each
// pattern of two-character escapes among eight bytes, a shuffle that writes
// each escaped byte twice and the places of the backslashes among the (at
// most sixteen) bytes that come out.
struct Expansion {
    std::array<std::uint8_t, 16> shuffle{};
    std::array<std::uint8_t, 16> backslashes{};
    std::uint8_t length = 0;
};
constexpr auto kExpansions = [] {
    std::array<Expansion, 256> table{};
    for (unsigned mask = 0; mask < 256; ++mask) {
        Expansion& e = table[mask];
        unsigned out = 0;
        for (unsigned k = 0; k < 8; ++k) {
            if (mask & (1u << k)) {
                e.shuffle[out] = static_cast<std::uint8_t>(k);
                e.backslashes[out++] = 0xFF;
            }
            e.shuffle[out++] = static_cast<std::uint8_t>(k);
        }
        for (unsigned rest = out; rest < 16; ++rest) e.shuffle[rest] = 0x80;  // a zero byte
        e.length = static_cast<std::uint8_t>(out);
    }
    return table;
}();

// Escapes blocks of sixteen bytes from s[i] while they hold no byte from
// 0x80 up and no control without a two-character escape, and while there is
// room for a block's worst case before `end`. Stops at such a block, having
// written its bytes up to the first one that needs work; returns where the
// text was left and moves `dst` past what was written.
__attribute__((target("avx2"))) std::size_t escapeBlocksExpanding(const unsigned char* s, std::size_t n,
                                                                    std::size_t i, char*& dst, char* end) {
    const __m128i space = _mm_set1_epi8(0x20), quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
    // The letters of \b \t \n \f \r by the low four bits of their bytes.
    const __m128i controlLetters = _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 'b', 't', 'n', 0, 'f', 'r', 0, 0);
    const __m128i eight = _mm_set1_epi8(8);
    // The output pointer is kept in a local: stores of chars may alias the
    // caller's pointer, which would then be reloaded at every block.
    char* to = dst;
    while (n - i >= 16 && static_cast<std::size_t>(end - to) >= kBlockRoom) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        const __m128i controls = _mm_cmplt_epi8(chunk, space);  // bytes from 0x80 up too: signed
        const __m128i quoted = _mm_or_si128(_mm_cmpeq_epi8(chunk, quote), _mm_cmpeq_epi8(chunk, backslash));
        const auto found = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(controls, quoted)));
        if (!found) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), chunk);
            i += 16;
            to += 16;
            continue;
        }
        // Letters for the controls that have one (pshufb gives 0 for bytes from 0x80 up).
        const __m128i letters = _mm_shuffle_epi8(controlLetters, chunk);
        const auto lettered = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_andnot_si128(_mm_cmpeq_epi8(letters, _mm_setzero_si128()), controls)));
        const auto high = static_cast<unsigned>(_mm_movemask_epi8(chunk));
        const auto controlBits = static_cast<unsigned>(_mm_movemask_epi8(controls));
        if (high || (controlBits & ~lettered)) {
            const auto ahead = static_cast<std::size_t>(__builtin_ctz(found));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), chunk);
            dst = to + ahead;
            return i + ahead;
        }
        // Each escaped byte as its letter (a quote and a backslash are their own), then spread.
        const __m128i source = _mm_blendv_epi8(chunk, letters, controls);
        for (unsigned half = 0; half < 2; ++half) {
            const Expansion& e = kExpansions[(found >> (8 * half)) & 0xFF];
            __m128i shuffle = _mm_loadu_si128(reinterpret_cast<const __m128i*>(e.shuffle.data()));
            if (half) shuffle = _mm_add_epi8(shuffle, eight);  // 0x80 stays a zero byte: 0x88
            const __m128i spread = _mm_shuffle_epi8(source, shuffle);
            const __m128i marks = _mm_loadu_si128(reinterpret_cast<const __m128i*>(e.backslashes.data()));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_blendv_epi8(spread, backslash, marks));
            to += e.length;
        }
        i += 16;
    }
    dst = to;
    return i;
}
#endif

std::string isoUtc(double unixSeconds) {
    if (!std::isfinite(unixSeconds)) unixSeconds = 0;
    // Keep within what gmtime can represent with a four-digit year.
    if (unixSeconds < -62135596800.0) unixSeconds = -62135596800.0;
    if (unixSeconds > 253402300799.0) unixSeconds = 253402300799.0;
    std::time_t t = static_cast<std::time_t>(std::floor(unixSeconds));
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return text;
}

void appendInteger(std::int64_t number, std::string& out) {
    char buffer[24];
    char* end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
    out.append(buffer, end);
}

// Whole numbers as integers, non-finite ones as null, the rest in the JSON
// library's shortest round-trip form ("0.1", "1e+20").
void appendDouble(double number, std::string& out) {
    if (!std::isfinite(number)) {
        out += "null";
    } else if (number == std::floor(number) && std::fabs(number) < 9e15) {
        appendInteger(static_cast<std::int64_t>(number), out);
    } else {
        out += nlohmann::json(number).dump();
    }
}

}  // namespace

void Value::appendJsonString(std::string_view text, std::string& out) {
    static constexpr char kHex[] = "0123456789abcdef";
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t n = text.size();
    const auto& special = specialBytes();
    // Written through a pointer into room made ahead: the text, its quotes
    // and some escapes; more is made when the escapes need it, and the
    // string is cut to what was written at the end.
    std::size_t at = out.size();
    out.resize(at + n + n / 8 + 64);
    char* dst = out.data() + at;
    char* end = out.data() + out.size();
    const auto grow = [&](std::size_t need) {
        at = static_cast<std::size_t>(dst - out.data());
        out.resize(out.size() + std::max(need + 64, out.size() / 2));
        dst = out.data() + at;
        end = out.data() + out.size();
    };
    // Checked inline on every step; growing is rare.
    const auto room = [&](std::size_t need) __attribute__((always_inline)) {
        if (static_cast<std::size_t>(end - dst) < need) grow(need);
    };
#if QH_HAVE_AVX2_PATHS
    const bool expanding = n >= 16 && processor::hasAvx2();
#endif
    *dst++ = '"';
    std::size_t i = 0;
    while (i < n) {
        // Whole blocks first, up to the first byte that needs work.
        room(kBlockRoom);
#if QH_HAVE_AVX2_PATHS
        i = expanding ? escapeBlocksExpanding(s, n, i, dst, end) : copyPlainBlocks(s, n, i, dst, end);
#else
        i = copyPlainBlocks(s, n, i, dst, end);
#endif
        if (i >= n) break;
        const unsigned char byte = s[i];
        if (!special[byte]) {
            room(1);
            *dst++ = static_cast<char>(byte);
            ++i;
        } else if (byte >= 0x80) {
            // Texts read from hostile files may hold invalid UTF-8: each
            // maximal broken subpart becomes one U+FFFD. Well-formed
            // sequences that follow each other are copied as one run.
            const std::size_t from = i;
            i = wellFormedRun(text, i);
            if (i > from) {
                room(i - from);
                std::memcpy(dst, s + from, i - from);
                dst += i - from;
                continue;
            }
            const Utf8Scan scan = scanUtf8(text, i);
            room(kReplacementCharacter.size());
            std::memcpy(dst, kReplacementCharacter.data(), kReplacementCharacter.size());
            dst += kReplacementCharacter.size();
            i += scan.prefix;
        } else {
            room(6);
            const char shortEscape = kShortEscapes[byte];
            if (shortEscape) {
                dst[0] = '\\';
                dst[1] = shortEscape;
                dst += 2;
            } else {
                const char code[6] = {'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 15]};
                std::memcpy(dst, code, sizeof code);
                dst += sizeof code;
            }
            ++i;
        }
    }
    room(1);
    *dst++ = '"';
    out.resize(static_cast<std::size_t>(dst - out.data()));
}

void Value::appendJson(std::string& out) const {
    struct Visitor {
        std::string& out;
        void operator()(std::monostate) const { out += "null"; }
        void operator()(const std::string& text) const { appendJsonString(text, out); }
        void operator()(std::int64_t number) const { appendInteger(number, out); }
        void operator()(double number) const { appendDouble(number, out); }
        void operator()(bool flag) const { out += flag ? "true" : "false"; }
        void operator()(const Blob& bytes) const {
            out += "{\"$base64\":\"";
            Base64::append(bytes.view(), out);
            out += "\"}";
        }
        void operator()(const Date& date) const {
            out += "{\"$date\":\"";
            out += isoUtc(date.unixSeconds);
            out += "\"}";
        }
        void operator()(const Array& array) const {
            out.push_back('[');
            for (std::size_t i = 0; i < array.size(); ++i) {
                if (i) out.push_back(',');
                array[i].appendJson(out);
            }
            out.push_back(']');
        }
        void operator()(const Dict& dict) const {
            out.push_back('{');
            bool first = true;
            for (const auto& [key, item] : dict) {
                if (!first) out.push_back(',');
                first = false;
                appendJsonString(key, out);
                out.push_back(':');
                item.appendJson(out);
            }
            out.push_back('}');
        }
    };
    std::visit(Visitor{out}, v_);
}

std::string Value::toJsonText() const {
    std::string out;
    appendJson(out);
    return out;
}

}  // namespace qh
