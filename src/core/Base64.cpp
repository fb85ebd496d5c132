#include "core/Base64.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "core/Processor.h"

#if QH_HAVE_AVX2_PATHS
#include <immintrin.h>
#define QH_BASE64_AVX2 1
#endif

namespace qh {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kSkip = 0xFF;

constexpr std::array<std::uint8_t, 256> makeDecodingTable() {
    std::array<std::uint8_t, 256> table{};
    for (auto& entry : table) entry = kSkip;
    for (std::uint8_t value = 0; value < 64; ++value) table[static_cast<std::uint8_t>(kAlphabet[value])] = value;
    return table;
}
constexpr std::array<std::uint8_t, 256> kDecodingTable = makeDecodingTable();

// Two characters for every 12-bit value: one lookup per half of a 3-byte group.
// Bulk reads spend most of their time here, on attachment bytes.
const std::array<char, 8192>& characterPairs() {
    static const std::array<char, 8192> table = [] {
        std::array<char, 8192> pairs{};
        for (unsigned v = 0; v < 4096; ++v) {
            pairs[2 * v] = kAlphabet[v >> 6];
            pairs[2 * v + 1] = kAlphabet[v & 63];
        }
        return pairs;
    }();
    return table;
}

#if QH_BASE64_AVX2
// Attachment bytes are most of what a bulk read decodes and encodes, so where
// the processor has AVX2 whole blocks go 32 characters (24 bytes) at a time,
// after W. Mula and D. Lemire, "Faster Base64 Encoding and Decoding using AVX2
// Instructions" (2018). The scalar code below does everything else, and a
// test compares the two on random texts.
// 24 bytes of the 32 alphabet characters at `from`, written to `to`.
__attribute__((target("avx2"))) inline void decodeBlockAvx2(const std::uint8_t* from, std::uint8_t* to) {
    const __m256i lutRoll = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4,
                                             -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m256i mask2F = _mm256_set1_epi8(0x2F);
    const __m256i pack = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2, 1, 0, 6, 5, 4, 10,
                                          9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7);
    __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    const __m256i highNibbles = _mm256_and_si256(_mm256_srli_epi32(text, 4), mask2F);
    const __m256i isSlash = _mm256_cmpeq_epi8(text, mask2F);
    const __m256i roll = _mm256_shuffle_epi8(lutRoll, _mm256_add_epi8(isSlash, highNibbles));
    text = _mm256_add_epi8(text, roll);  // the 6-bit values
    const __m256i pairs = _mm256_maddubs_epi16(text, _mm256_set1_epi32(0x01400140));
    __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    groups = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, pack), lanes);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(groups));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(groups, 1));
}

// Whether the 32 characters at `at` are all of the alphabet (the tables of
// decodeBlocksAvx2 below).
__attribute__((target("avx2"))) inline bool alphabetOnly(const std::uint8_t* at, __m256i lutLow, __m256i lutHigh) {
    const __m256i mask2F = _mm256_set1_epi8(0x2F);
    const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
    const __m256i high = _mm256_shuffle_epi8(lutHigh, _mm256_and_si256(_mm256_srli_epi32(text, 4), mask2F));
    const __m256i low = _mm256_shuffle_epi8(lutLow, _mm256_and_si256(text, mask2F));
    return _mm256_testz_si256(low, high) != 0;
}

// Decodes 32-character blocks of alphabet characters from `in` while whole
// blocks are left; writes 24 bytes per block to `out` and sets `written` to
// the bytes written; returns the characters used. Encoded lines (76
// characters, then LF or CR LF) are taken whole: where a block meets the line
// break after whole groups, the block that ends there is decoded once more
// over characters already decoded (the same bytes come out again), and the
// line break is stepped over, as the character-wise decoder skips it.
__attribute__((target("avx2"))) std::size_t decodeBlocksAvx2(const std::uint8_t* in, std::size_t length,
                                                              std::uint8_t* out, std::size_t& written) {
    const __m256i lutLow = _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A,
                                            0x1B, 0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                            0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m256i lutHigh = _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10,
                                             0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                             0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const __m256i mask2F = _mm256_set1_epi8(0x2F);
    std::size_t used = 0;
    std::size_t run = 0;  // alphabet characters decoded just before `used`, none skipped between
    std::uint8_t* to = out;
    while (length - used >= 32) {
        // Whole lines of 76 characters and their break, as encoders write
        // them: three blocks, the last over the line's final 32 characters.
        while (length - used >= 78 && (in[used + 76] == '\n' || (in[used + 76] == '\r' && in[used + 77] == '\n')) &&
               alphabetOnly(in + used, lutLow, lutHigh) && alphabetOnly(in + used + 32, lutLow, lutHigh) &&
               alphabetOnly(in + used + 44, lutLow, lutHigh)) {
            decodeBlockAvx2(in + used, to);
            decodeBlockAvx2(in + used + 32, to + 24);
            decodeBlockAvx2(in + used + 44, to + 33);
            to += 57;
            used += in[used + 76] == '\n' ? 77 : 78;
            run = 0;
        }
        if (length - used < 32) break;
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + used));
        const __m256i highNibbles = _mm256_and_si256(_mm256_srli_epi32(text, 4), mask2F);
        const __m256i high = _mm256_shuffle_epi8(lutHigh, highNibbles);
        const __m256i low = _mm256_shuffle_epi8(lutLow, _mm256_and_si256(text, mask2F));
        if (_mm256_testz_si256(low, high)) {
            decodeBlockAvx2(in + used, to);
            used += 32;
            to += 24;
            run += 32;
            continue;
        }
        // A byte outside the alphabet, `alphabet` characters into the block.
        const unsigned valid = static_cast<unsigned>(
            _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_and_si256(low, high), _mm256_setzero_si256())));
        const std::size_t alphabet = static_cast<std::size_t>(__builtin_ctz(~valid));
        if (alphabet % 4 != 0 || run + alphabet < 32) break;
        decodeBlockAvx2(in + used + alphabet - 32, to - (32 - alphabet) / 4 * 3);
        used += alphabet;
        to += alphabet / 4 * 3;
        if (in[used] == '\n') {
            used += 1;
        } else if (in[used] == '\r' && used + 1 < length && in[used + 1] == '\n') {
            used += 2;
        } else {
            break;
        }
        run = 0;
    }
    written = static_cast<std::size_t>(to - out);
    return used;
}

// Encodes 24-byte blocks of `in` while at least 28 bytes are left (each block
// reads 28); writes 32 characters per block and returns the bytes used.
__attribute__((target("avx2"))) std::size_t encodeBlocksAvx2(const std::uint8_t* in, std::size_t length, char* out) {
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0, 2, 1, 4, 3, 5, 4,
                                            7, 6, 8, 7, 10, 9, 11, 10);
    const __m256i shiftLut = _mm256_setr_epi8(
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '+' - 62, '/' - 63, 'A', 0, 0, 'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    std::size_t used = 0;
    while (length - used >= 28) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + used));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + used + 12));
        __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
        bytes = _mm256_shuffle_epi8(bytes, spread);
        const __m256i ac = _mm256_mulhi_epu16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x0FC0FC00)),
                                              _mm256_set1_epi32(0x04000040));
        const __m256i bd = _mm256_mullo_epi16(_mm256_and_si256(bytes, _mm256_set1_epi32(0x003F03F0)),
                                              _mm256_set1_epi32(0x01000010));
        const __m256i values = _mm256_or_si256(ac, bd);
        __m256i reduced = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
        const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
        reduced = _mm256_or_si256(reduced, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
        const __m256i text = _mm256_add_epi8(_mm256_shuffle_epi8(shiftLut, reduced), values);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), text);
        used += 24;
        out += 32;
    }
    return used;
}
#endif

// Encodes whole 3-byte groups of `bytes` (its size a multiple of 3) into `dst`.
void encodeGroups(ByteView bytes, char* dst) {
    const auto& pairs = characterPairs();
    std::size_t i = 0;
#if QH_BASE64_AVX2
    if (bytes.size() >= 28 && processor::hasAvx2()) {
        i = encodeBlocksAvx2(bytes.data(), bytes.size(), dst);
        dst += i / 3 * 4;
    }
#endif
    for (; i < bytes.size(); i += 3, dst += 4) {
        const std::uint32_t group = std::uint32_t(bytes[i]) << 16 | std::uint32_t(bytes[i + 1]) << 8 | bytes[i + 2];
        std::memcpy(dst, &pairs[2 * (group >> 12)], 2);
        std::memcpy(dst + 2, &pairs[2 * (group & 0xFFF)], 2);
    }
}

void appendLine(ByteView bytes, std::string& out) {
    const std::size_t whole = bytes.size() / 3 * 3;
    const std::size_t rest = bytes.size() - whole;
    // Encoded where it ends up: the room is zero-filled first, which costs
    // less than encoding into a small buffer and copying each piece over.
    const std::size_t at = out.size();
    out.resize(at + whole / 3 * 4 + (rest ? 4 : 0));
    char* dst = out.data() + at;
    encodeGroups(bytes.first(whole), dst);
    if (rest == 0) return;
    dst += whole / 3 * 4;
    std::uint32_t group = std::uint32_t(bytes[whole]) << 16;
    if (rest == 2) group |= std::uint32_t(bytes[whole + 1]) << 8;
    dst[0] = kAlphabet[group >> 18];
    dst[1] = kAlphabet[(group >> 12) & 63];
    dst[2] = rest == 2 ? kAlphabet[(group >> 6) & 63] : '=';
    dst[3] = '=';
}

}  // namespace

void Base64::append(ByteView bytes, std::string& out, std::size_t lineLength) {
    const std::size_t lineInput = lineLength / 4 * 3;
    if (lineInput == 0 || bytes.size() <= lineInput) {
        appendLine(bytes, out);
        return;
    }
    out.reserve(out.size() + (bytes.size() + 2) / 3 * 4 + bytes.size() / lineInput * 2);
    for (std::size_t start = 0; start < bytes.size(); start += lineInput) {
        if (start) out += "\r\n";
        appendLine(bytes.subspan(start, std::min(lineInput, bytes.size() - start)), out);
    }
}

std::string Base64::encode(ByteView bytes, std::size_t lineLength) {
    std::string out;
    append(bytes, out, lineLength);
    return out;
}

Bytes Base64::decode(ByteView text) {
    const std::size_t length = text.size();
    const std::uint8_t* bytes = text.data();
    // Written through a pointer into room for every group, then cut.
    Bytes out((length / 4 + 1) * 3);
    std::uint8_t* to = out.data();
    std::uint8_t group[4];
    std::size_t collected = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (collected == 0) {
#if QH_BASE64_AVX2
            if (length - i >= 32 && processor::hasAvx2()) {
                std::size_t written = 0;
                i += decodeBlocksAvx2(bytes + i, length - i, to, written);
                to += written;
            }
#endif
            // Whole groups of four alphabet characters, the bulk of any line,
            // decode at once; anything skipped goes the character-wise way.
            while (i + 4 <= length) {
                const std::uint32_t a = kDecodingTable[bytes[i]], b = kDecodingTable[bytes[i + 1]],
                                    c = kDecodingTable[bytes[i + 2]], d = kDecodingTable[bytes[i + 3]];
                if ((a | b | c | d) >= 64) break;
                const std::uint32_t bits = a << 18 | b << 12 | c << 6 | d;
                to[0] = std::uint8_t(bits >> 16);
                to[1] = std::uint8_t(bits >> 8);
                to[2] = std::uint8_t(bits);
                to += 3;
                i += 4;
            }
            if (i >= length) break;
        }
        const std::uint8_t value = kDecodingTable[bytes[i]];
        if (value == kSkip) continue;
        group[collected++] = value;
        if (collected == 4) {
            *to++ = std::uint8_t(group[0] << 2 | group[1] >> 4);
            *to++ = std::uint8_t(group[1] << 4 | group[2] >> 2);
            *to++ = std::uint8_t(group[2] << 6 | group[3]);
            collected = 0;
        }
    }
    if (collected >= 2) *to++ = std::uint8_t(group[0] << 2 | group[1] >> 4);
    if (collected >= 3) *to++ = std::uint8_t(group[1] << 4 | group[2] >> 2);
    out.resize(static_cast<std::size_t>(to - out.data()));
    return out;
}

int Base64::valueOf(char c) {
    const std::uint8_t value = kDecodingTable[static_cast<unsigned char>(c)];
    return value == kSkip ? -1 : value;
}

}  // namespace qh
