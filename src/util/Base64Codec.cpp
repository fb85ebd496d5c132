#include "util/Base64Codec.h"

#include <array>
#include <cstring>

namespace qh {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
// Every byte outside the alphabet (padding, line ends, blanks, junk) is skipped.
constexpr std::uint8_t kSkip = 65;
constexpr std::size_t kOutputLineLength = 64;
constexpr std::size_t kInputLineLength = kOutputLineLength / 4 * 3;

constexpr std::array<std::uint8_t, 256> makeDecodingTable() {
    std::array<std::uint8_t, 256> table{};
    for (auto& entry : table) entry = kSkip;
    for (std::uint8_t value = 0; value < 64; ++value) table[static_cast<std::uint8_t>(kAlphabet[value])] = value;
    return table;
}
constexpr std::array<std::uint8_t, 256> kDecodingTable = makeDecodingTable();

}  // namespace

Bytes NewBase64Decode(const void* input, std::size_t length, std::size_t* outputLength) {
    const auto* bytes = static_cast<const std::uint8_t*>(input);
    if (!bytes) length = 0;
    else if (length == kBase64NulTerminated) length = std::strlen(static_cast<const char*>(input));
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
        std::uint8_t value = kDecodingTable[bytes[i]];
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
    if (outputLength) *outputLength = out.size();
    return out;
}

Bytes NewBase64Decode(ByteView input) { return NewBase64Decode(input.data(), input.size()); }

std::string NewBase64Encode(const void* buffer, std::size_t length, bool separateLines, std::size_t* outputLength) {
    const auto* input = static_cast<const std::uint8_t*>(buffer);
    if (!input) length = 0;
    std::size_t size = (length / 3 + (length % 3 ? 1 : 0)) * 4;
    if (separateLines) size += size / kOutputLineLength * 2;
    std::string out;
    out.reserve(size);
    const std::size_t lineLength = separateLines ? kInputLineLength : length;
    std::size_t lineEnd = lineLength;
    std::size_t j = 0;
    while (true) {
        if (lineEnd > length) lineEnd = length;
        for (; j + 2 < lineEnd; j += 3) {
            out += kAlphabet[(input[j] & 0xFC) >> 2];
            out += kAlphabet[((input[j] & 0x03) << 4) | ((input[j + 1] & 0xF0) >> 4)];
            out += kAlphabet[((input[j + 1] & 0x0F) << 2) | ((input[j + 2] & 0xC0) >> 6)];
            out += kAlphabet[input[j + 2] & 0x3F];
        }
        if (lineEnd == length) break;
        out += "\r\n";
        lineEnd += lineLength;
    }
    if (j + 1 < length) {
        out += kAlphabet[(input[j] & 0xFC) >> 2];
        out += kAlphabet[((input[j] & 0x03) << 4) | ((input[j + 1] & 0xF0) >> 4)];
        out += kAlphabet[(input[j + 1] & 0x0F) << 2];
        out += '=';
    } else if (j < length) {
        out += kAlphabet[(input[j] & 0xFC) >> 2];
        out += kAlphabet[(input[j] & 0x03) << 4];
        out += "==";
    }
    if (outputLength) *outputLength = out.size();
    return out;
}

std::string NewBase64Encode(ByteView buffer, bool separateLines) {
    return NewBase64Encode(buffer.data(), buffer.size(), separateLines);
}

Bytes dataFromBase64String(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) > 0x7F) return NewBase64Decode(nullptr, 0);
    return NewBase64Decode(text.data(), text.size());
}

std::string base64EncodedString(ByteView data) { return NewBase64Encode(data, true); }

}  // namespace qh
