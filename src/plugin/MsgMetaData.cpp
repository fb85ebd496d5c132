#include "plugin/MsgMetaData.h"

#include <quillhaven/Mole.h>
#include "core/TextEncoding.h"
#include "richtext/RTFWangers.h"

namespace qh {

namespace {

constexpr std::string_view kCompressedRTFStream = "__substg1.0_10090102";
constexpr std::string_view kProperty1008Stream = "__substg1.0_10080102";
constexpr std::string_view kUnicodeBodyStream = "__substg1.0_1000001F";
constexpr std::string_view kEightBitBodyStream = "__substg1.0_1000001E";

PreviewBody extract(const Mole& mole) {
    // The 0x1008 stream is consulted only when the RTF body stream is missing,
    // not when it is there but holds something else.
    std::optional<Blob> rtfStream = mole.getStream(kCompressedRTFStream);
    if (!rtfStream) rtfStream = mole.getStream(kProperty1008Stream);
    if (rtfStream && RTFWangers::typeIsRTF(rtfStream->view())) {
        if (auto rtf = RTFWangers::getRTFForData(rtfStream->view())) return std::move(*rtf);
    }

    if (std::optional<Blob> unicodeBody = mole.getStream(kUnicodeBodyStream)) {
        auto text = TextEncoding::decode(unicodeBody->view(), StringEncoding::UTF16LE);
        if (text && !text->empty()) return std::move(*text);
    }

    std::optional<Blob> eightBitBody = mole.getStream(kEightBitBodyStream);
    auto text = TextEncoding::decode(eightBitBody ? eightBitBody->view() : ByteView(), StringEncoding::ASCII);
    if (!text) return std::monostate{};
    return std::move(*text);
}

}  // namespace

PreviewBody msgMetaData(ByteView data) {
    std::unique_ptr<Mole> mole = Mole::initBorrowingData(data);
    if (!mole) return std::monostate{};
    PreviewBody body = extract(*mole);
    mole->deInitialize();
    return body;
}

}  // namespace qh
