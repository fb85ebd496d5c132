#pragma once
// Tests on eight bytes at once, for loops that pass over long runs of
// ordinary text and stop at the few bytes that need work. Each test is exact
// about whether any byte qualifies; which byte it is, the byte loop that
// follows finds out.
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qh::words {

inline constexpr std::uint64_t kOnes = 0x0101010101010101ull;
inline constexpr std::uint64_t kHigh = 0x8080808080808080ull;

// The eight bytes at `bytes`, in memory order (any alignment).
inline std::uint64_t load(const void* bytes) {
    std::uint64_t word;
    std::memcpy(&word, bytes, 8);
    return word;
}

// Some byte is below `limit` (at most 0x80).
constexpr bool anyBelow(std::uint64_t word, unsigned char limit) { return ((word - kOnes * limit) & ~word & kHigh) != 0; }
// Some byte equals `value`.
constexpr bool anyEqual(std::uint64_t word, unsigned char value) { return anyBelow(word ^ (kOnes * value), 1); }
// Some byte is 0x80 or above.
constexpr bool anyHigh(std::uint64_t word) { return (word & kHigh) != 0; }
// Every byte is printable ASCII, 0x20 to 0x7E.
constexpr bool allPrintable(std::uint64_t word) { return !anyHigh(word) && !anyBelow(word, 0x20) && !anyEqual(word, 0x7F); }

// Length of the leading run of ASCII bytes.
inline std::size_t asciiPrefix(const std::uint8_t* s, std::size_t length) {
    std::size_t i = 0;
#if defined(__SSE2__)
    // Bodies are long ASCII runs: 32 bytes per test there.
    while (length - i >= 32) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i + 16));
        if (_mm_movemask_epi8(_mm_or_si128(first, second)) != 0) break;
        i += 32;
    }
#endif
    while (i + 8 <= length && !anyHigh(load(s + i))) i += 8;
    while (i < length && s[i] < 0x80) ++i;
    return i;
}

}  // namespace qh::words
