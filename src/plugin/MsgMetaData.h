#pragma once
// The preview's extraction: the body of a .msg file as RTF when it carries a
// compressed-RTF body, as plain text otherwise.
#include <string>
#include <variant>

#include <quillhaven/Bytes.h>

namespace qh {

// Nothing, the decoded RTF bytes, or the plain-text body as UTF-8.
using PreviewBody = std::variant<std::monostate, Bytes, std::string>;

// In this order: the compressed RTF of "__substg1.0_10090102" (or, only when
// that stream is missing, "__substg1.0_10080102"); else the UTF-16LE body
// "__substg1.0_1000001F" when it decodes to non-empty text; else the ASCII
// decoding of "__substg1.0_1000001E" (empty text when the stream is missing,
// nothing when it is not ASCII). Nothing when the bytes are no compound
// document. Streams are decoded with their sector padding, as they come.
PreviewBody msgMetaData(ByteView data);

}  // namespace qh
