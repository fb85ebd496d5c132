#include "readers/tnef/TNEFHandlers.h"

#include <algorithm>
#include <cstring>

#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/tnef/Attributes.h"
#include "util/AddressLists.h"

namespace qh {

using namespace tnef;

const std::array<TNEFHandlerRow, 12> kTNEFHandlers = {{
    {kAttFrom, "From", TNEFFromHandler},
    {kAttSubject, "Subject", TNEFSubjectHandler},
    {kAttDateSent, "Date Sent", TNEFDateHandler},
    {kAttMessageClass, "Message Class", TNEFMessageClass},
    {kAttBody, "Body", TNEFBody},
    {kAttAttachData, "Attach Data", TNEFAttachmentSave},
    {kAttAttachTitle, "Attach Title", TNEFAttachmentFilename},
    {kAttAttachRendData, "Attachment Display info", TNEFRendData},
    {kAttMsgProps, "MAPI Properties", TNEFMapiProperties},
    {kAttAttachment, "Attachment", TNEFAttachmentMAPI},
    {kAttDateStart, "Date Start", TNEFDateHandler},
    {kAttDateEnd, "Date End", TNEFDateHandler},
}};

const std::array<TNEFHandlerRow, 5> kTNEFCompleteHandlers = {{
    {kAttDateReceived, "Date Received", TNEFDateReceived},
    {kAttAttachCreateDate, "Attachment Creation Date", TNEFAttachmentCreated},
    {kAttAttachModifyDate, "Attachment Modification Date", TNEFAttachmentModified},
    {kAttOemCodepage, "OEM Codepage", TNEFOemCodePage},
    {kAttRecipTable, "Recipients", TNEFRecipientTable},
}};

namespace {

TNEFBuffer copyOf(ByteView data) {
    return data.empty() ? TNEFBuffer{} : TNEFBuffer{Blob(data)};
}

// Seven words whatever the size says; words the data lacks read as zero.
void copyDate(TNEFDate& target, ByteView data) {
    ByteCursor cursor(data);
    target.year = cursor.u16le();
    target.month = cursor.u16le();
    target.day = cursor.u16le();
    target.hour = cursor.u16le();
    target.minute = cursor.u16le();
    target.second = cursor.u16le();
    target.dayOfWeek = cursor.u16le();
}

}  // namespace

int TNEFFromHandler(TNEFMessage* message, std::size_t, ByteView data) {
    message->from = copyOf(data);
    return 0;
}

int TNEFSubjectHandler(TNEFMessage* message, std::size_t, ByteView data) {
    message->subject = copyOf(data);
    return 0;
}

int TNEFDateHandler(TNEFMessage* message, std::size_t row, ByteView data) {
    TNEFDate* target = nullptr;
    switch (row < kTNEFHandlers.size() ? kTNEFHandlers[row].id : 0) {
        case kAttDateStart: target = &message->dateStart; break;
        case kAttDateEnd: target = &message->dateEnd; break;
        case kAttDateSent: target = &message->dateSent; break;
        case kAttDateReceived: target = &message->dateReceived; break;
        case kAttAttachCreateDate: target = &message->lastAttachment().creationDate; break;
        case kAttAttachModifyDate: target = &message->lastAttachment().modificationDate; break;
        default: return -1;
    }
    copyDate(*target, data);
    return 0;
}

int TNEFDateReceived(TNEFMessage* message, std::size_t, ByteView data) {
    copyDate(message->dateReceived, data);
    return 0;
}

int TNEFAttachmentCreated(TNEFMessage* message, std::size_t, ByteView data) {
    copyDate(message->lastAttachment().creationDate, data);
    return 0;
}

int TNEFAttachmentModified(TNEFMessage* message, std::size_t, ByteView data) {
    copyDate(message->lastAttachment().modificationDate, data);
    return 0;
}

int TNEFOemCodePage(TNEFMessage* message, std::size_t, ByteView data) {
    // The primary code page, then a secondary one nobody uses.
    ByteCursor cursor(data);
    const std::uint32_t codePage = cursor.u32le();
    if (!cursor.isShort()) message->oemCodePage = codePage;
    return 0;
}

int TNEFRecipientTable(TNEFMessage* message, std::size_t, ByteView data) {
    // A row count, then per row a property count and that many properties.
    ByteCursor cursor(data);
    const std::uint32_t rows = cursor.u32le();
    message->recipients.clear();
    // Each row record weighs far more than the 4 bytes an empty row takes;
    // no real message addresses more people than this.
    constexpr std::uint32_t kMaxRecipientRows = 8192;
    for (std::uint32_t row = 0; row < rows && row < kMaxRecipientRows && !cursor.isShort() && !cursor.atEnd(); ++row) {
        TNEFPropertyList list;
        decodePropertyBlock(message, cursor, list);
        message->recipients.push_back(std::move(list));
    }
    return 0;
}

int TNEFMessageClass(TNEFMessage* message, std::size_t, ByteView data) {
    message->messageClass.fill(0);
    const std::size_t length = std::min(data.size(), message->messageClass.size());
    std::copy_n(data.begin(), length, message->messageClass.begin());
    return 0;
}

int TNEFBody(TNEFMessage* message, std::size_t, ByteView data) {
    message->body = copyOf(data);
    return 0;
}

int TNEFAttachmentSave(TNEFMessage* message, std::size_t, ByteView data) {
    TNEFAttachment& attachment = message->lastAttachment();
    attachment.fileData = copyOf(data);
    attachment.hasFileData = true;
    return 0;
}

int TNEFAttachmentFilename(TNEFMessage* message, std::size_t, ByteView data) {
    message->lastAttachment().title = copyOf(data);
    return 0;
}

int TNEFRendData(TNEFMessage* message, std::size_t, ByteView) {
    // Each record costs far more than the 11 bytes of the attribute that opens
    // it; past the limit the attributes go to the last record.
    if (message->attachments.size() < msgformat::kMaxAttachmentStorages) {
        message->attachments.push_back(std::make_unique<TNEFAttachment>());
    }
    return 0;
}

int TNEFMapiProperties(TNEFMessage* message, std::size_t, ByteView data) {
    return TNEFFillMapi(message, data, &message->mapi);
}

int TNEFAttachmentMAPI(TNEFMessage* message, std::size_t, ByteView data) {
    return TNEFFillMapi(message, data, &message->lastAttachment().mapi);
}

namespace {

// UTF-16LE text as UTF-8, up to its first NUL (complete reading).
std::string wideText(ByteView bytes) {
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const char16_t unit = char16_t(bytes[i] | (bytes[i + 1] << 8));
        if (unit == 0) break;
        units.push_back(unit);
    }
    return TextEncoding::fromUTF16(units);
}

// Reads one value of `type` at the cursor. The cursor's short flag tells the
// caller that the value ran past the block; `known` is cleared for a type
// whose width the exact reading does not know.
TNEFValue readValue(ByteCursor& cursor, std::uint16_t type, bool multiValued, bool exact, bool& known) {
    TNEFValue value;
    known = true;
    auto fixed = [&](std::size_t consumed, std::size_t stored) {
        ByteView bytes = cursor.bytes(consumed);
        if (bytes.empty()) return;
        value.size = static_cast<std::uint32_t>(stored);
        value.data.assign(bytes.begin(), bytes.begin() + stored);
    };
    switch (type) {
        case kTypeShort:
            fixed(4, 2);  // the 16-bit value, then two bytes of padding
            break;
        // classic: currency and application time are 8 bytes wide in
        // MS-OXTNEF; they are read as 4 and everything after them in the
        // block shifts (the stored dictionaries carry what that gives).
        case kTypeCurrency:
        case kTypeAppTime:
            if (exact) {
                fixed(8, 8);
                break;
            }
            [[fallthrough]];
        case kTypeLong:
        case kTypeFloat:
        case kTypeError:
        case kTypeBoolean:
            fixed(4, 4);
            break;
        case kTypeDouble:
        case kTypeLongLong:
        case kTypeSysTime:
            fixed(8, 8);
            break;
        case kTypeObject:
        case kTypeString8:
        case kTypeUnicode:
        case kTypeBinary: {
            // A single value carries its own count of one before the length.
            if (!multiValued) cursor.skip(4);
            const std::uint32_t length = cursor.u32le();
            ByteView bytes = cursor.bytes(length);
            if (cursor.isShort()) return value;
            value.size = length;
            if (type == kTypeUnicode) {
                // classic: the first byte of each pair makes the character;
                // the stored texts of such properties depend on it.
                std::string text = exact ? wideText(bytes) : makeUTF8(bytes);
                value.data.assign(text.begin(), text.end());
            } else {
                value.data.assign(bytes.begin(), bytes.end());
            }
            // Padding to the next multiple of four; the last value of a block
            // may come without it.
            const std::size_t padding = (4 - length % 4) % 4;
            cursor.skip(std::min(padding, cursor.remaining()));
            break;
        }
        default:
            if (exact && type == kTypeClsid) {
                fixed(16, 16);
            } else if (exact && type == kTypeNull) {
                fixed(4, 0);
            } else {
                // classic: types without a row (0x0048 included) consume
                // nothing, and whatever follows is read as the next property.
                known = !exact;
            }
            break;
    }
    return value;
}

// classic: the loop counts values, not properties, and the value
// index of a multi-valued property never advances.
void decodeClassicBlock(ByteCursor& cursor, std::uint32_t count, TNEFPropertyList& list, std::size_t& allowance) {
    TNEFProperty* open = nullptr;  // a multi-valued property still taking values
    bool openIsMultiValued = false;
    bool known = true;
    for (std::uint32_t iteration = 0; iteration < count; ++iteration) {
        const std::size_t start = cursor.position();
        if (open == nullptr) {
            TNEFProperty property;
            property.tag = cursor.u32le();
            if (propertyId(property.tag) >= kFirstNamedId) {
                ByteView guid = cursor.bytes(16);
                if (!guid.empty()) std::copy(guid.begin(), guid.end(), property.guid.begin());
                const std::uint32_t kind = cursor.u32le();
                if (kind != 0) {
                    // classic: named by strings, they are counted, not consumed, so the
                    // bytes after the kind are read as the property's values.
                    property.nameCount = kind;
                } else {
                    property.tag = propertyTag(propertyType(property.tag), cursor.u32le());
                }
                property.custom = 1;
            }
            bool multiValued = false;
            if (propertyType(property.tag) & kMultiValueFlag) {
                property.tag &= ~std::uint32_t(kMultiValueFlag);
                property.valueCount = cursor.u32le();
                multiValued = true;
            }
            if (cursor.isShort()) break;
            TNEFValue value = readValue(cursor, propertyType(property.tag), multiValued, false, known);
            if (cursor.isShort()) break;
            // Only the first slot is ever written; a count of 0 leaves none.
            if (property.valueCount > 0) property.firstValue = std::move(value);
            if (allowance == 0) break;
            --allowance;
            list.properties.push_back(std::move(property));
            open = &list.properties.back();
            openIsMultiValued = multiValued;
        } else {
            // The value index never advances: each further value of a
            // multi-valued property lands in the first slot again.
            TNEFValue value = readValue(cursor, propertyType(open->tag), true, false, known);
            if (cursor.isShort()) break;
            if (open->firstValue) *open->firstValue = std::move(value);
        }
        // A property is finished after the value at index count - 1; the index
        // stays 0, so only a single value or a multi-value count of 1 finishes.
        if (!openIsMultiValued || open->valueCount == 1) {
            open = nullptr;
        } else if (cursor.position() == start) {
            break;  // nothing consumed: every further iteration would repeat this one
        }
    }
}

// The block as MS-OXTNEF writes it: `count` properties, each whole (string
// names consumed, every value read, the first one kept). Ends at a type of
// unknown width, since nothing after it can be placed.
void decodeExactBlock(ByteCursor& cursor, std::uint32_t count, TNEFPropertyList& list, std::size_t& allowance) {
    for (std::uint32_t index = 0; index < count && !cursor.isShort(); ++index) {
        TNEFProperty property;
        property.tag = cursor.u32le();
        if (propertyId(property.tag) >= kFirstNamedId) {
            ByteView guid = cursor.bytes(16);
            if (!guid.empty()) std::copy(guid.begin(), guid.end(), property.guid.begin());
            const std::uint32_t kind = cursor.u32le();
            if (kind == 0) {
                property.tag = propertyTag(propertyType(property.tag), cursor.u32le());
            } else {
                // The name: its byte length, UTF-16LE, padding to four.
                const ByteView name = cursor.lengthPrefixed32();
                cursor.skip(std::min<std::size_t>((4 - name.size() % 4) % 4, cursor.remaining()));
                property.nameCount = 1;
            }
            property.custom = 1;
        }
        bool multiValued = false;
        std::uint32_t values = 1;
        if (propertyType(property.tag) & kMultiValueFlag) {
            property.tag &= ~std::uint32_t(kMultiValueFlag);
            values = cursor.u32le();
            multiValued = true;
        }
        property.valueCount = values;
        if (cursor.isShort()) break;
        bool known = true;
        // Every value takes four bytes or more, so a hostile count ends with the block.
        for (std::uint32_t v = 0; v < values && !cursor.isShort(); ++v) {
            TNEFValue value = readValue(cursor, propertyType(property.tag), multiValued, true, known);
            if (!known || cursor.isShort()) break;
            if (v == 0) property.firstValue = std::move(value);
        }
        if (!known || cursor.isShort() || allowance == 0) break;
        --allowance;
        list.properties.push_back(std::move(property));
    }
}

}  // namespace

void decodePropertyBlock(TNEFMessage* message, ByteCursor& cursor, TNEFPropertyList& list) {
    tnefInitMapi(&list);
    const std::uint32_t count = cursor.u32le();
    // Every property takes at least its 4-byte tag, so the block cannot hold
    // more than this many; the count itself is not trusted for allocation.
    std::size_t unlimited = SIZE_MAX;
    std::size_t& allowance = message != nullptr ? message->propertyAllowance : unlimited;
    list.properties.reserve(std::min<std::size_t>({count, cursor.remaining() / 4, allowance}));
    if (message != nullptr && message->rules->exactPropertyValues) {
        decodeExactBlock(cursor, count, list, allowance);
    } else {
        decodeClassicBlock(cursor, count, list, allowance);
    }
    list.count = static_cast<std::uint32_t>(list.properties.size());
}

int TNEFFillMapi(TNEFMessage* message, ByteView data, TNEFPropertyList* list) {
    ByteCursor cursor(data);
    decodePropertyBlock(message, cursor, *list);
    return 0;
}

const TNEFValue* GetProperty(const TNEFPropertyList* list, std::uint32_t tag) {
    if (list == nullptr || list->count == 0) return nullptr;
    for (const TNEFProperty& property : list->properties) {
        if (property.tag == tag && property.custom == 0) {
            return property.firstValue ? &*property.firstValue : nullptr;
        }
    }
    return nullptr;
}

void tnefInitMapi(TNEFPropertyList* list) {
    list->count = 0;
    list->properties.clear();
    list->properties.shrink_to_fit();
}

void tnefInitAttachment(TNEFAttachment* attachment) {
    *attachment = TNEFAttachment{};
}

}  // namespace qh
