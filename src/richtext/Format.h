#pragma once
// Wire constants of compressed RTF (MS-OXRTFCP). Nothing but constants here.
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qh::rtfcp {

// Header: compressed size, raw size, compression type, CRC; 32 bits each.
inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::size_t kCompressedSizeOffset = 0;
inline constexpr std::size_t kRawSizeOffset = 4;
inline constexpr std::size_t kTypeOffset = 8;
inline constexpr std::size_t kCrcOffset = 12;

inline constexpr std::uint32_t kTypeCompressed = 0x75465A4C;    // "LZFu"
inline constexpr std::uint32_t kTypeUncompressed = 0x414C454D;  // "MELA"

// The dictionary is a ring of 4096 bytes; a reference is 12 bits of offset and
// 4 bits of length (2 to 17 bytes).
inline constexpr std::size_t kDictionarySize = 4096;
inline constexpr std::size_t kDictionaryMask = kDictionarySize - 1;
inline constexpr std::size_t kReferenceSize = 2;
inline constexpr std::size_t kMinimumMatch = 2;
inline constexpr std::size_t kMaximumMatch = 17;
inline constexpr int kTokensPerControlByte = 8;

// The ring starts out holding these 207 bytes; writing resumes after them.
inline constexpr std::string_view kInitialDictionary =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}"
    "{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier"
    "{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
static_assert(kInitialDictionary.size() == 207);

}  // namespace qh::rtfcp
