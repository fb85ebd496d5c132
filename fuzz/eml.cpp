// Fuzz target: any bytes through the EML reader in both readings, and each
// dictionary back out through the EML writer.
#include <cstddef>
#include <cstdint>

#include "core/Reading.h"
#include "readers/mime/ReadEML.h"
#include "writers/WriteEML.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const qh::ReadOptions& options : {qh::ReadOptions::classic(), qh::ReadOptions::complete()}) {
        auto reader = qh::ReadEML::initWithData(qh::ByteView(data, size), options);
        if (!reader) return 0;
        auto writer = qh::WriteEML::initWithDictionary(reader->returnFullDictionary());
        if (writer) {
            std::string text = writer->formatOutputFile();
            (void)text;
        }
        (void)qh::ReadEML::getSummaryForMessage(qh::ByteView(data, size), options);
    }
    return 0;
}
