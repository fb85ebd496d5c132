#pragma once
// The records a TNEF stream is decoded into: the message, its attachments and
// the MAPI property lists of both. Every record owns what it holds (RAII); the
// release operations of the decoder empty them early.
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <quillhaven/Blob.h>
#include "core/ByteCursor.h"
#include <quillhaven/Bytes.h>
#include "core/DateFormatting.h"
#include "readers/tnef/TnefRules.h"

namespace qh {

// A length-counted buffer: size 0 means absent. Shared and immutable, so the
// attachment data travels into the result dictionary without another copy.
struct TNEFBuffer {
    Blob data;
    std::size_t size() const { return data.size(); }
    bool empty() const { return data.empty(); }
};

// The MS-OXTNEF date-time structure, copied raw (no checks).
struct TNEFDate {
    std::uint16_t year = 0, month = 0, day = 0;
    std::uint16_t hour = 0, minute = 0, second = 0;
    std::uint16_t dayOfWeek = 0;

    // The six calendar fields as they stand (the day of the week is not
    // read); DateFormatting checks their range.
    DateComponents components() const {
        DateComponents fields;
        fields.year = year;
        fields.month = month;
        fields.day = day;
        fields.hour = hour;
        fields.minute = minute;
        fields.second = second;
        return fields;
    }
};

// One value of a MAPI property. `size` is the size the stream declared (for
// 0x001F: the UTF-16 byte length, while `data` holds the UTF-8 text).
struct TNEFValue {
    std::uint32_t size = 0;
    Bytes data;
};

struct TNEFProperty {
    std::uint32_t custom = 0;  // 1 for a named property
    std::array<std::uint8_t, 16> guid{};
    std::uint32_t tag = 0;  // type low, id high; the multi-value bit cleared
    std::uint32_t valueCount = 1;
    std::uint32_t nameCount = 0;  // names are counted, never read
    // Only the first value slot is ever written (see TNEFFillMapi), so only
    // that one is held; it is absent when the stored value count is 0.
    std::optional<TNEFValue> firstValue;
};

struct TNEFPropertyList {
    std::uint32_t count = 0;
    std::vector<TNEFProperty> properties;
};

struct TNEFAttachment {
    TNEFBuffer title;
    TNEFDate creationDate;
    TNEFDate modificationDate;
    TNEFPropertyList mapi;
    TNEFBuffer fileData;
    // An "Attach Data" attribute was seen (complete: an empty one still makes
    // an empty file).
    bool hasFileData = false;
};

// The in-memory source the memory reader reads from.
struct TNEFMemorySource {
    ByteView data;
    std::size_t position = 0;
};

struct TNEFMessage;

// The reader of a message record: the in-memory source it reads through a
// ByteCursor.
struct TNEFReader {
    TNEFMemorySource source;
};

struct TNEFMessage {
    TNEFBuffer from;
    TNEFBuffer subject;
    TNEFDate dateSent;
    TNEFDate dateReceived;
    std::array<char, 50> messageClass{};
    TNEFBuffer body;
    // classic: the list head; attachment attributes that come before the first
    // "Attachment Display info" land here and are never reported.
    TNEFAttachment attachmentHead;
    // The attachments after the head, in stream order.
    std::vector<std::unique_ptr<TNEFAttachment>> attachments;
    TNEFPropertyList mapi;
    TNEFDate dateStart;
    TNEFDate dateEnd;
    TNEFReader reader;
    // Filled in the complete reading only.
    std::uint32_t oemCodePage = 0;
    std::vector<TNEFPropertyList> recipients;  // attRecipTable, one list per row
    const TnefRules* rules = &TnefRules::of(Reading::classic);
    // Property records the whole stream may still make: each weighs about
    // 72 bytes, and a hostile block makes one of every 4 bytes.
    std::size_t propertyAllowance = SIZE_MAX;

    // The record attachment attributes go to: the newest attachment, or the
    // head (complete: a new attachment instead of the head).
    TNEFAttachment& lastAttachment() {
        if (attachments.empty() && rules->attachmentOpensRecord) {
            attachments.push_back(std::make_unique<TNEFAttachment>());
        }
        return attachments.empty() ? attachmentHead : *attachments.back();
    }
};

}  // namespace qh
