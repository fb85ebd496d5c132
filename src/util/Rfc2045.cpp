#include "util/Rfc2045.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "util/Ascii.h"

namespace qh::rfc2045 {

using ascii::hexValue;

namespace {

// Output written through a pointer: room is made once per line, never per
// byte. Only the room asked for is touched, so memory that a short output
// never reaches is never made resident.
class ByteSink {
public:
    explicit ByteSink(std::size_t expected) { out_.reserve(expected); }
    // At least `n` more bytes may be written after this.
    std::uint8_t* reserve(std::size_t n) {
        out_.resize(used_ + n);
        return out_.data() + used_;
    }
    void advance(std::size_t n) { used_ += n; }
    void append(std::string_view bytes) {
        std::memcpy(reserve(bytes.size()), bytes.data(), bytes.size());
        used_ += bytes.size();
    }
    Bytes take() {
        out_.resize(used_);
        return std::move(out_);
    }

private:
    Bytes out_;
    std::size_t used_ = 0;
};

}  // namespace

namespace {

// Whether text[from, lineEnd) is what a line's end may carry after its last
// character: blanks added in transport, then one CR.
bool onlyTransportPadding(std::string_view text, std::size_t from, std::size_t lineEnd) {
    if (lineEnd > from && text[lineEnd - 1] == '\r') --lineEnd;
    while (lineEnd > from && (text[lineEnd - 1] == ' ' || text[lineEnd - 1] == '\t')) --lineEnd;
    return lineEnd == from;
}

// The first "=" or LF at or after `i`; the text's size when none.
std::size_t nextEqualsOrLineFeed(std::string_view text, std::size_t i) {
#if defined(__SSE2__)
    const __m128i equals = _mm_set1_epi8('='), lineFeed = _mm_set1_epi8('\n');
    while (text.size() - i >= 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(chunk, equals), _mm_cmpeq_epi8(chunk, lineFeed)));
        if (mask) return i + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
        i += 16;
    }
#endif
    while (i < text.size() && text[i] != '=' && text[i] != '\n') ++i;
    return i;
}

}  // namespace

// One pass, written through a pointer. Blanks (and a CR) before a line end
// are taken back off the output when the line ends: only bytes copied as they
// stand since the last escape can be such blanks.
Bytes decodeQuotedPrintable(std::string_view text, std::string_view lineBreak) {
    if (text.empty()) return {};
    // Every byte gives at most one, every LF at most the line break.
    Bytes out(text.size() * std::max<std::size_t>(1, lineBreak.size()));
    std::uint8_t* const start = out.data();
    std::uint8_t* to = start;
    std::uint8_t* kept = start;  // output before this is never trimmed
    auto endLine = [&] {
        if (to > kept && to[-1] == '\r') --to;
        while (to > kept && (to[-1] == ' ' || to[-1] == '\t')) --to;
    };
    std::size_t i = 0;
    while (true) {
        const std::size_t stop = nextEqualsOrLineFeed(text, i);
        std::memcpy(to, text.data() + i, stop - i);
        to += stop - i;
        i = stop;
        if (i == text.size()) break;
        if (text[i] == '\n') {
            endLine();
            std::memcpy(to, lineBreak.data(), lineBreak.size());
            to += lineBreak.size();
            kept = to;
            ++i;
            continue;
        }
        // An "=": escapes in a row (text in other scripts is mostly escapes)
        // are decoded here without a search.
        int high, low;
        if (i + 2 < text.size() && (high = hexValue(text[i + 1])) >= 0 && (low = hexValue(text[i + 2])) >= 0) {
            *to++ = static_cast<std::uint8_t>(high * 16 + low);
            kept = to;
            i += 3;
            continue;
        }
        const std::size_t lineFeed = text.find('\n', i + 1);
        const std::size_t lineEnd = lineFeed == std::string_view::npos ? text.size() : lineFeed;
        if (onlyTransportPadding(text, i + 1, lineEnd)) {
            // A soft line break: the line goes on after the line feed, and
            // the blanks before the "=" stay.
            kept = to;
            i = lineFeed == std::string_view::npos ? text.size() : lineFeed + 1;
            if (i == text.size()) break;
            continue;
        }
        *to++ = '=';
        kept = to;
        ++i;
    }
    endLine();
    out.resize(static_cast<std::size_t>(to - start));
    return out;
}

Bytes withLineBreaks(std::string_view text, std::string_view lineBreak) {
    const bool hasCR = text.find('\r') != std::string_view::npos;
    if (lineBreak == "\n" && !hasCR) return toBytes(text);
    ByteSink out(text.size() + text.size() / 32);
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t lf = text.find('\n', start);
        std::size_t end = lf == std::string_view::npos ? text.size() : lf;
        if (lf != std::string_view::npos && end > start && text[end - 1] == '\r') --end;  // a CR LF break
        out.append(text.substr(start, end - start));
        if (lf == std::string_view::npos) break;
        out.append(lineBreak);
        start = lf + 1;
    }
    return out.take();
}

}  // namespace qh::rfc2045
