#include "util/ByteLoads.h"

#include "core/ByteCursor.h"

namespace qh {

std::uint16_t byteReplaceWord(const std::uint8_t* bytes) { return ByteCursor(ByteView(bytes, 2)).u16le(); }

std::uint32_t byteReplaceDWord(const std::uint8_t* bytes) { return ByteCursor(ByteView(bytes, 4)).u32le(); }

std::uint64_t byteReplaceDDWord(const std::uint8_t* bytes) { return ByteCursor(ByteView(bytes, 8)).u64le(); }

std::uint16_t byteReplaceWord(ByteView bytes, std::size_t offset) { return ByteCursor(bytes, offset).u16le(); }

std::uint32_t byteReplaceDWord(ByteView bytes, std::size_t offset) { return ByteCursor(bytes, offset).u32le(); }

std::uint64_t byteReplaceDDWord(ByteView bytes, std::size_t offset) { return ByteCursor(bytes, offset).u64le(); }

}  // namespace qh
