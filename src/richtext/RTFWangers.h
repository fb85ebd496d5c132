#pragma once
// Compressed RTF (MS-OXRTFCP): the "LZFu" decoder that message bodies in .msg
// and TNEF files need, as class operations, plus two small helpers that are
// also exported as plain C functions for C callers outside this library
// (nothing in this tree calls the C forms).
#include <cstddef>
#include <cstdint>
#include <optional>

#include <quillhaven/Bytes.h>

namespace qh {

class RTFWangers {
public:
    // Yes when the buffer holds at least 12 bytes and the 32-bit value at
    // offset 8 is "LZFu" or "MELA".
    static bool typeIsRTF(ByteView bytes);

    // The decoded RTF of a compressed-RTF stream (exactly raw-size bytes), or
    // none when the type is not compressed RTF. A "MELA" (uncompressed) stream
    // gives none here: only callers of getRTFFromBuffer that pass a buffer in
    // get its bytes.
    static std::optional<Bytes> getRTFForData(ByteView data);

    // Reports the raw size of the header in `returnSize`. "LZFu": replaces
    // `returnData` with the decoded output (none only when it cannot be
    // allocated). "MELA": only when `returnData` already holds a buffer, it is
    // replaced by raw-size bytes copied from offset 4 of the input (the raw-size
    // field on); otherwise `returnData` is left as it is. Reads past the input
    // yield zeros.
    static void getRTFFromBuffer(ByteView buffer, std::uint32_t& returnSize,
                                 std::optional<Bytes>& returnData);

    // Decodes the bytes after the 16-byte header: `compressedSize` bytes of
    // `source` (never more than the span holds) into a new buffer of
    // `uncompressedSize` bytes; bytes never written stay zero. The raw size is
    // clamped to what `compressedSize` bytes can possibly expand to (plus a
    // small allowance), so a header cannot make us allocate more than a small
    // multiple of the input. None only when the output cannot be allocated.
    static std::optional<Bytes> decodeRTFSource(ByteView source, std::uint64_t compressedSize,
                                                std::uint32_t uncompressedSize);

    // A zero-filled buffer of count x size bytes, or none when the product
    // overflows or cannot be allocated.
    static std::optional<Bytes> initializeArrayWithEntryCount(std::size_t count, std::size_t size);

    // The unsigned 32-bit little-endian value at the start of `bytes`; 0 when
    // fewer than 4 bytes are there.
    static std::uint64_t convertToLongLong(ByteView bytes);

    // The most output `compressedSize` bytes of LZFu tokens can produce, plus
    // the allowance: the bound applied to raw sizes.
    static std::uint64_t maximumRawSize(std::uint64_t compressedSize);
};

}  // namespace qh

extern "C" {
// calloc(count, size): a zero-filled block the caller releases with free(), or
// null when the product overflows or cannot be allocated.
void* initializeArray(std::size_t count, std::size_t size);
// The unsigned 32-bit little-endian value at `bytes`; 0 when `bytes` is null
// or `length` is below 4.
unsigned long long convertToLongLong(const unsigned char* bytes, std::size_t length);
}
