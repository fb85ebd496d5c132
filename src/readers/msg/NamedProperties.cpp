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
    const std::size_t length = stream->size();
    ByteCursor cursor(stream->view());
    while (true) {
        ByteView stored = cursor.bytes(kGuidSize);
        if (cursor.isShort()) break;
        Guid guid{};
        // Data1 reversed, then Data2 and Data3 reversed together as one number.
        std::reverse_copy(stored.begin(), stored.begin() + 4, guid.begin());
        std::reverse_copy(stored.begin() + 4, stored.begin() + 8, guid.begin() + 4);
        std::copy(stored.begin() + 8, stored.end(), guid.begin() + 8);
        guids.push_back(guid);
        // classic: stops one GUID early, the last GUID of the stream is never
        // read; the contact and appointment builders of the family expect it.
        if (!(length > cursor.position() + kGuidSize)) break;
    }
    return guids;
}

std::map<std::int64_t, std::uint32_t> MsgNamedProperties::calculateEntryStreamIndexes(
    const std::optional<Blob>& stream) {
    std::map<std::int64_t, std::uint32_t> result;
    if (!stream || stream->size() < kNameIdEntrySize + 1) return result;
    const std::size_t length = stream->size();
    ByteCursor cursor(stream->view());
    while (true) {
        const std::size_t offset = cursor.position();
        std::int32_t id = cursor.i32le();
        cursor.skip(kNameIdEntrySize - 4);
        if (cursor.isShort()) break;
        result[id] = kFirstNamedPropertyId + static_cast<std::uint32_t>(offset / kNameIdEntrySize);
        // classic: as with the GUIDs, the last record is never read.
        if (!(length > cursor.position() + kNameIdEntrySize)) break;
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
    while (true) {
        std::int32_t declared = ByteCursor(bytes, pos).i32le();
        // Two bytes at a time up to the declared length (a negative one copies
        // nothing). classic: a unit is copied only when two more bytes follow
        // its start, so a name whose last unit ends exactly at the stream's
        // end loses it; the family's named-property lists depend on it.
        const std::size_t wanted = declared > 0 ? (static_cast<std::size_t>(declared) + 1) / 2 * 2 : 0;
        const std::size_t copyable = length > start + 2 ? ((length - 3 - start) / 2 + 1) * 2 : 0;
        ByteView name = ByteCursor(bytes, start).upTo(std::min(wanted, copyable));
        if (std::optional<std::string> text = TextEncoding::decode(name, StringEncoding::UTF16LE);
            text && !text->empty()) {
            strings.push_back(std::move(*text));
        }
        // classic: the step to the next entry is len + 2 bytes past the
        // name's start, not the format's 4-byte alignment.
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
    ByteCursor guids(guidStream_);
    for (std::uint32_t index = kGuidIndexFirstStream;; ++index) {
        ByteView guid = guids.bytes(kGuidSize);
        if (guids.isShort()) break;
        if (std::equal(propertySet.begin(), propertySet.end(), guid.begin())) {
            wantedIndex = index;
            break;
        }
    }
    if (!wantedIndex) return std::nullopt;
    ByteCursor entries(entryStream_);
    while (true) {
        std::uint32_t nameId = entries.u32le();
        std::uint16_t indexAndKind = entries.u16le();
        std::uint16_t propertyIndex = entries.u16le();
        if (entries.isShort()) break;
        bool isString = (indexAndKind & 1) != 0;
        std::uint32_t guidIndex = indexAndKind >> 1;
        if (!isString && guidIndex == *wantedIndex && nameId == name) {
            return kFirstNamedPropertyId + propertyIndex;
        }
    }
    return std::nullopt;
}

}  // namespace qh
