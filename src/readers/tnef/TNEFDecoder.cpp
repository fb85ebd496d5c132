#include "readers/tnef/TNEFDecoder.h"

#include <algorithm>
#include <cstring>

#include "core/DateFormatting.h"
#include <quillhaven/MessageKeys.h>
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

// classic: the attachment name as the "%s" into a 256-byte buffer leaves it
// (the plug-in host's stored dictionaries have it): cut at the
// first zero and after 255 bytes, then read as UTF-8.
std::optional<std::string> attachmentName(ByteView bytes) {
    return zeroTerminatedUTF8(bytes.first(std::min<std::size_t>(bytes.size(), 255)));
}

// classic: the date sent as the user's calendar reads its fields ("%d-%d-%d %d:%d:%d"
// read back with "yyyy-MM-dd HH:mm:ss", digits unpadded); fields out of range
// (an absent date is all zeros) give no "Date".
std::optional<std::string> displayDate(const TNEFDate& date) {
    std::optional<Date> parsed = DateFormatting::dateFromComponents(date.components());
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
                    break;  // classic: 0x001F text included, the property pass does not use it
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

// One read through a cursor at the source's position: it lands whole and
// moves on, or leaves the value and the position as they were (false).
// classic: a field that does not fit keeps the previous attribute's value;
// the dictionaries of streams that end mid-header depend on that pairing, and
// the stream loop tells a round that read nothing by its unmoved position.
template <typename Integer>
bool readInPlace(TNEFMemorySource& source, Integer& value) {
    ByteCursor cursor(source.data, source.position);
    std::uint64_t loaded = 0;
    if constexpr (sizeof(Integer) == 1) {
        loaded = cursor.u8();
    } else if constexpr (sizeof(Integer) == 2) {
        loaded = cursor.u16le();
    } else {
        loaded = cursor.u32le();
    }
    if (cursor.isShort()) return false;
    value = static_cast<Integer>(loaded);
    source.position = cursor.position();
    return true;
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
    if (checksum != nullptr) *checksum = 0;
    ByteCursor cursor(source.data, source.position);
    destination = cursor.bytes(size);
    // classic: data past the end is no failed read; it is left empty (sum 0).
    if (cursor.isShort()) return 0;
    source.position = cursor.position();
    if (checksum != nullptr) {
        std::uint32_t sum = 0;
        for (std::uint8_t byte : destination) sum += byte;
        *checksum = static_cast<std::uint16_t>(sum);
    }
    return 0;
}

int TNEFDecoder::GetTNEFHeader(TNEFMessage& message, std::uint32_t& type, std::uint32_t& size) {
    TNEFMemorySource& source = message.reader.source;
    // classic: a field past the end is no failed header; it keeps its previous value.
    std::uint8_t level = 0;  // read and ignored: the level steers nothing
    (void)readInPlace(source, level);
    (void)readInPlace(source, type);
    (void)readInPlace(source, size);
    return 0;
}

int TNEFDecoder::parseTNEFData(TNEFMessage& message) {
    TNEFReader& reader = message.reader;
    reader.source.position = 0;
    std::uint32_t signature = 0;
    if (!readInPlace(reader.source, signature) || signature != kSignature) return -1;
    std::uint16_t key = 0;  // the legacy key: read, never checked
    if (!readInPlace(reader.source, key)) return -1;

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
        if (rules.trailingBytesEndQuietly && !fits(roundStart, 9, reader.source.data.size())) return 0;
        if (GetTNEFHeader(message, type, size) != 0 || (size == 0 && rules.zeroSizeEndsStream)) {
            // classic: a zero-size attribute ends the stream as a success and
            // what follows is ignored; the stored dictionaries stop there.
            return 0;
        }
        if (rules.trailingBytesEndQuietly &&
            !fits(reader.source.position, std::uint64_t(size) + 2, reader.source.data.size())) {
            return 0;
        }
        ByteView data;
        std::uint16_t computedChecksum = 0;
        readTNEFData(message, data, size, &computedChecksum);
        // classic: as with the header, a checksum past the end keeps the previous one.
        (void)readInPlace(reader.source, storedChecksum);
        // At the end of the data every read fails unnoticed and the previous
        // attribute's id, size and checksum stay in place; a round that read
        // nothing at all would repeat forever, so it ends the stream here.
        if (reader.source.position == roundStart) return 0;
        if (storedChecksum != computedChecksum && rules.checksumMismatchEndsStream) {
            // classic: decoding stops at a damaged attribute; what came before is kept.
            return 0;
        }
        for (std::size_t row = 0; row < kTNEFHandlers.size(); ++row) {
            if (!matches(kTNEFHandlers[row].id, type)) continue;
            if (kTNEFHandlers[row].handler(&message, row, data) < 0) return -1;
        }
        if (!rules.readEveryAttribute) continue;
        for (std::size_t row = 0; row < kTNEFCompleteHandlers.size(); ++row) {
            if (matches(kTNEFCompleteHandlers[row].id, type)) kTNEFCompleteHandlers[row].handler(&message, row, data);
        }
    }
}

int TNEFDecoder::parseMemory(ByteView bytes, TNEFMessage& message) {
    message.reader = TNEFReader{};
    message.reader.source.data = bytes;
    // One record per 12 bytes of input and a floor for small streams: real
    // properties take 16 bytes and more, and the records stay under six
    // times the input.
    message.propertyAllowance = bytes.size() / 12 + 65536;
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
