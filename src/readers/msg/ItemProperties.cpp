#include "readers/msg/ItemProperties.h"

#include "readers/msg/Format.h"
#include "readers/msg/PropertyAccess.h"
#include "util/TimeWangers.h"

namespace qh {

using namespace msgformat;

MsgItemProperties::MsgItemProperties(const Dict& root, bool embedded, const MsgText& text)
    : root_(root),
      headerSize_(embedded ? kEmbeddedPropertyHeaderSize : kTopPropertyHeaderSize),
      text_(text),
      resolver_(root) {}

std::optional<std::string> MsgItemProperties::string(std::uint32_t tag) const {
    return text_.find(tag, kTypeUnicode, &root_);
}

std::optional<std::string> MsgItemProperties::namedString(const GuidBytes& set, std::uint32_t name) const {
    std::optional<std::uint32_t> tag = resolver_.find(set, name);
    return tag ? string(*tag) : std::nullopt;
}

std::optional<Blob> MsgItemProperties::namedBinary(const GuidBytes& set, std::uint32_t name) const {
    std::optional<std::uint32_t> tag = resolver_.find(set, name);
    if (!tag) return std::nullopt;
    return MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, *tag, kTypeBinary, &root_);
}

std::optional<std::array<std::uint8_t, 8>> MsgItemProperties::fixed(std::uint32_t tag, std::uint32_t type) const {
    return MsgPropertyAccess::findFixedProperty(tag, type, MsgPropertyAccess::propertyStreamOf(&root_), headerSize_);
}

std::optional<Date> MsgItemProperties::time(std::uint32_t tag) const {
    auto value = fixed(tag, kTypeTime);
    if (!value) return std::nullopt;
    std::uint64_t filetime = MsgPropertyAccess::filetimeOf(*value);
    // Zero and the all-ones "no date" marker (year 4501) are not dates.
    if (filetime == 0 || filetime >= 0x7FFFFFFFFFFFFFFFull) return std::nullopt;
    return Date{static_cast<double>(TimeWangers::unixTimeFromWindows(static_cast<std::int64_t>(filetime)))};
}

std::optional<Date> MsgItemProperties::namedTime(const GuidBytes& set, std::uint32_t name) const {
    std::optional<std::uint32_t> tag = resolver_.find(set, name);
    return tag ? time(*tag) : std::nullopt;
}

std::optional<std::uint32_t> MsgItemProperties::namedInteger(const GuidBytes& set, std::uint32_t name) const {
    std::optional<std::uint32_t> tag = resolver_.find(set, name);
    if (!tag) return std::nullopt;
    auto value = fixed(*tag, kTypeInteger32);
    if (!value) return std::nullopt;
    return MsgPropertyAccess::integerOf(*value);
}

std::optional<bool> MsgItemProperties::namedBoolean(const GuidBytes& set, std::uint32_t name) const {
    std::optional<std::uint32_t> tag = resolver_.find(set, name);
    if (!tag) return std::nullopt;
    auto value = fixed(*tag, kTypeBoolean);
    if (!value) return std::nullopt;
    return (*value)[0] != 0;
}

void MsgItemProperties::put(Dict& item, std::string_view key, const std::optional<std::string>& value) {
    if (value && !value->empty()) item.set(std::string(key), Value(*value));
}

}  // namespace qh
