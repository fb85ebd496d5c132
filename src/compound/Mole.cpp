#include <quillhaven/Mole.h>

#include <algorithm>
#include <map>
#include <tuple>
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
struct Mole::Walk {
    CompoundDocument& document;
    bool exact = false;
    std::uint64_t budget = 0;
    std::map<std::tuple<bool, std::uint32_t, std::uint64_t>, Blob> shared;
    std::unordered_set<std::uint32_t> entered;
    unsigned depth = 0;

    Walk(CompoundDocument& doc, bool exactStreams) : document(doc), exact(exactStreams) {
        const std::uint64_t size = doc.io() ? doc.io()->filesize : 0;
        budget = 2 * size + kWalkSlackBytes;
        entered.insert(0);
    }

    // The stream at `path` as a value, or none when no stream opens there.
    std::optional<Value> streamValue(const std::string& path) {
        CompoundDocumentIO* io = document.io();
        auto handler = io ? io->streamHandler(path) : nullptr;
        if (!handler) return std::nullopt;
        const auto key = std::make_tuple(handler->isSmall(), handler->entry.start,
                                         exact ? std::uint64_t(handler->entry.size) : UINT64_MAX);
        if (auto found = shared.find(key); found != shared.end()) return Value(found->second);
        // Streams past the budget are not even read.
        const std::uint64_t sectorSize = handler->isSmall() ? io->smallSectorSize() : io->bigSectorSize();
        std::uint64_t bound = std::min<std::uint64_t>(handler->sectorArray.size() * sectorSize, io->filesize);
        if (exact) bound = std::min<std::uint64_t>(bound, handler->entry.size);
        if (bound > budget) return Value();
        Bytes bytes = handler->readAll(exact);
        if (bytes.size() > budget) return Value();
        budget -= bytes.size();
        Blob blob(std::move(bytes));
        shared.emplace(key, blob);
        return Value(std::move(blob));
    }

    // Whether the storage at `path` may be walked into (and marks it walked).
    bool enter(const std::string& path) {
        if (depth >= kMaxStorageDepth) return false;
        CompoundDocumentIO* io = document.io();
        if (!io || !io->directoryTree) return false;
        auto index = io->directoryTree->findEntryIndex(path);
        return index && entered.insert(*index).second;
    }
};

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

std::unique_ptr<Mole> Mole::initialize() {
    auto mole = std::make_unique<Mole>();
    mole->compoundDocument_ = std::make_unique<CompoundDocument>();
    return mole;
}

std::optional<Blob> Mole::getStream(std::string_view path) const {
    CompoundDocumentIO* io = compoundDocument_ ? compoundDocument_->io() : nullptr;
    auto handler = io ? io->streamHandler(path) : nullptr;
    if (!handler) return std::nullopt;
    return Blob(handler->readAll(false));
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
    Dict dictionary;
    for (const std::string& name : walk.document.entries(path)) {
        // The filter applies where a list is given (the top level); attachment
        // storages pass it always.
        if (filtered && names && std::find(names->begin(), names->end(), name) == names->end() &&
            !(name.size() > kAttachmentPrefix.size() && name.starts_with(kAttachmentPrefix)))
            continue;
        const std::string fullPath = path + name;
        if (auto bytes = walk.streamValue(fullPath)) dictionary.set(name, std::move(*bytes));
        // classic: the filtered walk asks the root whether the bare name is a
        // storage, so below the top level it enters only storages the root
        // also holds; no caller in this tree, kept for outside users.
        const bool storage = filtered ? walk.document.isDirectory(name) : walk.document.isDirectory(fullPath);
        if (storage) {
            Dict children;
            if (walk.enter(fullPath)) {
                ++walk.depth;
                children = buildOLEDictionary(walk, fullPath + "/", nullptr, filtered);
                --walk.depth;
            }
            dictionary.set(name, std::move(children));
        }
    }
    return dictionary;
}

}  // namespace qh
