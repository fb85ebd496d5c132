#include "readers/mime/MIMEText.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstring>

#include <unicode/utf8.h>

#include "core/Processor.h"
#include "core/TextEncoding.h"
#include "util/Ascii.h"

#if QH_HAVE_AVX2_PATHS
#include <immintrin.h>
#endif

namespace qh {

namespace {
bool isASCIISpace(unsigned char c) {
    return c == ' ' || (c >= 0x09 && c <= 0x0D);
}

// Blocks whose line breaks are as before (CR LF when `Pairs`, else LF alone)
// and which hold nothing else to look at (only ASCII from 0x0E up, tab and
// those breaks), from `i` (above 0) on while they end by `limit`, at most 512
// bytes on, and before the last byte of the `size`: where the first block
// that is not so starts. `lineFeeds` gets the LFs passed, `dashLines` the
// lines after them that start with "--". No branch on where a line ends.
// Signed compares: bytes from 0x80 up are negative, so below 0x0E too.
// Notes a line that starts with "--" while the index has room: it is made
// with room for one such line per 32 bytes of text (a quarter of the text's
// size) and never grows, so a text of nothing but "--" lines cannot make it
// large; the reader searches such a text the ordinary way.
inline void noteDashLine(std::vector<std::size_t>& lines, std::size_t at) {
    if (lines.size() < lines.capacity()) lines.push_back(at);
}

template <bool Pairs>
std::int64_t ordinaryBlocks(const std::uint8_t* bytes, std::int64_t size, std::int64_t i, std::int64_t limit,
                            std::size_t& lineFeeds, std::vector<std::size_t>& dashLines) {
#if defined(__SSE2__)
    const __m128i below = _mm_set1_epi8(0x0E), lineFeed = _mm_set1_epi8('\n'), carriageReturn = _mm_set1_epi8('\r'),
                  tab = _mm_set1_epi8('\t'), dash = _mm_set1_epi8('-');
    __m128i counted = _mm_setzero_si128();  // line feeds per lane: at most 32
    // The byte after a block is looked at too (a line starting with a dash).
    const std::int64_t end = std::min(limit, size - 1);
    while (end - i >= 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        const __m128i isLF = _mm_cmpeq_epi8(chunk, lineFeed);
        const __m128i special = _mm_cmplt_epi8(chunk, below);
        __m128i bad;
        if constexpr (Pairs) {
            // Every LF after a CR and every CR before an LF (a CR in the last
            // lane is checked with the next block or byte).
            const __m128i afterCR =
                _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i - 1)), carriageReturn);
            const __m128i allowed =
                _mm_or_si128(_mm_or_si128(isLF, _mm_cmpeq_epi8(chunk, carriageReturn)), _mm_cmpeq_epi8(chunk, tab));
            bad = _mm_or_si128(_mm_xor_si128(isLF, afterCR), _mm_andnot_si128(allowed, special));
        } else {
            bad = _mm_andnot_si128(_mm_or_si128(isLF, _mm_cmpeq_epi8(chunk, tab)), special);
        }
        const __m128i dashAfterLF =
            _mm_and_si128(isLF, _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i + 1)), dash));
        if (_mm_movemask_epi8(bad) != 0) break;
        counted = _mm_sub_epi8(counted, isLF);
        for (auto dashes = static_cast<unsigned>(_mm_movemask_epi8(dashAfterLF)); dashes; dashes &= dashes - 1) {
            const std::int64_t line = i + __builtin_ctz(dashes) + 1;
            if (line + 1 < size && bytes[line + 1] == '-') noteDashLine(dashLines, static_cast<std::size_t>(line));
        }
        i += 16;
    }
    const __m128i sums = _mm_sad_epu8(counted, _mm_setzero_si128());
    lineFeeds += static_cast<std::size_t>(_mm_cvtsi128_si64(sums)) +
                 static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
#else
    static_cast<void>(bytes), static_cast<void>(size), static_cast<void>(limit), static_cast<void>(lineFeeds),
        static_cast<void>(dashLines);
#endif
    return i;
}

#if QH_HAVE_AVX2_PATHS
// Of the thirty-two bytes at `at`: the lanes that break the rule (as in the
// blocks of sixteen), and the LF lanes and those of them a dash follows.
template <bool Pairs>
__attribute__((target("avx2"))) inline __m256i badLanesAvx2(const std::uint8_t* at, __m256i& isLF,
                                                            __m256i& dashAfterLF) {
    const __m256i below = _mm256_set1_epi8(0x0E), lineFeed = _mm256_set1_epi8('\n'),
                  carriageReturn = _mm256_set1_epi8('\r'), tab = _mm256_set1_epi8('\t'), dash = _mm256_set1_epi8('-');
    const __m256i chunk = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
    isLF = _mm256_cmpeq_epi8(chunk, lineFeed);
    const __m256i special = _mm256_cmpgt_epi8(below, chunk);
    dashAfterLF =
        _mm256_and_si256(isLF, _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + 1)), dash));
    if constexpr (Pairs) {
        const __m256i afterCR =
            _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at - 1)), carriageReturn);
        const __m256i allowed = _mm256_or_si256(_mm256_or_si256(isLF, _mm256_cmpeq_epi8(chunk, carriageReturn)),
                                                _mm256_cmpeq_epi8(chunk, tab));
        return _mm256_or_si256(_mm256_xor_si256(isLF, afterCR), _mm256_andnot_si256(allowed, special));
    } else {
        return _mm256_andnot_si256(_mm256_or_si256(isLF, _mm256_cmpeq_epi8(chunk, tab)), special);
    }
}

// The same sixty-four bytes at a time (one test for both halves), then
// thirty-two, the rest by the blocks of sixteen.
template <bool Pairs>
__attribute__((target("avx2"))) std::int64_t ordinaryBlocksAvx2(const std::uint8_t* bytes, std::int64_t size,
                                                                std::int64_t i, std::int64_t limit,
                                                                std::size_t& lineFeeds,
                                                                std::vector<std::size_t>& dashLines) {
    __m256i counted = _mm256_setzero_si256();  // line feeds per lane: at most 16
    const std::int64_t end = std::min(limit, size - 1);
    auto noteDashes = [&](std::uint64_t dashes) {
        for (; dashes; dashes &= dashes - 1) {
            const std::int64_t line = i + __builtin_ctzll(dashes) + 1;
            if (line + 1 < size && bytes[line + 1] == '-') noteDashLine(dashLines, static_cast<std::size_t>(line));
        }
    };
    while (end - i >= 64) {
        __m256i firstLF, firstDashes, secondLF, secondDashes;
        const __m256i bad = _mm256_or_si256(badLanesAvx2<Pairs>(bytes + i, firstLF, firstDashes),
                                            badLanesAvx2<Pairs>(bytes + i + 32, secondLF, secondDashes));
        if (_mm256_movemask_epi8(bad) != 0) break;
        counted = _mm256_sub_epi8(_mm256_sub_epi8(counted, firstLF), secondLF);
        const std::uint64_t dashes = static_cast<std::uint32_t>(_mm256_movemask_epi8(firstDashes)) |
                                     std::uint64_t{static_cast<std::uint32_t>(_mm256_movemask_epi8(secondDashes))} << 32;
        if (dashes) noteDashes(dashes);
        i += 64;
    }
    while (end - i >= 32) {
        __m256i isLF, dashAfterLF;
        if (_mm256_movemask_epi8(badLanesAvx2<Pairs>(bytes + i, isLF, dashAfterLF)) != 0) break;
        counted = _mm256_sub_epi8(counted, isLF);
        if (const auto dashes = static_cast<std::uint32_t>(_mm256_movemask_epi8(dashAfterLF))) noteDashes(dashes);
        i += 32;
    }
    const __m256i sums = _mm256_sad_epu8(counted, _mm256_setzero_si256());
    lineFeeds += static_cast<std::size_t>(_mm256_extract_epi64(sums, 0)) +
                 static_cast<std::size_t>(_mm256_extract_epi64(sums, 1)) +
                 static_cast<std::size_t>(_mm256_extract_epi64(sums, 2)) +
                 static_cast<std::size_t>(_mm256_extract_epi64(sums, 3));
    return i;
}
#endif

// The blocks as the processor allows.
std::int64_t ordinaryBlocks(const std::uint8_t* bytes, std::int64_t size, std::int64_t i, std::int64_t limit,
                            bool pairs, bool avx2, std::size_t& lineFeeds, std::vector<std::size_t>& dashLines) {
#if QH_HAVE_AVX2_PATHS
    if (avx2) {
        i = pairs ? ordinaryBlocksAvx2<true>(bytes, size, i, limit, lineFeeds, dashLines)
                  : ordinaryBlocksAvx2<false>(bytes, size, i, limit, lineFeeds, dashLines);
    }
#else
    static_cast<void>(avx2);
#endif
    return pairs ? ordinaryBlocks<true>(bytes, size, i, limit, lineFeeds, dashLines)
                 : ordinaryBlocks<false>(bytes, size, i, limit, lineFeeds, dashLines);
}

}  // namespace

std::string MIMEText::lowercase(std::string_view text) {
    // Lowered as copied; the first byte above 0x7F hands the text to ICU.
    std::string out(text.size(), '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (static_cast<unsigned char>(c) >= 0x80) return TextEncoding::lowercase(text);
        out[i] = ascii::toLower(c);
    }
    return out;
}

std::string_view MIMEText::trim(std::string_view text) {
    // Plain ASCII ends are by far the common case; anything else goes to ICU.
    std::size_t begin = 0, end = text.size();
    while (begin < end && isASCIISpace(static_cast<unsigned char>(text[begin]))) ++begin;
    while (end > begin && isASCIISpace(static_cast<unsigned char>(text[end - 1]))) --end;
    std::string_view inner = text.substr(begin, end - begin);
    if (inner.empty()) return inner;
    if (static_cast<unsigned char>(inner.front()) < 0x80 && static_cast<unsigned char>(inner.back()) < 0x80) {
        return inner;
    }
    std::string trimmed = TextEncoding::trimWhitespaceAndNewlines(inner);
    // Trimming only removes from the ends: find the kept run inside `inner`.
    if (trimmed.empty()) return inner.substr(0, 0);
    std::size_t at = inner.find(trimmed);
    if (at == std::string_view::npos) return inner;
    return inner.substr(at, trimmed.size());
}

std::string MIMEText::removeAll(std::string_view text, char c) {
    std::string out;
    out.reserve(text.size());
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t at = text.find(c, start);
        if (at == std::string_view::npos) {
            out.append(text.substr(start));
            break;
        }
        out.append(text.substr(start, at - start));
        start = at + 1;
    }
    return out;
}

std::string MIMEText::replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    if (from.empty()) return std::string(text);
    std::string out;
    std::size_t start = 0;
    while (true) {
        std::size_t at = find(text, from, start);
        if (at == std::string_view::npos) break;
        if (out.empty()) out.reserve(text.size());
        out.append(text.substr(start, at - start));
        out.append(to);
        start = at + from.size();
    }
    if (start == 0) return std::string(text);
    out.append(text.substr(start));
    return out;
}

std::vector<std::string_view> MIMEText::split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    if (separator.empty()) {
        pieces.push_back(text);
        return pieces;
    }
    std::size_t start = 0;
    while (true) {
        std::size_t at = find(text, separator, start);
        if (at == std::string_view::npos) break;
        pieces.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

std::string_view MIMEText::firstPiece(std::string_view text, std::string_view separator) {
    std::size_t at = find(text, separator);
    return at == std::string_view::npos ? text : text.substr(0, at);
}

bool MIMEText::secondPiece(std::string_view text, std::string_view separator, std::string_view& piece) {
    std::size_t at = find(text, separator);
    if (at == std::string_view::npos) return false;
    std::string_view rest = text.substr(at + separator.size());
    piece = firstPiece(rest, separator);
    return true;
}

std::string_view MIMEText::pathExtension(std::string_view name) {
    while (name.size() > 1 && name.back() == '/') name.remove_suffix(1);
    std::size_t slash = name.rfind('/');
    std::string_view last = slash == std::string_view::npos ? name : name.substr(slash + 1);
    std::size_t dot = last.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return last.substr(dot + 1);
}

std::size_t MIMEText::find(std::string_view text, std::string_view needle, std::size_t from) {
    if (from > text.size()) return std::string_view::npos;
    if (needle.empty()) return from;
    if (needle.size() == 1) return text.find(needle.front(), from);  // a byte search, without memmem's set-up
    // glibc's memmem is a two-way search: linear in the text whatever the needle,
    // which matters where a hostile message repeats near-delimiters on every line.
    const void* hit = ::memmem(text.data() + from, text.size() - from, needle.data(), needle.size());
    if (!hit) return std::string_view::npos;
    return static_cast<std::size_t>(static_cast<const char*>(hit) - text.data());
}

std::size_t MIMEText::count(std::string_view text, char c) {
    std::size_t found = 0, i = 0;
#if defined(__SSE2__)
    // Each byte lane counts its matches (a compare gives -1) for at most 255
    // blocks before the lanes are summed, so no lane overflows.
    const __m128i needle = _mm_set1_epi8(c);
    while (text.size() - i >= 16) {
        const std::size_t blocks = std::min<std::size_t>((text.size() - i) / 16, 255);
        __m128i lanes = _mm_setzero_si128();
        for (std::size_t b = 0; b < blocks; ++b, i += 16) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
            lanes = _mm_sub_epi8(lanes, _mm_cmpeq_epi8(chunk, needle));
        }
        const __m128i sums = _mm_sad_epu8(lanes, _mm_setzero_si128());
        found += static_cast<std::size_t>(_mm_cvtsi128_si64(sums)) +
                 static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
    }
#endif
    for (; i < text.size(); ++i) found += text[i] == c;
    return found;
}

std::size_t MIMEText::findDoubled(std::string_view text, char c, std::size_t from) {
    std::size_t i = from;
#if defined(__SSE2__)
    const __m128i needle = _mm_set1_epi8(c);
    while (i < text.size() && text.size() - i >= 17) {
        const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i + 1));
        const int hits = _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(here, needle), _mm_cmpeq_epi8(next, needle)));
        if (hits) return i + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(hits)));
        i += 16;
    }
#endif
    for (; i < text.size() && text.size() - i >= 2; ++i) {
        if (text[i] == c && text[i + 1] == c) return i;
    }
    return std::string_view::npos;
}

std::size_t MIMEText::headerBlockEnd(std::string_view text) {
    // Every line feed is looked at once: "\n\n" begins at it, "\r\n\r\n" one
    // before it; no earlier start can be found at a later line feed.
    for (std::size_t lf = text.find('\n'); lf != std::string_view::npos; lf = text.find('\n', lf + 1)) {
        if (lf + 1 < text.size() && text[lf + 1] == '\n') return lf;
        if (lf > 0 && text[lf - 1] == '\r' && text.substr(lf + 1, 2) == "\r\n") return lf - 1;
    }
    return std::string_view::npos;
}

MIMEText::Breaks MIMEText::lineBreaks(std::span<const std::uint8_t> data, LineIndex& index) {
    const std::uint8_t* bytes = data.data();
    const std::int64_t size = static_cast<std::int64_t>(data.size());
    constexpr auto kStep = static_cast<std::int64_t>(kLineFeedStep);
    bool lineFeed = false, pair = false;
#if QH_HAVE_AVX2_PATHS
    const bool avx2 = processor::hasAvx2();
#else
    const bool avx2 = false;
#endif
    std::size_t& pairs = index.pairs;
    std::vector<std::size_t>& lineFeedMarks = index.lineFeedMarks;
    std::vector<std::size_t>& dashLines = index.dashLines;
    pairs = 0;
    lineFeedMarks.clear();
    dashLines.clear();
    dashLines.shrink_to_fit();
    dashLines.reserve(static_cast<std::size_t>(size) / MIMEText::kBytesPerDashLine + 1);
    std::int64_t i = 0, nextMark = 0;
    while (true) {
        for (; nextMark <= i; nextMark += kStep) lineFeedMarks.push_back(pairs);
        if (i == size) break;
        // (Of text whose breaks are LF, an LF lane after a CR is not one: that
        // CR is the byte before the blocks, and they are left to the general way.)
        if (i > 0 && (pair || bytes[i - 1] != '\r')) {
            std::size_t found = 0;
            i = ordinaryBlocks(bytes, size, i, std::min(nextMark, size), pair, avx2, found, dashLines);
            if (pair) {
                pairs += found;
            } else if (found) {
                lineFeed = true;
            }
            if (i == std::min(nextMark, size)) continue;
        }
        // One character the general way.
        UChar32 c = bytes[i];
        const bool afterCR = i > 0 && bytes[i - 1] == '\r';
        if (afterCR && c != '\n') return Breaks::Other;
        if (c == '\n') {
            if (i + 2 < size && bytes[i + 1] == '-' && bytes[i + 2] == '-') noteDashLine(dashLines, static_cast<std::size_t>(i + 1));
            if (afterCR) {
                if (lineFeed) return Breaks::Other;
                pair = true;
                ++pairs;
            } else {
                if (pair) return Breaks::Other;
                lineFeed = true;
            }
            ++i;
        } else if (c == '\r') {
            if (lineFeed) return Breaks::Other;
            ++i;
        } else if (c < 0x80) {
            if (c == 0x0B || c == 0x0C) return Breaks::Other;
            ++i;
        } else {
            U8_NEXT(bytes, i, size, c);
            if (c < 0) return Breaks::Invalid;
            if (c == 0x85 || c == 0x2028 || c == 0x2029) return Breaks::Other;
        }
    }
    if (size > 0 && bytes[size - 1] == '\r') return Breaks::Other;  // a lone CR at the end
    if (!pair) return Breaks::LineFeeds;
    for (; nextMark <= size; nextMark += kStep) lineFeedMarks.push_back(pairs);
    return Breaks::CrLfPairs;
}

}  // namespace qh
