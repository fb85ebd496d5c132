#include "compound/DirectoryTree.h"

#include <algorithm>
#include <cstring>

#include "compound/Format.h"
#include "core/ByteCursor.h"
#include "core/ByteWords.h"
#include "util/TimeWangers.h"

namespace qh {

namespace {

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i + 8 <= text.size() && !words::anyHigh(words::load(text.data() + i))) i += 8;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length;
        std::uint32_t lowest;
        std::uint32_t code;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2, lowest = 0x80, code = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, lowest = 0x800, code = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, lowest = 0x10000, code = lead & 0x07;
        } else {
            return false;
        }
        if (length > text.size() - i) return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        if (code < lowest || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += length;
    }
    return true;
}

// Length in UTF-16 code units of valid UTF-8 text.
std::size_t utf16Length(std::string_view text) {
    std::size_t units = 0;
    // ASCII (most names) eight bytes at a time: a unit each.
    while (text.size() >= 8 && !words::anyHigh(words::load(text.data()))) {
        units += 8;
        text.remove_prefix(8);
    }
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0) != 0x80) ++units;
        if (byte >= 0xF0) ++units;
    }
    return units;
}

// The entry name from the low byte of each UTF-16 character. Property-set
// streams begin their names with a control character: it is left out.
std::string entryName(ByteView entry) {
    ByteCursor in(entry, cfb::kEntryNameLength);
    const std::size_t nameLength = std::min<std::size_t>(in.u16le(), cfb::kEntryNameCapacity);
    const ByteView raw = ByteCursor(entry, cfb::kEntryName).upTo(nameLength);
    // Built in place, then made a string once.
    char name[cfb::kEntryNameCapacity];
    std::size_t size = 0;
    for (std::size_t offset = 0; offset < raw.size(); offset += 2) {
        const std::uint8_t low = raw[offset];
        if (low == 0) break;
        if (low < 32) continue;
        if (size + 1 >= nameLength) break;
        name[size++] = static_cast<char>(low);
    }
    const std::string_view text(name, size);
    return isValidUtf8(text) ? std::string(text) : std::string();
}

}  // namespace

bool DirectoryTree::loadEntries(ByteView buffer, std::size_t size) {
    emptyAllocationTable();
    size = std::min(size, buffer.size());
    const std::size_t count = size / cfb::kDirectoryEntrySize;
    masterSectorAllocationTableArray.reserve(count);
    bool dataStoreSeen = false;
    for (std::size_t k = 0; k < count; ++k) {
        ByteView raw = buffer.subspan(k * cfb::kDirectoryEntrySize, cfb::kDirectoryEntrySize);
        ByteCursor in(raw);
        thisEntry_ = DirectoryEntry{};
        thisEntry_.name = entryName(raw);
        if (thisEntry_.name == "MsoDataStore") dataStoreSeen = true;
        // classic: once a data store has been met, nameless entries are dropped
        // and the records after them move up one place; the classic output of
        // `ls` on Office documents with a data store, compared byte for byte,
        // depends on it.
        if (thisEntry_.name.empty() && dataStoreSeen) continue;
        in.seek(cfb::kEntryType);
        const std::uint8_t type = in.u8();
        thisEntry_.valid = type != cfb::kTypeEmpty;
        thisEntry_.dir = type != cfb::kTypeStream;
        in.seek(cfb::kEntryLeftSibling);
        thisEntry_.prev = in.u32le();
        thisEntry_.next = in.u32le();
        thisEntry_.child = in.u32le();
        in.seek(cfb::kEntryModifiedTime);
        const std::uint64_t fileTime = in.u64le();
        thisEntry_.time = static_cast<double>(TimeWangers::unixTimeFromWindows(static_cast<std::int64_t>(fileTime)));
        in.seek(cfb::kEntryStartSector);
        thisEntry_.start = in.u32le();
        thisEntry_.size = in.u32le();
        masterSectorAllocationTableArray.push_back(std::move(thisEntry_));
    }
    visitMarks_.assign(masterSectorAllocationTableArray.size(), 0);
    visitGeneration_ = 0;
    nameUnits_.reserve(masterSectorAllocationTableArray.size());
    for (const DirectoryEntry& record : masterSectorAllocationTableArray)
        nameUnits_.push_back(static_cast<std::uint8_t>(utf16Length(record.name)));
    return !masterSectorAllocationTableArray.empty();
}

const DirectoryEntry* DirectoryTree::entry(std::size_t index) const {
    return index < masterSectorAllocationTableArray.size() ? &masterSectorAllocationTableArray[index] : nullptr;
}

void DirectoryTree::emptyAllocationTable() {
    childIndexes_.clear();
    nameUnits_.clear();
    indexMarks_.clear();
    indexGeneration_ = 0;
    masterSectorAllocationTableArray.clear();
    binaryTree_.clear();
    visitMarks_.clear();
}

int DirectoryTree::compareDirectoryName(std::string_view a, std::string_view b) {
    const std::size_t lengthA = utf16Length(a), lengthB = utf16Length(b);
    if (lengthA != lengthB) return lengthA < lengthB ? -1 : 1;
    const int order = a.compare(b);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

std::size_t DirectoryTree::unitsOf(std::uint32_t index) const {
    // Names are at most 31 units long; the table is the one loadEntries made.
    return nameUnits_.size() == entryCount() ? nameUnits_[index]
                                             : utf16Length(masterSectorAllocationTableArray[index].name);
}

int DirectoryTree::compareWithEntry(std::uint32_t index, std::string_view name, std::size_t units) const {
    const std::string& own = masterSectorAllocationTableArray[index].name;
    const std::size_t ownUnits = unitsOf(index);
    if (ownUnits != units) return ownUnits < units ? -1 : 1;
    const int order = std::string_view(own).compare(name);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

std::uint32_t DirectoryTree::findSiblingInTree(std::uint32_t index, std::string_view name,
                                               std::uint32_t& closest) const {
    const std::size_t count = entryCount();
    const std::size_t units = utf16Length(name);
    // A search path through a tree visits each entry at most once; a longer one
    // means the sibling links loop, and the name is not there.
    for (std::size_t steps = 0; steps <= count; ++steps) {
        const DirectoryEntry* record = entry(index);
        if (!record || !record->valid) return 0;
        const int order = compareWithEntry(index, name, units);
        if (order == 0) return index;
        const std::uint32_t link = order < 0 ? record->next : record->prev;
        // Link 0 counts as no link here, so the root is never found as a sibling.
        if (link == 0 || link >= count) {
            closest = index;
            return 0;
        }
        index = link;
    }
    return 0;
}

std::uint32_t DirectoryTree::findChildWithIndex(std::uint32_t parent, std::string_view name,
                                                std::uint32_t& closest) const {
    const DirectoryEntry* record = entry(parent);
    if (!record || !record->valid || record->child >= entryCount()) return 0;
    const ChildIndex& index = childIndex(parent);
    if (index.usable) {
        const std::size_t units = utf16Length(name);
        auto found = std::lower_bound(index.sorted.begin(), index.sorted.end(), name,
                                      [&](std::uint32_t child, std::string_view wanted) {
                                          return compareWithEntry(child, wanted, units) < 0;
                                      });
        if (found != index.sorted.end() && compareWithEntry(*found, name, units) == 0) return *found;
    }
    return findSiblingInTree(record->child, name, closest);
}

bool DirectoryTree::searchFindsEveryChild(std::uint32_t parent) const {
    const DirectoryEntry* record = entry(parent);
    return record && record->valid && record->child < entryCount() && childIndex(parent).usable;
}

const DirectoryTree::ChildIndex& DirectoryTree::childIndex(std::uint32_t parent) const {
    auto& slot = childIndexes_[parent];
    if (slot) return *slot;
    slot = std::make_unique<ChildIndex>();
    const std::size_t count = entryCount();
    const DirectoryEntry& record = masterSectorAllocationTableArray[parent];
    if (indexMarks_.size() != count) {
        indexMarks_.assign(count, 0);
        indexGeneration_ = 0;
    }
    if (++indexGeneration_ == 0) {
        std::fill(indexMarks_.begin(), indexMarks_.end(), 0);
        indexGeneration_ = 1;
    }
    // In-order walk of the sibling tree. The index is usable only when the
    // walk and the search cannot disagree: every entry valid, no link of 0,
    // no entry met twice, and names strictly ascending.
    std::vector<std::uint32_t>& inOrder = slot->sorted;
    struct Step {
        std::uint32_t index;
        bool emit;
    };
    std::vector<Step> stack{{record.child, false}};
    while (!stack.empty()) {
        const Step step = stack.back();
        stack.pop_back();
        if (step.index >= count) continue;
        const DirectoryEntry& node = masterSectorAllocationTableArray[step.index];
        if (step.emit) {
            inOrder.push_back(step.index);
            if (node.next != cfb::kNoStream) stack.push_back({node.next, false});
            continue;
        }
        if (!node.valid || node.prev == 0 || node.next == 0 || indexMarks_[step.index] == indexGeneration_) {
            inOrder = {};
            return *slot;
        }
        indexMarks_[step.index] = indexGeneration_;
        stack.push_back({step.index, true});
        if (node.prev != cfb::kNoStream) stack.push_back({node.prev, false});
    }
    for (std::size_t k = 1; k < inOrder.size(); ++k) {
        if (compareWithEntry(inOrder[k - 1], masterSectorAllocationTableArray[inOrder[k]].name, unitsOf(inOrder[k])) >=
            0) {
            inOrder = {};
            return *slot;
        }
    }
    slot->usable = true;
    return *slot;
}

std::optional<std::uint32_t> DirectoryTree::findEntryIndex(std::string_view path) const {
    if (path.empty() || masterSectorAllocationTableArray.empty()) return std::nullopt;
    return findEntryIndexBelow(0, path);
}

std::optional<std::uint32_t> DirectoryTree::findEntryIndexBelow(std::uint32_t start, std::string_view path) const {
    std::uint32_t index = start;
    std::size_t position = 0;
    while (position < path.size()) {
        std::size_t slash = path.find('/', position);
        if (slash == std::string_view::npos) slash = path.size();
        std::string_view component = path.substr(position, slash - position);
        position = slash + 1;
        if (component.empty()) continue;
        std::uint32_t closest = kNotFound;
        index = findChildWithIndex(index, component, closest);
        if (index == 0) return std::nullopt;
    }
    return index;
}

const DirectoryEntry* DirectoryTree::findEntry(std::string_view path) const {
    auto index = findEntryIndex(path);
    return index ? entry(*index) : nullptr;
}

std::uint32_t DirectoryTree::indexOf(const DirectoryEntry& record) const {
    auto found = std::find(masterSectorAllocationTableArray.begin(), masterSectorAllocationTableArray.end(), record);
    if (found == masterSectorAllocationTableArray.end()) return kNotFound;
    return static_cast<std::uint32_t>(found - masterSectorAllocationTableArray.begin());
}

std::uint32_t DirectoryTree::parent(std::uint32_t index) {
    for (std::uint32_t candidate = 0; candidate < entryCount(); ++candidate) {
        const auto& list = children(candidate);
        if (std::find(list.begin(), list.end(), index) != list.end()) return candidate;
    }
    return kNotFound;
}

const std::vector<std::uint32_t>& DirectoryTree::children(std::uint32_t index) {
    binaryTree_.clear();
    const DirectoryEntry* record = entry(index);
    if (record && record->valid && record->child < entryCount()) buildBinaryTree(record->child);
    return binaryTree_;
}

void DirectoryTree::buildBinaryTree(std::uint32_t index) {
    const std::size_t count = entryCount();
    if (count == 0) return;
    if (++visitGeneration_ == 0) {
        std::fill(visitMarks_.begin(), visitMarks_.end(), 0);
        visitGeneration_ = 1;
    }
    // In-order walk with an explicit stack; here only the free marker means no
    // link, so a link of 0 lists the root among the children. An entry met a
    // second time (sibling links that loop) is not walked again.
    struct Step {
        std::uint32_t index;
        bool emit;
    };
    std::vector<Step> stack{{index, false}};
    while (!stack.empty()) {
        const Step step = stack.back();
        stack.pop_back();
        const DirectoryEntry& record = masterSectorAllocationTableArray[step.index < count ? step.index : 0];
        if (step.emit) {
            binaryTree_.push_back(step.index);
            if (record.next != cfb::kNoStream) stack.push_back({record.next, false});
            continue;
        }
        if (step.index >= count || visitMarks_[step.index] == visitGeneration_) continue;
        visitMarks_[step.index] = visitGeneration_;
        stack.push_back({step.index, true});
        if (record.prev != cfb::kNoStream) stack.push_back({record.prev, false});
    }
}

}  // namespace qh
