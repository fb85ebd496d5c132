#include "plugin/WholeFile.h"

#include <cstdio>
#include <memory>

#include <sys/stat.h>

namespace qh::plugin {

std::optional<Bytes> WholeFile::read(const std::string& path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) return std::nullopt;
    struct stat info {};
    if (fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;

    // The size is a hint: a file that changes while we read is taken as it reads.
    Bytes bytes;
    bytes.reserve(static_cast<std::size_t>(info.st_size));
    std::uint8_t chunk[64 * 1024];
    for (;;) {
        std::size_t count = std::fread(chunk, 1, sizeof chunk, file.get());
        bytes.insert(bytes.end(), chunk, chunk + count);
        if (count < sizeof chunk) break;
    }
    if (std::ferror(file.get())) return std::nullopt;
    return bytes;
}

}  // namespace qh::plugin
