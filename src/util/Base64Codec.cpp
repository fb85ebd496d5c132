#include "util/Base64Codec.h"

#include <cstring>

#include "core/Base64.h"

namespace qh {

namespace {
constexpr std::size_t kOutputLineLength = 64;
}

Bytes NewBase64Decode(const void* input, std::size_t length, std::size_t* outputLength) {
    const auto* bytes = static_cast<const std::uint8_t*>(input);
    if (!bytes) length = 0;
    else if (length == kBase64NulTerminated) length = std::strlen(static_cast<const char*>(input));
    Bytes out = Base64::decode(ByteView(bytes, length));
    if (outputLength) *outputLength = out.size();
    return out;
}

Bytes NewBase64Decode(ByteView input) { return Base64::decode(input); }

std::string NewBase64Encode(const void* buffer, std::size_t length, bool separateLines, std::size_t* outputLength) {
    const auto* input = static_cast<const std::uint8_t*>(buffer);
    std::string out = Base64::encode(ByteView(input, input ? length : 0), separateLines ? kOutputLineLength : 0);
    if (outputLength) *outputLength = out.size();
    return out;
}

std::string NewBase64Encode(ByteView buffer, bool separateLines) {
    return Base64::encode(buffer, separateLines ? kOutputLineLength : 0);
}

Bytes dataFromBase64String(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) > 0x7F) return {};
    return Base64::decode(asBytes(text));
}

std::string base64EncodedString(ByteView data) { return NewBase64Encode(data, true); }

}  // namespace qh
