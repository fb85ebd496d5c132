#pragma once
// Text clean-up applied to every value taken from a file, and small helpers.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qh {

class StringWangers {
public:
    // Cut at the first NUL, and at the first character above U+3000 when at least
    // four ordinary UTF-16 code units precede it; percent escapes decoded; NULs
    // and unassigned code points removed; trimmed. None for none or empty input.
    static std::optional<std::string> zapGremlins(std::optional<std::string_view> text);
    // Runs of LF collapsed to one, then every CR removed. None for none.
    static std::optional<std::string> replaceDoubleNewline(std::optional<std::string_view> text);
    // Trimmed text that begins with "<html>" and whose first "</html>" ends it (any case).
    static bool isHTML(std::string_view text);
    // A new random UUID, upper-case, 8-4-4-4-12.
    static std::string generateUUIDString();
    // The bytes up to the first NUL (or the end of the view) as ASCII, else UTF-8,
    // else UTF-16, else Windows-1252; none when all fail.
    static std::optional<std::string> stringFromCString(ByteView bytes);
    static std::optional<std::string> stringFromCString(const char* text);
};

// The pieces of `text` between the separators, empty ones kept (n separators
// give n + 1 pieces); views into `text`.
template <class Char>
std::vector<std::basic_string_view<Char>> splitAt(std::basic_string_view<Char> text, Char separator) {
    std::vector<std::basic_string_view<Char>> pieces;
    std::size_t position = 0;
    for (std::size_t found = text.find(separator); found != text.npos; found = text.find(separator, position)) {
        pieces.push_back(text.substr(position, found - position));
        position = found + 1;
    }
    pieces.push_back(text.substr(position));
    return pieces;
}

}  // namespace qh
