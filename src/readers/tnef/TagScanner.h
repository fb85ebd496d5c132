#pragma once
// Repeated searches for one 4-byte id in one buffer, each from an offset at or
// after the previous one, with exactly the results that
// DataWangers::searchForBytes gives on the rest of the buffer from that offset
// (its partial-match rules included), in time linear in the buffer overall.
//
// The attachment search resumes after every value it finds; searching each
// rest afresh costs the length of the rest every time an id is missing, which
// a stream of many small attributes turns into quadratic time.
#include <cstdint>
#include <utility>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qh {

class TagScanner {
public:
    static constexpr std::uint64_t kNotFound = 0x7FFFFFFFFFFFFFFFull;

    TagScanner(ByteView data, std::uint32_t tag);

    // The match offset relative to `from`, or kNotFound.
    std::uint64_t find(std::size_t from);

private:
    std::uint64_t scan(std::size_t from);

    ByteView data_;
    std::uint8_t pattern_[4];
    // The last full search: where it started, where it stopped reading, the
    // bytes before which it stood in a partial match (offset, bytes matched;
    // in offset order: every other byte it read it met with none), and its
    // result as an offset into data_ (or kNotFound).
    bool haveRun_ = false;
    std::size_t runStart_ = 0;
    std::size_t covered_ = 0;
    std::vector<std::pair<std::size_t, std::uint8_t>> partial_;
    std::uint64_t runResult_ = kNotFound;
};

}  // namespace qh
