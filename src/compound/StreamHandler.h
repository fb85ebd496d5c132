#pragma once
// A reader of one stream: its sector chain, a read position and a small cache.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "compound/DirectoryEntry.h"
#include <quillhaven/Bytes.h>

namespace qh {

class CompoundDocumentIO;

class StreamHandler {
public:
    static constexpr std::uint64_t kCacheSize = 4096;

    // Takes the chain from the small table when the stream is shorter than the
    // header's threshold, else from the big table.
    bool initializeStreamHandler(CompoundDocumentIO* io, const DirectoryEntry& entry);
    // Copies up to `maxLength` bytes from `position`. Whole sectors are read:
    // the stream's size does not cut the read.
    std::size_t readAtPosition(std::uint64_t position, std::uint8_t* data, std::size_t maxLength) const;
    // Reads at the current position and advances it.
    std::size_t read(std::uint8_t* data, std::size_t maxLength);
    std::uint64_t currentPosition() const { return memoryPosition; }
    // Fills the cache with the block of the stream around the current position.
    void updateCache();
    void deInitialize();

    // Every sector of the chain in one buffer (what reading to the end gives),
    // cut to the stream's size when `exact`.
    Bytes readAll(bool exact) const;
    bool isSmall() const;

    // Where the stream with sector chain `chain` lies in the file: the runs of
    // sectors that follow each other there, in order (`runs` is refilled). The
    // bytes are those readAll gives: whole sectors up to the first one cut
    // short by the end of the file (or of the small-sector container), cut at
    // `size` when `exact`. Answers their total length.
    static std::size_t locate(const CompoundDocumentIO& io, bool small, std::span<const std::uint32_t> chain,
                              std::uint64_t size, bool exact, std::vector<ByteView>& runs);
    // The runs one after another in one buffer, reserved once.
    static Bytes join(std::span<const ByteView> runs, std::size_t total);

    std::vector<std::uint32_t> sectorArray;
    CompoundDocumentIO* io = nullptr;
    std::uint64_t memoryPosition = 0;
    std::uint64_t cacheSize = kCacheSize;
    std::uint64_t cachePtr = 0;
    bool eof = false;
    bool fail = false;
    std::string fullName;
    DirectoryEntry entry;
    Bytes cacheData;

private:
    static ByteView sectorView(const CompoundDocumentIO& io, bool small, std::uint32_t sector);
};

}  // namespace qh
