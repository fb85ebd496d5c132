#pragma once
// An immutable byte buffer whose copies share one allocation, so that a stream
// read once out of a file can travel through the entry dictionary, the message
// dictionary and the writers without being copied again. A blob may also be a
// part of a larger immutable buffer (a stream inside the file it was read
// from): it then shares that buffer's ownership and keeps all of it alive.
#include <algorithm>
#include <memory>

#include <quillhaven/Bytes.h>

namespace qh {

class Blob {
public:
    Blob() = default;
    explicit Blob(Bytes bytes) : Blob(std::make_shared<const Bytes>(std::move(bytes))) {}
    explicit Blob(ByteView bytes) : Blob(Bytes(bytes.begin(), bytes.end())) {}
    // The whole of `owner`.
    explicit Blob(std::shared_ptr<const Bytes> owner)
        : owner_(std::move(owner)), view_(owner_ ? ByteView(*owner_) : ByteView()) {}
    // The bytes [offset, offset + length) of `owner`, cut at its end; the
    // owner is never changed while a blob shares it.
    Blob(std::shared_ptr<const Bytes> owner, std::size_t offset, std::size_t length) : owner_(std::move(owner)) {
        if (!owner_) return;
        const ByteView all(*owner_);
        offset = std::min(offset, all.size());
        view_ = all.subspan(offset, std::min(length, all.size() - offset));
    }

    ByteView view() const { return view_; }
    const std::uint8_t* data() const { return view_.data(); }
    std::size_t size() const { return view_.size(); }
    bool empty() const { return size() == 0; }
    std::string_view text() const { return asText(view()); }

    friend bool operator==(const Blob& a, const Blob& b) {
        auto x = a.view(), y = b.view();
        return x.size() == y.size() && std::equal(x.begin(), x.end(), y.begin());
    }

private:
    std::shared_ptr<const Bytes> owner_;
    ByteView view_;
};

}  // namespace qh
