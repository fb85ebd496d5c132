// ReadTNEF on any bytes in both readings, then the writers on whatever
// dictionary it gives (both writers, the MIME writer's text checked,
// WriteBoth.h), and the summary. The seeds in corpus/tnef were written
// with the fixture writer (tests/support/TnefWriter): an empty stream, subject
// with compressed RTF and HTML bodies, two attachments with long and display
// names, data before titles, named and multi-valued properties, UTF-16 sender
// properties, a damaged checksum, a trailing header fragment, a property
// block cut short, and date attributes in and out of range; and
// complete-reading.tnef (written by a few lines of Python in the form of the
// fixture writer): OEM code page 1251, attFrom, a zero-size attribute, a bad
// checksum, an attached TNEF message with a recipient table, attribute ids
// without their type half, and trailing bytes.
#include <cstddef>
#include <cstdint>

#include "core/Log.h"
#include "readers/tnef/ReadTNEF.h"
#include "WriteBoth.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        qh::Log::setSystemLogEnabled(false);
        return true;
    }();
    (void)quiet;
    const qh::ByteView bytes(data, size);
    for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
        const qh::ReadOptions options{reading, reading == qh::Reading::complete};
        auto reader = qh::ReadTNEF::initWithData(bytes, options);
        if (const qh::Dict* dictionary = reader->returnFullDictionary()) qhfuzz::writeBoth(*dictionary);
        (void)qh::ReadTNEF::getSummaryForMessage(bytes, options);
    }
    return 0;
}
