#include "readers/tnef/TNEFDecoder.h"

#include <algorithm>
#include <cstring>

#include "core/DateFormatting.h"
#include "core/MessageKeys.h"
#include "core/TextEncoding.h"
#include "readers/tnef/Attributes.h"
#include "readers/tnef/KnownProperties.h"
#include "readers/tnef/TNEFContent.h"
#include "readers/tnef/TNEFHandlers.h"
#include "richtext/RTFWangers.h"
#include "util/AddressLists.h"
#include "util/BitWangers.h"
#include "util/StringWangers.h"
#include "util/TimeWangers.h"

namespace qh {

using namespace tnef;

namespace {

// The bytes up to the first zero, read as UTF-8; none when they are not UTF-8.
std::optional<std::string> zeroTerminatedUTF8(ByteView bytes) {
    auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t(0));
    return TextEncoding::decode(ByteView(bytes.begin(), end), StringEncoding::UTF8);
}

// The attachment name as the "%s" into a 256-byte buffer leaves it: cut at the
// first zero and after 255 bytes, then read as UTF-8.
std::optional<std::string> attachmentName(ByteView bytes) {
    return zeroTerminatedUTF8(bytes.first(std::min<std::size_t>(bytes.size(), 255)));
}

// The date sent as the user's calendar reads its fields ("%d-%d-%d %d:%d:%d"
// read back with "yyyy-MM-dd HH:mm:ss", digits unpadded); fields out of range
// (an absent date is all zeros) give no "Date".
std::optional<std::string> displayDate(const TNEFDate& date) {
    DateComponents fields;
    fields.year = date.year;
    fields.month = date.month;
    fields.day = date.day;
    fields.hour = date.hour;
    fields.minute = date.minute;
    fields.second = date.second;
    std::optional<Date> parsed = DateFormatting::dateFromComponents(fields);
    if (!parsed) return std::nullopt;
    return TimeWangers::displayString(*parsed);
}

Dict mapiDictionary(const TNEFPropertyList& list, const TNEFMessage& record) {
    Dict dictionary;
    for (const TNEFProperty& property : list.properties) {
        const std::uint16_t knownId = property.custom == 1 ? 0 : KnownProperties::lookup(propertyId(property.tag));
        // Slots after the first are never filled, and empty slots give nothing.
        if (property.firstValue) {
            const TNEFValue& value = *property.firstValue;
            switch (propertyType(property.tag)) {
                case kTypeString8:
                    if (knownId == kIdSubject || knownId == kIdConversationTopic) {
                        if (auto subject = zeroTerminatedUTF8(value.data)) dictionary.set(std::string(keys::kSubject), std::move(*subject));
                    }
                    break;
                case kTypeBinary:
                    if (RTFWangers::typeIsRTF(value.data)) {
                        std::uint32_t rawSize = 0;
                        std::optional<Bytes> rtf;
                        RTFWangers::getRTFFromBuffer(value.data, rawSize, rtf);
                        if (rtf) dictionary.set(std::string(keys::kRTF), Value(std::move(*rtf)));
                    } else if (typeIsHTML(ByteView(value.data))) {
                        if (auto html = StringWangers::stringFromCString(ByteView(value.data))) {
                            dictionary.set(std::string(keys::kHTML), std::move(*html));
                        }
                    }
                    break;
                default:
                    break;  // 0x001F text included: the property pass does not use it
            }
        }
    }
    // The Subject attribute wins over the subject property.
    if (!record.subject.empty()) {
        if (auto subject = zeroTerminatedUTF8(record.subject.data.view())) dictionary.set(std::string(keys::kSubject), std::move(*subject));
    }
    if (auto date = displayDate(record.dateSent)) dictionary.set(std::string(keys::kDate), std::move(*date));
    return dictionary;
}

// The value of a read that must land whole in `value` (left as it was otherwise).
template <typename Integer>
std::uint32_t readInteger(TNEFReader& reader, Integer& value) {
    std::uint8_t bytes[sizeof(Integer)];
    const std::uint32_t result = reader.readProc(&reader, sizeof(Integer), 1, bytes);
    if (result == 1) {
        Integer loaded = 0;
        for (std::size_t i = 0; i < sizeof(Integer); ++i) loaded |= Integer(bytes[i]) << (8 * i);
        value = loaded;
    }
    return result;
}

void closeReader(TNEFReader& reader) {
    if (reader.closeProc != nullptr) reader.closeProc(&reader);
}

}  // namespace

std::unique_ptr<TNEFDecoder> TNEFDecoder::init() {
    return std::make_unique<TNEFDecoder>();
}

Dict TNEFDecoder::buildMAPIDictionary(const TNEFPropertyList& list) const {
    return mapiDictionary(list, TNEF);
}

Dict TNEFDecoder::buildTNEFDictionary(const TNEFMessage& message) const {
    Dict dictionary;
    if (message.mapi.count > 0) {
        for (auto& [key, value] : mapiDictionary(message.mapi, message)) dictionary.set(key, value);
    }
    Array attachmentList;
    for (const auto& attachment : message.attachments) {
        if (attachment->fileData.empty()) continue;
        Dict item;
        const std::size_t size = attachment->fileData.size();
        item.set(std::string(keys::kAttachSize), Value(std::uint64_t(size)));
        item.set(std::string(keys::kAttachSizeString), BitWangers::formatSize(double(size)));
        item.set(std::string(keys::kAttachData), Value(attachment->fileData.data));
        const TNEFValue* name = GetProperty(&attachment->mapi, kTagAttachLongFilename);
        if (name == nullptr) name = GetProperty(&attachment->mapi, kTagDisplayName);
        std::optional<std::string> text;
        if (name != nullptr) {
            text = attachmentName(name->data);
        } else {
            text = attachmentName(attachment->title.data.view());
        }
        if (text) item.set(std::string(keys::kAttachName), std::move(*text));
        attachmentList.push_back(Value(std::move(item)));
    }
    if (!attachmentList.empty()) dictionary.set(std::string(keys::kAttachmentList), Value(std::move(attachmentList)));
    return dictionary;
}

int TNEFDecoder::readTNEFData(TNEFMessage& message, ByteView& destination, std::uint32_t size,
                              std::uint16_t* checksum) {
    // The data stays in the source; handlers copy what they keep.
    TNEFMemorySource& source = message.reader.source;
    destination = {};
    if (checksum != nullptr) *checksum = 0;
    if (!fits(source.position, size, source.data.size())) return 0;
    destination = source.data.subspan(source.position, size);
    source.position += size;
    if (checksum != nullptr) {
        std::uint32_t sum = 0;
        for (std::uint8_t byte : destination) sum += byte;
        *checksum = static_cast<std::uint16_t>(sum);
    }
    return 0;
}

int TNEFDecoder::GetTNEFHeader(TNEFMessage& message, std::uint32_t& type, std::uint32_t& size) {
    TNEFReader& reader = message.reader;
    std::uint8_t level = 0;
    // Only a result of zero counts as a failed read here; an overrun is not one.
    if (readInteger(reader, level) == 0) return -1;
    if (readInteger(reader, type) == 0) return -1;
    if (readInteger(reader, size) == 0) return -1;
    return 0;
}

int TNEFDecoder::parseTNEFData(TNEFMessage& message) {
    TNEFReader& reader = message.reader;
    if (reader.readProc == nullptr) return -1;
    if (reader.initProc != nullptr && reader.initProc(&reader) != 0) return -1;

    std::uint32_t signature = 0;
    if (readInteger(reader, signature) != 1 || signature != kSignature) {
        closeReader(reader);
        return -1;
    }
    std::uint16_t key = 0;  // the legacy key: read, never checked
    if (readInteger(reader, key) != 1) {
        closeReader(reader);
        return -1;
    }

    const TnefRules& rules = *message.rules;
    // Attribute ids: the whole 32 bits, or (complete) the id half alone.
    auto matches = [&](std::uint32_t rowId, std::uint32_t type) {
        return rules.matchIdHalfOnly ? (rowId & 0xFFFF) == (type & 0xFFFF) : rowId == type;
    };
    std::uint32_t type = 0;
    std::uint32_t size = 0;
    std::uint16_t storedChecksum = 0xCAFE;
    for (;;) {
        const std::size_t roundStart = reader.source.position;
        // Complete: bytes too few for a header, or an attribute whose data and
        // checksum run past the end, are trailing bytes and end the stream.
        if (rules.trailingBytesEndQuietly && !fits(roundStart, 9, reader.source.data.size())) {
            closeReader(reader);
            return 0;
        }
        if (GetTNEFHeader(message, type, size) != 0 || (size == 0 && rules.zeroSizeEndsStream)) {
            // classic: a zero-size attribute ends the stream as a success and
            // what follows is ignored; the stored dictionaries stop there.
            closeReader(reader);
            return 0;
        }
        if (rules.trailingBytesEndQuietly &&
            !fits(reader.source.position, std::uint64_t(size) + 2, reader.source.data.size())) {
            closeReader(reader);
            return 0;
        }
        ByteView data;
        std::uint16_t computedChecksum = 0;
        if (readTNEFData(message, data, size, &computedChecksum) != 0) {
            closeReader(reader);
            return -1;
        }
        // As with the header, only a result below one item counts as failed.
        if (readInteger(reader, storedChecksum) < 1) {
            closeReader(reader);
            return -1;
        }
        // At the end of the data every read fails unnoticed and the previous
        // attribute's id, size and checksum stay in place; a round that read
        // nothing at all would repeat forever, so it ends the stream here.
        if (reader.source.position == roundStart) {
            closeReader(reader);
            return 0;
        }
        if (storedChecksum != computedChecksum && rules.checksumMismatchEndsStream) {
            // classic: decoding stops at a damaged attribute; what came before is kept.
            closeReader(reader);
            return 0;
        }
        for (std::size_t row = 0; row < kTNEFHandlers.size(); ++row) {
            if (!matches(kTNEFHandlers[row].id, type)) continue;
            if (kTNEFHandlers[row].handler(&message, row, data) < 0) {
                closeReader(reader);
                return -1;
            }
        }
        if (!rules.readEveryAttribute) continue;
        for (std::size_t row = 0; row < kTNEFCompleteHandlers.size(); ++row) {
            if (matches(kTNEFCompleteHandlers[row].id, type)) kTNEFCompleteHandlers[row].handler(&message, row, data);
        }
    }
}

int TNEFDecoder::parseMemory(ByteView bytes, TNEFMessage& message) {
    message.reader = TNEFReader{};
    message.reader.initProc = GetMemory;
    message.reader.readProc = ReadMemory;
    message.reader.source.data = bytes;
    return parseTNEFData(message);
}

void TNEFDecoder::freeMapiProperties(TNEFPropertyList& list) {
    tnefInitMapi(&list);
}

void TNEFDecoder::freeAttachment(TNEFAttachment& attachment) {
    tnefInitAttachment(&attachment);
}

void TNEFDecoder::freeTNEFData(TNEFMessage& message) {
    message.from = {};
    message.subject = {};
    message.body = {};
    message.recipients.clear();
    freeMapiProperties(message.mapi);
    for (auto& attachment : message.attachments) freeAttachment(*attachment);
    message.attachments.clear();
    message.attachments.shrink_to_fit();
}

std::optional<Dict> TNEFDecoder::processTNEF(ByteView data) {
    TnefReadContext context;
    return processTNEF(data, context);
}

std::optional<Dict> TNEFDecoder::processTNEF(ByteView data, TnefReadContext& context) {
    TNEF = TNEFMessage{};
    TNEF.rules = context.rules;
    if (parseMemory(data, TNEF) == -1) return std::nullopt;
    Dict dictionary = context.rules->completeDictionary ? TNEFContent::build(TNEF, context) : buildTNEFDictionary(TNEF);
    freeTNEFData(TNEF);
    return dictionary;
}

}  // namespace qh
