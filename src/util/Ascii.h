#pragma once
// Byte-wise ASCII helpers for the text grammars (RFC 2045, 2047, 2231) and
// escapes: no locale, no Unicode folding, bytes above 0x7F compared as they are.
#include <cstddef>
#include <string_view>

namespace qh::ascii {

// The value of one hexadecimal digit, either case; -1 for any other byte.
constexpr int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

constexpr char toLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Equal but for the case of the letters A to Z (charset names, media types).
constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (toLower(a[i]) != toLower(b[i])) return false;
    }
    return true;
}

}  // namespace qh::ascii
