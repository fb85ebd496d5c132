#pragma once
// Integer loads, byte swaps and the size text of attachment lists.
#include <cstdint>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh {

class BitWangers {
public:
    // Little-endian loads from a pointer the caller has checked (over ByteCursor).
    static std::uint16_t readU16(const std::uint8_t* bytes);
    static std::uint32_t readU32(const std::uint8_t* bytes);
    // Little-endian loads at `offset` of a buffer; 0 when the value does not fit.
    static std::uint16_t readU16(ByteView bytes, std::size_t offset = 0);
    static std::uint32_t readU32(ByteView bytes, std::size_t offset = 0);

    // The two bytes exchanged, read as a signed number (0x0080 -> -32768).
    static std::int16_t ByteSwap16BitNumber(std::uint16_t value);
    static std::uint32_t ByteSwap32BitNumber(std::uint32_t value);
    static std::uint64_t ByteSwap64BitNumber(std::uint64_t value);

    // "%4.2f %@" over bytes, KB, MB, GB, TB, dividing while the size is above 1024:
    // 1024 -> "1024.00 bytes", 1025 -> "1.00 KB". A size beyond the last unit
    // (above 1024 TB, or infinite) gives "".
    static std::string formatSize(double size);
};

}  // namespace qh
