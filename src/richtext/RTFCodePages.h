#pragma once
// Decodes the 8-bit text of an RTF document (literal bytes and \'hh escapes)
// through Windows code pages. The converters are opened once per thread and
// code page (opening one costs more than decoding a message's worth of text)
// and reset before each use.
#include <cstdint>
#include <string>

#include <quillhaven/Bytes.h>

struct UConverter;

namespace qh {

class RTFCodePages {
public:
    static constexpr std::uint16_t kDefaultCodePage = 1252;

    RTFCodePages() = default;
    RTFCodePages(const RTFCodePages&) = delete;
    RTFCodePages& operator=(const RTFCodePages&) = delete;

    // The code page of an \fcharset value; 0 when the charset means "the document's code page".
    static std::uint16_t codePageForCharset(std::int32_t charset);

    // Appends `bytes` decoded through `codePage` to `out` as UTF-8. Bytes the
    // code page cannot map become U+FFFD; an unknown code page reads as Windows-1252.
    void appendDecoded(ByteView bytes, std::uint16_t codePage, std::string& out);

    // UTF-16 code units / one code point appended as UTF-8 (lone surrogates become U+FFFD).
    static void appendUTF16(const char16_t* units, std::size_t count, std::string& out);
    static void appendUTF8(char32_t codePoint, std::string& out);

private:
    static UConverter* converterFor(std::uint16_t codePage);

    std::u16string scratch_;
};

}  // namespace qh
