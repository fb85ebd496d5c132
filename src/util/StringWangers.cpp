#include "util/StringWangers.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "core/ByteWords.h"
#include "core/TextEncoding.h"
#include "core/Uuid.h"

namespace qh {

namespace {

// Where zapGremlins cuts a value, as a byte offset into its UTF-8. The rule
// counts UTF-16 code units: `low` ordinary units (at or below U+3000) before
// the first wide one, `high` wide units from there on; a supplementary
// character is two wide units.
std::size_t gremlinCut(std::string_view text) {
    constexpr UChar32 kWideStart = 0x3000;
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::size_t low = 0, high = 0, lowEnd = 0;
    std::int32_t i = 0;
    while (i < length) {
        const std::int32_t start = i;
        UChar32 c;
        if (s[i] < 0x80) {
            c = s[i++];
        } else {
            U8_NEXT_OR_FFFD(s, i, length, c);
        }
        if (c > kWideStart) {
            // A value that begins with wide characters is taken to be meant so.
            if (low < 4) break;
            high += c > 0xFFFF ? 2 : 1;
            continue;
        }
        if (low != 0 && c == 0) return high > 0 ? lowEnd : std::size_t(start);
        if (high == 0) {
            ++low;
            lowEnd = std::size_t(i);
        }
    }
    return high > 0 ? lowEnd : text.size();
}

}  // namespace

std::optional<std::string> StringWangers::zapGremlins(std::optional<std::string_view> text) {
    if (!text || text->empty()) return std::nullopt;
    // Plain ASCII without NULs and percent signs has nothing to cut, decode or
    // remove: most values are such.
    bool plain = true;
    for (char c : *text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte == 0 || byte == '%' || byte >= 0x80) {
            plain = false;
            break;
        }
    }
    if (plain) return TextEncoding::trimWhitespaceAndNewlines(*text);
    // classic: values read from fixed-size fields, or from UTF-16 read in the
    // wrong encoding, carry junk after the real text; keep the first run of
    // it (CJK after four ordinary characters is cut too). The MSG reader's
    // classic `strings` rule and the writers' names depend on it.
    const std::string sane = TextEncoding::sanitizeUTF8(*text);
    std::string_view prefix = std::string_view(sane).substr(0, gremlinCut(sane));
    std::optional<std::string> decoded = TextEncoding::removePercentEncoding(prefix);
    const std::string_view kept = decoded ? std::string_view(*decoded) : prefix;
    // NULs, unassigned code points and non-characters go.
    std::string cleaned;
    cleaned.reserve(kept.size());
    const auto* s = reinterpret_cast<const std::uint8_t*>(kept.data());
    const auto length = static_cast<std::int32_t>(kept.size());
    std::int32_t i = 0;
    while (i < length) {
        const std::int32_t start = i;
        if (s[i] < 0x80) {
            while (i < length && s[i] < 0x80 && s[i] != 0) ++i;
            cleaned.append(kept.substr(std::size_t(start), std::size_t(i - start)));
            if (i < length && s[i] == 0) ++i;
            continue;
        }
        UChar32 c;
        U8_NEXT_OR_FFFD(s, i, length, c);
        if (u_charType(c) != U_UNASSIGNED) cleaned.append(kept.substr(std::size_t(start), std::size_t(i - start)));
    }
    return TextEncoding::trimWhitespaceAndNewlines(cleaned);
}

std::optional<std::string> StringWangers::replaceDoubleNewline(std::optional<std::string_view> text) {
    if (!text) return std::nullopt;
    // Every run of line ends becomes one LF; CRs go, so CR LF ends become LF
    // and no line stays empty.
    std::string out;
    out.reserve(text->size());
    const char* p = text->data();
    const char* end = p + text->size();
    while (p < end) {
        const char* lineEnd = p;
        // Eight bytes at a time while none is below 0x0E (CR and LF are).
        while (end - lineEnd >= 8 && !words::anyBelow(words::load(lineEnd), 0x0E)) lineEnd += 8;
        while (lineEnd < end && *lineEnd != '\r' && *lineEnd != '\n') ++lineEnd;
        out.append(p, lineEnd);
        if (lineEnd == end) break;
        if (*lineEnd == '\n' && (out.empty() || out.back() != '\n')) out += '\n';
        p = lineEnd + 1;
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
