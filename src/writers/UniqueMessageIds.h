#pragma once
// Distinct messages may carry the same Message-ID (copies edited by hand,
// test data, broken senders); mail clients and archives keep one of them and
// drop the rest. Within one run of conversions, a Message-ID already written
// by an earlier message is replaced by a fresh one, so that every message of
// an archive stays. The command's `convert -d` / `--mbox` and the Python
// package's `convert_many` both keep their runs' identifiers here.
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

namespace qh {

class UniqueMessageIds {
public:
    // The Message-ID field's value in the header of a written message, or none.
    static std::optional<std::string_view> find(std::string_view text);

    // Remembers the message's identifier, or, when an earlier message had it,
    // writes a fresh one into `text` and remembers that.
    void makeUnique(std::string& text);
    // Remembers `id`; false when it was seen before (and nothing changes).
    bool add(std::string_view id) { return seen_.emplace(id).second; }

private:
    std::unordered_set<std::string> seen_;
};

}  // namespace qh
