#pragma once
// A little-endian reader over a byte span. Reads past the end yield zeros (or
// an empty span) and set a sticky `isShort()` flag that the caller checks once
// per record, so that parsing code reads like the format.
#include <cstring>

#include "core/Bytes.h"

namespace qh {

class ByteCursor {
public:
    explicit ByteCursor(ByteView data, std::size_t position = 0)
        : data_(data), position_(position > data.size() ? data.size() : position),
          short_(position > data.size()) {}

    std::uint8_t u8() { return static_cast<std::uint8_t>(load(1)); }
    std::uint16_t u16le() { return static_cast<std::uint16_t>(load(2)); }
    std::uint32_t u32le() { return static_cast<std::uint32_t>(load(4)); }
    std::uint64_t u64le() { return load(8); }
    std::int32_t i32le() { return static_cast<std::int32_t>(u32le()); }

    // The next `count` bytes, or an empty span (and the short flag) when fewer remain.
    ByteView bytes(std::size_t count) {
        if (!fits(position_, count, data_.size())) {
            short_ = true;
            position_ = data_.size();
            return {};
        }
        ByteView out = data_.subspan(position_, count);
        position_ += count;
        return out;
    }
    // Up to `count` bytes: whatever remains when fewer do (sets the short flag then).
    ByteView upTo(std::size_t count) {
        std::size_t available = remaining();
        if (count > available) {
            short_ = true;
            count = available;
        }
        ByteView out = data_.subspan(position_, count);
        position_ += count;
        return out;
    }
    void skip(std::size_t count) { (void)bytes(count); }
    void seek(std::size_t position) {
        if (position > data_.size()) {
            short_ = true;
            position_ = data_.size();
        } else {
            position_ = position;
        }
    }

    std::size_t position() const { return position_; }
    std::size_t remaining() const { return data_.size() - position_; }
    bool atEnd() const { return position_ >= data_.size(); }
    bool isShort() const { return short_; }
    ByteView rest() const { return data_.subspan(position_); }

private:
    std::uint64_t load(std::size_t width) {
        if (!fits(position_, width, data_.size())) {
            short_ = true;
            position_ = data_.size();
            return 0;
        }
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value |= std::uint64_t(data_[position_ + i]) << (8 * i);
        position_ += width;
        return value;
    }

    ByteView data_;
    std::size_t position_;
    bool short_;
};

}  // namespace qh
