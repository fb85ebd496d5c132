#pragma once
// Shared by the plug-in tests: messages built from a few streams, written to
// temporary files for the entry points, and readable forms of a preview.
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <quillhaven/Bytes.h>
#include "plugin/MsgMetaData.h"

namespace qhtest {

// A .msg with the given top-level streams (name, bytes).
qh::Bytes messageWith(const std::vector<std::pair<std::string, qh::Bytes>>& streams);

// "none", "rtf:<bytes>" or "text:<text>", for comparisons that print well.
std::string describe(const qh::PreviewBody& body);

// A file that is removed when the object goes.
class TemporaryFile {
public:
    explicit TemporaryFile(qh::ByteView contents);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace qhtest
