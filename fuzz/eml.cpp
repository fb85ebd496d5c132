// Fuzz target: any bytes through the EML reader, and its dictionary back out
// through the EML writer.
#include <cstddef>
#include <cstdint>

#include "readers/mime/ReadEML.h"
#include "writers/WriteEML.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto reader = qh::ReadEML::initWithData(qh::ByteView(data, size));
    if (!reader) return 0;
    auto writer = qh::WriteEML::initWithDictionary(reader->returnFullDictionary());
    if (writer) {
        std::string text = writer->formatOutputFile();
        (void)text;
    }
    return 0;
}
