#pragma once
// An immutable byte buffer whose copies share one allocation, so that a stream
// read once out of a file can travel through the entry dictionary, the message
// dictionary and the writers without being copied again.
#include <memory>

#include <quillhaven/Bytes.h>

namespace qh {

class Blob {
public:
    Blob() = default;
    explicit Blob(Bytes bytes) : bytes_(std::make_shared<const Bytes>(std::move(bytes))) {}
    explicit Blob(ByteView bytes) : Blob(Bytes(bytes.begin(), bytes.end())) {}

    ByteView view() const { return bytes_ ? ByteView(*bytes_) : ByteView(); }
    const std::uint8_t* data() const { return bytes_ ? bytes_->data() : nullptr; }
    std::size_t size() const { return bytes_ ? bytes_->size() : 0; }
    bool empty() const { return size() == 0; }
    std::string_view text() const { return asText(view()); }

    friend bool operator==(const Blob& a, const Blob& b) {
        auto x = a.view(), y = b.view();
        return x.size() == y.size() && std::equal(x.begin(), x.end(), y.begin());
    }

private:
    std::shared_ptr<const Bytes> bytes_;
};

}  // namespace qh
