#pragma once
// RFC 2045 content transfer encodings, decoded to the bytes that were sent.
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh::rfc2045 {

// quoted-printable (section 6.7): "=XX" in either case is a byte, "=" at a
// line end a soft break, blanks before a line end were added in transport and
// go; a malformed "=" stays as it is. Line breaks (LF or CR LF) come out as
// `lineBreak`.
Bytes decodeQuotedPrintable(std::string_view text, std::string_view lineBreak = "\n");
// The same, as text (the bytes unchecked: no charset is applied).
std::string decodeQuotedPrintableText(std::string_view text, std::string_view lineBreak = "\n");

// 7bit / 8bit / binary text with its line breaks (LF or CR LF) written as `lineBreak`.
Bytes withLineBreaks(std::string_view text, std::string_view lineBreak);
std::string withLineBreaksText(std::string_view text, std::string_view lineBreak);

}  // namespace qh::rfc2045
