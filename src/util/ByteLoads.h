#pragma once
// Plain little-endian loads, named as the rest of the system calls them; thin
// wrappers over ByteCursor. Despite the names nothing is swapped: every file
// integer in the system is little-endian.
#include <cstdint>

#include <quillhaven/Bytes.h>

namespace qh {

std::uint16_t byteReplaceWord(const std::uint8_t* bytes);
std::uint32_t byteReplaceDWord(const std::uint8_t* bytes);
std::uint64_t byteReplaceDDWord(const std::uint8_t* bytes);

// The same at `offset` of a buffer; 0 when the value does not fit.
std::uint16_t byteReplaceWord(ByteView bytes, std::size_t offset = 0);
std::uint32_t byteReplaceDWord(ByteView bytes, std::size_t offset = 0);
std::uint64_t byteReplaceDDWord(ByteView bytes, std::size_t offset = 0);

}  // namespace qh
