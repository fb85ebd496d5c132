#pragma once
// A little-endian reader over a byte span, the one way the system loads an
// integer from a file.
//
// A read that does not fit gives zeros (or an empty span), sets a sticky
// `isShort()` flag and keeps the offset where it began (`failureOffset()`), so
// the caller checks once per record and a diagnostic can say where the file is
// damaged. After the first failure the cursor stands at the end and every later
// read fails too, `seek` included: a record is never half read from two places.
#include <cstdint>
#include <cstring>  // kept for the files that came to rely on it through this header
#include <limits>

#include <quillhaven/Bytes.h>

namespace qh {

class ByteCursor {
public:
    // What `failureOffset()` says while every read has fitted.
    static constexpr std::size_t kNoFailure = std::numeric_limits<std::size_t>::max();

    // A cursor at `position`; a position beyond the end is a failed read there.
    explicit ByteCursor(ByteView data, std::size_t position = 0) : data_(data), position_(0) { seek(position); }

    std::uint8_t u8() { return static_cast<std::uint8_t>(load(1)); }
    std::uint16_t u16le() { return static_cast<std::uint16_t>(load(2)); }
    std::uint32_t u32le() { return static_cast<std::uint32_t>(load(4)); }
    std::uint64_t u64le() { return load(8); }
    std::int16_t i16le() { return static_cast<std::int16_t>(u16le()); }
    std::int32_t i32le() { return static_cast<std::int32_t>(u32le()); }

    // The next `count` bytes, or an empty span (and the short flag) when fewer remain.
    ByteView bytes(std::size_t count) {
        if (!take(count)) return {};
        return data_.subspan(position_ - count, count);
    }
    // Up to `count` bytes: whatever remains when fewer do (sets the short flag then).
    ByteView upTo(std::size_t count) {
        const std::size_t available = short_ ? 0 : remaining();
        if (count > available) {
            fail();
            return data_.subspan(data_.size() - available, available);
        }
        return bytes(count);
    }
    // A value stored as its little-endian byte count, then that many bytes.
    // Empty (and short) when either part runs past the end.
    ByteView lengthPrefixed32() { return prefixed(u32le()); }
    ByteView lengthPrefixed16() { return prefixed(u16le()); }

    void skip(std::size_t count) { (void)take(count); }
    void seek(std::size_t position) {
        if (short_) return;
        if (position > data_.size()) {
            failAt(position);
        } else {
            position_ = position;
        }
    }

    std::size_t position() const { return position_; }
    std::size_t remaining() const { return data_.size() - position_; }
    bool atEnd() const { return position_ >= data_.size(); }
    bool isShort() const { return short_; }
    // Where the first read that did not fit began; kNoFailure when none failed.
    std::size_t failureOffset() const { return failureOffset_; }
    ByteView rest() const { return data_.subspan(position_); }

private:
    // Moves past `count` bytes when they fit; otherwise fails here.
    bool take(std::size_t count) {
        if (short_ || !fits(position_, count, data_.size())) {
            fail();
            return false;
        }
        position_ += count;
        return true;
    }
    std::uint64_t load(std::size_t width) {
        if (!take(width)) return 0;
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value |= std::uint64_t(data_[position_ - width + i]) << (8 * i);
        return value;
    }
    ByteView prefixed(std::uint64_t length) {
        if (short_) return {};
        if (length > remaining()) {
            fail();
            return {};
        }
        return bytes(static_cast<std::size_t>(length));
    }
    void fail() { failAt(position_); }
    void failAt(std::size_t offset) {
        if (!short_) failureOffset_ = offset;
        short_ = true;
        position_ = data_.size();
    }

    ByteView data_;
    std::size_t position_;
    bool short_ = false;
    std::size_t failureOffset_ = kNoFailure;
};

}  // namespace qh
