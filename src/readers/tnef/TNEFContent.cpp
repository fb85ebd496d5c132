#include "readers/tnef/TNEFContent.h"

#include <algorithm>

#include "core/DateFormatting.h"
#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/Messages.h"
#include "core/TextEncoding.h"
#include "readers/msg/Attachments.h"
#include "readers/msg/Format.h"
#include "readers/msg/ReadMSG.h"
#include "readers/tnef/Attributes.h"
#include "readers/tnef/ReadTNEF.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"
#include "util/AddressLists.h"
#include "util/BitWangers.h"
#include "util/Rfc5322.h"
#include "util/TimeWangers.h"
#include "writers/MessageItems.h"
#include <quillhaven/MimeWriter.h>

namespace qh {

using namespace tnef;

namespace {

// 8-bit text in a Windows code page, up to its first NUL. Falls back to UTF-8
// and Windows-1252, and never to nothing: a byte no table maps becomes U+FFFD.
std::string textInCodePage(ByteView bytes, std::uint32_t codePage) {
    bytes = bytes.first(std::find(bytes.begin(), bytes.end(), std::uint8_t(0)) - bytes.begin());
    if (codePage != 0) {
        if (auto text = TextEncoding::decodeCodePage(bytes, codePage)) return *text;
    }
    if (auto text = TextEncoding::decode(bytes, StringEncoding::UTF8)) return *text;
    if (auto text = TextEncoding::decodeCodePage(bytes, 1252)) return *text;
    return TextEncoding::sanitizeUTF8(asText(bytes));
}

// The message's properties and the code page its 8-bit strings are in.
class Properties {
public:
    Properties(const TNEFPropertyList& list, std::uint32_t codePage) : list_(list), codePage_(codePage) {}

    // The first value of the first unnamed property with this id and one of the types.
    const TNEFValue* find(std::uint16_t id, std::initializer_list<std::uint16_t> types) const {
        for (const TNEFProperty& property : list_.properties) {
            if (property.custom != 0 || propertyId(property.tag) != id || !property.firstValue) continue;
            if (std::find(types.begin(), types.end(), propertyType(property.tag)) != types.end()) {
                return &*property.firstValue;
            }
        }
        return nullptr;
    }
    // A string property (UTF-16 already decoded, 8-bit in the code page); none when absent.
    std::optional<std::string> text(std::uint16_t id) const {
        for (const TNEFProperty& property : list_.properties) {
            if (property.custom != 0 || propertyId(property.tag) != id || !property.firstValue) continue;
            const Bytes& data = property.firstValue->data;
            if (propertyType(property.tag) == kTypeUnicode) return std::string(data.begin(), data.end());
            if (propertyType(property.tag) == kTypeString8) return textInCodePage(data, codePage_);
        }
        return std::nullopt;
    }
    std::string nonEmptyText(std::initializer_list<std::uint16_t> ids) const {
        for (std::uint16_t id : ids) {
            if (auto value = text(id); value && !value->empty()) return *value;
        }
        return {};
    }
    std::optional<std::uint32_t> number(std::uint16_t id) const {
        const TNEFValue* value = find(id, {kTypeLong});
        if (value == nullptr || value->data.size() < 4) return std::nullopt;
        ByteCursor cursor(value->data);
        return cursor.u32le();
    }
    std::optional<Date> time(std::uint16_t id) const {
        const TNEFValue* value = find(id, {kTypeSysTime});
        if (value == nullptr || value->data.size() < 8) return std::nullopt;
        ByteCursor cursor(value->data);
        const std::uint64_t fileTime = cursor.u64le();
        if (fileTime == 0) return std::nullopt;  // "never": no date at all, not 1601
        return Date{double(TimeWangers::unixTimeFromWindows(static_cast<std::int64_t>(fileTime)))};
    }
    std::uint32_t codePage() const { return codePage_; }

private:
    const TNEFPropertyList& list_;
    std::uint32_t codePage_;
};

// {"Name", "Address"}; the address stands for a name the message lacks.
Dict addressRecord(const std::string& name, const std::string& address) {
    return buildAddressFromTags(name.empty() ? std::nullopt : std::optional<std::string_view>(name), address);
}

// A date attribute; none when it is absent or out of range. The attribute
// carries the sender's wall-clock time without a zone: read as UTC.
std::optional<Date> attributeDate(const TNEFDate& date) {
    if (date.year == 0) return std::nullopt;
    return DateFormatting::dateFromComponents(date.components(), "UTC");
}

// An address as the sender's client stored it: SMTP when it says so.
std::string addressOf(const Properties& properties, std::uint16_t smtpId, std::uint16_t emailId,
                      std::uint16_t typeId) {
    std::string smtp = properties.nonEmptyText({smtpId});
    if (!smtp.empty()) return smtp;
    std::string type = properties.nonEmptyText({typeId});
    std::string email = properties.nonEmptyText({emailId});
    if (type.empty() || TextEncoding::equalsIgnoringCase(type, "SMTP")) return email;
    return {};
}

// attFrom: a recipient triple (id, size, name length, address length), then
// the name and "TYPE:address", each with its terminating zero.
std::pair<std::string, std::string> attributeSender(const TNEFBuffer& from, std::uint32_t codePage) {
    ByteCursor cursor(from.data.view());
    cursor.skip(4);
    const std::uint16_t nameLength = cursor.u16le();
    const std::uint16_t addressLength = cursor.u16le();
    std::string name = textInCodePage(cursor.upTo(nameLength), codePage);
    std::string address = textInCodePage(cursor.upTo(addressLength), codePage);
    if (std::size_t colon = address.find(':'); colon != std::string::npos) {
        if (!TextEncoding::equalsIgnoringCase(address.substr(0, colon), "SMTP")) return {name, {}};
        address.erase(0, colon + 1);
    }
    return {name, address};
}

void setDates(Dict& dictionary, const TNEFMessage& message, const Properties& properties) {
    std::optional<Date> date = properties.time(kIdClientSubmitTime);
    if (!date) date = attributeDate(message.dateSent);
    if (!date) date = properties.time(kIdDeliveryTime);
    if (!date) date = attributeDate(message.dateReceived);
    if (!date) return;
    // The RFC 5322 date-time in UTC, as an .eml's Date field reads, whatever
    // the reader's locale; views format "TimeStamp" for the user.
    if (auto text = rfc5322::formatDateTime(*date)) dictionary.set(std::string(keys::kDate), std::move(*text));
    dictionary.set(std::string(keys::kTimeStamp), Value(*date));
}

void setSender(Dict& dictionary, const TNEFMessage& message, const Properties& properties) {
    std::string name = properties.nonEmptyText({kIdSentRepresentingName, kIdSenderName});
    std::string address =
        addressOf(properties, kIdSentRepresentingSmtp, kIdSentRepresentingEmail, kIdSentRepresentingAddressType);
    if (address.empty()) address = addressOf(properties, kIdSenderSmtp, kIdSenderEmail, kIdSenderAddressType);
    if (!message.from.empty()) {
        auto [fromName, fromAddress] = attributeSender(message.from, properties.codePage());
        if (name.empty()) name = fromName;
        if (address.empty()) address = fromAddress;
    }
    // An Exchange-only sender keeps at least its directory address.
    if (address.empty()) address = properties.nonEmptyText({kIdSentRepresentingEmail, kIdSenderEmail});
    if (name.empty() && address.empty()) return;
    dictionary.set(std::string(keys::kFrom), Array{Value(addressRecord(name, address))});
}

void setRecipients(Dict& dictionary, const TNEFMessage& message, std::uint32_t codePage) {
    Array to, cc, bcc;
    for (const TNEFPropertyList& row : message.recipients) {
        const Properties recipient(row, codePage);
        std::string name = recipient.nonEmptyText({kIdDisplayName});
        std::string address = addressOf(recipient, kIdSmtpAddress, kIdEmailAddress, kIdAddressType);
        if (address.empty()) address = recipient.nonEmptyText({kIdEmailAddress});
        if (name.empty() && address.empty()) continue;
        Value record(addressRecord(name, address));
        switch (recipient.number(kIdRecipientType).value_or(kRecipientTo) & 0x0F) {
            case kRecipientCc: cc.push_back(std::move(record)); break;
            case kRecipientBcc: bcc.push_back(std::move(record)); break;
            default: to.push_back(std::move(record)); break;
        }
    }
    if (!to.empty()) dictionary.set(std::string(keys::kTo), std::move(to));
    if (!cc.empty()) dictionary.set(std::string(keys::kCC), std::move(cc));
    if (!bcc.empty()) dictionary.set(std::string(keys::kBCC), std::move(bcc));
}

void setBodies(Dict& dictionary, const TNEFMessage& message, const Properties& properties) {
    std::string body = properties.nonEmptyText({kIdBody});
    if (body.empty() && !message.body.empty()) body = textInCodePage(message.body.data.view(), properties.codePage());
    if (!body.empty()) dictionary.set(std::string(keys::kBody), std::move(body));

    // HTML is bytes in the message's internet code page (or a string property).
    if (const TNEFValue* html = properties.find(kIdHtml, {kTypeBinary})) {
        const std::uint32_t codePage = properties.number(kIdInternetCodePage).value_or(properties.codePage());
        std::string text = textInCodePage(html->data, codePage);
        if (!text.empty()) dictionary.set(std::string(keys::kHTML), std::move(text));
    } else if (std::string text = properties.nonEmptyText({kIdHtml}); !text.empty()) {
        dictionary.set(std::string(keys::kHTML), std::move(text));
    }

    if (const TNEFValue* rtf = properties.find(kIdRtfCompressed, {kTypeBinary}); rtf && RTFWangers::typeIsRTF(rtf->data)) {
        std::uint32_t rawSize = 0;
        std::optional<Bytes> decompressed;
        RTFWangers::getRTFFromBuffer(rtf->data, rawSize, decompressed);
        if (decompressed && !decompressed->empty()) dictionary.set(std::string(keys::kRTF), Value(std::move(*decompressed)));
    }
}

// An attached message (a TNEF stream or a compound document after the
// object's interface id) read one level down and written as MIME; none when it
// is neither, too deep, or too large.
std::optional<Blob> attachedMessage(ByteView object, TnefReadContext& context) {
    if (context.budget == nullptr) return std::nullopt;
    MsgReadBudget& budget = *context.budget;
    auto startsWith = [](ByteView bytes, ByteView prefix) {
        return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
    };
    const std::uint8_t tnefSignature[4] = {0x78, 0x9F, 0x3E, 0x22};
    ByteView payload = object;
    if (!startsWith(payload, tnefSignature) && !startsWith(payload, kCompoundSignature) &&
        payload.size() >= kObjectInterfaceIdSize) {
        payload = payload.subspan(kObjectInterfaceIdSize);
    }
    const bool isTnef = startsWith(payload, tnefSignature);
    if (!isTnef && !startsWith(payload, kCompoundSignature)) return std::nullopt;
    // The same limit as messages embedded in a .msg: every level carries the
    // base64 text of the one below.
    if (budget.depth + 1 > msgformat::kMaxEmbeddingDepth) {
        Log::line("Embedded message nested too deeply - not read");
        return std::nullopt;
    }
    // Each level holds its own copy of the stream below it: the copies are
    // charged to the budget of converted text, so a deep chain of big
    // messages stops early instead of holding the input once per level.
    if (payload.size() > budget.convertedLimit - std::min(budget.convertedLimit, budget.convertedBytes)) {
        Log::line("Embedded messages too large - not converted");
        return std::nullopt;
    }
    budget.convertedBytes += payload.size();
    std::optional<Dict> message;
    ++budget.depth;
    if (isTnef) {
        message = ReadTNEF::readAttachedMessage(payload, context);
    } else if (auto reader = ReadMSG::initWithData(payload, context.options)) {
        if (const Dict* dictionary = reader->returnFullDictionary()) message = *dictionary;
    }
    --budget.depth;
    if (!message) return std::nullopt;
    const std::size_t estimate = items::convertedSizeEstimate(*message);
    if (estimate > budget.convertedLimit || budget.convertedBytes > budget.convertedLimit - estimate) {
        Log::line("Embedded messages too large - not converted");
        return std::nullopt;
    }
    // Contacts and appointments become vCard and iCalendar text as in a .msg;
    // a message becomes standards-conformant MIME.
    const std::string* type = message->findString(std::string(keys::kMessageType));
    std::optional<Blob> converted;
    if (type && (*type == "Contact" || *type == "Calendar")) {
        converted = MsgAttachments::generateAttachedMessageData(*message);
    } else if (std::string text = MimeWriter::write(*message, {}); !text.empty()) {
        converted = Blob(toBytes(text));
    }
    if (converted) budget.convertedBytes += converted->size();
    return converted;
}

std::string withoutAngles(std::string id) {
    if (id.size() >= 2 && id.front() == '<' && id.back() == '>') return id.substr(1, id.size() - 2);
    return id;
}

std::optional<Dict> attachmentItem(const TNEFAttachment& attachment, std::uint32_t codePage,
                                   TnefReadContext& context) {
    const Properties properties(attachment.mapi, codePage);
    std::string name = properties.nonEmptyText({kIdAttachLongFilename});
    if (name.empty() && !attachment.title.empty()) name = textInCodePage(attachment.title.data.view(), codePage);
    if (name.empty()) name = properties.nonEmptyText({kIdDisplayName, kIdAttachFilename});

    std::optional<Blob> data;
    const TNEFValue* object = properties.find(kIdAttachData, {kTypeObject});
    if (object && properties.number(kIdAttachMethod) == kAttachEmbeddedMessage) {
        data = attachedMessage(object->data, context);
        if (data) {
            // Its display name is its subject; the title is a placeholder
            // ("Untitled Attachment") that Outlook writes for every one.
            if (std::string subject = properties.nonEmptyText({kIdDisplayName}); !subject.empty()) name = subject;
            if (name.empty()) name = Messages::localizedString("unnamedName");
            if (name.size() > 4 && TextEncoding::equalsIgnoringCase(name.substr(name.size() - 4), ".msg")) {
                name.resize(name.size() - 4);
            }
            if (!MsgAttachments::hasPathExtension(name) ||
                !TextEncoding::equalsIgnoringCase(name.substr(name.rfind('.')), ".eml")) {
                name += ".eml";
            }
        }
    }
    if (!data && attachment.hasFileData) data = attachment.fileData.data.empty() ? Blob(Bytes{}) : attachment.fileData.data;
    if (!data) {
        if (const TNEFValue* binary = properties.find(kIdAttachData, {kTypeBinary})) data = Blob(binary->data);
    }
    if (!data && object) data = Blob(object->data);
    if (!data && name.empty()) return std::nullopt;

    Dict item;
    if (name.empty()) name = Messages::localizedString("unnamedName");
    item.set(std::string(keys::kAttachName), name);
    if (data) {
        item.set(std::string(keys::kAttachData), Value(*data));
        item.set(std::string(keys::kAttachSize), Value(std::uint64_t(data->size())));
        item.set(std::string(keys::kAttachSizeString), BitWangers::formatSize(double(data->size())));
    }
    if (std::string type = properties.nonEmptyText({kIdAttachMimeTag}); !type.empty()) {
        item.set(std::string(keys::kAttachMimeType), std::move(type));
    }
    if (std::string id = withoutAngles(properties.nonEmptyText({kIdAttachContentId})); !id.empty()) {
        item.set(std::string(keys::kAttachContentID), std::move(id));
    }
    return item;
}

}  // namespace

Dict TNEFContent::build(const TNEFMessage& message, TnefReadContext& context) {
    Dict dictionary;
    // 8-bit strings: the message's own code page, else the stream's OEM one.
    const std::uint32_t streamCodePage = message.oemCodePage != 0 ? message.oemCodePage : 1252;
    const Properties probe(message.mapi, streamCodePage);
    const std::uint32_t codePage = probe.number(kIdMessageCodePage).value_or(streamCodePage);
    const Properties properties(message.mapi, codePage);

    std::string subject = properties.nonEmptyText({kIdSubject});
    if (subject.empty() && !message.subject.empty()) subject = textInCodePage(message.subject.data.view(), codePage);
    if (subject.empty()) subject = properties.nonEmptyText({kIdConversationTopic});
    if (!subject.empty()) dictionary.set(std::string(keys::kSubject), std::move(subject));

    setSender(dictionary, message, properties);
    setRecipients(dictionary, message, codePage);
    setDates(dictionary, message, properties);
    setBodies(dictionary, message, properties);
    // Threading and the transport header, as the sender's client kept them.
    for (auto [id, key] : {std::pair{kIdInternetMessageId, keys::kMessageID}, std::pair{kIdInReplyTo, keys::kInReplyTo},
                           std::pair{kIdInternetReferences, keys::kReferences}, std::pair{kIdTransportHeaders, keys::kHeader}}) {
        if (std::string text = properties.nonEmptyText({id}); !text.empty()) dictionary.set(std::string(key), std::move(text));
    }

    Array attachmentList;
    for (const auto& attachment : message.attachments) {
        if (auto item = attachmentItem(*attachment, codePage, context)) attachmentList.push_back(Value(std::move(*item)));
    }
    if (!attachmentList.empty()) dictionary.set(std::string(keys::kAttachmentList), Value(std::move(attachmentList)));
    return dictionary;
}

}  // namespace qh
