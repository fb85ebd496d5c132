#pragma once
// The TNEF layer's plain functions: the attribute
// handlers and their table, the MAPI property block decoder and the property
// lookup. Status is reported as 0 (success) or -1 (failure).
#include <array>
#include <cstdint>
#include <vector>

#include "core/ByteCursor.h"
#include <quillhaven/Bytes.h>
#include "readers/tnef/TNEFRecords.h"

namespace qh {

// An attribute handler: the message, the row of the handler table that
// matched, the attribute's data. Returns 0, or a negative value to abort.
using TNEFHandler = int (*)(TNEFMessage* message, std::size_t row, ByteView data);

struct TNEFHandlerRow {
    std::uint32_t id;  // attribute type high, attribute id low
    const char* name;
    TNEFHandler handler;
};

// The twelve attributes the decoder acts on, in dispatch order.
extern const std::array<TNEFHandlerRow, 12> kTNEFHandlers;
// The further attributes the complete reading acts on.
extern const std::array<TNEFHandlerRow, 5> kTNEFCompleteHandlers;

int TNEFFromHandler(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFSubjectHandler(TNEFMessage* message, std::size_t row, ByteView data);
// Picks its date by the row's attribute id; -1 for an id it does not know.
int TNEFDateHandler(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFMessageClass(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFBody(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFAttachmentSave(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFAttachmentFilename(TNEFMessage* message, std::size_t row, ByteView data);
// Opens a new attachment record at the end of the list (the data is ignored).
int TNEFRendData(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFMapiProperties(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFAttachmentMAPI(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFDateReceived(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFAttachmentCreated(TNEFMessage* message, std::size_t row, ByteView data);
int TNEFAttachmentModified(TNEFMessage* message, std::size_t row, ByteView data);
// The primary code page of the 8-bit strings.
int TNEFOemCodePage(TNEFMessage* message, std::size_t row, ByteView data);
// One property list per recipient row.
int TNEFRecipientTable(TNEFMessage* message, std::size_t row, ByteView data);

// Decodes a MAPI property block into `list` (replacing what it held). Never
// reads outside `data`: a value that runs past it ends the block.
int TNEFFillMapi(TNEFMessage* message, ByteView data, TNEFPropertyList* list);
// The same from a cursor (a property count, then the properties), read as the
// message's rules say (classic when `message` is null); the cursor stops after
// the block, or is short.
void decodePropertyBlock(TNEFMessage* message, ByteCursor& cursor, TNEFPropertyList& list);

// The values of the first non-named property with exactly this tag (its only
// held slot, the first), or null; null too when that property holds no slot.
const TNEFValue* GetProperty(const TNEFPropertyList* list, std::uint32_t tag);

void tnefInitMapi(TNEFPropertyList* list);
void tnefInitAttachment(TNEFAttachment* attachment);

}  // namespace qh
