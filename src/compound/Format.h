#pragma once
// Wire constants of compound files (MS-CFB): header fields, sector markers and
// directory entry layout. Nothing but constants lives here.
#include <cstddef>
#include <cstdint>

namespace qh::cfb {

inline constexpr std::uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// Header (the first 512 bytes of the file).
inline constexpr std::size_t kHeaderSize = 512;
inline constexpr std::size_t kHeaderSignature = 0;
inline constexpr std::size_t kHeaderMinorVersion = 24;
inline constexpr std::size_t kHeaderMajorVersion = 26;
inline constexpr std::size_t kHeaderByteOrder = 28;
inline constexpr std::size_t kHeaderSectorShift = 30;
inline constexpr std::size_t kHeaderMiniSectorShift = 32;
inline constexpr std::size_t kHeaderDirectorySectorCount = 40;
inline constexpr std::size_t kHeaderFatSectorCount = 44;
inline constexpr std::size_t kHeaderDirectoryStart = 48;
inline constexpr std::size_t kHeaderMiniStreamCutoff = 56;
inline constexpr std::size_t kHeaderMiniFatStart = 60;
inline constexpr std::size_t kHeaderMiniFatSectorCount = 64;
inline constexpr std::size_t kHeaderDifatStart = 68;
inline constexpr std::size_t kHeaderDifatSectorCount = 72;
inline constexpr std::size_t kHeaderDifat = 76;
inline constexpr std::size_t kHeaderDifatEntries = 109;

inline constexpr std::uint16_t kDefaultSectorShift = 9;      // 512-byte sectors
inline constexpr std::uint16_t kDefaultMiniSectorShift = 6;  // 64-byte small sectors
inline constexpr std::uint16_t kMinSectorShift = 7;
inline constexpr std::uint16_t kMaxSectorShift = 30;
inline constexpr std::uint32_t kMiniStreamCutoff = 4096;
// Entries of a 512-byte master sector, less its link to the next one.
inline constexpr std::uint64_t kMasterEntriesPerSector = 127;

// Sector numbers with a meaning of their own.
inline constexpr std::uint32_t kDifatSector = 0xFFFFFFFC;
inline constexpr std::uint32_t kFatSector = 0xFFFFFFFD;
inline constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
inline constexpr std::uint32_t kFreeSector = 0xFFFFFFFF;

// No chain is followed past this many sectors.
inline constexpr std::size_t kMaxChainSectors = 1048576;

// Directory entries.
inline constexpr std::size_t kDirectoryEntrySize = 128;
inline constexpr std::size_t kEntryName = 0;
inline constexpr std::size_t kEntryNameCapacity = 64;  // bytes: 31 UTF-16 characters and a NUL
inline constexpr std::size_t kEntryNameLength = 64;
inline constexpr std::size_t kEntryType = 66;
inline constexpr std::size_t kEntryColour = 67;
inline constexpr std::size_t kEntryLeftSibling = 68;
inline constexpr std::size_t kEntryRightSibling = 72;
inline constexpr std::size_t kEntryChild = 76;
inline constexpr std::size_t kEntryModifiedTime = 100;
inline constexpr std::size_t kEntryStartSector = 116;
inline constexpr std::size_t kEntryStreamSize = 120;

inline constexpr std::uint8_t kTypeEmpty = 0;
inline constexpr std::uint8_t kTypeStorage = 1;
inline constexpr std::uint8_t kTypeStream = 2;
inline constexpr std::uint8_t kTypeRoot = 5;
inline constexpr std::uint8_t kColourBlack = 1;
inline constexpr std::uint32_t kNoStream = 0xFFFFFFFF;

}  // namespace qh::cfb
