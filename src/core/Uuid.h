#pragma once
// Random (version 4) UUIDs from the operating system's random source.
#include <array>
#include <cstdint>
#include <string>

namespace qh {

class Uuid {
public:
    // 16 random bytes with the version and variant bits set.
    static std::array<std::uint8_t, 16> randomBytes();
    // Canonical text: 36 characters, upper-case hex in groups 8-4-4-4-12 joined by "-".
    static std::string randomString();
    static std::string toString(const std::array<std::uint8_t, 16>& bytes);
};

}  // namespace qh
