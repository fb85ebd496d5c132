#include "compound/SectorAllocTable.h"

#include <algorithm>

#include "compound/Format.h"
#include "core/ByteCursor.h"

namespace qh {

namespace {
constexpr std::size_t kInitialEntries = 128;
}

void SectorAllocTable::initialize() {
    directoryArray.assign(kInitialEntries, cfb::kFreeSector);
    sectorSize_ = 4096;
    chainLimit_ = cfb::kMaxChainSectors;
}

void SectorAllocTable::deInitialize() {
    directoryArray.clear();
    directoryArray.shrink_to_fit();
}

void SectorAllocTable::allocationResize(std::size_t count) { directoryArray.resize(count, cfb::kFreeSector); }

void SectorAllocTable::allocationSetValue(std::uint32_t value, std::size_t index) {
    if (allocationCount() <= index) allocationResize(index + 1);
    directoryArray[index] = value;
}

std::vector<std::uint32_t> SectorAllocTable::allocationFollow(std::uint64_t start) const {
    std::vector<std::uint32_t> chain;
    allocationFollow(start, chain);
    return chain;
}

void SectorAllocTable::allocationFollow(std::uint64_t start, std::vector<std::uint32_t>& chain) const {
    chain.clear();
    const std::uint64_t count = allocationCount();
    if (start >= count) return;
    const std::size_t limit = std::min(chainLimit_, cfb::kMaxChainSectors);
    std::uint64_t sector = start;
    // A looping chain repeats its sectors until the limit; readers stop at the
    // stream's end or at the first sector the file does not hold.
    while (sector < count) {
        if (sector == cfb::kDifatSector || sector == cfb::kFatSector || sector == cfb::kEndOfChain) break;
        if (chain.size() >= limit) break;
        chain.push_back(static_cast<std::uint32_t>(sector));
        sector = directoryArray[sector];
    }
}

void SectorAllocTable::allocationLoad(ByteView buffer, std::size_t length) {
    const ByteView words = ByteCursor(buffer).upTo(length);
    allocationResize(words.size() / 4);
    const std::uint8_t* word = words.data();
    for (auto& entry : directoryArray) {
        entry = std::uint32_t(word[0]) | std::uint32_t(word[1]) << 8 | std::uint32_t(word[2]) << 16 |
                std::uint32_t(word[3]) << 24;
        word += 4;
    }
}

}  // namespace qh
