#include "readers/AttachmentFiles.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <quillhaven/MessageKeys.h>
#include <quillhaven/MessageReader.h>
#include "writers/MessageItems.h"

namespace qh {

namespace {

// How deep a TNEF stream inside a TNEF stream is still opened: mail clients
// wrap once, a forward of a forward twice; deeper nesting is crafted.
constexpr int kMaxTnefDepth = 4;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

const std::string* itemName(const Dict& item) {
    if (const std::string* name = item.findString(keys::kAttachName)) return name;
    return item.findString(keys::kPartFileName);
}

bool walkList(const Dict& message, const ReadOptions& options, bool expandTnef, int tnefDepth,
              const std::function<bool(const AttachmentFiles::File&)>& visit,
              const std::function<void(std::string_view)>& complain) {
    const Array* list = message.findArray(keys::kAttachmentList);
    if (!list) return true;
    std::vector<ByteView> tnefStreams;
    for (const Value& value : *list) {
        const Dict* item = value.dict();
        if (!item) continue;
        std::optional<ByteView> data = items::itemData(*item);
        if (!data) continue;
        const std::string* name = itemName(*item);
        if (!visit({*item, name ? std::string_view(*name) : std::string_view(), *data})) return false;
        if (expandTnef && AttachmentFiles::isTnef(*item, *data)) tnefStreams.push_back(*data);
    }
    // The streams stay alive: they point into `message`, which outlives this loop.
    for (ByteView stream : tnefStreams) {
        if (tnefDepth >= kMaxTnefDepth) {
            if (complain) complain("TNEF streams nested too deep; not opened");
            break;
        }
        std::optional<Dict> inner = MessageReader::read(stream, MessageKind::tnef, options);
        if (inner && !walkList(*inner, options, expandTnef, tnefDepth + 1, visit, complain)) return false;
    }
    return true;
}

}  // namespace

bool AttachmentFiles::isTnef(const Dict& item, ByteView data) {
    static constexpr std::uint8_t kSignature[] = {0x78, 0x9F, 0x3E, 0x22};
    if (data.size() >= sizeof kSignature && std::equal(std::begin(kSignature), std::end(kSignature), data.begin()))
        return true;
    if (const std::string* name = itemName(item); name && equalsIgnoringCase(*name, "winmail.dat")) return true;
    for (std::string_view key : {keys::kAttachMimeType, std::string_view("contentType")}) {
        const std::string* type = item.findString(key);
        if (type && (equalsIgnoringCase(*type, "application/ms-tnef") ||
                     equalsIgnoringCase(*type, "application/vnd.ms-tnef")))
            return true;
    }
    return false;
}

bool AttachmentFiles::walk(const Dict& message, const ReadOptions& options, bool expandTnef,
                           const std::function<bool(const File&)>& visit,
                           const std::function<void(std::string_view)>& complain) {
    return walkList(message, options, expandTnef, 0, visit, complain);
}

}  // namespace qh
