// Fuzz target: any bytes through the EML reader in both readings; the classic
// dictionary back out through the EML writer, the complete one through the
// MIME writer and read again.
#include <cstddef>
#include <cstdint>

#include <quillhaven/Reading.h>
#include "readers/mime/ReadEML.h"
#include <quillhaven/WriteEML.h>
#include "WriteBoth.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const qh::ByteView input(data, size);
    auto classic = qh::ReadEML::initWithData(input, qh::ReadOptions::classic());
    if (!classic) return 0;
    if (auto writer = qh::WriteEML::initWithDictionary(classic->returnFullDictionary())) {
        (void)writer->formatOutputFile();
    }
    (void)qh::ReadEML::getSummaryForMessage(input, qh::ReadOptions::classic());

    auto complete = qh::ReadEML::initWithData(input, qh::ReadOptions::complete());
    if (!complete) return 0;
    // Both writers; the MIME writer's text checked for fields not its own and read again (WriteBoth.h).
    if (const qh::Dict* message = complete->returnFullDictionary()) qhfuzz::writeBoth(*message);
    (void)qh::ReadEML::getSummaryForMessage(input, qh::ReadOptions::complete());
    return 0;
}
