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

ByteView StreamHandler::sectorView(std::uint32_t sector, bool& beyondFile) const {
    if (isSmall()) {
        ByteView bytes = io->smallSectorBytes(sector);
        beyondFile = bytes.empty();
        return bytes;
    }
    auto bytes = io->sectorBytes(sector);
    beyondFile = !bytes;
    return bytes ? *bytes : ByteView();
}

std::size_t StreamHandler::readAtPosition(std::uint64_t position, std::uint8_t* data, std::size_t maxLength) const {
    if (!data || maxLength == 0 || !io) return 0;
    const std::uint64_t sectorSize = isSmall() ? io->smallSectorSize() : io->bigSectorSize();
    std::uint64_t index = position / sectorSize;
    std::uint64_t offset = position % sectorSize;
    std::size_t copied = 0;
    while (copied < maxLength && index < sectorArray.size()) {
        bool beyondFile = false;
        ByteView bytes = sectorView(sectorArray[index], beyondFile);
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

Bytes StreamHandler::readAll(bool exact) const {
    Bytes out;
    if (!io) return out;
    const std::uint64_t sectorSize = isSmall() ? io->smallSectorSize() : io->bigSectorSize();
    std::uint64_t limit = std::min<std::uint64_t>(sectorArray.size() * sectorSize, io->filesize);
    if (exact) limit = std::min<std::uint64_t>(limit, entry.size);
    out.reserve(limit);
    // Sectors that follow each other in the file (most of a stream) are copied
    // as one run.
    const std::uint8_t* runStart = nullptr;
    std::size_t runLength = 0;
    auto flush = [&] {
        if (runLength) out.insert(out.end(), runStart, runStart + runLength);
        runLength = 0;
    };
    for (std::uint32_t sector : sectorArray) {
        if (exact && out.size() + runLength >= entry.size) break;
        bool beyondFile = false;
        ByteView bytes = sectorView(sector, beyondFile);
        if (runLength && bytes.data() == runStart + runLength) {
            runLength += bytes.size();
        } else {
            flush();
            runStart = bytes.data();
            runLength = bytes.size();
        }
        if (bytes.size() < sectorSize) break;
    }
    flush();
    if (exact && out.size() > entry.size) out.resize(entry.size);
    return out;
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
