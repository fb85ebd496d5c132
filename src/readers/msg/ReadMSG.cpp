#include "readers/msg/ReadMSG.h"

#include <exception>

#include "compound/Mole.h"
#include "core/Log.h"
#include "core/Messages.h"
#include "core/TextEncoding.h"
#include "readers/msg/Appointments.h"
#include "readers/msg/Attachments.h"
#include "readers/msg/Contacts.h"
#include "readers/msg/Format.h"
#include "readers/msg/Recipients.h"
#include "readers/msg/TransportHeader.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"
#include "util/AddressLists.h"
#include "util/DataWangers.h"
#include "util/DateData.h"
#include "util/StringWangers.h"
#include "util/TimeWangers.h"
#include "util/WebWangers.h"

namespace qh {

using namespace msgformat;

namespace {
// Converted embedded messages may together take this much beside the input:
// each level carries the base64 text of the level below, so a deep chain of
// small messages would otherwise grow by a third per level.
constexpr std::size_t kConvertedFloor = 1u << 20;
constexpr std::size_t kConvertedPerInputByte = 8;

std::string firstLine(const std::string& text) {
    std::size_t end = text.find_first_of("\n\r\v\f");
    // U+2028, U+2029 and U+0085 are line breaks too.
    for (std::string_view mark : {"\xE2\x80\xA8", "\xE2\x80\xA9", "\xC2\x85"}) {
        std::size_t found = text.find(mark);
        if (found < end) end = found;
    }
    return end == std::string::npos ? text : text.substr(0, end);
}
}  // namespace

std::unique_ptr<ReadMSG> ReadMSG::initWithData(ByteView data, bool exactStreams) {
    std::unique_ptr<Mole> mole = Mole::initWithData(data);
    if (!mole) return nullptr;
    Dict root = mole->getOLEDictionary(exactStreams);
    mole->deInitialize();
    mole.reset();
    return initWithEntryDictionary(root, data.size());
}

std::unique_ptr<ReadMSG> ReadMSG::initWithEntryDictionary(const Dict& root, std::size_t inputSize) {
    std::unique_ptr<ReadMSG> reader(new ReadMSG(nullptr));
    reader->budget_ = &reader->ownBudget_;
    reader->ownBudget_.convertedLimit = kConvertedFloor + kConvertedPerInputByte * inputSize;
    reader->mailContent_ = reader->buildDictionaryForMessage(root);
    reader->budget_ = nullptr;
    return reader;
}

void ReadMSG::buildDictionary(ByteView) {}

Dict ReadMSG::buildEmbeddedMessage(const Dict& storage, MsgReadBudget& budget) {
    ReadMSG reader(&budget);
    ++budget.depth;
    Dict message = reader.buildDictionaryForMessage(storage);
    --budget.depth;
    return message;
}

Array ReadMSG::getRecipientsForMessage(const Dict& root) { return MsgRecipients::getRecipientsForMessage(root); }

Array ReadMSG::getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget) {
    return MsgAttachments::getAttachmentsForMessage(root, budget);
}

Array ReadMSG::retrieveVoiceNotesForMessage(const Dict& root) {
    return MsgAttachments::retrieveVoiceNotesForMessage(root);
}

std::optional<Blob> ReadMSG::generateAttachedMessageData(const Dict& message) {
    return MsgAttachments::generateAttachedMessageData(message);
}

Dict ReadMSG::buildContactsForMessage(const Dict& root, bool embedded) {
    return MsgContacts::buildContactsForMessage(root, embedded);
}

Dict ReadMSG::buildAppointmentForMessage(const Dict& root, bool embedded) {
    return MsgAppointments::buildAppointmentForMessage(root, embedded);
}

Dict ReadMSG::buildHeaderForMessage(const Dict& root) {
    // Read like every string property (with its 8-bit fallback); a message
    // without a header has "" here.
    fullHeader_ = MsgPropertyAccess::decodeElement(kTransportHeaders, kTypeUnicode, &root);
    if (fullHeader_->empty()) return Dict();
    return MsgTransportHeader::parse(*fullHeader_);
}

Dict ReadMSG::buildDictionaryForMessage(const Dict& root) {
    Dict content;
    const bool embedded = budget_ && budget_->depth > 0;

    // 1. Delivery time from the whole property stream, header included.
    try {
        ByteView properties = MsgPropertyAccess::propertyStreamOf(&root);
        if (auto value = MsgPropertyAccess::getPropertyElement(kDeliveryTime, kTypeTime, properties)) {
            auto seconds = TimeWangers::unixTimeFromWindows(
                static_cast<std::int64_t>(MsgPropertyAccess::filetimeOf(*value)));
            sendDate_ = Date{static_cast<double>(seconds)};
            content.set("TimeStamp", Value(*sendDate_));
        }
    } catch (const std::exception& error) {
        Log::line(std::string("Error reading getting Property Element - Exception: ") + error.what() + " Locn 1");
    }

    // 2. The transport header's fields.
    for (auto& [key, value] : buildHeaderForMessage(root)) content.set(key, value);

    // 3-4. Recipients; the display-To text only when no list was stored at all.
    content.set("To", Value(getRecipientsForMessage(root)));
    if (!content.contains("To")) {
        std::string displayTo = MsgPropertyAccess::decodeElement(kDisplayTo, kTypeString8, &root);
        if (!displayTo.empty()) {
            Array to;
            std::size_t start = 0;
            while (true) {
                std::size_t end = displayTo.find(';', start);
                to.push_back(Value(Dict{{"Name", Value(displayTo.substr(start, end - start))}, {"Address", Value("")}}));
                if (end == std::string::npos) break;
                start = end + 1;
            }
            content.set("To", Value(std::move(to)));
        }
    }

    // 5. The kind of item; the more specific classes are tested first.
    std::string messageClass = MsgPropertyAccess::decodeElement(kMessageClass, kTypeString8, &root);
    auto has = [&](std::string_view text) { return messageClass.find(text) != std::string::npos; };
    if (has("IPM.StickyNote")) {
        content.set("MessageType", Value("Sticky"));
    } else if (has("IPM.Note.EnterpriseVault.Shortcut")) {
        content.set("MessageType", Value("Vault"));
    } else if (has("IPM.Contact")) {
        for (auto& [key, value] : buildContactsForMessage(root, embedded)) content.set(key, value);
        content.set("MessageType", Value("Contact"));
    } else if (has("IPM.Appointment")) {
        for (auto& [key, value] : buildAppointmentForMessage(root, embedded)) content.set(key, value);
        content.set("MessageType", Value("Calendar"));
    } else if (has("IPM.Note")) {
        content.set("MessageType", Value("Email"));
    } else if (!messageClass.empty()) {
        Log::line("Unknown Message Type: " + messageClass);
        content.set("MessageType", Value("Email"));
    }

    // 6. Subject: its first line, replacing a header subject.
    std::string subject = MsgPropertyAccess::decodeElement(kSubject, kTypeUnicode, &root);
    if (!subject.empty()) {
        if (auto cleaned = StringWangers::zapGremlins(firstLine(subject))) content.set("Subject", Value(*cleaned));
    }

    // 7. Plain body.
    std::string body = MsgPropertyAccess::decodeElement(kBody, kTypeUnicode, &root);
    if (!body.empty()) content.set("Body", Value(body));

    // 8. HTML body, bytes read as UTF-8.
    if (auto html = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kBodyHtml, kTypeBinary, &root)) {
        auto text = DataWangers::getStringFromData(html->view(), StringEncoding::UTF8, "buildDictionaryForMessage", 0);
        if (text && !text->empty()) content.set("HTML", Value(std::move(*text)));
    }

    // 9. Compressed RTF body.
    std::optional<Blob> rtf = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kRtfCompressed, kTypeBinary, &root);
    if (!rtf) rtf = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kRtfSyncBody, kTypeBinary, &root);
    if (rtf && RTFWangers::typeIsRTF(rtf->view())) {
        if (auto decoded = RTFWangers::getRTFForData(rtf->view()); decoded && !decoded->empty()) {
            content.set("RTF", Value(std::move(*decoded)));
        }
    }

    // 10. The header text, "" when there is none.
    if (fullHeader_) content.set("Header", Value(*fullHeader_));

    // 11. Display date: delivery time, else the submission identifier; else a header date stays.
    std::string displayDate;
    if (sendDate_) displayDate = TimeWangers::displayString(*sendDate_);
    if (!displayDate.empty()) {
        content.set("Date", Value(displayDate));
    } else if (auto submission =
                   MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kSubmissionIdentifier, kTypeBinary, &root)) {
        if (auto date = formatDateData(submission->view()); date && !date->empty()) content.set("Date", Value(*date));
    }

    // 12. Voice notes stand in for a missing body.
    if (!content.contains("Body")) {
        std::string voiceNote = MsgPropertyAccess::decodeElement(kFirstNamedString, kTypeString8, &root);
        if (!voiceNote.empty()) {
            Array notes = retrieveVoiceNotesForMessage(root);
            if (!notes.empty()) {
                content.set("AttachmentList", Value(std::move(notes)));
                voiceNote = Messages::localizedString("VoiceNote");
            }
            content.set("Body", Value(voiceNote));
        }
    }

    // 13. Sender. The sent-representing name (0x0042) would be read only when
    // the sender name yields no value at all, and a string read always yields
    // one, so the sender name is what is used.
    if (!content.contains("From")) {
        std::string name = MsgPropertyAccess::decodeElement(kSenderName, kTypeUnicode, &root);
        std::string address;
        for (std::uint32_t candidate : kSenderAddressCandidates) {
            std::string text = MsgPropertyAccess::decodeElement(candidate, kTypeUnicode, &root);
            if (!text.empty() && WebWangers::validateEmailAddress(text)) {
                address = std::move(text);
                break;
            }
        }
        Dict record = buildAddressFromTags(std::string_view(name), std::string_view(address));
        if (!record.empty()) content.set("From", Value(Array{Value(std::move(record))}));
    }

    // 14. An HTML document found in the plain body or in the RTF's text.
    if (!content.contains("HTML")) {
        std::optional<std::string> text;
        if (const std::string* plain = content.findString("Body"); plain && !plain->empty()) {
            text = *plain;
        } else if (const Blob* rtfBytes = content.findBytes("RTF")) {
            text = RTFReader::stringFromRTFData(rtfBytes->view());
        }
        if (text && !text->empty() && StringWangers::isHTML(*text)) content.set("HTML", Value(std::move(*text)));
    }

    // 15. Attachments of mail and appointments (replacing a voice-note list).
    const std::string* type = content.findString("MessageType");
    if (type && (*type == "Email" || *type == "Calendar")) {
        MsgReadBudget fallback;
        Array attachments = getAttachmentsForMessage(root, budget_ ? *budget_ : fallback);
        if (!attachments.empty()) content.set("AttachmentList", Value(std::move(attachments)));
    }
    return content;
}

std::optional<Dict> ReadMSG::getSummaryForMessage(ByteView data, bool exactStreams) {
    Dict root;
    if (std::unique_ptr<Mole> mole = Mole::initWithData(data)) {
        root = mole->getOLEDictionary(exactStreams);
        mole->deInitialize();
    }
    Dict summary;
    std::string subject = MsgPropertyAccess::decodeElement(kSubject, kTypeUnicode, &root);
    subject = StringWangers::zapGremlins(firstLine(subject)).value_or("");
    summary.set("Subject", Value(subject.empty() ? std::string("-") : subject));
    std::string body = MsgPropertyAccess::decodeElement(kBody, kTypeUnicode, &root);
    summary.set("Body", Value(body.empty() ? std::string("-") : body));
    // As in the message: a string read always yields a value, so the first
    // name and the first address property are the ones used, unvalidated.
    std::string name = MsgPropertyAccess::decodeElement(kSenderName, kTypeUnicode, &root);
    std::string address = MsgPropertyAccess::decodeElement(kSentRepresentingEmail, kTypeUnicode, &root);
    Dict record = buildAddressFromTags(std::string_view(name), std::string_view(address));
    const std::string* from = record.findString("Name");
    summary.set("From", Value(from ? *from : std::string("-")));
    return summary;
}

}  // namespace qh
