#include "writers/MessageItems.h"

#include <initializer_list>
#include <string>
#include <string_view>

#include <quillhaven/MessageKeys.h>

namespace qh::items {

std::optional<ByteView> itemData(const Dict& item) {
    const Value* data = item.find(keys::kAttachData);
    if (!data) return std::nullopt;
    if (const Blob* bytes = data->bytes()) return bytes->view();
    if (const std::string* text = data->string()) return asBytes(*text);
    return std::nullopt;
}

std::size_t convertedSizeEstimate(const Dict& message, std::size_t textFactor) {
    std::size_t size = 0;
    for (std::string_view key : std::initializer_list<std::string_view>{keys::kBody, keys::kHTML}) {
        if (const std::string* text = message.findString(key)) size += text->size() * textFactor;
    }
    if (const Blob* rtf = message.findBytes(keys::kRTF)) size += rtf->size() * 2;
    if (const Array* list = message.findArray(keys::kAttachmentList)) {
        for (const Value& entry : *list) {
            const Dict* attachment = entry.dict();
            const Blob* data = attachment ? attachment->findBytes(keys::kAttachData) : nullptr;
            if (data) size += data->size() / 3 * 4 + data->size() / 38 + 256;
        }
    }
    return size;
}

}  // namespace qh::items
