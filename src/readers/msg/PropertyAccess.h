#pragma once
// Finding one MAPI property in a message file's entry dictionary: variable-
// length properties in their "__substg1.0_" streams, fixed-length ones in the
// 16-byte records of "__properties_version1.0". Stateless; ReadMSG forwards
// its class operations of the same names here.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

class MsgPropertyAccess {
public:
    using PropertyValue = std::array<std::uint8_t, 8>;

    // "%04X%04X" of identifier and type; "" when either is 0.
    static std::string getHexFromElement(std::uint32_t element, std::uint32_t elementType);
    // The non-empty stream named prefix + hex(element, type) in `container`, or none.
    static std::optional<Blob> getDataFromRoot(std::string_view prefix, std::uint32_t element,
                                               std::uint32_t elementType, const Dict* container);
    // The storage (nested entry dictionary) under the same kind of name, or null.
    static const Dict* getStorageFromRoot(std::string_view prefix, std::uint32_t element,
                                          std::uint32_t elementType, const Dict* container);
    // A string property (type 0x001E or 0x001F, each falling back to the
    // other), cleaned of control characters; "" when absent or unreadable.
    static std::string decodeElement(std::uint32_t element, std::uint32_t elementType, const Dict* container);
    // The 8 value bytes of the record with this type and identifier. The
    // stream's last record is never examined.
    static std::optional<PropertyValue> getPropertyElement(std::uint32_t element, std::uint32_t elementType,
                                                           ByteView propertyStream);
    // A time (type 0x0040) record of the stream, as a date; same end bound.
    static std::optional<Date> getDateFromPropertyElement(std::uint32_t element, ByteView propertyStream);

    // Every record examined, records aligned after a header of `headerSize`
    // bytes; used where no file depends on the scan above (contacts and
    // appointments).
    static std::optional<PropertyValue> findFixedProperty(std::uint32_t element, std::uint32_t elementType,
                                                          ByteView propertyStream, std::size_t headerSize);
    // The container's property stream, empty when absent.
    static ByteView propertyStreamOf(const Dict* container);

    static std::uint32_t integerOf(const PropertyValue& value);
    static std::uint64_t filetimeOf(const PropertyValue& value);
};

}  // namespace qh
