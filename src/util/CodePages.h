#pragma once
// Windows code-page numbers (as MAPI properties and RTF \ansicpg name them)
// to ICU converters, and 8-bit text decoded by code page with a fallback that
// never loses the text.
#include <cstdint>
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class CodePages {
public:
    static constexpr std::uint32_t kWindowsLatin = 1252;

    // The ICU converter name of a code page that files carry (874, 932, 936,
    // 949, 950, 1250-1258, 20127, 20866, 28591-28605, 50220-50222, 51932,
    // 51949, 54936, 65001, ...); none for one ICU cannot read or that holds no
    // 8-bit text (1200 and 1201 are UTF-16).
    static std::optional<std::string> converterName(std::uint32_t codePage);
    // The bytes in `codePage`, strictly; none when the code page is unknown or
    // a byte sequence does not convert.
    static std::optional<std::string> decode(ByteView bytes, std::uint32_t codePage);
    // The bytes in the first of `codePages` that converts them (0 entries are
    // passed over), else as Windows-1252 with unmapped bytes as their Latin-1
    // characters: every byte gives a character.
    static std::string decodeWithFallback(ByteView bytes, std::initializer_list<std::uint32_t> codePages);
};

}  // namespace qh
