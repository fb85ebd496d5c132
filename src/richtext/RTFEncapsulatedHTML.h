#pragma once
// The HTML an RTF document carries when it was written from HTML
// (\fromhtml1): the text of its \*\htmltag groups and the text outside
// \htmlrtf ... \htmlrtf0, in one pass over the bytes, without tokens or
// strings per token. Mail clients store HTML mail this way, so it is the
// HTML body of many .msg files that have no HTML property.
//
// For every document it takes, the HTML is byte for byte what RTFConverter's
// HTML output gives (a randomised test holds the two together). It takes a
// document only when the control words that open it declare \fromhtml1
// before any text, group or symbol; anything else is RTFConverter's.
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class RTFEncapsulatedHTML {
public:
    // The encapsulated HTML, or std::nullopt when the bytes are not RTF or
    // do not open with \fromhtml1 (then RTFConverter reads them).
    static std::optional<std::string> extract(ByteView rtf);
};

}  // namespace qh
