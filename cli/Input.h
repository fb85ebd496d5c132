#pragma once
// Reading a command's input (a path, or "-" for standard input).
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qhcli {

class Input {
public:
    // The whole file, or std::nullopt when it cannot be read.
    static std::optional<qh::Bytes> readFile(const std::string& path);
};

}  // namespace qhcli
