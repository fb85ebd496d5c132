#include <quillhaven/Mole.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "compound/CompoundDocument.h"
#include "compound/CompoundDocumentIO.h"
#include "compound/Stream.h"
#include "compound/StreamHandler.h"
#include "core/Log.h"
#include <quillhaven/MessageKeys.h>

namespace qh {

namespace {

// Storages nest this deep at most in a walk; deeper ones are listed but not
// entered. Real messages nest two storages per embedded message.
constexpr unsigned kMaxStorageDepth = 128;
// A walk materialises at most this many stream bytes beyond twice the file:
// a well-formed file needs at most once its size.
constexpr std::uint64_t kWalkSlackBytes = 64 * 1024;

constexpr std::string_view kAttachmentPrefix = "__attach_version";

}  // namespace

// The state of one whole-document walk. Entries whose streams share a chain
// share one buffer, and the bytes of distinct buffers are counted against a
// budget of a small multiple of the file size, so that a file whose directory
// points many entries into one long chain cannot multiply its memory; a
// stream past the budget is held as a null value. Storages are entered once
// each and no deeper than kMaxStorageDepth, whatever the links say.
//
// The walk goes by entry index: an entry's path is its storage's index and
// its name, resolved below that storage exactly as the whole path would be
// from the root. A stream whose sectors follow each other in the file is
// given out as a view that shares the file (the walk copies a borrowed file
// once for that); the others are copied run by run. The budget counts the
// bytes of views as if they were copies, so that both give the same values.
struct Mole::Walk {
    struct Key {
        bool small;
        std::uint32_t start;
        std::uint64_t size;
        bool operator==(const Key&) const = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const {
            return std::hash<std::uint64_t>()((std::uint64_t(key.start) << 1 | key.small) * 0x9E3779B97F4A7C15ull ^
                                              key.size);
        }
    };

    CompoundDocument& document;
    CompoundDocumentIO* io = nullptr;
    DirectoryTree* tree = nullptr;
    bool exact = false;
    std::uint64_t budget = 0;
    std::unordered_map<Key, Blob, KeyHash> shared;
    std::unordered_set<std::uint32_t> entered;
    unsigned depth = 0;
    // The file as a shared buffer once a stream is to be given out (null
    // before, and when there is none).
    std::shared_ptr<const Bytes> file;
    bool fileAsked = false;
    // Scratch reused from stream to stream and storage to storage.
    std::vector<std::uint32_t> chain;
    std::vector<ByteView> runs;
    std::vector<std::uint32_t> children;

    Walk(CompoundDocument& doc, bool exactStreams) : document(doc), exact(exactStreams) {
        io = doc.io();
        tree = io ? io->directoryTree.get() : nullptr;
        const std::uint64_t size = io ? io->filesize : 0;
        budget = 2 * size + kWalkSlackBytes;
        entered.insert(0);
    }

    // The index `path` resolves to.
    std::optional<std::uint32_t> resolve(std::string_view path) const {
        return tree ? tree->findEntryIndex(path) : std::nullopt;
    }
    // The index `name` resolves to below the storage at `parent` (as the path
    // of the storage, "/" and `name` would).
    std::optional<std::uint32_t> resolveBelow(std::uint32_t parent, std::string_view name) const {
        return tree->findEntryIndexBelow(parent, name);
    }
    const DirectoryEntry* entryAt(std::optional<std::uint32_t> index) const {
        return index && tree ? tree->entry(*index) : nullptr;
    }

    // The stream at `path` as a value, or none when no stream opens there.
    std::optional<Value> streamValue(std::string_view path) {
        if (path.empty()) return std::nullopt;
        return streamValue(entryAt(resolve(path)));
    }

    // The stream of `record` as a value, or none when it is no stream.
    std::optional<Value> streamValue(const DirectoryEntry* record) {
        if (!record || record->dir || !io || !io->header) return std::nullopt;
        const bool small = record->size < io->header->threshold;
        const Key key{small, record->start, exact ? std::uint64_t(record->size) : UINT64_MAX};
        if (auto found = shared.find(key); found != shared.end()) return Value(found->second);
        const SectorAllocTable& table = small ? *io->smallSectorAllocationTable : *io->masterSectorAllocationTable;
        table.allocationFollow(record->start, chain);
        // Streams past the budget are not even read.
        const std::uint64_t sectorSize = small ? io->smallSectorSize() : io->bigSectorSize();
        std::uint64_t bound = std::min<std::uint64_t>(chain.size() * sectorSize, io->filesize);
        if (exact) bound = std::min<std::uint64_t>(bound, record->size);
        if (bound > budget) return Value();
        if (!fileAsked) {
            fileAsked = true;
            file = io->shareData();
        }
        const std::size_t total = StreamHandler::locate(*io, small, chain, record->size, exact, runs);
        if (total > budget) return Value();
        budget -= total;
        Blob blob = runs.size() == 1 && file ? Blob(file, static_cast<std::size_t>(runs[0].data() - file->data()), total)
                                             : Blob(StreamHandler::join(runs, total));
        shared.emplace(key, blob);
        return Value(std::move(blob));
    }

    // Whether the storage at `index` may be walked into (and marks it walked).
    bool enter(std::optional<std::uint32_t> index) {
        if (depth >= kMaxStorageDepth) return false;
        if (!tree) return false;
        return index && entered.insert(*index).second;
    }
    bool enter(const std::string& path) {
        if (depth >= kMaxStorageDepth) return false;
        return enter(resolve(path));
    }

    // The dictionary of the storage at `index` (empty when it is none). With
    // `filtered`, the top level keeps `names` (all when null) and attachment
    // storages, and storages are recognised by their bare name at the root.
    Dict dictionary(std::optional<std::uint32_t> index, const std::vector<std::string>* names, bool filtered);
};

Dict Mole::Walk::dictionary(std::optional<std::uint32_t> index, const std::vector<std::string>* names,
                            bool filtered) {
    Dict dictionary;
    const DirectoryEntry* storage = entryAt(index);
    if (!storage || !storage->dir) return dictionary;
    // The children go on one list shared by the levels of the walk: each level
    // appends its own and cuts the list back when done.
    const std::size_t first = children.size();
    for (std::uint32_t child : tree->children(*index))
        if (const DirectoryEntry* record = tree->entry(child); record && !record->name.empty())
            children.push_back(child);
    const std::size_t last = children.size();
    // In a proper search tree a child's name leads back to the child itself
    // (unless the child is the root, which no search finds).
    const bool direct = tree->searchFindsEveryChild(*index);
    for (std::size_t k = first; k < last; ++k) {
        // Entries are never added or moved while the document is open.
        const std::string& name = tree->entry(children[k])->name;
        // The filter applies where a list is given (the top level); attachment
        // storages pass it always.
        if (filtered && names && std::find(names->begin(), names->end(), name) == names->end() &&
            !(name.size() > kAttachmentPrefix.size() && name.starts_with(kAttachmentPrefix)))
            continue;
        const std::optional<std::uint32_t> resolved =
            direct && children[k] != 0 && name.find('/') == std::string::npos ? children[k]
                                                                             : resolveBelow(*index, name);
        const DirectoryEntry* record = entryAt(resolved);
        if (auto bytes = streamValue(record)) dictionary.set(name, std::move(*bytes));
        // classic: the filtered walk asks the root whether the bare name is a
        // storage, so below the top level it enters only storages the root
        // also holds; no caller in this tree, kept for outside users.
        const DirectoryEntry* judged = filtered ? entryAt(resolve(name)) : record;
        if (judged && judged->dir) {
            Dict inner;
            if (enter(resolved)) {
                ++depth;
                inner = this->dictionary(resolved, nullptr, filtered);
                --depth;
            }
            dictionary.set(name, std::move(inner));
        }
    }
    children.resize(first);
    return dictionary;
}

Mole::Mole() = default;
Mole::~Mole() = default;

namespace {

std::unique_ptr<Mole> opened(std::unique_ptr<Mole> mole) {
    // Success is judged by the status alone: open also answers yes for some
    // documents that did not load.
    (void)mole->compoundDocument()->open();
    if (mole->compoundDocument()->result() != CompoundDocumentIO::kLoaded) {
        Log::line("MOLE Reader - Error opening NSData");
        return nullptr;
    }
    return mole;
}

}  // namespace

std::unique_ptr<Mole> Mole::initWithData(ByteView data) {
    auto mole = std::make_unique<Mole>();
    mole->compoundDocument_ = std::make_unique<CompoundDocument>();
    mole->compoundDocument_->initializeWithData(data);
    return opened(std::move(mole));
}

std::unique_ptr<Mole> Mole::initBorrowingData(ByteView data) {
    auto mole = std::make_unique<Mole>();
    mole->compoundDocument_ = std::make_unique<CompoundDocument>();
    mole->compoundDocument_->initializeBorrowingData(data);
    return opened(std::move(mole));
}

std::unique_ptr<Mole> Mole::initSharingData(std::shared_ptr<const Bytes> data) {
    auto mole = std::make_unique<Mole>();
    mole->compoundDocument_ = std::make_unique<CompoundDocument>();
    mole->compoundDocument_->initializeSharingData(std::move(data));
    return opened(std::move(mole));
}

std::unique_ptr<Mole> Mole::initialize() {
    auto mole = std::make_unique<Mole>();
    mole->compoundDocument_ = std::make_unique<CompoundDocument>();
    return mole;
}

std::optional<Blob> Mole::getStream(std::string_view path) const {
    CompoundDocumentIO* io = compoundDocument_ ? compoundDocument_->io() : nullptr;
    auto handler = io ? io->streamHandler(path) : nullptr;
    if (!handler) return std::nullopt;
    // A stream of one run in a file the document owns is a view of it.
    std::vector<ByteView> runs;
    const std::size_t total =
        StreamHandler::locate(*io, handler->isSmall(), handler->sectorArray, handler->entry.size, false, runs);
    if (const auto& file = io->ownData(); file && runs.size() == 1)
        return Blob(file, static_cast<std::size_t>(runs[0].data() - file->data()), total);
    return Blob(StreamHandler::join(runs, total));
}

Array Mole::getDirectory() {
    if (compoundDocument_) {
        Walk walk(*compoundDocument_, false);
        buildDirectory(walk, "/");
    }
    return directoryArray_;
}

Array Mole::getOLEArray() {
    if (!compoundDocument_) return {};
    Walk walk(*compoundDocument_, false);
    return buildOLEArray(walk, "/");
}

Dict Mole::getOLEDictionary(bool exactStreams) {
    if (!compoundDocument_) return {};
    Walk walk(*compoundDocument_, exactStreams);
    return buildOLEDictionary(walk, "/", nullptr, false);
}

Dict Mole::getOLEDictionaryWithContents(const std::vector<std::string>* names, bool exactStreams) {
    if (!compoundDocument_) return {};
    Walk walk(*compoundDocument_, exactStreams);
    return buildOLEDictionary(walk, "/", names, true);
}

void Mole::deInitialize() {
    if (compoundDocument_) compoundDocument_->deInitialize();
    compoundDocument_.reset();
    directoryArray_.clear();
    directoryEntry_ = Dict();
}

void Mole::buildDirectory(CompoundDocument& document, const std::string& path) {
    Walk walk(document, false);
    buildDirectory(walk, path);
}

Array Mole::buildOLEArray(CompoundDocument& document, const std::string& path) {
    Walk walk(document, false);
    return buildOLEArray(walk, path);
}

Dict Mole::buildOLEDictionary(CompoundDocument& document, const std::string& path, bool exactStreams) {
    Walk walk(document, exactStreams);
    return buildOLEDictionary(walk, path, nullptr, false);
}

Dict Mole::buildOLEDictionary(CompoundDocument& document, const std::string& path,
                              const std::vector<std::string>* names, bool exactStreams) {
    Walk walk(document, exactStreams);
    return buildOLEDictionary(walk, path, names, true);
}

void Mole::buildDirectory(Walk& walk, const std::string& path) {
    for (const std::string& name : walk.document.entries(path)) {
        const std::string fullPath = path + name;
        directoryEntry_ = Dict();
        directoryEntry_.set(keys::kEntryName, fullPath);
        Stream stream(walk.document, fullPath);
        if (!stream.fail()) directoryEntry_.set(keys::kEntrySize, Value(stream.size()));
        directoryArray_.push_back(Value(std::move(directoryEntry_)));
        if (walk.document.isDirectory(fullPath) && walk.enter(fullPath)) {
            ++walk.depth;
            buildDirectory(walk, fullPath + "/");
            --walk.depth;
        }
    }
}

Array Mole::buildOLEArray(Walk& walk, const std::string& path) {
    Array items;
    for (const std::string& name : walk.document.entries(path)) {
        const std::string fullPath = path + name;
        Dict item;
        if (auto bytes = walk.streamValue(fullPath)) {
            item.set(keys::kEntryName, name);
            item.set(keys::kEntryObjectData, std::move(*bytes));
        }
        // classic: the storage test looks the bare name up from the root, so
        // below the top level only storages the root also holds are entered;
        // no caller in this tree, kept for outside users of the facade.
        if (walk.document.isDirectory(name)) {
            Array children;
            if (walk.enter(fullPath)) {
                ++walk.depth;
                children = buildOLEArray(walk, fullPath + "/");
                --walk.depth;
            }
            item.set(keys::kEntryName, name);
            item.set(keys::kEntryChildren, std::move(children));
        }
        items.push_back(Value(std::move(item)));
    }
    return items;
}

Dict Mole::buildOLEDictionary(Walk& walk, const std::string& path, const std::vector<std::string>* names,
                              bool filtered) {
    return walk.dictionary(walk.resolve(path), names, filtered);
}

}  // namespace qh
