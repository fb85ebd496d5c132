#include "util/MimeCharset.h"

#include <memory>

#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include "core/ByteWords.h"
#include "core/TextEncoding.h"

namespace qh {

namespace {

struct ConverterCloser {
    void operator()(UConverter* converter) const { ucnv_close(converter); }
};

// The bytes through ICU's converter of that name, unmappable bytes as U+FFFD;
// none when ICU does not know the name.
std::optional<std::string> decodeSubstituting(ByteView bytes, const std::string& name) {
    if (name.empty() || name.size() > 64 || name.find('\0') != std::string::npos) return std::nullopt;
    if (bytes.size() > static_cast<std::size_t>(INT32_MAX / 4)) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, ConverterCloser> converter(ucnv_open(name.c_str(), &status));
    if (U_FAILURE(status) || !converter) return std::nullopt;
    // Each byte gives at most two UTF-16 units (a substitution included).
    std::u16string units(bytes.size() * 2 + 16, u'\0');
    const char* source = reinterpret_cast<const char*>(bytes.data());
    const char* sourceEnd = source + bytes.size();
    UChar* target = reinterpret_cast<UChar*>(units.data());
    UChar* targetStart = target;
    ucnv_toUnicode(converter.get(), &target, targetStart + units.size(), &source, sourceEnd, nullptr, true,
                   &status);
    if (U_FAILURE(status)) return std::nullopt;
    units.resize(static_cast<std::size_t>(target - targetStart));
    return TextEncoding::fromUTF16(units);
}

}  // namespace

bool MimeCharset::isValidUTF8(std::string_view text) { return TextEncoding::isValidUTF8(text); }

std::string MimeCharset::decodeWindows1252(ByteView bytes) {
    static const char16_t kHigh[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    for (std::size_t i = 0; i < bytes.size();) {
        // ASCII runs are copied whole; each other byte is one character.
        const std::size_t run = words::asciiPrefix(bytes.data() + i, bytes.size() - i);
        out.append(reinterpret_cast<const char*>(bytes.data() + i), run);
        i += run;
        if (i == bytes.size()) break;
        const std::uint8_t b = bytes[i++];
        const char32_t c = b < 0xA0 ? kHigh[b - 0x80] : b;
        char encoded[3];
        std::size_t length = 0;
        if (c < 0x800) {
            encoded[length++] = static_cast<char>(0xC0 | (c >> 6));
        } else {
            encoded[length++] = static_cast<char>(0xE0 | (c >> 12));
            encoded[length++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        }
        encoded[length++] = static_cast<char>(0x80 | (c & 0x3F));
        out.append(encoded, length);
    }
    return out;
}

std::string MimeCharset::utf8OrWindows1252(std::string_view text) {
    if (isValidUTF8(text)) return std::string(text);
    return decodeWindows1252(asBytes(text));
}

std::string MimeCharset::decode(std::string&& bytes, std::string_view charset) {
    // Bytes that are already the text their label gives (valid UTF-8 labelled
    // UTF-8, ASCII labelled ASCII or nothing) are kept, not copied.
    std::string name(TextEncoding::trimWhitespaceAndNewlines(charset));
    for (char& c : name) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    const bool utf8 = name == "utf-8" || name == "utf8";
    const bool ascii = name.empty() || name == "us-ascii" || name == "ascii";
    if ((utf8 && isValidUTF8(bytes)) ||
        (ascii && words::asciiPrefix(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) == bytes.size())) {
        return std::move(bytes);
    }
    return decode(asBytes(bytes), charset);
}

std::string MimeCharset::decode(ByteView bytes, std::string_view charset) {
    std::string name(TextEncoding::trimWhitespaceAndNewlines(charset));
    if (name.empty()) name = "us-ascii";
    if (auto text = TextEncoding::decodeCharset(bytes, name)) return std::move(*text);
    // Declared US-ASCII (or nothing) with 8-bit bytes, or a wrong label:
    // most such mail is UTF-8.
    if (isValidUTF8(asText(bytes))) return std::string(asText(bytes));
    // US-ASCII with substitutions would lose every 8-bit letter: the sender's
    // own code page is far likelier Windows-1252.
    const bool ascii = TextEncoding::equalsIgnoringCase(name, "us-ascii") || TextEncoding::equalsIgnoringCase(name, "ascii");
    if (!ascii) {
        if (auto text = decodeSubstituting(bytes, name)) return std::move(*text);
    }
    return decodeWindows1252(bytes);
}

}  // namespace qh
