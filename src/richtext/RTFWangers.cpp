#include "richtext/RTFWangers.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "core/ByteCursor.h"
#include "richtext/Format.h"

namespace qh {

namespace {

// A raw size that the compressed bytes cannot fill only adds zeros at the end;
// this much of such padding is still honoured, so that short or empty streams
// with a modest raw size keep their zero-filled output. Beyond it the size is
// clamped to what the input can produce.
constexpr std::uint64_t kRawSizeAllowance = 64 * 1024;

std::uint32_t loadU32(ByteView bytes, std::size_t offset) {
    ByteCursor cursor(bytes, offset);
    return cursor.u32le();
}

// A zero-filled buffer of `size` bytes, or none when it cannot be allocated.
std::optional<Bytes> zeroFilled(std::uint64_t size) {
    if (size > std::numeric_limits<std::size_t>::max()) return std::nullopt;
    try {
        return Bytes(static_cast<std::size_t>(size));
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    } catch (const std::length_error&) {
        return std::nullopt;
    }
}

// The ring as decoding starts: the standard's dictionary, then zeros.
const std::array<std::uint8_t, rtfcp::kDictionarySize>& presetDictionary() {
    static const auto ring = [] {
        std::array<std::uint8_t, rtfcp::kDictionarySize> bytes{};
        std::memcpy(bytes.data(), rtfcp::kInitialDictionary.data(), rtfcp::kInitialDictionary.size());
        return bytes;
    }();
    return ring;
}

}  // namespace

std::uint64_t RTFWangers::maximumRawSize(std::uint64_t compressedSize) {
    // Control bytes produce nothing, a literal one byte, a two-byte reference
    // at most 17.
    return (compressedSize / rtfcp::kReferenceSize) * rtfcp::kMaximumMatch +
           compressedSize % rtfcp::kReferenceSize + kRawSizeAllowance;
}

bool RTFWangers::typeIsRTF(ByteView bytes) {
    const std::uint32_t type = loadU32(bytes, rtfcp::kTypeOffset);  // 0 when short
    return type == rtfcp::kTypeUncompressed || type == rtfcp::kTypeCompressed;
}

std::optional<Bytes> RTFWangers::getRTFForData(ByteView data) {
    if (!typeIsRTF(data)) return std::nullopt;
    std::uint32_t rawSize = 0;
    std::optional<Bytes> output;
    getRTFFromBuffer(data, rawSize, output);
    if (!output) return std::nullopt;
    // The buffer is already cut to the raw size (or to the clamp below it).
    if (output->size() > rawSize) output->resize(rawSize);
    return output;
}

void RTFWangers::getRTFFromBuffer(ByteView buffer, std::uint32_t& returnSize,
                                  std::optional<Bytes>& returnData) {
    std::uint32_t rawSize = loadU32(buffer, rtfcp::kRawSizeOffset);
    std::uint32_t type = loadU32(buffer, rtfcp::kTypeOffset);
    returnSize = rawSize;

    if (type == rtfcp::kTypeCompressed) {
        const ByteView source = ByteCursor(buffer, rtfcp::kHeaderSize).rest();
        returnData = decodeRTFSource(source, source.size(), rawSize);
    } else if (type == rtfcp::kTypeUncompressed) {
        // classic: only a caller that hands in a buffer gets an uncompressed
        // body, and the copy starts at the raw-size field, not after the
        // header; getRTFForData passes none, so the plug-in and the readers
        // fall back to the text bodies for such streams.
        if (!returnData) return;
        const ByteView from = ByteCursor(buffer, rtfcp::kRawSizeOffset).rest();
        std::uint64_t size = std::min<std::uint64_t>(rawSize, from.size() + kRawSizeAllowance);
        std::optional<Bytes> copy = zeroFilled(size);
        if (copy) {
            std::size_t available = std::min<std::size_t>(copy->size(), from.size());
            if (available) std::memcpy(copy->data(), from.data(), available);
        }
        returnData = std::move(copy);
    }
}

std::optional<Bytes> RTFWangers::decodeRTFSource(ByteView source, std::uint64_t compressedSize,
                                                 std::uint32_t uncompressedSize) {
    const std::size_t inputLength = static_cast<std::size_t>(std::min<std::uint64_t>(compressedSize, source.size()));
    const std::uint64_t outputLength = std::min<std::uint64_t>(uncompressedSize, maximumRawSize(inputLength));

    // The ring always holds the last 4096 bytes written, so it is never kept
    // apart: ring position p holds the latest output byte i with
    // (207 + i) mod 4096 == p, or its preset value while no output byte has
    // reached it yet. References are copied out of the output itself.
    const std::uint8_t* preset = presetDictionary().data();
    std::size_t writePosition = rtfcp::kInitialDictionary.size();

    std::optional<Bytes> output = zeroFilled(outputLength);
    if (!output || inputLength == 0) return output;

    const std::uint8_t* in = source.data();
    std::uint8_t* out = output->data();
    const std::size_t rawSize = output->size();
    std::size_t outPosition = 0;

    // The end marker (a reference to the write position) only ends its group:
    // what follows is read as further control bytes until the input is used
    // up. Stream bytes come with sector padding, so this runs over the padding
    // too; the output never grows past the raw size because every token that
    // would pass it is dropped whole. The input and output bounds are checked
    // here inline rather than through ByteCursor: this loop is the hot path of
    // every RTF body, and each check guards the access right after it.
    std::size_t control = 0;
    std::size_t q = 1;
    while (q <= inputLength) {
        const std::uint8_t flags = in[control];
        for (int bit = 0; bit < rtfcp::kTokensPerControlByte; ++bit) {
            if (flags & (1u << bit)) {
                if (q + rtfcp::kReferenceSize > inputLength) break;
                const std::size_t offset = (std::size_t(in[q]) << 4) | (in[q + 1] >> 4);
                const std::size_t length = (in[q + 1] & 0x0F) + rtfcp::kMinimumMatch;
                q += rtfcp::kReferenceSize;
                if (offset == writePosition) break;
                if (outPosition + length > rawSize) break;
                // How far back the ring position lies: 1 to 4095 bytes.
                const std::size_t distance = (writePosition - offset) & rtfcp::kDictionaryMask;
                std::uint8_t* to = out + outPosition;
                if (distance >= length && distance <= outPosition) {
                    std::memcpy(to, to - distance, length);
                } else if (distance == 1 && outPosition > 0) {
                    std::memset(to, to[-1], length);
                } else if (distance <= outPosition) {
                    // A reference just behind the write position reads what it
                    // writes and repeats a run: byte by byte.
                    const std::uint8_t* from = out + (outPosition - distance);
                    for (std::size_t i = 0; i < length; ++i) to[i] = from[i];
                } else {
                    // Early in the output part of the copy comes from the preset ring.
                    for (std::size_t i = 0; i < length; ++i) {
                        to[i] = outPosition + i >= distance ? out[outPosition + i - distance]
                                                            : preset[(offset + i) & rtfcp::kDictionaryMask];
                    }
                }
                outPosition += length;
                writePosition = (writePosition + length) & rtfcp::kDictionaryMask;
            } else {
                if (q + 1 > inputLength || outPosition + 1 > rawSize) break;
                out[outPosition++] = in[q++];
                writePosition = (writePosition + 1) & rtfcp::kDictionaryMask;
            }
        }
        control = q;
        q = control + 1;
    }
    return output;
}

std::optional<Bytes> RTFWangers::initializeArrayWithEntryCount(std::size_t count, std::size_t size) {
    if (size != 0 && count > std::numeric_limits<std::size_t>::max() / size) return std::nullopt;
    return zeroFilled(std::uint64_t(count) * size);
}

std::uint64_t RTFWangers::convertToLongLong(ByteView bytes) {
    return loadU32(bytes, 0);
}

}  // namespace qh

extern "C" {

void* initializeArray(std::size_t count, std::size_t size) {
    if (size != 0 && count > std::numeric_limits<std::size_t>::max() / size) return nullptr;
    return std::calloc(count, size);
}

unsigned long long convertToLongLong(const unsigned char* bytes, std::size_t length) {
    if (!bytes) return 0;
    return qh::RTFWangers::convertToLongLong(qh::ByteView(bytes, length));
}

}
