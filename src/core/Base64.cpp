#include "core/Base64.h"

#include <array>
#include <cstring>

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

void appendLine(ByteView bytes, std::string& out) {
    const auto& pairs = characterPairs();
    const std::size_t start = out.size();
    out.resize(start + (bytes.size() + 2) / 3 * 4);
    char* dst = out.data() + start;
    const std::size_t whole = bytes.size() / 3 * 3;
    for (std::size_t i = 0; i < whole; i += 3, dst += 4) {
        const std::uint32_t group = std::uint32_t(bytes[i]) << 16 | std::uint32_t(bytes[i + 1]) << 8 | bytes[i + 2];
        std::memcpy(dst, &pairs[2 * (group >> 12)], 2);
        std::memcpy(dst + 2, &pairs[2 * (group & 0xFFF)], 2);
    }
    const std::size_t rest = bytes.size() - whole;
    if (rest == 0) return;
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
