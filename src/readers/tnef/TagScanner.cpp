#include "readers/tnef/TagScanner.h"

namespace qh {

TagScanner::TagScanner(ByteView data, std::uint32_t tag) : data_(data) {
    for (int i = 0; i < 4; ++i) pattern_[i] = static_cast<std::uint8_t>(tag >> (8 * i));
}

// The search as the shared byte search runs it: a byte that breaks a partial
// match is not tried as a new start, and a partial match running into the end
// counts as found at its start.
std::uint64_t TagScanner::scan(std::size_t from) {
    haveRun_ = true;
    runStart_ = from;
    states_.clear();
    runResult_ = kNotFound;
    std::uint8_t matched = 0;
    for (std::size_t i = from; i < data_.size(); ++i) {
        states_.push_back(matched);
        if (data_[i] == pattern_[matched]) {
            if (++matched == 4) {
                runResult_ = i + 1 - 4;
                return runResult_ - from;
            }
        } else {
            matched = 0;
        }
    }
    if (matched > 0) runResult_ = data_.size() - matched;
    return runResult_ == kNotFound ? kNotFound : runResult_ - from;
}

std::uint64_t TagScanner::find(std::size_t from) {
    const std::size_t covered = runStart_ + states_.size();  // bytes the last run read
    if (!haveRun_ || from < runStart_ || from >= covered) return scan(from);
    // Run the search from `from` beside the recorded one: once both stand at
    // the same byte with no partial match, they go on identically.
    std::uint8_t matched = 0;
    for (std::size_t i = from; i < covered; ++i) {
        if (matched == 0 && states_[i - runStart_] == 0) {
            return runResult_ == kNotFound ? kNotFound : runResult_ - from;
        }
        if (data_[i] == pattern_[matched]) {
            if (++matched == 4) return i + 1 - 4 - from;
        } else {
            matched = 0;
        }
    }
    if (covered < data_.size()) return scan(from);  // the recorded run stopped at its match
    return matched > 0 ? data_.size() - matched - from : kNotFound;
}

}  // namespace qh
