#pragma once
// The display date of an MSG submission identifier (property 0x0047).
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

// The fourth ";" field split on "-": its second-to-last piece is YYMMDDhhmmss
// (UTC, century 20). None when any piece is missing or the date does not parse.
std::optional<std::string> formatDateData(ByteView data);
// None for anything but bytes (absent, the null marker, another kind).
std::optional<std::string> formatDateData(const Value* data);
// The same from the identifier as text, without the byte checks.
std::optional<std::string> formatSubmissionIdentifierDate(std::string_view identifier);

}  // namespace qh
