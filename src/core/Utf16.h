#pragma once
// UTF-16 to UTF-8 without failing, written through a pointer: the one loop
// behind the readers' lenient text (MAPI strings, RTF runs in code pages).
#include <cstddef>

namespace qh::utf16 {

// Writes the UTF-8 of `count` UTF-16 units (`unit(k)` gives the k-th) at `to`
// and returns the end of what it wrote: at most three bytes per unit (a
// surrogate pair gives four for two). An unpaired surrogate becomes U+FFFD.
template <typename Unit>
char* writeLenientUTF8(Unit unit, std::size_t count, char* to) {
    for (std::size_t k = 0; k < count; ++k) {
        char32_t c = unit(k);
        if (c < 0x80) {
            *to++ = static_cast<char>(c);
            continue;
        }
        if (c >= 0xD800 && c <= 0xDBFF && k + 1 < count && unit(k + 1) >= 0xDC00 && unit(k + 1) <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (unit(k + 1) - 0xDC00);
            ++k;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x800) {
            *to++ = static_cast<char>(0xC0 | (c >> 6));
            *to++ = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            *to++ = static_cast<char>(0xE0 | (c >> 12));
            *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            *to++ = static_cast<char>(0x80 | (c & 0x3F));
        } else {
            *to++ = static_cast<char>(0xF0 | (c >> 18));
            *to++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            *to++ = static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return to;
}

}  // namespace qh::utf16
