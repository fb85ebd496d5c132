#include "util/DataWangers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "core/Log.h"
#include "util/Ascii.h"

namespace qh {

namespace {

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kMimeLineLength = 76;

// Alphabet values; the pad "=" is kept (value 0) for the group checks.
constexpr std::uint8_t kNotBase64 = 0xFF;
constexpr std::array<std::uint8_t, 256> makeBase64Values() {
    std::array<std::uint8_t, 256> values{};
    for (auto& v : values) v = kNotBase64;
    for (std::uint8_t k = 0; k < 64; ++k) values[static_cast<unsigned char>(kBase64Alphabet[k])] = k;
    values['='] = 0;
    return values;
}
constexpr std::array<std::uint8_t, 256> kBase64Values = makeBase64Values();

void logConversionException(const std::exception& error, std::string_view functionName, std::int32_t location,
                            char step) {
    std::string line = "Error reading getting Message Dictionary - Exception: ";
    line += error.what();
    line += " Locn ";
    line += functionName;
    line += ' ';
    line += std::to_string(location);
    line += ' ';
    line += step;
    Log::line(line);
}

std::optional<std::string> convertOrThrow(ByteView data, StringEncoding encoding) {
    if (!TextEncoding::isSupported(encoding))
        throw std::invalid_argument("unsupported string encoding " + std::to_string(static_cast<std::uint32_t>(encoding)));
    return TextEncoding::decode(data, encoding);
}

}  // namespace

std::optional<std::string> DataWangers::getStringFromData(ByteView data, StringEncoding encoding,
                                                          std::string_view functionName, std::int32_t location) {
    if (data.empty()) return std::nullopt;
    try {
        if (auto text = convertOrThrow(data, encoding)) return text;
    } catch (const std::exception& error) {
        logConversionException(error, functionName, location, 'a');
    }
    try {
        return convertOrThrow(data, StringEncoding::Windows1252);
    } catch (const std::exception& error) {
        logConversionException(error, functionName, location, 'b');
        return std::nullopt;
    }
}

std::optional<std::string> DataWangers::getStringFromData(ByteView data, StringEncoding encoding) {
    return getStringFromData(data, encoding, "", 0);
}

std::optional<std::string> DataWangers::getStringFromData(const Value* data, StringEncoding encoding,
                                                          std::string_view functionName, std::int32_t location) {
    const Blob* bytes = data ? data->bytes() : nullptr;
    if (!bytes) return std::nullopt;
    return getStringFromData(bytes->view(), encoding, functionName, location);
}

std::string DataWangers::b64EncodeData(ByteView data) {
    // 57 input bytes make one 76-character line; CR LF between lines.
    constexpr std::size_t kLineInput = kMimeLineLength / 4 * 3;
    const std::size_t encodedLength = (data.size() + 2) / 3 * 4;
    const std::size_t lines = (encodedLength + kMimeLineLength - 1) / kMimeLineLength;
    std::string out(encodedLength + (lines ? (lines - 1) * 2 : 0), '\0');
    char* o = out.data();
    std::size_t i = 0;
    for (std::size_t lineStart = 0; lineStart < data.size(); lineStart += kLineInput) {
        if (lineStart) {
            *o++ = '\r';
            *o++ = '\n';
        }
        const std::size_t lineEnd = std::min(data.size(), lineStart + kLineInput);
        for (i = lineStart; i + 3 <= lineEnd; i += 3) {
            std::uint32_t n = std::uint32_t(data[i]) << 16 | std::uint32_t(data[i + 1]) << 8 | data[i + 2];
            *o++ = kBase64Alphabet[n >> 18 & 63];
            *o++ = kBase64Alphabet[n >> 12 & 63];
            *o++ = kBase64Alphabet[n >> 6 & 63];
            *o++ = kBase64Alphabet[n & 63];
        }
        if (std::size_t rest = lineEnd - i) {
            std::uint32_t n = std::uint32_t(data[i]) << 16 | (rest == 2 ? std::uint32_t(data[i + 1]) << 8 : 0);
            *o++ = kBase64Alphabet[n >> 18 & 63];
            *o++ = kBase64Alphabet[n >> 12 & 63];
            *o++ = rest == 2 ? kBase64Alphabet[n >> 6 & 63] : '=';
            *o++ = '=';
        }
    }
    return out;
}

std::string DataWangers::b64EncodeData(std::string_view text) { return std::string(text); }

std::optional<Bytes> DataWangers::b64DecodeDataString(std::optional<std::string_view> text) {
    if (!text || text->empty()) return std::nullopt;
    // Characters outside the alphabet are ignored; what remains must be whole
    // groups of four, padded only at the very end.
    std::string kept(text->size(), '\0');
    std::size_t keptLength = 0;
    for (char c : *text)
        if (kBase64Values[static_cast<unsigned char>(c)] != kNotBase64) kept[keptLength++] = c;
    kept.resize(keptLength);
    if (kept.size() % 4) return std::nullopt;
    std::size_t padding = 0;
    if (!kept.empty() && kept.back() == '=') padding = (kept[kept.size() - 2] == '=') ? 2 : 1;
    if (kept.find('=') < kept.size() - padding) return std::nullopt;
    Bytes out;
    out.reserve(kept.size() / 4 * 3);
    for (std::size_t i = 0; i < kept.size(); i += 4) {
        const bool last = i + 4 == kept.size();
        const std::size_t values = last ? 4 - padding : 4;
        std::uint32_t n = 0;
        for (std::size_t k = 0; k < 4; ++k)
            n = n << 6 | std::uint32_t(k < values ? kBase64Values[static_cast<unsigned char>(kept[i + k])] : 0);
        out.push_back(std::uint8_t(n >> 16));
        if (values > 2) out.push_back(std::uint8_t(n >> 8));
        if (values > 3) out.push_back(std::uint8_t(n));
    }
    return out;
}

std::optional<std::string> DataWangers::cleanNonHexCharsFromHexString(std::optional<std::string_view> text) {
    if (!text) return std::nullopt;
    std::string withoutPrefixes;
    withoutPrefixes.reserve(text->size());
    const std::string_view source = *text;
    for (std::size_t i = 0; i < source.size(); ++i) {
        if (source[i] == '0' && i + 1 < source.size() && (source[i + 1] == 'x' || source[i + 1] == 'X')) {
            ++i;
            continue;
        }
        withoutPrefixes += source[i];
    }
    std::string digits;
    digits.reserve(withoutPrefixes.size());
    for (char c : withoutPrefixes)
        if (ascii::hexValue(c) >= 0) digits += c;
    return digits;
}

std::optional<Bytes> DataWangers::dataFromHexString(std::optional<std::string_view> text) {
    std::optional<std::string> digits = cleanNonHexCharsFromHexString(text);
    if (!digits) return std::nullopt;
    Bytes out;
    out.reserve(digits->size() / 2);
    for (std::size_t i = 0; i + 1 < digits->size(); i += 2)
        out.push_back(std::uint8_t(ascii::hexValue((*digits)[i]) << 4 | ascii::hexValue((*digits)[i + 1])));
    return out;
}

Bytes DataWangers::dataFromInt(std::int64_t value, std::int32_t /*padding*/) {
    const auto low = static_cast<std::uint32_t>(value);
    char digits[9];
    std::snprintf(digits, sizeof digits, "%02x%02x%02x%02x", low >> 24 & 0xFF, low >> 16 & 0xFF, low >> 8 & 0xFF,
                  low & 0xFF);
    return *dataFromHexString(std::string_view(digits, 8));
}

DataWangers::Range DataWangers::searchForBytes(const std::uint8_t* pattern, std::size_t numberOfBytes,
                                               ByteView source) {
    Range range{kNotFound, static_cast<std::int64_t>(numberOfBytes)};
    if (source.empty() || numberOfBytes == 0 || !pattern) return range;
    std::size_t matched = 0;
    for (std::size_t i = 0; i < source.size(); ++i) {
        if (source[i] == pattern[matched]) {
            if (range.location == kNotFound) range.location = static_cast<std::int64_t>(i);
            if (++matched == numberOfBytes) break;
        } else {
            // The byte that broke a partial match is not tried as a new start:
            // the TNEF reader's offsets were worked out against this search.
            range.location = kNotFound;
            matched = 0;
        }
    }
    return range;
}

DataWangers::Range DataWangers::searchForBytes(ByteView pattern, ByteView source) {
    return searchForBytes(pattern.data(), pattern.size(), source);
}

}  // namespace qh
