#pragma once
// Reading a command's input (a path, or "-" for standard input).
#include <memory>
#include <optional>
#include <utility>
#include <vector>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qhcli {

// Leaves the bytes it makes room for uninitialised: a file's buffer is
// written by read() at once, so zero-filling it first is wasted work.
template <typename T>
struct UninitialisedAllocator : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = UninitialisedAllocator<U>;
    };
    using std::allocator<T>::allocator;
    template <typename U>
    void construct(U* place) noexcept {
        ::new (static_cast<void*>(place)) U;
    }
    template <typename U, typename... Args>
    void construct(U* place, Args&&... args) {
        ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
    }
};

// A whole input file; it converts to qh::ByteView.
using FileBytes = std::vector<std::uint8_t, UninitialisedAllocator<std::uint8_t>>;

class Input {
public:
    // The whole file, or std::nullopt when it cannot be read.
    static std::optional<FileBytes> readFile(const std::string& path);
};

}  // namespace qhcli
