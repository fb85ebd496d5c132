#pragma once
// Typed reads of one item's properties for the contact and appointment
// builders: strings by tag or by named property (set + numeric name), and
// fixed-length values from every record of the property stream.
#include <cstdint>
#include <optional>
#include <string>

#include <quillhaven/Value.h>
#include "readers/msg/Format.h"
#include "readers/msg/MsgText.h"
#include "readers/msg/NamedProperties.h"

namespace qh {

class MsgItemProperties {
public:
    // Strings are read as `text` reads them (its reading and code pages).
    MsgItemProperties(const Dict& root, bool embedded, const MsgText& text = MsgText(MsgRules::classic()));

    // Non-empty strings only.
    std::optional<std::string> string(std::uint32_t tag) const;
    std::optional<std::string> namedString(const msgformat::GuidBytes& set, std::uint32_t name) const;
    std::optional<Blob> namedBinary(const msgformat::GuidBytes& set, std::uint32_t name) const;
    std::optional<Date> time(std::uint32_t tag) const;
    std::optional<Date> namedTime(const msgformat::GuidBytes& set, std::uint32_t name) const;
    std::optional<std::uint32_t> namedInteger(const msgformat::GuidBytes& set, std::uint32_t name) const;
    std::optional<bool> namedBoolean(const msgformat::GuidBytes& set, std::uint32_t name) const;

    // Sets `key` to the value when there is one.
    static void put(Dict& item, std::string_view key, const std::optional<std::string>& value);

private:
    std::optional<std::array<std::uint8_t, 8>> fixed(std::uint32_t tag, std::uint32_t type) const;

    const Dict& root_;
    std::size_t headerSize_;
    MsgText text_;
    MsgNamedProperties::Resolver resolver_;
};

}  // namespace qh
