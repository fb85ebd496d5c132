// Fuzz target: any bytes through the EML reader in both readings, and each
// dictionary back out through both writers (the MIME writer's text checked, WriteBoth.h).
#include <cstddef>
#include <cstdint>

#include "core/Reading.h"
#include "readers/mime/ReadEML.h"
#include "WriteBoth.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const qh::ReadOptions& options : {qh::ReadOptions::classic(), qh::ReadOptions::complete()}) {
        auto reader = qh::ReadEML::initWithData(qh::ByteView(data, size), options);
        if (!reader) return 0;
        if (const qh::Dict* message = reader->returnFullDictionary()) qhfuzz::writeBoth(*message);
        (void)qh::ReadEML::getSummaryForMessage(qh::ByteView(data, size), options);
    }
    return 0;
}
