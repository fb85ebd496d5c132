#include "richtext/RTFReader.h"

#include "core/TextEncoding.h"
#include "richtext/RTFConverter.h"

namespace qh {

std::optional<std::string> RTFReader::stringFromRTFData(ByteView rtf) {
    return RTFConverter(RTFConverter::Output::Text).convert(rtf);
}

std::optional<std::string> RTFReader::htmlFromRTFData(ByteView rtf) {
    return RTFConverter(RTFConverter::Output::HTML).convert(rtf);
}

std::optional<std::string> RTFReader::rtfStringFromData(ByteView rtf) {
    for (StringEncoding encoding : {StringEncoding::UTF8, StringEncoding::Latin1, StringEncoding::Windows1251}) {
        if (auto text = TextEncoding::decode(rtf, encoding)) return text;
    }
    return std::nullopt;
}

}  // namespace qh
