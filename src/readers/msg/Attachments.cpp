#include "readers/msg/Attachments.h"

#include <algorithm>
#include <exception>
#include <string>

#include "core/Log.h"
#include "core/Messages.h"
#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/msg/PropertyAccess.h"
#include "readers/msg/ReadMSG.h"
#include "readers/msg/Recipients.h"
#include "util/BitWangers.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "writers/WriteEML.h"

namespace qh {

using namespace msgformat;

namespace {

struct NameRead {
    std::optional<std::string> text;
    StringEncoding encoding = StringEncoding::UTF16LE;
    std::uint32_t type = kTypeUnicode;
};

bool hasStream(const Dict& storage, std::uint32_t element, std::uint32_t type) {
    return MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, type, &storage).has_value();
}

StringEncoding encodingFor(std::uint32_t type) {
    return type == kTypeUnicode ? StringEncoding::UTF16LE : StringEncoding::ASCII;
}

NameRead readName(const Dict& storage, std::uint32_t element, std::uint32_t type, const char* functionName,
                  std::int32_t location) {
    NameRead read;
    read.type = type;
    read.encoding = encodingFor(type);
    if (std::optional<Blob> data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, type, &storage)) {
        read.text = DataWangers::getStringFromData(data->view(), read.encoding, functionName, location);
    }
    return read;
}

std::optional<std::string> readText(const Dict& storage, std::uint32_t element, std::uint32_t type,
                                    StringEncoding encoding, const char* functionName, std::int32_t location) {
    std::optional<Blob> data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, type, &storage);
    if (!data) return std::nullopt;
    return DataWangers::getStringFromData(data->view(), encoding, functionName, location);
}

void setSizeAndData(Dict& item, const Blob& data) {
    item.set("size", Value(static_cast<std::uint64_t>(data.size())));
    item.set("sizeString", Value(BitWangers::formatSize(static_cast<double>(data.size()))));
    item.set("data", Value(data));
}

bool containsText(ByteView bytes, std::string_view needle) {
    return std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end()) != bytes.end();
}

// What the writers will make of a message: its bodies and its attachments in base64.
std::size_t convertedSizeEstimate(const Dict& message) {
    std::size_t size = 0;
    for (const char* key : {"Body", "HTML"}) {
        if (const std::string* text = message.findString(key)) size += text->size();
    }
    if (const Blob* rtf = message.findBytes("RTF")) size += rtf->size() * 2;
    if (const Array* list = message.findArray("AttachmentList")) {
        for (const Value& entry : *list) {
            const Dict* attachment = entry.dict();
            const Blob* data = attachment ? attachment->findBytes("data") : nullptr;
            if (data) size += data->size() / 3 * 4 + data->size() / 38 + 256;
        }
    }
    return size;
}

}  // namespace

bool MsgAttachments::hasPathExtension(std::string_view name) {
    std::size_t slash = name.rfind('/');
    std::string_view last = slash == std::string_view::npos ? name : name.substr(slash + 1);
    std::size_t dot = last.rfind('.');
    return dot != std::string_view::npos && dot != 0 && dot + 1 < last.size();
}

Array MsgAttachments::getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget) {
    Array items;
    const std::string unnamed = Messages::localizedString("unnamedName");
    std::int32_t index = -1;
    for (const auto& [storageName, value] : root) {
        if (!MsgRecipients::hasPrefixIgnoringCase(storageName, kAttachmentPrefix)) continue;
        const Dict* storagePointer = value.dict();
        if (!storagePointer) continue;
        ++index;
        if (budget.attachmentStorages >= kMaxAttachmentStorages) {
            if (!budget.attachmentLimitLogged) {
                Log::line("Too many attachment storages - the rest are not read");
                budget.attachmentLimitLogged = true;
            }
            break;
        }
        ++budget.attachmentStorages;
        const Dict& storage = *storagePointer;
        Dict item;

        // 1. The method, from the property stream past its 8-byte header.
        ByteView properties = MsgPropertyAccess::propertyStreamOf(&storage);
        if (properties.size() >= kAttachmentPropertyHeaderSize + 1) {
            properties = properties.subspan(kAttachmentPropertyHeaderSize);
        }
        std::uint32_t method = kAttachMethodUnread;
        try {
            if (auto found = MsgPropertyAccess::getPropertyElement(kAttachMethod, kTypeInteger32, properties)) {
                method = MsgPropertyAccess::integerOf(*found);
            }
        } catch (const std::exception& error) {
            Log::line(std::string("Error reading getting Property Element - Exception: ") + error.what() +
                      " Locn 2");
            continue;
        }

        // 2. The three names.
        NameRead a = readName(storage, kDisplayName,
                              hasStream(storage, kDisplayName, kTypeUnicode) ? kTypeUnicode : kTypeString8,
                              "getAttachmentsForMessage:a", index);
        NameRead b = readName(storage, kAttachLongFilename,
                              hasStream(storage, kAttachLongFilename, kTypeUnicode) ? kTypeUnicode : kTypeString8,
                              "getAttachmentsForMessage:b", index);
        StringEncoding nameEncoding = b.encoding;
        NameRead c;
        if (!b.text || b.text->empty()) {
            // The short name is probed in the long name's type but read in
            // UTF-16 when found there: an 8-bit message never uses its short name.
            std::uint32_t type = hasStream(storage, kAttachShortFilename, b.type) ? kTypeUnicode : kTypeString8;
            c = readName(storage, kAttachShortFilename, type, "getAttachmentsForMessage:c", index);
            nameEncoding = c.encoding;
        }

        // 3. Long name, short name, display name, the unnamed text.
        std::string name;
        if (b.text && !b.text->empty()) {
            name = *b.text;
        } else if (c.text && !c.text->empty()) {
            name = *c.text;
        } else if (a.text && !a.text->empty()) {
            name = *a.text;
        } else {
            name = unnamed;
        }
        if (!name.empty()) item.set("name", Value(name));

        // 4. Optional texts, all converted with the name's encoding whatever their stream type.
        if (auto text = readText(storage, kAttachMimeTag, kTypeUnicode, nameEncoding, "getAttachmentsForMessage:d",
                                 index);
            text && !text->empty()) {
            item.set("mimeType", Value(*text));
        }
        if (auto text = readText(storage, kAttachDisposition, kTypeUnicode, nameEncoding,
                                 "getAttachmentsForMessage:e", index);
            text && !text->empty()) {
            item.set("attachDisposition", Value(*text));
        }
        if (auto bytes = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kAttachAdditionalInfo, kTypeBinary,
                                                            &storage)) {
            item.set("attachmentMetaData", Value(*bytes));
        }
        if (auto text = readText(storage, kAttachContentLocation, kTypeString8, nameEncoding,
                                 "getAttachmentsForMessage:f", index);
            text && !text->empty()) {
            item.set("AttachContentLocation", Value(*text));
        }
        if (auto text = readText(storage, kAttachContentId, kTypeUnicode, nameEncoding,
                                 "getAttachmentsForMessage:f", index);
            text && !text->empty()) {
            if (auto cleaned = StringWangers::zapGremlins(*text); cleaned && !cleaned->empty()) {
                item.set("AttachContentID", Value(*cleaned));
            }
        }

        if (method != kAttachMethodEmbeddedMessage) {
            // 5. Ordinary data, shared with the entry dictionary, not copied.
            if (auto data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kAttachData, kTypeBinary, &storage)) {
                if (name == unnamed && containsText(data->view(), "MIME-Version: 1.0")) {
                    name = unnamed + ".eml";
                    item.set("name", Value(name));
                }
                setSizeAndData(item, *data);
            }
        } else if (const Dict* embedded =
                       MsgPropertyAccess::getStorageFromRoot(kSubstgPrefix, kAttachData, kTypeObject, &storage)) {
            // 6-7. An embedded message, read the whole way down and converted.
            std::optional<Blob> converted;
            if (budget.depth + 1 > kMaxEmbeddingDepth) {
                Log::line("Embedded message nested too deeply - not read");
            } else {
                Dict message = ReadMSG::buildEmbeddedMessage(*embedded, budget);
                // The text carries every attachment in base64: stop before
                // making it when all levels together would pass the budget.
                std::size_t estimate = convertedSizeEstimate(message);
                if (estimate > budget.convertedLimit || budget.convertedBytes > budget.convertedLimit - estimate) {
                    Log::line("Embedded messages too large - not converted");
                } else {
                    converted = generateAttachedMessageData(message);
                    if (converted) budget.convertedBytes += converted->size();
                }
            }
            if (converted) {
                setSizeAndData(item, *converted);
                std::string newName = name;
                if (name.empty() && a.text && !a.text->empty()) {
                    newName = StringWangers::zapGremlins(*a.text).value_or("") + ".msg";
                } else if (!name.empty() && !hasPathExtension(name)) {
                    newName = StringWangers::zapGremlins(name).value_or("") + ".msg";
                }
                item.set("name", Value(newName));
                name = newName;
            }
        }

        // 8. Listed only with a name.
        if (!name.empty() && !item.empty()) items.push_back(Value(std::move(item)));
    }
    return items;
}

std::optional<Blob> MsgAttachments::generateAttachedMessageData(const Dict& message) {
    std::unique_ptr<WriteEML> writer = WriteEML::initWithDictionary(&message);
    if (!writer) return std::nullopt;
    const std::string* type = message.findString("MessageType");
    std::string text;
    if (type && *type == "Contact") {
        text = writer->exportContacts();
    } else if (type && *type == "Calendar") {
        text = writer->exportAppointment();
    } else {
        text = writer->formatOutputFile();
    }
    if (text.empty()) return std::nullopt;
    return Blob(toBytes(text));
}

Array MsgAttachments::retrieveVoiceNotesForMessage(const Dict& root) {
    Array items;
    if (auto data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kVoiceNoteSound, kTypeBinary, &root)) {
        Dict item;
        item.set("name", Value("Windows CE VoiceNote.wav"));
        setSizeAndData(item, *data);
        items.push_back(Value(std::move(item)));
    }
    return items;
}

}  // namespace qh
