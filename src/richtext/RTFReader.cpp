#include "richtext/RTFReader.h"

#include "core/TextEncoding.h"
#include "richtext/RTFConverter.h"
#include "richtext/RTFEncapsulatedHTML.h"

namespace qh {

std::optional<std::string> RTFReader::stringFromRTFData(ByteView rtf) {
    return RTFConverter(RTFConverter::Output::Text).convert(rtf);
}

std::optional<std::string> RTFReader::htmlFromRTFData(ByteView rtf) {
    // HTML mail stored as RTF takes the one-pass extraction; the rest, and
    // documents that do not open with \fromhtml1, the converter.
    if (std::optional<std::string> html = RTFEncapsulatedHTML::extract(rtf)) return html;
    return RTFConverter(RTFConverter::Output::HTML).convert(rtf);
}

std::optional<std::string> RTFReader::rtfStringFromData(ByteView rtf) {
    for (StringEncoding encoding : {StringEncoding::UTF8, StringEncoding::Latin1, StringEncoding::Windows1251}) {
        if (auto text = TextEncoding::decode(rtf, encoding)) return text;
    }
    return std::nullopt;
}

}  // namespace qh
