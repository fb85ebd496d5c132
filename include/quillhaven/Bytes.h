#pragma once
// Byte buffers: spans in, owned buffers out.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qh {

using ByteView = std::span<const std::uint8_t>;
using Bytes = std::vector<std::uint8_t>;

inline ByteView asBytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view asText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline Bytes toBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

// The one overflow-safe range check: does [offset, offset + length) lie in a
// buffer of `size` bytes?
constexpr bool fits(std::uint64_t offset, std::uint64_t length, std::uint64_t size) {
    return offset <= size && length <= size - offset;
}

}  // namespace qh
