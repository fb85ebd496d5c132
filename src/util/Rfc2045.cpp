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

// Whether text[from, lineEnd) is what a line's end may carry after its last
// character: blanks added in transport, then one CR.
bool onlyTransportPadding(std::string_view text, std::size_t from, std::size_t lineEnd) {
    if (lineEnd > from && text[lineEnd - 1] == '\r') --lineEnd;
    while (lineEnd > from && (text[lineEnd - 1] == ' ' || text[lineEnd - 1] == '\t')) --lineEnd;
    return lineEnd == from;
}

// One pass, written through a pointer. Blanks (and a CR) before a line end
// are taken back off the output when the line ends: only bytes copied as they
// stand since the last escape can be such blanks. `Out` is Bytes or std::string.
template <typename Out>
Out decodeQuotedPrintableAs(std::string_view text, std::string_view lineBreak) {
    if (text.empty()) return {};
    // Every byte gives at most one, every LF at most the line break; blocks of
    // sixteen are stored whole before it is known how much of them is kept,
    // so sixteen more bytes of room.
    constexpr std::size_t kBlock = 16;
    Out out(text.size() * std::max<std::size_t>(1, lineBreak.size()) + kBlock, 0);
    std::uint8_t* const start = reinterpret_cast<std::uint8_t*>(out.data());
    std::uint8_t* to = start;
    std::uint8_t* kept = start;  // output before this is never trimmed
    auto endLine = [&] {
        if (to > kept && to[-1] == '\r') --to;
        while (to > kept && (to[-1] == ' ' || to[-1] == '\t')) --to;
    };
    const char* const data = text.data();
    const std::size_t size = text.size();
    std::size_t i = 0;
    while (true) {
        // The bytes up to the next "=" or LF are copied as they stand.
        bool found = false;
#if defined(__SSE2__)
        const __m128i equals = _mm_set1_epi8('='), lineFeed = _mm_set1_epi8('\n');
        while (size - i >= kBlock) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), chunk);
            const int mask = _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(chunk, equals), _mm_cmpeq_epi8(chunk, lineFeed)));
            if (mask) {
                const auto run = static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
                to += run;
                i += run;
                found = true;
                break;
            }
            to += kBlock;
            i += kBlock;
        }
#endif
        if (!found) {
            while (i < size && data[i] != '=' && data[i] != '\n') *to++ = static_cast<std::uint8_t>(data[i++]);
            if (i == size) break;
        }
        if (data[i] == '\n') {
            endLine();
            for (char c : lineBreak) *to++ = static_cast<std::uint8_t>(c);
            kept = to;
            ++i;
            continue;
        }
        // An "=": escapes in a row (text in other scripts is mostly escapes)
        // are decoded here without a search.
        int high, low;
        if (i + 2 < size && (high = hexValue(data[i + 1])) >= 0 && (low = hexValue(data[i + 2])) >= 0) {
            *to++ = static_cast<std::uint8_t>(high * 16 + low);
            kept = to;
            i += 3;
            continue;
        }
        // The soft line break as encoders write it ("=" and the line break at
        // once) needs no search for the line's end.
        std::size_t lineFeedAt;
        if (i + 1 < size && data[i + 1] == '\n') {
            lineFeedAt = i + 1;
        } else if (i + 2 < size && data[i + 1] == '\r' && data[i + 2] == '\n') {
            lineFeedAt = i + 2;
        } else {
            lineFeedAt = text.find('\n', i + 1);
        }
        const std::size_t lineEnd = lineFeedAt == std::string_view::npos ? size : lineFeedAt;
        if (onlyTransportPadding(text, i + 1, lineEnd)) {
            // A soft line break: the line goes on after the line feed, and
            // the blanks before the "=" stay.
            kept = to;
            i = lineFeedAt == std::string_view::npos ? size : lineFeedAt + 1;
            if (i == size) break;
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

}  // namespace

Bytes decodeQuotedPrintable(std::string_view text, std::string_view lineBreak) {
    return decodeQuotedPrintableAs<Bytes>(text, lineBreak);
}

std::string decodeQuotedPrintableText(std::string_view text, std::string_view lineBreak) {
    return decodeQuotedPrintableAs<std::string>(text, lineBreak);
}

namespace {

template <typename Out>
Out withLineBreaksAs(std::string_view text, std::string_view lineBreak) {
    if (lineBreak == "\n" && text.find('\r') == std::string_view::npos) return Out(text.begin(), text.end());
    Out out;
    out.reserve(text.size() + text.size() / 32);
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t lf = text.find('\n', start);
        std::size_t end = lf == std::string_view::npos ? text.size() : lf;
        if (lf != std::string_view::npos && end > start && text[end - 1] == '\r') --end;  // a CR LF break
        out.insert(out.end(), text.begin() + static_cast<std::ptrdiff_t>(start),
                   text.begin() + static_cast<std::ptrdiff_t>(end));
        if (lf == std::string_view::npos) break;
        out.insert(out.end(), lineBreak.begin(), lineBreak.end());
        start = lf + 1;
    }
    return out;
}

}  // namespace

Bytes withLineBreaks(std::string_view text, std::string_view lineBreak) {
    return withLineBreaksAs<Bytes>(text, lineBreak);
}

std::string withLineBreaksText(std::string_view text, std::string_view lineBreak) {
    return withLineBreaksAs<std::string>(text, lineBreak);
}

}  // namespace qh::rfc2045
