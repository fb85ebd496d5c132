#include "util/ByteLoads.h"

#include "util/BitWangers.h"

namespace qh {

std::uint16_t byteReplaceWord(const std::uint8_t* bytes) { return BitWangers::readU16(bytes); }

std::uint32_t byteReplaceDWord(const std::uint8_t* bytes) { return BitWangers::readU32(bytes); }

std::uint64_t byteReplaceDDWord(const std::uint8_t* bytes) {
    return std::uint64_t(BitWangers::readU32(bytes)) | std::uint64_t(BitWangers::readU32(bytes + 4)) << 32;
}

std::uint16_t byteReplaceWord(ByteView bytes, std::size_t offset) {
    return fits(offset, 2, bytes.size()) ? byteReplaceWord(bytes.data() + offset) : 0;
}

std::uint32_t byteReplaceDWord(ByteView bytes, std::size_t offset) {
    return fits(offset, 4, bytes.size()) ? byteReplaceDWord(bytes.data() + offset) : 0;
}

std::uint64_t byteReplaceDDWord(ByteView bytes, std::size_t offset) {
    return fits(offset, 8, bytes.size()) ? byteReplaceDDWord(bytes.data() + offset) : 0;
}

}  // namespace qh
