#include "support/RtfCompressor.h"

#include <array>
#include <cstring>
#include <vector>

#include "richtext/Format.h"

namespace qhtest {

namespace {

namespace fmt = qh::rtfcp;

void appendU32(qh::Bytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// Greedy LZ77 over the 4096-byte ring the decoder keeps. Candidates come from
// hash chains on the first two bytes; every candidate is verified by comparing
// against the ring as the decoder would see it while copying (a reference may
// read bytes it has just written).
class Encoder {
public:
    Encoder() {
        std::memcpy(ring_.data(), fmt::kInitialDictionary.data(), fmt::kInitialDictionary.size());
        head_.assign(1 << 16, kNone);
        previous_.fill(kNone);
        for (std::size_t position = 0; position + 1 < fmt::kInitialDictionary.size(); ++position) index(position);
        writePosition_ = fmt::kInitialDictionary.size();
    }

    qh::Bytes encode(qh::ByteView raw) {
        RtfCompressor::Tokens tokens;
        std::size_t position = 0;
        while (position < raw.size()) {
            std::size_t bestLength = 0, bestOffset = 0;
            if (raw.size() - position >= fmt::kMinimumMatch) findMatch(raw, position, bestLength, bestOffset);
            if (bestLength >= fmt::kMinimumMatch) {
                tokens.reference(static_cast<std::uint16_t>(bestOffset), static_cast<std::uint8_t>(bestLength));
                for (std::size_t i = 0; i < bestLength; ++i) put(raw[position + i]);
                position += bestLength;
            } else {
                tokens.literal(raw[position]);
                put(raw[position]);
                ++position;
            }
        }
        tokens.endMarker(static_cast<std::uint16_t>(writePosition_));
        return tokens.bytes();
    }

private:
    static constexpr std::uint16_t kNone = 0xFFFF;
    static constexpr int kChainLimit = 256;

    std::size_t key(std::size_t position) const {
        return (std::size_t(ring_[position]) << 8) | ring_[(position + 1) & fmt::kDictionaryMask];
    }
    void index(std::size_t position) {
        std::size_t k = key(position);
        previous_[position] = head_[k];
        head_[k] = static_cast<std::uint16_t>(position);
    }
    void put(std::uint8_t byte) {
        ring_[writePosition_] = byte;
        // The pair that starts one byte back is now complete.
        index((writePosition_ - 1) & fmt::kDictionaryMask);
        writePosition_ = (writePosition_ + 1) & fmt::kDictionaryMask;
    }

    std::size_t matchLength(qh::ByteView raw, std::size_t position, std::size_t offset) const {
        std::size_t limit = std::min<std::size_t>(fmt::kMaximumMatch, raw.size() - position);
        std::size_t length = 0;
        for (; length < limit; ++length) {
            std::size_t read = (offset + length) & fmt::kDictionaryMask;
            std::size_t sinceWrite = (read - writePosition_) & fmt::kDictionaryMask;
            std::uint8_t byte = sinceWrite < length ? raw[position + sinceWrite] : ring_[read];
            if (byte != raw[position + length]) break;
        }
        return length;
    }

    void findMatch(qh::ByteView raw, std::size_t position, std::size_t& bestLength, std::size_t& bestOffset) const {
        std::size_t k = (std::size_t(raw[position]) << 8) | raw[position + 1];
        std::uint16_t candidate = head_[k];
        for (int step = 0; step < kChainLimit && candidate != kNone; ++step) {
            // The write position itself would read as the end marker.
            if (candidate != writePosition_) {
                std::size_t length = matchLength(raw, position, candidate);
                if (length > bestLength) {
                    bestLength = length;
                    bestOffset = candidate;
                    if (length == fmt::kMaximumMatch) return;
                }
            }
            candidate = previous_[candidate];
        }
    }

    std::array<std::uint8_t, fmt::kDictionarySize> ring_{};
    std::vector<std::uint16_t> head_;
    std::array<std::uint16_t, fmt::kDictionarySize> previous_{};
    std::size_t writePosition_ = 0;
};

}  // namespace

qh::Bytes RtfCompressor::compress(qh::ByteView raw) {
    Encoder encoder;
    qh::Bytes tokens = encoder.encode(raw);
    return withHeader(tokens, static_cast<std::uint32_t>(raw.size()));
}

qh::Bytes RtfCompressor::uncompressed(qh::ByteView raw) {
    qh::Bytes out;
    out.reserve(fmt::kHeaderSize + raw.size());
    appendU32(out, static_cast<std::uint32_t>(raw.size() + 12));
    appendU32(out, static_cast<std::uint32_t>(raw.size()));
    appendU32(out, fmt::kTypeUncompressed);
    appendU32(out, 0);
    out.insert(out.end(), raw.begin(), raw.end());
    return out;
}

std::uint32_t RtfCompressor::crc(qh::ByteView bytes) {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    std::uint32_t value = 0;
    for (std::uint8_t byte : bytes) value = table[(value ^ byte) & 0xFF] ^ (value >> 8);
    return value;
}

qh::Bytes RtfCompressor::withHeader(qh::ByteView tokens, std::uint32_t rawSize, std::uint32_t type) {
    qh::Bytes out;
    out.reserve(fmt::kHeaderSize + tokens.size());
    appendU32(out, static_cast<std::uint32_t>(tokens.size() + 12));
    appendU32(out, rawSize);
    appendU32(out, type);
    appendU32(out, type == fmt::kTypeCompressed ? crc(tokens) : 0);
    out.insert(out.end(), tokens.begin(), tokens.end());
    return out;
}

void RtfCompressor::Tokens::startToken(bool isReference) {
    if (tokensInGroup_ == fmt::kTokensPerControlByte) {
        controlPosition_ = bytes_.size();
        bytes_.push_back(0);
        tokensInGroup_ = 0;
    }
    if (isReference) bytes_[controlPosition_] |= static_cast<std::uint8_t>(1u << tokensInGroup_);
    ++tokensInGroup_;
}

RtfCompressor::Tokens& RtfCompressor::Tokens::literal(std::uint8_t byte) {
    startToken(false);
    bytes_.push_back(byte);
    return *this;
}

RtfCompressor::Tokens& RtfCompressor::Tokens::literals(std::string_view text) {
    for (char c : text) literal(static_cast<std::uint8_t>(c));
    return *this;
}

RtfCompressor::Tokens& RtfCompressor::Tokens::reference(std::uint16_t offset, std::uint8_t length) {
    startToken(true);
    std::uint8_t lengthCode = static_cast<std::uint8_t>((length - fmt::kMinimumMatch) & 0x0F);
    bytes_.push_back(static_cast<std::uint8_t>((offset >> 4) & 0xFF));
    bytes_.push_back(static_cast<std::uint8_t>(((offset & 0x0F) << 4) | lengthCode));
    return *this;
}

RtfCompressor::Tokens& RtfCompressor::Tokens::raw(qh::ByteView bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    // Whatever follows starts a fresh group.
    tokensInGroup_ = fmt::kTokensPerControlByte;
    return *this;
}

}  // namespace qhtest
