#pragma once
// Makes TNEF streams (MS-OXTNEF) for fixtures: attributes with their level,
// id, size and checksum (correct, or whatever the fixture claims), and MAPI
// property blocks with single- and multi-valued, named and unnamed properties
// in their wire form.
//
//   TnefWriter stream;
//   stream.attribute(kLevelMessage, kAttSubject, std::string("Hello\0", 6))
//         .attribute(kLevelMessage, kAttMsgProps, MapiBlock().string8(0x0037001E, "Hi").bytes());
//   qh::Bytes data = stream.bytes();
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qhtest {

class MapiBlock {
public:
    // A property with its value(s) already in wire form.
    struct Property {
        std::uint32_t tag = 0;  // for a multi-valued property without the 0x1000 bit
        bool multiValued = false;
        // Named properties: the GUID, then either a number or a name.
        std::optional<std::uint32_t> namedNumber;
        std::optional<std::u16string> namedString;
        std::vector<qh::Bytes> values;
    };

    // A fixed-width value (padded to four bytes): 0x0002, 0x0003, 0x0005, ...
    MapiBlock& fixed(std::uint32_t tag, qh::ByteView value);
    MapiBlock& u32(std::uint32_t tag, std::uint32_t value);
    MapiBlock& u64(std::uint32_t tag, std::uint64_t value);
    // A single variable-length value: count 1, length, data, padding.
    MapiBlock& variable(std::uint32_t tag, qh::ByteView data);
    MapiBlock& string8(std::uint32_t tag, std::string_view text);  // adds the terminating zero
    MapiBlock& unicode(std::uint32_t tag, std::u16string_view text);  // UTF-16LE with its zero
    // A multi-valued property: the tag gets the 0x1000 bit, then the count and
    // each value (variable types: length, data, padding; fixed: padded).
    MapiBlock& multi(std::uint32_t tag, const std::vector<qh::Bytes>& values);
    MapiBlock& add(Property property);
    // Bytes appended as they stand after the properties written so far.
    MapiBlock& raw(qh::ByteView bytes);
    // The count written at the front (default: the properties added).
    MapiBlock& claimCount(std::uint32_t count);

    qh::Bytes bytes() const;

    // A value in wire form: "variable" (length, data, padding) or padded fixed.
    static bool isVariableType(std::uint16_t type);

private:
    qh::Bytes body_;
    std::uint32_t added_ = 0;
    std::optional<std::uint32_t> claimedCount_;
};

class TnefWriter {
public:
    explicit TnefWriter(std::uint16_t key = 0x0001);

    // One attribute with the correct checksum.
    TnefWriter& attribute(std::uint8_t level, std::uint32_t id, qh::ByteView data);
    TnefWriter& attribute(std::uint8_t level, std::uint32_t id, std::string_view data) {
        return attribute(level, id, qh::asBytes(data));
    }
    // One attribute with a checksum of the fixture's choosing.
    TnefWriter& attributeWithChecksum(std::uint8_t level, std::uint32_t id, qh::ByteView data,
                                      std::uint16_t checksum);
    // An attribute header claiming `size` without data or checksum behind it.
    TnefWriter& header(std::uint8_t level, std::uint32_t id, std::uint32_t size);
    // An attachment: "Attachment Display info", then title, data and property block as given.
    TnefWriter& attachment(std::optional<std::string_view> title, std::optional<qh::ByteView> data,
                           std::optional<qh::Bytes> properties = std::nullopt);
    TnefWriter& raw(qh::ByteView bytes);

    qh::Bytes bytes() const { return out_; }

    // The sum of the bytes, kept to 16 bits.
    static std::uint16_t checksum(qh::ByteView data);
    // attFrom's value: a recipient triple (id, size, name and address
    // lengths), the name and "TYPE:address" with their zeros, an empty triple.
    static qh::Bytes sender(std::string_view name, std::string_view typedAddress);
    // attRecipTable's value: the row count, then each row's property block.
    static qh::Bytes recipientTable(const std::vector<MapiBlock>& rows);
    // A date-time attribute value: seven 16-bit words.
    static qh::Bytes date(std::uint16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour,
                          std::uint16_t minute, std::uint16_t second, std::uint16_t dayOfWeek = 0);

private:
    qh::Bytes out_;
};

// Little-endian helpers for fixtures.
void appendU16(qh::Bytes& out, std::uint16_t value);
void appendU32(qh::Bytes& out, std::uint32_t value);
void appendU64(qh::Bytes& out, std::uint64_t value);
qh::Bytes u32(std::uint32_t value);
qh::Bytes utf16le(std::u16string_view text);
qh::Bytes concat(std::initializer_list<qh::Bytes> parts);

}  // namespace qhtest
