#pragma once
// Text conversion by the platform's string-encoding numbers, and the small
// Unicode services the readers share (trimming, percent-decoding, case
// folding). Everything goes through ICU; conversions are strict: a byte
// sequence the encoding cannot represent makes the whole conversion fail.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh {

enum class StringEncoding : std::uint32_t {
    ASCII = 1,
    UTF8 = 4,
    Latin1 = 5,
    UTF16 = 10,  // byte-order mark honoured; little-endian without one
    Windows1251 = 11,
    Windows1252 = 12,
    Windows1253 = 13,
    Windows1254 = 14,
    Windows1250 = 15,
    UTF16BE = 0x90000100,
    UTF16LE = 0x94000100,
    Windows1255 = 0x80000505,  // code-page constant 0x0505 (Windows Hebrew)
};

class TextEncoding {
public:
    // The string-encoding number for a Windows code-page constant (0x0505 ->
    // Windows1255, 0x04E4 -> Windows1252, ...); none for one we do not list.
    static std::optional<StringEncoding> fromCodePageConstant(std::uint32_t codePage);
    // Whether `encoding` is one of the listed encodings (an arbitrary number cast
    // to StringEncoding is not).
    static bool isSupported(StringEncoding encoding);

    // Bytes -> UTF-8 text; none where the conversion fails (ASCII rejects bytes
    // above 0x7F, invalid UTF-8 or UTF-16 fails, unmapped code-page bytes fail).
    // Empty input gives empty text. NUL bytes are kept as U+0000.
    static std::optional<std::string> decode(ByteView bytes, StringEncoding encoding);
    // UTF-8 text -> bytes; none when a character has no form in the encoding or
    // the text is not valid UTF-8. UTF16 writes a little-endian byte-order mark first.
    static std::optional<Bytes> encode(std::string_view text, StringEncoding encoding);

    // Bytes in a charset named as MIME does ("iso-8859-1", "koi8-r", "windows-1255",
    // "utf-8"); none for an unknown name or a failed conversion.
    static std::optional<std::string> decodeCharset(ByteView bytes, std::string_view charsetName);
    // Bytes in a Windows code page by number (1252, 1255, 65001, 932, ...); strict.
    static std::optional<std::string> decodeCodePage(ByteView bytes, std::uint32_t codePage);

    // Invalid UTF-8 sequences replaced by U+FFFD.
    static std::string sanitizeUTF8(std::string_view text);
    // Whether `text` is well-formed UTF-8 (no overlong forms, surrogates or
    // code points above U+10FFFF).
    static bool isValidUTF8(std::string_view text);
    // UTF-8 <-> UTF-16 (invalid UTF-8 becomes U+FFFD; unpaired surrogates likewise).
    static std::u16string toUTF16(std::string_view text);
    static std::string fromUTF16(std::u16string_view text);
    // Length in UTF-16 code units, the unit in which the system counts characters.
    static std::size_t utf16Length(std::string_view text);

    // White space and line ends (Unicode White_Space) trimmed from both ends.
    static std::string trimWhitespaceAndNewlines(std::string_view text);
    static bool isWhitespaceOrNewline(char32_t c);
    // Percent escapes decoded as UTF-8; none when a "%" is not followed by two
    // hex digits or the decoded bytes are not valid UTF-8.
    static std::optional<std::string> removePercentEncoding(std::string_view text);
    // Full Unicode case mapping (root locale).
    static std::string lowercase(std::string_view text);
    static std::string uppercase(std::string_view text);
    static std::string foldCase(std::string_view text);
    // Case-insensitive comparison and search by Unicode case folding.
    static bool equalsIgnoringCase(std::string_view a, std::string_view b);
    static int compareIgnoringCase(std::string_view a, std::string_view b);  // -1, 0, 1
    // Byte offset in `text` of the first ASCII-case-insensitive occurrence of
    // `needle` (std::string_view::npos when none).
    static std::size_t findIgnoringASCIICase(std::string_view text, std::string_view needle, std::size_t from = 0);
};

}  // namespace qh
