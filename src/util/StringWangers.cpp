#include "util/StringWangers.h"

#include <cstring>

#include <unicode/uchar.h>

#include "core/TextEncoding.h"
#include "core/Uuid.h"

namespace qh {

namespace {

// Where zapGremlins cuts a value, counted in UTF-16 code units.
std::size_t gremlinCutLength(std::u16string_view units) {
    constexpr char16_t kWideStart = 0x3000;
    std::size_t low = 0;   // ordinary units before the first wide one
    std::size_t high = 0;  // wide units from there on
    for (char16_t unit : units) {
        // A value that begins with wide characters is taken to be meant so.
        if (low < 4 && unit > kWideStart) break;
        if (low != 0 && unit == 0) return low;
        if (high == 0 && unit <= kWideStart) ++low;
        if (unit > kWideStart) ++high;
    }
    return high > 0 ? low : units.size();
}

}  // namespace

std::optional<std::string> StringWangers::zapGremlins(std::optional<std::string_view> text) {
    if (!text || text->empty()) return std::nullopt;
    // Values read from fixed-size fields, or from UTF-16 read in the wrong
    // encoding, carry junk after the real text; keep the first run of it.
    std::u16string units = TextEncoding::toUTF16(*text);
    std::string prefix = TextEncoding::fromUTF16(std::u16string_view(units).substr(0, gremlinCutLength(units)));
    std::string decoded = TextEncoding::removePercentEncoding(prefix).value_or(std::move(prefix));
    std::u16string cleaned;
    const std::u16string decodedUnits = TextEncoding::toUTF16(decoded);
    cleaned.reserve(decodedUnits.size());
    for (std::size_t k = 0; k < decodedUnits.size(); ++k) {
        char16_t unit = decodedUnits[k];
        if (unit == 0) continue;
        UChar32 c = unit;
        std::size_t width = 1;
        if (U16_IS_LEAD(unit) && k + 1 < decodedUnits.size() && U16_IS_TRAIL(decodedUnits[k + 1])) {
            c = U16_GET_SUPPLEMENTARY(unit, decodedUnits[k + 1]);
            width = 2;
        }
        // Unassigned code points and non-characters are dropped.
        if (u_charType(c) != U_UNASSIGNED) cleaned.append(decodedUnits, k, width);
        k += width - 1;
    }
    return TextEncoding::trimWhitespaceAndNewlines(TextEncoding::fromUTF16(cleaned));
}

std::optional<std::string> StringWangers::replaceDoubleNewline(std::optional<std::string_view> text) {
    if (!text) return std::nullopt;
    // Every run of line ends becomes one LF; CRs go, so CR LF ends become LF
    // and no line stays empty.
    std::string out;
    out.reserve(text->size());
    for (char c : *text) {
        if (c == '\r') continue;
        if (c == '\n' && !out.empty() && out.back() == '\n') continue;
        out += c;
    }
    return out;
}

bool StringWangers::isHTML(std::string_view text) {
    std::string trimmed = TextEncoding::trimWhitespaceAndNewlines(text);
    constexpr std::string_view kOpen = "<html>", kClose = "</html>";
    if (TextEncoding::findIgnoringASCIICase(trimmed, kOpen) != 0) return false;
    std::size_t close = TextEncoding::findIgnoringASCIICase(trimmed, kClose);
    return close != std::string_view::npos && close + kClose.size() == trimmed.size();
}

std::string StringWangers::generateUUIDString() { return Uuid::randomString(); }

std::optional<std::string> StringWangers::stringFromCString(ByteView bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
        if (bytes[i] == 0) {
            bytes = bytes.first(i);
            break;
        }
    for (StringEncoding encoding :
         {StringEncoding::ASCII, StringEncoding::UTF8, StringEncoding::UTF16, StringEncoding::Windows1252})
        if (auto text = TextEncoding::decode(bytes, encoding)) return text;
    return std::nullopt;
}

std::optional<std::string> StringWangers::stringFromCString(const char* text) {
    if (!text) return std::nullopt;
    return stringFromCString(asBytes(std::string_view(text, std::strlen(text))));
}

}  // namespace qh
