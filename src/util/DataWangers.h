#pragma once
// Bytes to text (the one fallback chain every reader uses), base64 and hex
// front ends, and the byte search of the TNEF reader.
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include "core/TextEncoding.h"
#include <quillhaven/Value.h>

namespace qh {

class DataWangers {
public:
    // The not-found location of searchForBytes.
    static constexpr std::int64_t kNotFound = std::numeric_limits<std::int64_t>::max();
    struct Range {
        std::int64_t location = kNotFound;
        std::int64_t length = 0;
        friend bool operator==(const Range&, const Range&) = default;
    };

    // Bytes -> text in `encoding`; when that fails, as Windows-1252. Empty bytes
    // give none. A conversion that cannot even be attempted logs
    // "Error reading getting Message Dictionary - Exception: %@ Locn %@ %d a"
    // (and "... b" when the fallback cannot be attempted either).
    static std::optional<std::string> getStringFromData(ByteView data, StringEncoding encoding,
                                                        std::string_view functionName, std::int32_t location);
    static std::optional<std::string> getStringFromData(ByteView data, StringEncoding encoding);
    // The same for a dictionary value: anything but bytes (absent, the null
    // marker, another kind) gives none.
    static std::optional<std::string> getStringFromData(const Value* data, StringEncoding encoding,
                                                        std::string_view functionName, std::int32_t location);

    // Base64 with 76-character lines, each but the last ended by CR LF.
    static std::string b64EncodeData(ByteView data);
    // Text is taken to be base64 already and comes back unchanged.
    static std::string b64EncodeData(std::string_view text);
    // Characters outside the alphabet are ignored; none for absent or empty text
    // and where the rest does not form whole, correctly padded four-character groups.
    static std::optional<Bytes> b64DecodeDataString(std::optional<std::string_view> text);

    // Every "0x" (any case) removed, then every character that is not a hex digit.
    static std::optional<std::string> cleanNonHexCharsFromHexString(std::optional<std::string_view> text);
    // Cleaned as above, then read two digits a byte; a trailing odd digit is dropped.
    static std::optional<Bytes> dataFromHexString(std::optional<std::string_view> text);
    // The low 32 bits, big-endian, always four bytes; the padding is ignored.
    static Bytes dataFromInt(std::int64_t value, std::int32_t padding);

    // First match of the pattern in `source`, as the TNEF reader expects it: a
    // byte that breaks a partial match is not compared again with the first
    // pattern byte, and a partial match running into the end of the source is
    // reported as a match. {kNotFound, n} when nothing matched.
    static Range searchForBytes(const std::uint8_t* pattern, std::size_t numberOfBytes, ByteView source);
    static Range searchForBytes(ByteView pattern, ByteView source);
};

}  // namespace qh
