#pragma once
// The named-property mapping of a message file (MS-OXMSG "__nameid_version1.0"):
// the three decoders of its streams, and a resolver from (property set,
// numeric name) to the property identifier this file uses.
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <quillhaven/Value.h>
#include "readers/msg/Format.h"

namespace qh {

class MsgNamedProperties {
public:
    using Guid = std::array<std::uint8_t, 16>;

    struct Mapping {
        std::vector<Guid> guids;                          // "GUID"
        std::vector<std::string> strings;                 // "Strings"
        std::map<std::int64_t, std::uint32_t> streams;    // "Streams": name id -> property id
    };

    static Mapping getNamedPropertiesForMessage(const Dict& root);
    // Each GUID with Data1 byte-reversed and Data2/Data3 reversed as one
    // 32-bit number; the stream's last GUID is never read.
    static std::vector<Guid> calculateGuids(const std::optional<Blob>& stream);
    // Name identifier -> 0x8000 + record position; the last record is never read.
    static std::map<std::int64_t, std::uint32_t> calculateEntryStreamIndexes(const std::optional<Blob>& stream);
    // The names of the string stream, stepping len + 2 bytes from one name to the next.
    static std::vector<std::string> generateStringStream(const std::optional<Blob>& stream);

    // Resolver over every entry record: the property identifier of the
    // numeric named property `name` of the set `propertySet` (GUID bytes as
    // stored on disk), or none.
    class Resolver {
    public:
        explicit Resolver(const Dict& root);
        std::optional<std::uint32_t> find(const msgformat::GuidBytes& propertySet, std::uint32_t name) const;

    private:
        ByteView guidStream_;
        ByteView entryStream_;
        std::optional<Blob> guidBlob_;
        std::optional<Blob> entryBlob_;
    };
};

}  // namespace qh
