#include "core/Uuid.h"

#include <random>

namespace qh {

std::array<std::uint8_t, 16> Uuid::randomBytes() {
    // std::random_device reads the operating system's entropy source
    // (getrandom / /dev/urandom on Linux); a fresh one per call keeps this
    // free of shared state between threads.
    std::random_device source;
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        std::uint32_t word = source();
        for (std::size_t k = 0; k < 4; ++k) bytes[i + k] = std::uint8_t(word >> (8 * k));
    }
    bytes[6] = std::uint8_t((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = std::uint8_t((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return bytes;
}

std::string Uuid::toString(const std::array<std::uint8_t, 16>& bytes) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        out += kHex[bytes[i] >> 4];
        out += kHex[bytes[i] & 15];
    }
    return out;
}

std::string Uuid::randomString() { return toString(randomBytes()); }

}  // namespace qh
