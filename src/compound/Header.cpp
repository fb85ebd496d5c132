#include "compound/Header.h"

#include "compound/Format.h"
#include "core/ByteCursor.h"

namespace qh {

void Header::initialize() {
    ident = magicNumber;
    masterShift = cfb::kDefaultSectorShift;
    smallShift = cfb::kDefaultMiniSectorShift;
    allocationTableCount = 0;
    directoryEntryStart = 0;
    threshold = cfb::kMiniStreamCutoff;
    smallSectorAllocationTableStart = 0;
    smallSectorAllocationTableCount = 0;
    masterSectorAllocationTableStart = 0;
    masterSectorAllocationTableCount = 0;
    masterSectors.fill(cfb::kFreeSector);
}

void Header::oleLoad(ByteView header) {
    ByteCursor in(header);
    for (std::size_t i = 0; i < ident.size(); ++i) ident[i] = in.u8();
    in.seek(cfb::kHeaderSectorShift);
    masterShift = in.u16le();
    smallShift = in.u16le();
    in.seek(cfb::kHeaderFatSectorCount);
    allocationTableCount = in.u32le();
    directoryEntryStart = in.u32le();
    in.seek(cfb::kHeaderMiniStreamCutoff);
    threshold = in.u32le();
    smallSectorAllocationTableStart = in.u32le();
    smallSectorAllocationTableCount = in.u32le();
    masterSectorAllocationTableStart = in.u32le();
    masterSectorAllocationTableCount = in.u32le();
    for (auto& sector : masterSectors) sector = in.u32le();
}

bool Header::isValid() const {
    if (threshold != cfb::kMiniStreamCutoff) return false;
    if (allocationTableCount == 0) return false;
    if (allocationTableCount > cfb::kHeaderDifatEntries) {
        // classic: 127 entries per master sector whatever the sector size;
        // files in the wild with larger sectors still pass because they claim
        // fewer sectors, and every reader opens them.
        if (allocationTableCount > masterSectorAllocationTableCount * cfb::kMasterEntriesPerSector + cfb::kHeaderDifatEntries)
            return false;
    } else if (allocationTableCount < cfb::kHeaderDifatEntries && masterSectorAllocationTableCount != 0) {
        return false;
    }
    if (masterShift < cfb::kMinSectorShift || masterShift > cfb::kMaxSectorShift) return false;
    return smallShift <= masterShift;
}

std::uint8_t Header::getIdent(std::size_t index) const { return index < ident.size() ? ident[index] : 0; }

std::uint64_t Header::getBBsectors(std::size_t index) const {
    return index < masterSectors.size() ? masterSectors[index] : cfb::kFreeSector;
}

}  // namespace qh
