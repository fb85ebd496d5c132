#include "readers/msg/PropertyAccess.h"

#include <cstdio>

#include "core/ByteCursor.h"
#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/msg/MsgText.h"
#include "util/TimeWangers.h"

namespace qh {

using namespace msgformat;

std::string MsgPropertyAccess::getHexFromElement(std::uint32_t element, std::uint32_t elementType) {
    if (element == 0 || elementType == 0) return "";
    char text[24];
    std::snprintf(text, sizeof text, "%04X%04X", element, elementType);
    return text;
}

namespace {
const Value* entryFor(std::string_view prefix, std::uint32_t element, std::uint32_t elementType,
                      const Dict* container) {
    if (!container) return nullptr;
    std::string key(prefix);
    key += MsgPropertyAccess::getHexFromElement(element, elementType);
    if (key.empty()) return nullptr;
    return container->find(key);
}
}  // namespace

std::optional<Blob> MsgPropertyAccess::getDataFromRoot(std::string_view prefix, std::uint32_t element,
                                                       std::uint32_t elementType, const Dict* container) {
    const Value* entry = entryFor(prefix, element, elementType, container);
    if (!entry || !entry->bytes() || entry->bytes()->empty()) return std::nullopt;
    return *entry->bytes();
}

const Dict* MsgPropertyAccess::getStorageFromRoot(std::string_view prefix, std::uint32_t element,
                                                  std::uint32_t elementType, const Dict* container) {
    const Value* entry = entryFor(prefix, element, elementType, container);
    return entry ? entry->dict() : nullptr;
}

std::string MsgPropertyAccess::decodeElement(std::uint32_t element, std::uint32_t elementType,
                                             const Dict* container) {
    return MsgText(MsgRules::classic()).property(element, elementType, container);
}

namespace {
// The value of the 16-byte record at `offset` when it holds the wanted type
// and identifier; the caller keeps the record inside the stream.
std::optional<MsgPropertyAccess::PropertyValue> matchRecord(ByteView propertyStream, std::size_t offset,
                                                            std::uint32_t element, std::uint32_t elementType) {
    ByteCursor record(propertyStream, offset);
    std::uint16_t type = record.u16le();
    std::uint16_t id = record.u16le();
    if (type != elementType || id != element) return std::nullopt;
    MsgPropertyAccess::PropertyValue value{};
    ByteView bytes = propertyStream.subspan(offset + kPropertyValueOffset, kPropertyValueSize);
    std::copy(bytes.begin(), bytes.end(), value.begin());
    return value;
}
}  // namespace

std::optional<MsgPropertyAccess::PropertyValue> MsgPropertyAccess::getPropertyElement(
    std::uint32_t element, std::uint32_t elementType, ByteView propertyStream) {
    const std::size_t length = propertyStream.size();
    if (length < kPropertyRecordSize) return std::nullopt;
    // classic: the last record (the one starting at length - 16) is never
    // examined, and records are taken from the stream's first byte; the
    // family's dictionaries of real files depend on both.
    for (std::size_t offset = 0; offset < length - kPropertyRecordSize; offset += kPropertyRecordSize) {
        if (auto value = matchRecord(propertyStream, offset, element, elementType)) return value;
    }
    return std::nullopt;
}

std::optional<Date> MsgPropertyAccess::getDateFromPropertyElement(std::uint32_t element, ByteView propertyStream) {
    if (propertyStream.size() <= kPropertyRecordSize) return std::nullopt;
    std::optional<PropertyValue> value = getPropertyElement(element, kTypeTime, propertyStream);
    if (!value) return std::nullopt;
    return Date{static_cast<double>(TimeWangers::unixTimeFromWindows(filetimeOf(*value)))};
}

std::optional<MsgPropertyAccess::PropertyValue> MsgPropertyAccess::findFixedProperty(
    std::uint32_t element, std::uint32_t elementType, ByteView propertyStream, std::size_t headerSize) {
    for (std::size_t offset = headerSize; fits(offset, kPropertyRecordSize, propertyStream.size());
         offset += kPropertyRecordSize) {
        if (auto value = matchRecord(propertyStream, offset, element, elementType)) return value;
    }
    return std::nullopt;
}

ByteView MsgPropertyAccess::propertyStreamOf(const Dict* container) {
    if (!container) return {};
    const Blob* stream = container->findBytes(kPropertiesStream);
    return stream ? stream->view() : ByteView();
}

std::uint32_t MsgPropertyAccess::integerOf(const PropertyValue& value) {
    return ByteCursor(value).u32le();
}

std::uint64_t MsgPropertyAccess::filetimeOf(const PropertyValue& value) {
    return ByteCursor(value).u64le();
}

}  // namespace qh
