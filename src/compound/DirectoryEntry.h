#pragma once
// One directory entry of a compound file as the directory tree keeps it.
#include <cstdint>
#include <string>

namespace qh {

struct DirectoryEntry {
    std::string name;       // low bytes of the UTF-16 name, control characters left out
    bool valid = false;     // the entry type is not "empty"
    bool dir = false;       // the entry is not a stream (storages, the root and empty entries)
    std::uint32_t prev = 0;   // left sibling
    std::uint32_t next = 0;   // right sibling
    std::uint32_t child = 0;
    double time = 0;        // modification time, Unix seconds
    std::uint32_t start = 0;  // first sector of the stream
    std::uint32_t size = 0;   // stream size in bytes (low 32 bits)

    friend bool operator==(const DirectoryEntry&, const DirectoryEntry&) = default;
};

}  // namespace qh
