#include "compound/CompoundDocument.h"

#include "compound/CompoundDocumentIO.h"

namespace qh {

CompoundDocument::CompoundDocument() = default;
CompoundDocument::~CompoundDocument() = default;

void CompoundDocument::initializeWithData(ByteView data) {
    io_ = std::make_unique<CompoundDocumentIO>();
    io_->initializeStream(this, data);
}

void CompoundDocument::initializeBorrowingData(ByteView data) {
    io_ = std::make_unique<CompoundDocumentIO>();
    io_->initializeStreamBorrowing(this, data);
}

void CompoundDocument::initializeSharingData(std::shared_ptr<const Bytes> data) {
    io_ = std::make_unique<CompoundDocumentIO>();
    io_->initializeStreamSharing(this, std::move(data));
}

bool CompoundDocument::open() { return io_ && io_->open(); }

int CompoundDocument::result() const { return io_ ? io_->result : CompoundDocumentIO::kUnreadable; }

std::vector<std::string> CompoundDocument::entries(std::string_view path) {
    std::vector<std::string> names;
    if (!io_ || !io_->directoryTree) return names;
    DirectoryTree& tree = *io_->directoryTree;
    auto index = tree.findEntryIndex(path);
    if (!index || !tree.entry(*index)->dir) return names;
    for (std::uint32_t child : tree.children(*index)) {
        const DirectoryEntry* record = tree.entry(child);
        if (record && !record->name.empty()) names.push_back(record->name);
    }
    return names;
}

bool CompoundDocument::isDirectory(std::string_view path) const {
    if (!io_ || !io_->directoryTree) return false;
    const DirectoryEntry* record = io_->directoryTree->findEntry(path);
    return record && record->dir;
}

void CompoundDocument::deInitialize() {
    if (io_) io_->deInitialize();
    io_.reset();
}

}  // namespace qh
