#include "readers/msg/NamedProperties.h"

#include <algorithm>

#include "core/ByteCursor.h"
#include "core/TextEncoding.h"
#include "readers/msg/PropertyAccess.h"
#include "util/DataWangers.h"

namespace qh {

using namespace msgformat;

namespace {
std::optional<Blob> mappingStream(const Dict* storage, std::uint32_t element) {
    return MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, kTypeBinary, storage);
}
}  // namespace

MsgNamedProperties::Mapping MsgNamedProperties::getNamedPropertiesForMessage(const Dict& root) {
    const Dict* storage = root.findDict(kNameIdStorage);
    Mapping mapping;
    mapping.guids = calculateGuids(mappingStream(storage, kNameIdGuidStream));
    mapping.streams = calculateEntryStreamIndexes(mappingStream(storage, kNameIdEntryStream));
    mapping.strings = generateStringStream(mappingStream(storage, kNameIdStringStream));
    return mapping;
}

std::vector<MsgNamedProperties::Guid> MsgNamedProperties::calculateGuids(const std::optional<Blob>& stream) {
    std::vector<Guid> guids;
    if (!stream || stream->size() < kGuidSize + 1) return guids;
    ByteView bytes = stream->view();
    const std::size_t length = bytes.size();
    for (std::size_t offset = 0;; offset += kGuidSize) {
        Guid guid{};
        // Data1 reversed, then Data2 and Data3 reversed together as one number.
        for (int i = 0; i < 4; ++i) guid[i] = bytes[offset + 3 - i];
        for (int i = 0; i < 4; ++i) guid[4 + i] = bytes[offset + 7 - i];
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset + 8), 8, guid.begin() + 8);
        guids.push_back(guid);
        // Stops one GUID early: the last GUID of the stream is never read.
        if (!(length > offset + 2 * kGuidSize)) break;
    }
    return guids;
}

std::map<std::int64_t, std::uint32_t> MsgNamedProperties::calculateEntryStreamIndexes(
    const std::optional<Blob>& stream) {
    std::map<std::int64_t, std::uint32_t> result;
    if (!stream || stream->size() < kNameIdEntrySize + 1) return result;
    ByteView bytes = stream->view();
    const std::size_t length = bytes.size();
    for (std::size_t offset = 0;; offset += kNameIdEntrySize) {
        std::int32_t id = ByteCursor(bytes, offset).i32le();
        result[id] = kFirstNamedPropertyId + static_cast<std::uint32_t>(offset / kNameIdEntrySize);
        // As with the GUIDs, the last record is never read.
        if (!(length > offset + 2 * kNameIdEntrySize)) break;
    }
    return result;
}

std::vector<std::string> MsgNamedProperties::generateStringStream(const std::optional<Blob>& stream) {
    std::vector<std::string> strings;
    if (!stream || stream->size() < 5) return strings;
    ByteView bytes = stream->view();
    const std::size_t length = bytes.size();
    std::size_t pos = 0;
    std::size_t start = 4;
    Bytes name;
    while (true) {
        std::int32_t declared = ByteCursor(bytes, pos).i32le();
        name.clear();
        // Two bytes at a time; a name whose last unit ends exactly at the
        // stream's end loses it. A negative length copies nothing.
        std::size_t read = start;
        while (declared > 0 && name.size() < static_cast<std::size_t>(declared)) {
            if (length <= read + 2) break;
            name.push_back(bytes[read]);
            name.push_back(bytes[read + 1]);
            read += 2;
        }
        if (std::optional<std::string> text = TextEncoding::decode(name, StringEncoding::UTF16LE);
            text && !text->empty()) {
            strings.push_back(std::move(*text));
        }
        // The step to the next entry is len + 2 bytes past the name's start,
        // not the format's 4-byte alignment.
        std::int64_t next = static_cast<std::int64_t>(start) + declared + 2;
        if (next <= static_cast<std::int64_t>(pos)) break;  // a negative length would walk backwards
        pos = static_cast<std::size_t>(next);
        start = pos + 4;
        if (!(length > start)) break;
    }
    return strings;
}

MsgNamedProperties::Resolver::Resolver(const Dict& root) {
    const Dict* storage = root.findDict(kNameIdStorage);
    guidBlob_ = mappingStream(storage, kNameIdGuidStream);
    entryBlob_ = mappingStream(storage, kNameIdEntryStream);
    if (guidBlob_) guidStream_ = guidBlob_->view();
    if (entryBlob_) entryStream_ = entryBlob_->view();
}

std::optional<std::uint32_t> MsgNamedProperties::Resolver::find(const GuidBytes& propertySet,
                                                                std::uint32_t name) const {
    // Which GUID index stands for the set in this file: the GUID stream's
    // position + 3 (indexes 1 and 2 are the two well-known sets, never ours).
    std::optional<std::uint32_t> wantedIndex;
    for (std::size_t offset = 0; fits(offset, kGuidSize, guidStream_.size()); offset += kGuidSize) {
        if (std::equal(propertySet.begin(), propertySet.end(), guidStream_.begin() + static_cast<std::ptrdiff_t>(offset))) {
            wantedIndex = kGuidIndexFirstStream + static_cast<std::uint32_t>(offset / kGuidSize);
            break;
        }
    }
    if (!wantedIndex) return std::nullopt;
    for (std::size_t offset = 0; fits(offset, kNameIdEntrySize, entryStream_.size()); offset += kNameIdEntrySize) {
        ByteCursor record(entryStream_, offset);
        std::uint32_t nameId = record.u32le();
        std::uint16_t indexAndKind = record.u16le();
        std::uint16_t propertyIndex = record.u16le();
        bool isString = (indexAndKind & 1) != 0;
        std::uint32_t guidIndex = indexAndKind >> 1;
        if (!isString && guidIndex == *wantedIndex && nameId == name) {
            return kFirstNamedPropertyId + propertyIndex;
        }
    }
    return std::nullopt;
}

}  // namespace qh
