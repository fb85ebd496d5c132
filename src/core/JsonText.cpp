// The one JSON encoder of the message dictionary (Value::appendJson): written
// straight into one string, without building a JSON tree first and without
// escaping base64 text a second time.
#include <array>
#include <charconv>
#include <cmath>
#include <ctime>

#include <nlohmann/json.hpp>

#if defined(__SSE2__)
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
    // The letter after the backslash of the escapes JSON has for these bytes; 0 for the rest.
    static constexpr auto kShortEscapes = [] {
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
    // Most text needs no escape: room for it as it is, once.
    out.reserve(out.size() + text.size() + 2);
    const auto& special = specialBytes();
    out.push_back('"');
    std::size_t run = 0;
    for (std::size_t i = 0; i < text.size();) {
#if defined(__SSE2__)
        // Sixteen bytes at a time over runs that need no escaping: most text is.
        const __m128i space = _mm_set1_epi8(0x20), quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\');
        while (text.size() - i >= 16) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
            // A signed compare: bytes from 0x80 up are negative, so below 0x20 too.
            const __m128i found = _mm_or_si128(_mm_cmplt_epi8(chunk, space),
                                               _mm_or_si128(_mm_cmpeq_epi8(chunk, quote), _mm_cmpeq_epi8(chunk, backslash)));
            const int mask = _mm_movemask_epi8(found);
            if (mask) {
                i += static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
                break;
            }
            i += 16;
        }
        if (i >= text.size()) break;
#endif
        const auto byte = static_cast<unsigned char>(text[i]);
        if (!special[byte]) {
            ++i;
            continue;
        }
        if (byte >= 0x80) {
            // Texts read from hostile files may hold invalid UTF-8: each
            // maximal broken subpart becomes one U+FFFD. A well-formed
            // sequence stays in the run that is copied as it is.
            // Text in other scripts is mostly such sequences: the ones that
            // follow are checked here rather than a block at a time.
            const std::size_t from = i;
            i = wellFormedRun(text, i);
            if (i > from) continue;
            const Utf8Scan scan = scanUtf8(text, i);
            out.append(text.data() + run, i - run);
            out += kReplacementCharacter;
            i += scan.prefix;
        } else {
            out.append(text.data() + run, i - run);
            // Line feeds and quotes are frequent in bodies (HTML above all):
            // a two-character escape is two bytes appended, not a C string.
            const char shortEscape = kShortEscapes[byte];
            if (shortEscape) {
                out.push_back('\\');
                out.push_back(shortEscape);
            } else {
                const char code[6] = {'\\', 'u', '0', '0', kHex[byte >> 4], kHex[byte & 15]};
                out.append(code, sizeof code);
            }
            ++i;
        }
        run = i;
    }
    out.append(text.data() + run, text.size() - run);
    out.push_back('"');
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
