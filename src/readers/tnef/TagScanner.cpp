#include "readers/tnef/TagScanner.h"

#include <algorithm>
#include <cstring>

namespace qh {

TagScanner::TagScanner(ByteView data, std::uint32_t tag) : data_(data) {
    for (int i = 0; i < 4; ++i) pattern_[i] = static_cast<std::uint8_t>(tag >> (8 * i));
}

// The search as the shared byte search runs it: a byte that breaks a partial
// match is not tried as a new start, and a partial match running into the end
// counts as found at its start. Between partial matches it skips to the next
// byte that can start one.
std::uint64_t TagScanner::scan(std::size_t from) {
    haveRun_ = true;
    runStart_ = from;
    partial_.clear();
    runResult_ = kNotFound;
    const std::uint8_t* bytes = data_.data();
    const std::size_t size = data_.size();
    std::uint8_t matched = 0;
    for (std::size_t i = from; i < size; ++i) {
        if (matched == 0) {
            const void* start = std::memchr(bytes + i, pattern_[0], size - i);
            if (start == nullptr) break;
            i = static_cast<std::size_t>(static_cast<const std::uint8_t*>(start) - bytes);
        } else {
            partial_.emplace_back(i, matched);
        }
        if (bytes[i] == pattern_[matched]) {
            if (++matched == 4) {
                covered_ = i + 1;
                runResult_ = i + 1 - 4;
                return runResult_ - from;
            }
        } else {
            matched = 0;
        }
    }
    covered_ = size;
    if (matched > 0) runResult_ = size - matched;
    return runResult_ == kNotFound ? kNotFound : runResult_ - from;
}

std::uint64_t TagScanner::find(std::size_t from) {
    if (!haveRun_ || from < runStart_ || from >= covered_) return scan(from);
    // Run the search from `from` beside the recorded one: once both stand at
    // the same byte with no partial match, they go on identically.
    auto recorded = std::lower_bound(partial_.begin(), partial_.end(), from,
                                     [](const auto& entry, std::size_t offset) { return entry.first < offset; });
    std::uint8_t matched = 0;
    for (std::size_t i = from; i < covered_; ++i) {
        while (recorded != partial_.end() && recorded->first < i) ++recorded;
        const bool recordedPartial = recorded != partial_.end() && recorded->first == i;
        if (matched == 0 && !recordedPartial) {
            return runResult_ == kNotFound ? kNotFound : runResult_ - from;
        }
        if (data_[i] == pattern_[matched]) {
            if (++matched == 4) return i + 1 - 4 - from;
        } else {
            matched = 0;
        }
    }
    if (covered_ < data_.size()) return scan(from);  // the recorded run stopped at its match
    return matched > 0 ? data_.size() - matched - from : kNotFound;
}

}  // namespace qh
