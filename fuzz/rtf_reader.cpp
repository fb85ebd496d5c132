// The RTF reader on arbitrary bytes: plain text, HTML and the bytes-as-text
// decoding. Input that is not RTF is also read behind an RTF header, so the
// fuzzer reaches the parser without first having to find "{\rtf"; a
// compressed-RTF stream (from the shared corpus) is decoded and read too.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/TextEncoding.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"

namespace {

void read(qh::ByteView rtf) {
    auto text = qh::RTFReader::stringFromRTFData(rtf);
    auto html = qh::RTFReader::htmlFromRTFData(rtf);
    // Whatever the input, what comes out is UTF-8.
    if (text && qh::TextEncoding::sanitizeUTF8(*text) != *text) std::abort();
    if (html && qh::TextEncoding::sanitizeUTF8(*html) != *html) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    qh::ByteView input(data, size);
    read(input);
    (void)qh::RTFReader::rtfStringFromData(input);
    if (!qh::asText(input).starts_with("{\\rtf")) {
        std::string wrapped = "{\\rtf1 ";
        wrapped.append(qh::asText(input));
        read(qh::asBytes(wrapped));
    }
    if (qh::RTFWangers::typeIsRTF(input)) {
        if (auto decoded = qh::RTFWangers::getRTFForData(input)) read(*decoded);
    }
    return 0;
}
