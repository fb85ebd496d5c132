#include "Input.h"

#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qhcli {

namespace file_input {

// Reads `descriptor` to its end into `data`. A regular file is read in one
// piece of its size (`expected`) with room for one byte more: a read that
// comes back short at exactly that size has met the end, with no second read
// to hear it. Whatever more there is (a pipe, a device, a file that grew)
// comes in chunks. False on a read error.
bool readToEnd(int descriptor, FileBytes& data, std::size_t expected) {
    if (expected > 0) {
        data.resize(expected + 1);
        std::size_t have = 0;
        while (have < data.size()) {
            const ssize_t got = ::read(descriptor, data.data() + have, data.size() - have);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return false;
            if (got == 0) break;
            have += static_cast<std::size_t>(got);
            if (have == expected) break;  // short of the extra byte: the end
        }
        const bool grew = have == data.size();
        data.resize(have);
        if (!grew) return true;
    }
    std::uint8_t chunk[1 << 16];
    while (true) {
        const ssize_t got = ::read(descriptor, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        data.insert(data.end(), chunk, chunk + got);
    }
}

}  // namespace file_input

std::optional<FileBytes> Input::readFile(const std::string& path) {
    FileBytes data;
    if (path == "-") {
        if (!file_input::readToEnd(STDIN_FILENO, data, 0)) return std::nullopt;
        return data;
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    struct stat status {};
    bool ok = ::fstat(descriptor, &status) == 0 && !S_ISDIR(status.st_mode);
    if (ok) {
        // A folder is no input (its size is meaningless); a regular file is
        // read in one piece of its size, a pipe or a device in chunks.
        const std::size_t size = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
        ok = file_input::readToEnd(descriptor, data, size);
    }
    ::close(descriptor);
    if (!ok) return std::nullopt;
    return data;
}

}  // namespace qhcli
