// Compressed RTF from hostile bytes: the whole input as a stream (header
// included), its bytes as a headerless token run under a raw size taken from
// the input, and the uncompressed path with a buffer handed in. Whatever the
// header claims, the output stays within what the input can produce.
//
// Seeds (fuzz/corpus/rtf_decompress): the two worked examples of MS-OXRTFCP,
// streams made with tests/support/RtfCompressor (short, long, padded, end
// marker followed by more tokens, raw size too small and too large, MELA), and
// prefixes shorter than a header.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "richtext/RTFWangers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const qh::ByteView input(data, size);

    if (auto rtf = qh::RTFWangers::getRTFForData(input)) {
        const std::size_t tokens = size > 16 ? size - 16 : 0;
        if (rtf->size() > qh::RTFWangers::maximumRawSize(tokens)) std::abort();
    }

    std::uint32_t rawSize = 0;
    std::optional<qh::Bytes> held = qh::Bytes{};
    qh::RTFWangers::getRTFFromBuffer(input, rawSize, held);
    if (held && held->size() > qh::RTFWangers::maximumRawSize(size)) std::abort();

    // The same bytes as a bare token run, the raw size from their first word.
    const std::uint32_t claimed = static_cast<std::uint32_t>(qh::RTFWangers::convertToLongLong(input));
    if (auto decoded = qh::RTFWangers::decodeRTFSource(input, size, claimed)) {
        if (decoded->size() > qh::RTFWangers::maximumRawSize(size)) std::abort();
    }
    return 0;
}
