#pragma once
// What the writers take from a message dictionary's attachment items, shared
// with the readers that write attached messages and attachment files.
#include <cstddef>
#include <optional>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh::items {

// The contents of an attachment item: its bytes, or the text an EML part was
// decoded to; none when it has neither.
std::optional<ByteView> itemData(const Dict& item);

// About how many bytes a writer makes of a message: its text bodies (each
// byte counted textFactor times), the RTF body twice, attachments in base64.
std::size_t convertedSizeEstimate(const Dict& message, std::size_t textFactor = 1);

}  // namespace qh::items
