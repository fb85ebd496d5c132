#pragma once
// The rich-text reader: RTF documents turned into plain text or into an HTML
// document. It parses the RTF itself (groups, destinations, code pages,
// Unicode escapes, fields) in one pass over the bytes, with a bounded group
// stack, so any byte string is safe to hand it.
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class RTFReader {
public:
    // The document's plain text (UTF-8, paragraphs ended by "\n"), or
    // std::nullopt when the bytes are not RTF (no leading "{\rtf").
    static std::optional<std::string> stringFromRTFData(ByteView rtf);
    // A complete HTML document: paragraphs, bold/italic/underline, hyperlinks
    // from HYPERLINK fields; the original HTML when the RTF encapsulates HTML
    // (\fromhtml1). std::nullopt when the bytes are not RTF.
    static std::optional<std::string> htmlFromRTFData(ByteView rtf);
    // The RTF bytes as text: UTF-8, else ISO Latin-1, else Windows-1251;
    // std::nullopt when none of them decodes (or the bytes are empty).
    static std::optional<std::string> rtfStringFromData(ByteView rtf);
};

}  // namespace qh
