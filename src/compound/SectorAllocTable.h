#pragma once
// A sector allocation table: entry i is the sector that follows sector i in its
// chain. One instance holds the big-sector table, another the small-sector one.
#include <cstdint>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qh {

class SectorAllocTable {
public:
    SectorAllocTable() { initialize(); }

    // 128 free entries, 4096-byte sectors, chains bounded only by the global limit.
    void initialize();
    void deInitialize();

    std::size_t allocationCount() const { return directoryArray.size(); }
    // Grows with free entries or shrinks from the end.
    void allocationResize(std::size_t count);
    void allocationSetValue(std::uint32_t value, std::size_t index);
    // The chain from `start`, in order; empty when `start` is not in the table.
    std::vector<std::uint32_t> allocationFollow(std::uint64_t start) const;
    // The same into `chain` (refilled), for callers that follow many chains.
    void allocationFollow(std::uint64_t start, std::vector<std::uint32_t>& chain) const;
    // Resizes to length / 4 entries and reads them as little-endian words.
    void allocationLoad(ByteView buffer, std::size_t length);

    void setSectorSize(std::uint64_t size) { sectorSize_ = size; }
    std::uint64_t sectorSize() const { return sectorSize_; }
    // The most sectors one chain may list: the loader sets it to the number of
    // sectors the file holds, so a looping chain costs no more than the file.
    void setChainLimit(std::size_t limit) { chainLimit_ = limit; }
    std::size_t chainLimit() const { return chainLimit_; }

    std::vector<std::uint32_t> directoryArray;

private:
    std::uint64_t sectorSize_ = 4096;
    std::size_t chainLimit_ = 0;
};

}  // namespace qh
