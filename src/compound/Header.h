#pragma once
// The 512-byte header of a compound file.
#include <array>
#include <cstdint>

#include <quillhaven/Bytes.h>

namespace qh {

class Header {
public:
    Header() { initialize(); }

    // Sets the defaults: 512/64-byte sectors, threshold 4096, no tables, free master sectors.
    void initialize();
    // Fills every field from the first 512 bytes of the file (missing bytes read as zeros).
    void oleLoad(ByteView header);
    bool isValid() const;
    // The signature byte at 0-7 (0 past the end).
    std::uint8_t getIdent(std::size_t index) const;
    // The master sector number at 0-108 (free past the end).
    std::uint64_t getBBsectors(std::size_t index) const;

    static constexpr std::array<std::uint8_t, 8> magicNumber = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

    std::array<std::uint8_t, 8> ident{};
    std::uint64_t masterShift = 0;
    std::uint64_t smallShift = 0;
    std::uint64_t allocationTableCount = 0;
    std::uint64_t directoryEntryStart = 0;
    std::uint64_t threshold = 0;
    std::uint64_t smallSectorAllocationTableStart = 0;
    std::uint64_t smallSectorAllocationTableCount = 0;
    std::uint64_t masterSectorAllocationTableStart = 0;
    std::uint64_t masterSectorAllocationTableCount = 0;
    std::array<std::uint64_t, 109> masterSectors{};
};

}  // namespace qh
