#include "util/WindowsCodePageWangers.h"

#include <array>
#include <optional>

#include "core/TextEncoding.h"
#include "util/Ascii.h"
#include "util/DataWangers.h"

namespace qh {

namespace {

// The Hebrew escapes the readers decode: D0-D8, E0-EF and F0-FA.
// classic: D9-DF and FB-FF are left alone; the classic MIME reading's subjects
// in Windows-1255 keep them as escapes.
bool isHebrewEscapeCode(int code) {
    return (code >= 0xD0 && code <= 0xD8) || (code >= 0xE0 && code <= 0xFA);
}

// The character of each listed code, none where the code page has none.
const std::array<std::optional<std::string>, 256>& hebrewCharacters() {
    static const std::array<std::optional<std::string>, 256> table = [] {
        std::array<std::optional<std::string>, 256> characters;
        for (int code = 0; code < 256; ++code) {
            if (!isHebrewEscapeCode(code)) continue;
            const std::uint8_t byte = std::uint8_t(code);
            characters[std::size_t(code)] = TextEncoding::decode(ByteView(&byte, 1), StringEncoding::Windows1255);
        }
        return characters;
    }();
    return table;
}

}  // namespace

std::string WindowsCodePageWangers::decodeCP1255B(std::string_view text) {
    constexpr std::string_view kMarker = "=?windows-1255?B?";
    std::string out;
    out.reserve(text.size());
    std::size_t position = 0;
    bool last = false;
    while (!last) {
        std::size_t found = TextEncoding::findIgnoringASCIICase(text, kMarker, position);
        last = found == std::string_view::npos;
        std::string_view piece = text.substr(position, last ? std::string_view::npos : found - position);
        position = last ? text.size() : found + kMarker.size();
        std::size_t end = piece.find("?=");
        if (end == std::string_view::npos) {
            out.append(piece);
            continue;
        }
        if (auto bytes = DataWangers::b64DecodeDataString(piece.substr(0, end)))
            if (auto word = TextEncoding::decode(*bytes, StringEncoding::Windows1255)) out.append(*word);
        out.append(piece.substr(end + 2));
    }
    return out;
}

std::string WindowsCodePageWangers::decodeCP1255FromMimeEncodedString(std::string_view text) {
    const auto& characters = hebrewCharacters();
    std::string out;
    out.reserve(text.size());
    std::size_t position = 0;
    for (std::size_t equals = text.find('='); equals != std::string_view::npos; equals = text.find('=', equals + 1)) {
        if (equals + 2 >= text.size()) break;
        int high = ascii::hexValue(text[equals + 1]), low = ascii::hexValue(text[equals + 2]);
        if (high < 0 || low < 0) continue;
        const auto& character = characters[std::size_t(high << 4 | low)];
        if (!character) continue;
        out.append(text.substr(position, equals - position));
        out.append(*character);
        position = equals + 3;
        equals += 2;
    }
    out.append(text.substr(position));
    return out;
}

}  // namespace qh
