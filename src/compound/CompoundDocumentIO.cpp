#include "compound/CompoundDocumentIO.h"

#include <algorithm>
#include <cstring>

#include "compound/Format.h"
#include "compound/StreamHandler.h"
#include "core/ByteCursor.h"
#include "core/Log.h"

namespace qh {

namespace {
constexpr std::string_view kPrematureLine = "**Returning Prematurely";
}

CompoundDocumentIO::CompoundDocumentIO() = default;
CompoundDocumentIO::~CompoundDocumentIO() = default;

void CompoundDocumentIO::initializeStream(CompoundDocument* owner, ByteView data) {
    initializeStreamBorrowing(owner, data);
    ownData_ = std::make_shared<const Bytes>(data.begin(), data.end());
    messageData = *ownData_;
}

void CompoundDocumentIO::initializeStreamSharing(CompoundDocument* owner, std::shared_ptr<const Bytes> data) {
    initializeStreamBorrowing(owner, data ? ByteView(*data) : ByteView());
    ownData_ = std::move(data);
}

std::shared_ptr<const Bytes> CompoundDocumentIO::shareData() {
    if (!ownData_ && messageData.data()) {
        ownData_ = std::make_shared<const Bytes>(messageData.begin(), messageData.end());
        messageData = *ownData_;
    }
    return ownData_;
}

void CompoundDocumentIO::initializeStreamBorrowing(CompoundDocument* owner, ByteView data) {
    compoundDocument = owner;
    ownData_.reset();
    messageData = data;
    result = 0;
    opened = false;
    filesize = 0;
    smallSectorArray.clear();
    bigSectorArray.clear();
    bigSectorData.clear();
    header = std::make_unique<Header>();
    masterSectorAllocationTable = std::make_unique<SectorAllocTable>();
    smallSectorAllocationTable = std::make_unique<SectorAllocTable>();
    directoryTree = std::make_unique<DirectoryTree>();
    masterSectorAllocationTable->setSectorSize(std::uint64_t(1) << header->masterShift);
    smallSectorAllocationTable->setSectorSize(std::uint64_t(1) << header->smallShift);
}

bool CompoundDocumentIO::open() {
    if (opened) closeCompoundDocument();
    if (!header) return false;
    const bool loaded = compoundDocumentLoaded();
    // classic: a failure after the header was accepted (directory unreadable)
    // still opens and only `result` tells: Mole, and so the plug-in and the
    // readers, take such a file as an empty document instead of refusing it.
    return (loaded && result == kLoaded) || (!loaded && result == kInvalid);
}

std::uint64_t CompoundDocumentIO::fileSectorCount() const {
    const std::uint64_t size = bigSectorSize();
    return (filesize + size - 1) / size;
}

Bytes CompoundDocumentIO::readChain(const std::vector<std::uint32_t>& chain, std::size_t maxBytes, bool& ok) const {
    ok = true;
    const std::uint64_t sectorSize = bigSectorSize();
    Bytes buffer;
    buffer.reserve(std::min<std::uint64_t>(maxBytes, std::min<std::uint64_t>(chain.size() * sectorSize, filesize)));
    for (std::uint32_t sector : chain) {
        if (buffer.size() >= maxBytes) break;
        auto bytes = sectorBytes(sector);
        if (!bytes) {
            ok = false;
            break;
        }
        buffer.insert(buffer.end(), bytes->begin(), bytes->end());
        // A sector cut short by the end of the file reads as zeros past it, so
        // later sectors keep their place in the buffer.
        buffer.resize(buffer.size() + (sectorSize - bytes->size()), 0);
    }
    return buffer;
}

bool CompoundDocumentIO::compoundDocumentLoaded() {
    result = kUnreadable;
    filesize = messageData.size();
    ByteCursor in(messageData);
    const ByteView headerBytes = in.bytes(cfb::kHeaderSize);
    if (in.isShort()) return false;
    header->oleLoad(headerBytes);
    result = kBadSignature;
    for (std::size_t i = 0; i < Header::magicNumber.size(); ++i)
        if (header->getIdent(i) != Header::magicNumber[i]) return true;
    result = kInvalid;
    if (!header->isValid() || header->threshold != cfb::kMiniStreamCutoff) return true;

    masterSectorAllocationTable->setSectorSize(std::uint64_t(1) << header->masterShift);
    smallSectorAllocationTable->setSectorSize(std::uint64_t(1) << header->smallShift);
    const std::uint64_t bigSize = bigSectorSize();
    const std::uint64_t fileSectors = fileSectorCount();
    masterSectorAllocationTable->setChainLimit(static_cast<std::size_t>(std::min<std::uint64_t>(fileSectors, cfb::kMaxChainSectors)));

    // Big table. Entries past the sectors the file can hold are never needed,
    // so no more table sectors are read than cover the file.
    const std::vector<std::uint32_t> blocks = getSectorBlocks(true);
    const std::uint64_t tableBytesNeeded = fileSectors * 4;
    Bytes table;
    for (std::uint32_t sector : blocks) {
        if (table.size() >= tableBytesNeeded) break;
        auto bytes = sectorBytes(sector);
        if (!bytes) return false;
        table.insert(table.end(), bytes->begin(), bytes->end());
        table.resize(table.size() + (bigSize - bytes->size()), 0);
    }
    masterSectorAllocationTable->allocationLoad(table, table.size());
    table = Bytes();

    // Small table: a sector past the end of the file just ends it.
    bool ok = true;
    Bytes smallTable = readChain(masterSectorAllocationTable->allocationFollow(header->smallSectorAllocationTableStart),
                                 SIZE_MAX, ok);
    smallSectorAllocationTable->allocationLoad(smallTable, smallTable.size());
    smallTable = Bytes();

    // Directory.
    Bytes directory = readChain(masterSectorAllocationTable->allocationFollow(header->directoryEntryStart), SIZE_MAX, ok);
    if (!directoryTree->loadEntries(directory, directory.size())) return false;

    // The small-sector container is the root entry's stream.
    ByteCursor root(directory, cfb::kEntryStartSector);
    smallSectorArray = masterSectorAllocationTable->allocationFollow(root.u32le());
    const std::uint64_t perContainerSector = bigSize / smallSectorSize();
    smallSectorAllocationTable->setChainLimit(static_cast<std::size_t>(
        std::min<std::uint64_t>(smallSectorArray.size() * perContainerSector, cfb::kMaxChainSectors)));

    result = kLoaded;
    opened = true;
    return true;
}

void CompoundDocumentIO::closeCompoundDocument() { opened = false; }

void CompoundDocumentIO::deInitialize() {
    closeCompoundDocument();
    if (smallSectorAllocationTable) smallSectorAllocationTable->deInitialize();
    if (masterSectorAllocationTable) masterSectorAllocationTable->deInitialize();
    smallSectorAllocationTable.reset();
    masterSectorAllocationTable.reset();
    directoryTree.reset();
    header.reset();
    compoundDocument = nullptr;
    messageData = ByteView();
    ownData_.reset();
    smallSectorArray = {};
    bigSectorArray = {};
    bigSectorData = {};
    filesize = 0;
}

std::vector<std::uint32_t> CompoundDocumentIO::getSectorBlocks(bool fromFile) {
    const std::uint64_t count = header->allocationTableCount;
    std::vector<std::uint32_t> blocks;
    const std::size_t fromHeader = static_cast<std::size_t>(std::min<std::uint64_t>(count, cfb::kHeaderDifatEntries));
    for (std::size_t i = 0; i < fromHeader; ++i) blocks.push_back(static_cast<std::uint32_t>(header->getBBsectors(i)));

    if (!fromFile) {
        for (std::uint32_t value : bigSectorData) {
            if (blocks.size() >= count) break;
            blocks.push_back(value);
        }
        return blocks;
    }

    bigSectorArray.clear();
    bigSectorData.clear();
    if (count <= cfb::kHeaderDifatEntries || header->masterSectorAllocationTableCount == 0) return blocks;
    // A header may claim any number of master sectors; no real chain of them
    // is longer than the file has sectors.
    const std::uint64_t passes = std::min<std::uint64_t>(header->masterSectorAllocationTableCount, fileSectorCount() + 1);
    for (std::uint64_t k = 0; k < passes; ++k) {
        std::uint64_t sector = header->masterSectorAllocationTableStart;
        if (k > 0) {
            // The last word stored is the link to the next master sector: it is
            // read from, then overwritten.
            if (blocks.empty()) break;
            sector = blocks.back();
            blocks.pop_back();
            if (!bigSectorData.empty()) bigSectorData.pop_back();
        }
        bigSectorArray.push_back(static_cast<std::uint32_t>(sector));
        auto bytes = sectorBytes(sector);
        if (!bytes || bytes->empty()) break;
        ByteCursor words(*bytes);
        while (blocks.size() < count && words.remaining() >= 4) {
            const std::uint32_t value = words.u32le();
            blocks.push_back(value);
            bigSectorData.push_back(value);
        }
    }
    return blocks;
}

bool CompoundDocumentIO::dataIntoBuffer(std::uint8_t* buffer, std::uint64_t location, std::uint64_t length) const {
    if (!fits(location, length, messageData.size())) {
        Log::line(kPrematureLine);
        return false;
    }
    if (length) std::memcpy(buffer, messageData.data() + location, length);
    return true;
}

std::optional<ByteView> CompoundDocumentIO::sectorBytes(std::uint64_t sector) const {
    const std::uint64_t size = bigSectorSize();
    // The last sector of a file may come short: what it holds is read.
    ByteCursor cursor(messageData, static_cast<std::size_t>((sector + 1) * size));
    if (cursor.isShort()) {
        Log::line(kPrematureLine);
        return std::nullopt;
    }
    return cursor.upTo(static_cast<std::size_t>(size));
}

ByteView CompoundDocumentIO::smallSectorBytes(std::uint64_t sector) const {
    const std::uint64_t bigSize = bigSectorSize();
    const std::uint64_t smallSize = smallSectorSize();
    const std::uint64_t position = sector * smallSize;
    const std::uint64_t containerIndex = position / bigSize;
    if (containerIndex >= smallSectorArray.size()) return {};
    auto container = sectorBytes(smallSectorArray[containerIndex]);
    const std::uint64_t offset = position % bigSize;
    if (!container) return {};
    return ByteCursor(*container, static_cast<std::size_t>(offset)).upTo(static_cast<std::size_t>(smallSize));
}

std::size_t CompoundDocumentIO::loadSectors(const std::vector<std::uint32_t>& sectors, std::uint8_t* buffer,
                                            std::size_t maxLength, bool& error) const {
    error = false;
    if (!buffer || maxLength == 0 || sectors.empty()) return 0;
    const std::uint64_t size = bigSectorSize();
    std::size_t done = 0;
    for (std::uint32_t sector : sectors) {
        if (done >= maxLength) break;
        const std::uint64_t offset = (std::uint64_t(sector) + 1) * size;
        if (offset > filesize) {
            Log::line(kPrematureLine);
            error = true;
            return 0;
        }
        const std::uint64_t length = std::min<std::uint64_t>({size, maxLength - done, filesize - offset});
        if (!dataIntoBuffer(buffer + done, offset, length)) {
            error = true;
            return 0;
        }
        done += length;
    }
    return done;
}

std::size_t CompoundDocumentIO::loadSector(std::uint32_t sector, std::uint8_t* buffer, std::size_t maxLength) const {
    bool error = false;
    return loadSectors({sector}, buffer, maxLength, error);
}

std::size_t CompoundDocumentIO::loadSmallSectors(const std::vector<std::uint32_t>& sectors, std::uint8_t* buffer,
                                                 std::size_t maxLength) const {
    if (!buffer) return 0;
    std::size_t done = 0;
    for (std::uint32_t sector : sectors) {
        if (done >= maxLength) break;
        const std::uint64_t position = std::uint64_t(sector) * smallSectorSize();
        if (position / bigSectorSize() >= smallSectorArray.size()) break;
        ByteView bytes = smallSectorBytes(sector);
        const std::size_t length = std::min<std::size_t>(bytes.size(), maxLength - done);
        if (length) std::memcpy(buffer + done, bytes.data(), length);
        done += length;
    }
    return done;
}

std::size_t CompoundDocumentIO::loadSmallSector(std::uint32_t sector, std::uint8_t* buffer,
                                                std::size_t maxLength) const {
    return loadSmallSectors({sector}, buffer, maxLength);
}

std::unique_ptr<StreamHandler> CompoundDocumentIO::streamHandler(std::string_view path) {
    if (path.empty() || !directoryTree) return nullptr;
    const DirectoryEntry* record = directoryTree->findEntry(path);
    if (!record || record->dir) return nullptr;
    auto handler = std::make_unique<StreamHandler>();
    handler->fullName = std::string(path);
    if (!handler->initializeStreamHandler(this, *record)) return nullptr;
    return handler;
}

}  // namespace qh
