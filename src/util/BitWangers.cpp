#include "util/BitWangers.h"

#include <charconv>
#include <cstdio>

#include "core/ByteCursor.h"

namespace qh {

std::uint16_t BitWangers::readU16(const std::uint8_t* bytes) { return ByteCursor(ByteView(bytes, 2)).u16le(); }

std::uint32_t BitWangers::readU32(const std::uint8_t* bytes) { return ByteCursor(ByteView(bytes, 4)).u32le(); }

std::uint16_t BitWangers::readU16(ByteView bytes, std::size_t offset) { return ByteCursor(bytes, offset).u16le(); }

std::uint32_t BitWangers::readU32(ByteView bytes, std::size_t offset) { return ByteCursor(bytes, offset).u32le(); }

std::int16_t BitWangers::ByteSwap16BitNumber(std::uint16_t value) {
    return static_cast<std::int16_t>(std::uint16_t(value << 8 | value >> 8));
}

std::uint32_t BitWangers::ByteSwap32BitNumber(std::uint32_t value) {
    return __builtin_bswap32(value);
}

std::uint64_t BitWangers::ByteSwap64BitNumber(std::uint64_t value) {
    return __builtin_bswap64(value);
}

std::string BitWangers::formatSize(double size) {
    static constexpr const char* kUnits[] = {"bytes", "KB", "MB", "GB", "TB"};
    constexpr std::size_t kUnitCount = sizeof kUnits / sizeof kUnits[0];
    std::size_t unit = 0;
    while (size > 1024.0) {
        size *= 0.0009765625;
        // Nothing lies beyond terabytes; such a size has no text.
        if (++unit >= kUnitCount) return {};
    }
    // Two decimals as printf's "%4.2f" writes them (the C locale's point,
    // ties to even, at least four characters), without printf's set-up.
    char text[64];
    const std::to_chars_result written = std::to_chars(text, text + sizeof text, size, std::chars_format::fixed, 2);
    if (written.ec != std::errc()) {
        // A negative size too long for the buffer: printf's cut text.
        std::snprintf(text, sizeof text, "%4.2f %s", size, kUnits[unit]);
        return text;
    }
    std::string out(text, written.ptr);
    if (out.size() < 4) out.insert(0, 4 - out.size(), ' ');
    out.push_back(' ');
    out.append(kUnits[unit]);
    return out;
}

}  // namespace qh
