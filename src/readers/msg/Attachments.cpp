#include "readers/msg/Attachments.h"

#include <algorithm>
#include <exception>
#include <string>

#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/Messages.h"
#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/msg/PropertyAccess.h"
#include "readers/msg/ReadMSG.h"
#include "readers/msg/Recipients.h"
#include "util/BitWangers.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "writers/MessageItems.h"
#include <quillhaven/MimeWriter.h>
#include <quillhaven/WriteEML.h>

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
    setKey(item, keys::kAttachSize, Value(static_cast<std::uint64_t>(data.size())));
    setKey(item, keys::kAttachSizeString, Value(BitWangers::formatSize(static_cast<double>(data.size()))));
    setKey(item, keys::kAttachData, Value(data));
}

bool containsText(ByteView bytes, std::string_view needle) {
    return std::search(bytes.begin(), bytes.end(), needle.begin(), needle.end()) != bytes.end();
}

// What the writers will make of a message: its bodies and its attachments in base64.
std::size_t convertedSizeEstimate(const Dict& message, const MsgRules& rules) {
    // Standards MIME writes non-ASCII text quoted-printable: up to three
    // bytes for one.
    const std::size_t textFactor = rules.embeddedText == MsgRules::EmbeddedText::StandardsMime ? 3 : 1;
    return items::convertedSizeEstimate(message, textFactor);
}

// The three name texts of an attachment storage, and the encoding the
// classic reading converts its other texts with.
struct Names {
    NameRead display, longName, shortName;
    StringEncoding textEncoding = StringEncoding::UTF16LE;
};

Names readNames(const Dict& storage, const MsgText& text, std::int32_t index) {
    Names names;
    if (text.rules().attachments == MsgRules::AttachmentTexts::OwnTypeAndTrueSuffix) {
        // complete: each name in whichever string type the file wrote it.
        names.display.text = text.find(kDisplayName, kTypeUnicode, &storage);
        names.longName.text = text.find(kAttachLongFilename, kTypeUnicode, &storage);
        if (!names.longName.text) names.shortName.text = text.find(kAttachShortFilename, kTypeUnicode, &storage);
        return names;
    }
    names.display = readName(storage, kDisplayName,
                             hasStream(storage, kDisplayName, kTypeUnicode) ? kTypeUnicode : kTypeString8,
                             "getAttachmentsForMessage:a", index);
    names.longName = readName(storage, kAttachLongFilename,
                              hasStream(storage, kAttachLongFilename, kTypeUnicode) ? kTypeUnicode : kTypeString8,
                              "getAttachmentsForMessage:b", index);
    names.textEncoding = names.longName.encoding;
    if (!names.longName.text || names.longName.text->empty()) {
        // classic: the short name is probed in the long name's type but read
        // in UTF-16 when found there, so an 8-bit message never uses its
        // short name; attachment lists of the family depend on it.
        std::uint32_t type = hasStream(storage, kAttachShortFilename, names.longName.type) ? kTypeUnicode
                                                                                           : kTypeString8;
        names.shortName = readName(storage, kAttachShortFilename, type, "getAttachmentsForMessage:c", index);
        names.textEncoding = names.shortName.encoding;
    }
    return names;
}

// One optional text of an attachment: complete in its own string type and
// cleaned; classic in the stream type the family reads, converted with the
// name's encoding whatever the stream holds.
std::optional<std::string> optionalText(const Dict& storage, const MsgText& text, const Names& names,
                                        std::uint32_t element, std::uint32_t classicType, const char* functionName,
                                        std::int32_t index) {
    if (text.rules().attachments == MsgRules::AttachmentTexts::OwnTypeAndTrueSuffix) {
        return text.find(element, kTypeUnicode, &storage);
    }
    std::optional<std::string> found =
        readText(storage, element, classicType, names.textEncoding, functionName, index);
    if (!found || found->empty()) return std::nullopt;
    return found;
}

// The complete reading's name of an embedded item: its whole display or
// file name (without a ".msg" that no longer fits), else the message's own
// subject, with the extension of what the converted text is.
std::string embeddedName(const Names& names, const Dict& message, const std::string& unnamed) {
    auto endsWith = [](std::string_view text, std::string_view suffix) {
        return text.size() > suffix.size() &&
               TextEncoding::equalsIgnoringCase(text.substr(text.size() - suffix.size()), suffix);
    };
    std::string base;
    for (const NameRead* read : {&names.longName, &names.shortName, &names.display}) {
        if (read->text && !read->text->empty()) {
            base = *read->text;
            break;
        }
    }
    if (endsWith(base, ".msg")) base.resize(base.size() - 4);
    if (base.empty()) {
        if (const std::string* subject = message.findString(keys::kSubject)) base = *subject;
    }
    if (base.empty()) base = unnamed;
    const std::string* type = message.findString(keys::kMessageType);
    std::string_view extension = ".eml";
    if (type && *type == "Contact") extension = ".vcf";
    if (type && *type == "Calendar") extension = ".ics";
    if (!endsWith(base, extension)) base += extension;
    return base;
}

std::string embeddedMimeType(const Dict& message) {
    const std::string* type = message.findString(keys::kMessageType);
    if (type && *type == "Contact") return "text/vcard";
    if (type && *type == "Calendar") return "text/calendar";
    return "message/rfc822";
}

}  // namespace

bool MsgAttachments::hasPathExtension(std::string_view name) {
    std::size_t slash = name.rfind('/');
    std::string_view last = slash == std::string_view::npos ? name : name.substr(slash + 1);
    std::size_t dot = last.rfind('.');
    return dot != std::string_view::npos && dot != 0 && dot + 1 < last.size();
}

Array MsgAttachments::getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget, const MsgText& text) {
    const bool trueSuffix = text.rules().attachments == MsgRules::AttachmentTexts::OwnTypeAndTrueSuffix;
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
            if (auto found = text.fixed(kAttachMethod, kTypeInteger32, properties, 0)) {
                method = MsgPropertyAccess::integerOf(*found);
            }
        } catch (const std::exception& error) {
            Log::line(std::string("Error reading getting Property Element - Exception: ") + error.what() +
                      " Locn 2");
            continue;
        }

        // 2-3. Long name, short name, display name, the unnamed text.
        const Names names = readNames(storage, text, index);
        std::string name;
        if (names.longName.text && !names.longName.text->empty()) {
            name = *names.longName.text;
        } else if (names.shortName.text && !names.shortName.text->empty()) {
            name = *names.shortName.text;
        } else if (names.display.text && !names.display.text->empty()) {
            name = *names.display.text;
        } else {
            name = unnamed;
        }
        if (!name.empty()) setKey(item, keys::kAttachName, Value(name));

        // 4. Optional texts.
        if (auto found = optionalText(storage, text, names, kAttachMimeTag, kTypeUnicode,
                                      "getAttachmentsForMessage:d", index)) {
            setKey(item, keys::kAttachMimeType, Value(*found));
        }
        if (auto found = optionalText(storage, text, names, kAttachDisposition, kTypeUnicode,
                                      "getAttachmentsForMessage:e", index)) {
            setKey(item, keys::kAttachDisposition, Value(*found));
        }
        if (auto bytes = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kAttachAdditionalInfo, kTypeBinary,
                                                            &storage)) {
            setKey(item, keys::kAttachMetaData, Value(*bytes));
        }
        if (auto found = optionalText(storage, text, names, kAttachContentLocation, kTypeString8,
                                      "getAttachmentsForMessage:f", index)) {
            setKey(item, keys::kAttachContentLocation, Value(*found));
        }
        if (auto found = optionalText(storage, text, names, kAttachContentId, kTypeUnicode,
                                      "getAttachmentsForMessage:f", index)) {
            std::optional<std::string> cleaned = text.clean(*found);
            // complete: the id without the <> that MIME's Content-ID puts around it.
            if (cleaned && trueSuffix && cleaned->size() > 2 && cleaned->front() == '<' && cleaned->back() == '>') {
                cleaned = text.clean(cleaned->substr(1, cleaned->size() - 2));
            }
            if (cleaned) setKey(item, keys::kAttachContentID, Value(*cleaned));
        }

        if (method != kAttachMethodEmbeddedMessage) {
            // 5. Ordinary data, shared with the entry dictionary, not copied.
            if (auto data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kAttachData, kTypeBinary, &storage)) {
                if (name == unnamed && containsText(data->view(), "MIME-Version: 1.0")) {
                    name = unnamed + ".eml";
                    setKey(item, keys::kAttachName, Value(name));
                }
                setSizeAndData(item, *data);
            }
        } else if (const Dict* embedded =
                       MsgPropertyAccess::getStorageFromRoot(kSubstgPrefix, kAttachData, kTypeObject, &storage)) {
            // 6-7. An embedded message, read the whole way down and converted.
            std::optional<Blob> converted;
            Dict message;
            if (budget.depth + 1 > kMaxEmbeddingDepth) {
                Log::line("Embedded message nested too deeply - not read");
            } else {
                message = ReadMSG::buildEmbeddedMessage(*embedded, budget, text);
                // The text carries every attachment in base64: stop before
                // making it when all levels together would pass the budget.
                std::size_t estimate = convertedSizeEstimate(message, text.rules());
                if (estimate > budget.convertedLimit || budget.convertedBytes > budget.convertedLimit - estimate) {
                    Log::line("Embedded messages too large - not converted");
                } else {
                    converted = generateAttachedMessageData(message, text.rules());
                    if (converted) budget.convertedBytes += converted->size();
                }
            }
            if (converted) {
                setSizeAndData(item, *converted);
                std::string newName = name;
                if (trueSuffix) {
                    newName = embeddedName(names, message, unnamed);
                    if (!item.contains(keys::kAttachMimeType)) {
                        setKey(item, keys::kAttachMimeType, Value(embeddedMimeType(message)));
                    }
                } else if (name.empty() && names.display.text && !names.display.text->empty()) {
                    // classic: "<name>.msg" although the data is MIME, vCard
                    // or iCalendar text; the host's attachment lists depend on it.
                    newName = StringWangers::zapGremlins(*names.display.text).value_or("") + ".msg";
                } else if (!name.empty() && !hasPathExtension(name)) {
                    newName = StringWangers::zapGremlins(name).value_or("") + ".msg";
                }
                setKey(item, keys::kAttachName, Value(newName));
                name = newName;
            }
        }

        // 8. Listed only with a name.
        if (!name.empty() && !item.empty()) items.push_back(Value(std::move(item)));
    }
    return items;
}

std::optional<Blob> MsgAttachments::generateAttachedMessageData(const Dict& message, const MsgRules& rules) {
    std::unique_ptr<WriteEML> writer = WriteEML::initWithDictionary(&message);
    if (!writer) return std::nullopt;
    const std::string* type = message.findString(keys::kMessageType);
    std::string text;
    if (type && *type == "Contact") {
        text = writer->exportContacts();
    } else if (type && *type == "Calendar") {
        text = writer->exportAppointment();
    } else if (rules.embeddedText == MsgRules::EmbeddedText::StandardsMime) {
        text = MimeWriter::write(message, {});
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
        setKey(item, keys::kAttachName, Value("Windows CE VoiceNote.wav"));
        setSizeAndData(item, *data);
        items.push_back(Value(std::move(item)));
    }
    return items;
}

}  // namespace qh
