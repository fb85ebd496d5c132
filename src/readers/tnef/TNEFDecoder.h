#pragma once
// Decodes a TNEF stream held in memory into a small dictionary: "Subject",
// "Date", "RTF" or "HTML" from the message's MAPI properties, and an
// "AttachmentList" of the attachments that carry data.
#include <cstdint>
#include <memory>
#include <optional>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>
#include "readers/tnef/TNEFContent.h"
#include "readers/tnef/TNEFRecords.h"

namespace qh {

class TNEFDecoder {
public:
    TNEFDecoder() = default;
    static std::unique_ptr<TNEFDecoder> init();

    // "Subject", "RTF", "HTML" from a property list, then "Subject" and "Date"
    // from the decoder's own message record.
    Dict buildMAPIDictionary(const TNEFPropertyList& list) const;
    // The result dictionary of a decoded message.
    Dict buildTNEFDictionary(const TNEFMessage& message) const;

    // Reads `size` bytes of attribute data (a view into the source) and their
    // 16-bit sum. A read past the end leaves the data empty and the sum 0 and
    // is not reported: the stream loop depends on that pairing.
    int readTNEFData(TNEFMessage& message, ByteView& destination, std::uint32_t size, std::uint16_t* checksum);
    // Level, attribute id and size. A read past the end leaves the previous
    // id and size in place.
    int GetTNEFHeader(TNEFMessage& message, std::uint32_t& type, std::uint32_t& size);
    // The stream loop: 0 when decoding ended (also at a zero size or a
    // checksum mismatch), -1 when the stream cannot be decoded.
    int parseTNEFData(TNEFMessage& message);
    int parseMemory(ByteView bytes, TNEFMessage& message);

    void freeMapiProperties(TNEFPropertyList& list);
    void freeAttachment(TNEFAttachment& attachment);
    void freeTNEFData(TNEFMessage& message);

    // The result dictionary, or none when the stream cannot be decoded.
    std::optional<Dict> processTNEF(ByteView data);
    // The same in the reading of `context` (complete: the whole message
    // dictionary, attached messages read within the context's budget).
    std::optional<Dict> processTNEF(ByteView data, TnefReadContext& context);

private:
    TNEFMessage TNEF;
};

}  // namespace qh
