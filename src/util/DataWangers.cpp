#include "util/DataWangers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "core/Base64.h"
#include "core/Log.h"
#include "util/Ascii.h"

namespace qh {

namespace {

constexpr std::size_t kMimeLineLength = 76;

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

std::string DataWangers::b64EncodeData(ByteView data) { return Base64::encode(data, kMimeLineLength); }

std::string DataWangers::b64EncodeData(std::string_view text) { return std::string(text); }

std::optional<Bytes> DataWangers::b64DecodeDataString(std::optional<std::string_view> text) {
    if (!text || text->empty()) return std::nullopt;
    // Characters outside the alphabet are ignored; what remains must be whole
    // groups of four, padded only at the very end.
    std::string kept;
    kept.reserve(text->size());
    for (char c : *text)
        if (c == '=' || Base64::valueOf(c) >= 0) kept += c;
    if (kept.size() % 4) return std::nullopt;
    std::size_t padding = 0;
    if (!kept.empty() && kept.back() == '=') padding = (kept[kept.size() - 2] == '=') ? 2 : 1;
    if (kept.find('=') < kept.size() - padding) return std::nullopt;
    return Base64::decode(asBytes(kept));
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
