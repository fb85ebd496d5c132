// The preview's extraction (msgMetaData) on hostile files: compound document,
// stream lookup, compressed-RTF decoding and the text decodings of the bodies.
//
// Seeds (fuzz/corpus/preview): small messages made with
// tests/support/CompoundWriter and tests/support/RtfCompressor: an RTF body
// in small and in big sectors, a MELA body beside a text body, a 0x1008 body,
// Unicode and 8-bit text bodies, no body at all. The shared corpus of real
// messages is replayed through this target as well.
#include <cstddef>
#include <cstdint>

#include "core/Log.h"
#include "plugin/MsgMetaData.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        qh::Log::setSystemLogEnabled(false);
        return true;
    }();
    (void)quiet;
    qh::PreviewBody body = qh::msgMetaData(qh::ByteView(data, size));
    (void)body;
    return 0;
}
