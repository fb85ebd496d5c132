#pragma once
// Hebrew (Windows-1255) header and body escapes.
#include <string>
#include <string_view>

namespace qh {

class WindowsCodePageWangers {
public:
    // "=?windows-1255?B?...?=" words decoded; a word that does not convert adds nothing.
    static std::string decodeCP1255B(std::string_view text);
    // The escapes =D0..=D8, =E0..=EF, =F0..=FA (any case) replaced by their Hebrew
    // characters; every other escape is left for the caller.
    static std::string decodeCP1255FromMimeEncodedString(std::string_view text);
};

}  // namespace qh
