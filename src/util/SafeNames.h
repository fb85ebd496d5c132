#pragma once
// File names taken from messages (attachment names, input file names) made
// safe to create inside one output folder, and the folder that writes them
// without ever replacing a file.
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh {

class SafeNames {
public:
    // One file name that stays inside the folder it is created in: path
    // separators and the characters other systems forbid in names become "_";
    // control and bidirectional-override characters and invalid UTF-8 are
    // dropped; runs of dots shrink to one dot, so ".." never appears; leading
    // dots (hidden files) and leading or trailing white space and trailing dots
    // go; overlong names are cut to 240 bytes keeping the extension. An empty
    // result gives `fallback`.
    static std::string sanitize(std::string_view name, std::string_view fallback);
    // The n-th candidate (n >= 2) for a name that clashes: "a.txt" -> "a (2).txt",
    // "README" -> "README (2)".
    static std::string numbered(std::string_view name, unsigned n);
};

class OutputFolder {
public:
    // The folder, created when missing; std::nullopt (with a reason) when it
    // cannot be made or is not a folder.
    static std::optional<OutputFolder> open(const std::filesystem::path& dir, std::string& problem);

    // Writes `data` to a new file called `safeName`, or, when that name is
    // taken (by an existing file or an earlier write), its first free numbered
    // form. Never replaces a file. Returns the name used, or std::nullopt with
    // a reason.
    std::optional<std::string> write(const std::string& safeName, ByteView data, std::string& problem) const;

    const std::filesystem::path& path() const { return dir_; }

private:
    explicit OutputFolder(std::filesystem::path dir) : dir_(std::move(dir)) {}
    std::filesystem::path dir_;
};

}  // namespace qh
