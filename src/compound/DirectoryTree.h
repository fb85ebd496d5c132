#pragma once
// The directory of a compound file: the ordered list of entry records and the
// lookups by name and path over the entries' sibling trees.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <string_view>
#include <vector>

#include "compound/DirectoryEntry.h"
#include <quillhaven/Bytes.h>

namespace qh {

class DirectoryTree {
public:
    static constexpr std::uint32_t kNotFound = 0xFFFFFFFF;

    // Reads every whole 128-byte entry of `buffer` (the first `size` bytes);
    // yes when at least one record was made.
    bool loadEntries(ByteView buffer, std::size_t size);
    std::size_t entryCount() const { return masterSectorAllocationTableArray.size(); }
    const DirectoryEntry* entry(std::size_t index) const;
    void emptyAllocationTable();

    // Shorter names first; names of equal length compared byte by byte, case-sensitively.
    static int compareDirectoryName(std::string_view a, std::string_view b);

    // Searches the sibling tree from `index` for `name`: the entry index, or 0
    // when not found (then `closest` holds the last entry looked at).
    std::uint32_t findSiblingInTree(std::uint32_t index, std::string_view name, std::uint32_t& closest) const;
    std::uint32_t findChildWithIndex(std::uint32_t parent, std::string_view name, std::uint32_t& closest) const;
    // Yes when the sibling tree of `parent` is a proper search tree (every
    // entry valid, linked by no 0, met once, names strictly ascending): then
    // looking up the name of any of children(parent) below `parent` finds
    // that very child (the root excepted: a lookup that finds it answers
    // "not found").
    bool searchFindsEveryChild(std::uint32_t parent) const;
    const DirectoryEntry* findEntry(std::string_view path) const;
    // The index findEntry resolves `path` to.
    std::optional<std::uint32_t> findEntryIndex(std::string_view path) const;
    // The same for `path` taken below the entry `start` (which an empty path,
    // or one of slashes alone, resolves to): findEntryIndex(a + "/" + b) is
    // findEntryIndexBelow(findEntryIndex(a), b) whenever a resolves.
    std::optional<std::uint32_t> findEntryIndexBelow(std::uint32_t start, std::string_view path) const;

    std::uint32_t indexOf(const DirectoryEntry& record) const;
    std::uint32_t parent(std::uint32_t index);
    // The child indexes of `index` in sibling-tree order. The answer is the
    // tree's one shared list, refilled by every call.
    const std::vector<std::uint32_t>& children(std::uint32_t index);
    // Appends the in-order walk of the sibling tree at `index` to the shared list.
    void buildBinaryTree(std::uint32_t index);

    // The records in list order (list index = entry number until an entry is skipped).
    std::vector<DirectoryEntry> masterSectorAllocationTableArray;

private:
    // The children of one storage in name order, when its sibling tree is a
    // proper search tree (so that the search would find exactly these);
    // lookups then cost the same on a degenerate tree as on a balanced one.
    struct ChildIndex {
        bool usable = false;
        std::vector<std::uint32_t> sorted;
    };
    const ChildIndex& childIndex(std::uint32_t parent) const;
    // compareDirectoryName of entry `index`'s name and `name`, whose length
    // in UTF-16 units is `units`.
    int compareWithEntry(std::uint32_t index, std::string_view name, std::size_t units) const;
    // The length of entry `index`'s name in UTF-16 units.
    std::size_t unitsOf(std::uint32_t index) const;

    mutable std::unordered_map<std::uint32_t, std::unique_ptr<ChildIndex>> childIndexes_;
    // The UTF-16 length of every entry's name, as loaded.
    std::vector<std::uint8_t> nameUnits_;
    // Visit marks of the index builder, as visitMarks_ are for the sibling walk.
    mutable std::vector<std::uint32_t> indexMarks_;
    mutable std::uint32_t indexGeneration_ = 0;
    DirectoryEntry thisEntry_;
    std::vector<std::uint32_t> binaryTree_;
    // Visit marks of the sibling walk: a mark equal to the current generation means visited.
    std::vector<std::uint32_t> visitMarks_;
    std::uint32_t visitGeneration_ = 0;
};

}  // namespace qh
