#pragma once
// Reading a document named by the host: the one file-system service the
// plug-in needs, kept apart from the host's API.
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

namespace qh::plugin {

class WholeFile {
public:
    // The whole file in one buffer, or none when it cannot be opened or read
    // (a directory, a missing file, a read error).
    static std::optional<Bytes> read(const std::string& path);
};

}  // namespace qh::plugin
