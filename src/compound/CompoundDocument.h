#pragma once
// The owner of one compound file that the facade holds.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qh {

class CompoundDocumentIO;

class CompoundDocument {
public:
    CompoundDocument();
    ~CompoundDocument();
    CompoundDocument(const CompoundDocument&) = delete;
    CompoundDocument& operator=(const CompoundDocument&) = delete;

    void initializeWithData(ByteView data);
    // The same without a copy: `data` must outlive the document.
    void initializeBorrowingData(ByteView data);
    // The same, sharing `data` with the streams given out.
    void initializeSharingData(std::shared_ptr<const Bytes> data);
    bool open();
    // The load status (0 loaded, 1 unreadable, 2 bad signature, 3 invalid).
    int result() const;
    // The names of the children of the storage at `path`, in sibling-tree
    // order, nameless ones left out; empty for anything else.
    std::vector<std::string> entries(std::string_view path);
    bool isDirectory(std::string_view path) const;
    void deInitialize();

    CompoundDocumentIO* io() const { return io_.get(); }

private:
    std::unique_ptr<CompoundDocumentIO> io_;
};

}  // namespace qh
