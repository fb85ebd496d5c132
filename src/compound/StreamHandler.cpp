#include "compound/StreamHandler.h"

#include <algorithm>
#include <cstring>

#include "compound/CompoundDocumentIO.h"
#include "core/ByteCursor.h"

namespace qh {

bool StreamHandler::initializeStreamHandler(CompoundDocumentIO* owner, const DirectoryEntry& record) {
    io = owner;
    entry = record;
    memoryPosition = 0;
    if (!io || !io->header) return false;
    const SectorAllocTable& table = isSmall() ? *io->smallSectorAllocationTable : *io->masterSectorAllocationTable;
    sectorArray = table.allocationFollow(entry.start);
    cacheSize = kCacheSize;
    cachePtr = 0;
    // The cache is filled on demand (updateCache): no read goes through it, and
    // filling it for every stream opened would double the work of a walk.
    return true;
}

bool StreamHandler::isSmall() const { return io && entry.size < io->header->threshold; }

ByteView StreamHandler::sectorView(const CompoundDocumentIO& io, bool small, std::uint32_t sector) {
    if (small) return io.smallSectorBytes(sector);
    auto bytes = io.sectorBytes(sector);
    return bytes ? *bytes : ByteView();
}

std::size_t StreamHandler::readAtPosition(std::uint64_t position, std::uint8_t* data, std::size_t maxLength) const {
    if (!data || maxLength == 0 || !io) return 0;
    const std::uint64_t sectorSize = isSmall() ? io->smallSectorSize() : io->bigSectorSize();
    std::uint64_t index = position / sectorSize;
    std::uint64_t offset = position % sectorSize;
    std::size_t copied = 0;
    while (copied < maxLength && index < sectorArray.size()) {
        ByteView bytes = sectorView(*io, isSmall(), sectorArray[index]);
        const ByteView piece = ByteCursor(bytes, static_cast<std::size_t>(offset)).upTo(maxLength - copied);
        if (piece.empty()) break;
        std::memcpy(data + copied, piece.data(), piece.size());
        copied += piece.size();
        // A sector cut short by the end of the file is the last one read.
        if (bytes.size() < sectorSize) break;
        offset = 0;
        ++index;
    }
    return copied;
}

std::size_t StreamHandler::locate(const CompoundDocumentIO& io, bool small, std::span<const std::uint32_t> chain,
                                  std::uint64_t size, bool exact, std::vector<ByteView>& runs) {
    runs.clear();
    const std::uint64_t sectorSize = small ? io.smallSectorSize() : io.bigSectorSize();
    std::size_t total = 0;
    const std::uint8_t* runStart = nullptr;
    std::size_t runLength = 0;
    for (std::uint32_t sector : chain) {
        if (exact && total + runLength >= size) break;
        const ByteView bytes = sectorView(io, small, sector);
        // Sectors that follow each other in the file (most of a stream) make one run.
        if (runLength && bytes.data() == runStart + runLength) {
            runLength += bytes.size();
        } else {
            if (runLength) runs.emplace_back(runStart, runLength);
            total += runLength;
            runStart = bytes.data();
            runLength = bytes.size();
        }
        if (bytes.size() < sectorSize) break;
    }
    if (runLength) runs.emplace_back(runStart, runLength);
    total += runLength;
    // Sectors are added only while the stream is not yet complete, so what
    // passes its size lies in the last run.
    if (exact && total > size) {
        const std::size_t excess = total - static_cast<std::size_t>(size);
        runs.back() = runs.back().first(runs.back().size() - excess);
        total -= excess;
    }
    return total;
}

Bytes StreamHandler::join(std::span<const ByteView> runs, std::size_t total) {
    Bytes out;
    out.reserve(total);
    for (ByteView run : runs) out.insert(out.end(), run.begin(), run.end());
    return out;
}

Bytes StreamHandler::readAll(bool exact) const {
    if (!io) return {};
    std::vector<ByteView> runs;
    const std::size_t total = locate(*io, isSmall(), sectorArray, entry.size, exact, runs);
    return join(runs, total);
}

std::size_t StreamHandler::read(std::uint8_t* data, std::size_t maxLength) {
    const std::size_t got = readAtPosition(memoryPosition, data, maxLength);
    memoryPosition += got;
    return got;
}

void StreamHandler::updateCache() {
    if (cacheSize == 0) cacheSize = kCacheSize;
    cachePtr = memoryPosition - memoryPosition % cacheSize;
    const std::uint64_t length = cachePtr < entry.size ? std::min<std::uint64_t>(cacheSize, entry.size - cachePtr) : 0;
    cacheData.resize(kCacheSize);
    cacheSize = readAtPosition(cachePtr, cacheData.data(), static_cast<std::size_t>(std::min(length, kCacheSize)));
}

void StreamHandler::deInitialize() {
    sectorArray = {};
    cacheData = {};
    io = nullptr;
}

}  // namespace qh
