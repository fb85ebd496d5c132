#pragma once
// One open compound file held in memory: its header, the two allocation
// tables, the directory and the small-sector container, and the reads of big
// and small sectors out of the buffer.
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "compound/DirectoryTree.h"
#include "compound/Header.h"
#include "compound/SectorAllocTable.h"
#include <quillhaven/Bytes.h>

namespace qh {

class CompoundDocument;
class StreamHandler;

class CompoundDocumentIO {
public:
    // Status codes of `result`.
    static constexpr int kLoaded = 0;
    static constexpr int kUnreadable = 1;    // fewer than 512 bytes
    static constexpr int kBadSignature = 2;
    static constexpr int kInvalid = 3;       // invalid header, or a later step failed

    CompoundDocumentIO();
    ~CompoundDocumentIO();
    CompoundDocumentIO(const CompoundDocumentIO&) = delete;
    CompoundDocumentIO& operator=(const CompoundDocumentIO&) = delete;

    // Keeps the owner and a copy of the bytes, and fresh header, tables and directory.
    void initializeStream(CompoundDocument* owner, ByteView data);
    // The same without a copy: the caller keeps `data` alive and unchanged
    // while the document is open (a reader that is done before it returns).
    void initializeStreamBorrowing(CompoundDocument* owner, ByteView data);
    // The same without a copy, keeping a share of `data` (which must not change).
    void initializeStreamSharing(CompoundDocument* owner, std::shared_ptr<const Bytes> data);
    // Loads the document. Yes when it loaded, and also when a step after the
    // header check failed (`result` 3 then); a bad signature or an invalid
    // header answers no. Callers that need a usable document test `result`.
    bool open();
    // Reads header, tables, directory and container. A bad signature or invalid
    // header still answers yes and reports itself only through `result`.
    bool compoundDocumentLoaded();
    void closeCompoundDocument();
    void deInitialize();

    // The big-table sector numbers: the header's first 109 and those of the
    // master sector chain (`fromFile`), or rebuilt from the values remembered
    // by the last read.
    std::vector<std::uint32_t> getSectorBlocks(bool fromFile);

    // Copies [location, location + length) of the file into `buffer`; no (and
    // the log line "**Returning Prematurely") when the range is not in the file.
    bool dataIntoBuffer(std::uint8_t* buffer, std::uint64_t location, std::uint64_t length) const;
    std::size_t loadSectors(const std::vector<std::uint32_t>& sectors, std::uint8_t* buffer, std::size_t maxLength,
                            bool& error) const;
    std::size_t loadSector(std::uint32_t sector, std::uint8_t* buffer, std::size_t maxLength) const;
    std::size_t loadSmallSectors(const std::vector<std::uint32_t>& sectors, std::uint8_t* buffer,
                                 std::size_t maxLength) const;
    std::size_t loadSmallSector(std::uint32_t sector, std::uint8_t* buffer, std::size_t maxLength) const;

    // A stream reader for the stream at `path`; none for a missing path or a storage.
    std::unique_ptr<StreamHandler> streamHandler(std::string_view path);

    // The bytes of big sector `sector` as the file holds them (cut at the end
    // of the file), without copying; none (logged) when it begins past the end.
    std::optional<ByteView> sectorBytes(std::uint64_t sector) const;
    // The bytes of small sector `sector` inside the container; empty when the
    // container does not hold it.
    ByteView smallSectorBytes(std::uint64_t sector) const;
    std::uint64_t bigSectorSize() const { return masterSectorAllocationTable->sectorSize(); }
    std::uint64_t smallSectorSize() const { return smallSectorAllocationTable->sectorSize(); }
    ByteView data() const { return messageData; }
    // The file as a buffer that streams given out may share (views into it
    // keep it alive): the document's own copy, made now from the caller's
    // bytes when the document borrows them (a walk that reads every stream
    // copies the file once instead of stream by stream). None before a load.
    std::shared_ptr<const Bytes> shareData();
    // The document's own copy of the file; none while it borrows the caller's bytes.
    const std::shared_ptr<const Bytes>& ownData() const { return ownData_; }

    CompoundDocument* compoundDocument = nullptr;
    int result = 0;
    bool opened = false;
    std::uint64_t filesize = 0;
    std::vector<std::uint32_t> smallSectorArray;
    std::vector<std::uint32_t> bigSectorArray;
    std::vector<std::uint32_t> bigSectorData;
    std::unique_ptr<DirectoryTree> directoryTree;
    std::unique_ptr<Header> header;
    std::unique_ptr<SectorAllocTable> masterSectorAllocationTable;
    std::unique_ptr<SectorAllocTable> smallSectorAllocationTable;
    // The file: a view of *ownData_, or of the caller's bytes when borrowed.
    ByteView messageData;

private:
    // Whole big sectors of `chain` one after another, each padded to the sector
    // size, up to `maxBytes`; stops at the first sector past the end of the
    // file. `ok` is cleared then.
    Bytes readChain(const std::vector<std::uint32_t>& chain, std::size_t maxBytes, bool& ok) const;
    // Sectors the file can hold at the current sector size.
    std::uint64_t fileSectorCount() const;
    std::shared_ptr<const Bytes> ownData_;
};

}  // namespace qh
