#pragma once
// Builds compound files for tests from a few readable lines: streams by path
// (storages on the way are made as needed), small streams in the mini stream,
// big ones in their own sectors, optionally a master sector chain; and then
// damages them on purpose through CompoundFile.
//
//   auto file = CompoundWriter()
//       .addStream("__substg1.0_0037001F", qhtest::utf16("Subject"))
//       .addStream("__attach_version1.0_#00000000/__substg1.0_37010102", bytes)
//       .build();
//
// or from a description, one entry per line:
//
//   __substg1.0_0037001F: "Hello\x00"        text with \n \t \\ \" \xHH escapes
//   __substg1.0_10090102: 5000 * 41          5000 bytes of 0x41
//   __recip_version1.0_#00000000/            an (empty) storage
//
// Sibling trees are balanced and ordered the way the reader compares names
// (length first, then byte by byte).
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qhtest {

// UTF-16LE bytes of UTF-8 text, without a terminator.
qh::Bytes utf16(std::string_view text);

// A built compound file and where its parts lie.
struct CompoundFile {
    qh::Bytes bytes;
    std::uint32_t sectorSize = 512;
    std::vector<std::uint32_t> fatSectors;
    std::vector<std::uint32_t> difatSectors;
    std::uint32_t directoryStart = 0;
    std::uint32_t miniFatStart = 0;
    // Path without a leading "/" ("" is the root) -> directory entry number.
    std::map<std::string, std::uint32_t> entries;

    std::size_t sectorOffset(std::uint32_t sector) const { return (std::size_t(sector) + 1) * sectorSize; }
    std::uint32_t entryNumber(std::string_view path) const;
    std::size_t entryOffset(std::string_view path) const;
    std::uint32_t entryField(std::string_view path, std::size_t field) const;
    // First sector of the stream at `path` (small sector for small streams).
    std::uint32_t startSector(std::string_view path) const { return entryField(path, 116); }

    void setFat(std::uint32_t sector, std::uint32_t next);
    void setMiniFat(std::uint32_t sector, std::uint32_t next);
    // A 32-bit field of a directory entry (offsets as in the entry: 68 left,
    // 72 right, 76 child, 116 start, 120 size).
    void setEntryField(std::string_view path, std::size_t field, std::uint32_t value);
    void setHeader16(std::size_t offset, std::uint16_t value);
    void setHeader32(std::size_t offset, std::uint32_t value);
    void truncate(std::size_t size) { bytes.resize(std::min(size, bytes.size())); }

    std::uint32_t read32(std::size_t offset) const;
    void write32(std::size_t offset, std::uint32_t value);
};

class CompoundWriter {
public:
    // 9 gives 512-byte sectors (version 3), 12 gives 4096-byte ones (version 4).
    explicit CompoundWriter(std::uint16_t sectorShift = 9);

    CompoundWriter& addStream(std::string_view path, qh::ByteView bytes);
    CompoundWriter& addStream(std::string_view path, std::string_view text);
    CompoundWriter& addStorage(std::string_view path);
    // Adds FAT sectors beyond those needed (all entries free), e.g. 110 or more
    // to make a small file with a master sector chain.
    CompoundWriter& extraFatSectors(std::uint32_t count);

    // One entry per line as described above; throws std::invalid_argument on a bad line.
    static CompoundWriter fromDescription(std::string_view description);

    CompoundFile build() const;
    qh::Bytes bytes() const { return build().bytes; }

private:
    struct Node {
        std::string name;
        bool storage = false;
        qh::Bytes data;
        std::vector<std::size_t> children;
    };
    std::size_t nodeFor(std::string_view path, bool storage);

    std::uint16_t sectorShift_;
    std::uint32_t extraFat_ = 0;
    std::vector<Node> nodes_;  // node 0 is the root
};

}  // namespace qhtest
