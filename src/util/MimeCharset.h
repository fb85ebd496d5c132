#pragma once
// Text of bytes in a charset named as MIME names it ("iso-8859-2", "koi8-r",
// "gb2312", "iso-2022-jp", "utf-7", ...), through ICU, never nothing: mail in
// the wild mislabels its charset often enough that a reader which gives up
// loses text a person can read.
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh {

class MimeCharset {
public:
    // The bytes in `charset`; when that fails or ICU does not know the name:
    // UTF-8 when the bytes are valid UTF-8, else the named charset with U+FFFD
    // for what it cannot map, else Windows-1252. An empty name means US-ASCII.
    static std::string decode(ByteView bytes, std::string_view charset);
    // The same of bytes held in a string, which is the text itself where no
    // conversion is needed.
    static std::string decode(std::string&& bytes, std::string_view charset);
    // Windows-1252, the five bytes it leaves undefined taken as the C1 controls
    // of the same code (as ISO 8859-1 has them); never fails.
    static std::string decodeWindows1252(ByteView bytes);
    // Text that is valid UTF-8 as it stands, else its bytes as Windows-1252
    // (raw 8-bit header values).
    static std::string utf8OrWindows1252(std::string_view text);
    static bool isValidUTF8(std::string_view text);
};

}  // namespace qh
