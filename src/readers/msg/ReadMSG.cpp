#include "readers/msg/ReadMSG.h"

#include <algorithm>
#include <exception>

#include <quillhaven/Mole.h>
#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
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
#include "util/Rfc5322.h"
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

}  // namespace

std::unique_ptr<ReadMSG> ReadMSG::initWithData(ByteView data, const ReadOptions& options) {
    std::unique_ptr<Mole> mole = Mole::initBorrowingData(data);
    if (!mole) return nullptr;
    Dict root = mole->getOLEDictionary(options.exactStreams);
    mole->deInitialize();
    mole.reset();
    return initWithEntryDictionary(root, data.size(), options.reading);
}

std::unique_ptr<ReadMSG> ReadMSG::initWithEntryDictionary(const Dict& root, std::size_t inputSize, Reading reading) {
    std::unique_ptr<ReadMSG> reader(new ReadMSG(nullptr, MsgRules::of(reading), nullptr));
    reader->budget_ = &reader->ownBudget_;
    reader->ownBudget_.convertedLimit = kConvertedFloor + kConvertedPerInputByte * inputSize;
    reader->mailContent_ = reader->buildDictionaryForMessage(root);
    reader->budget_ = nullptr;
    return reader;
}

void ReadMSG::buildDictionary(ByteView) {}

Dict ReadMSG::buildEmbeddedMessage(const Dict& storage, MsgReadBudget& budget, const MsgText& outer) {
    ReadMSG reader(&budget, outer.rules(), &outer);
    ++budget.depth;
    Dict message = reader.buildDictionaryForMessage(storage);
    --budget.depth;
    return message;
}

Array ReadMSG::getRecipientsForMessage(const Dict& root) { return MsgRecipients::getRecipientsForMessage(root); }

Array ReadMSG::getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget) {
    return MsgAttachments::getAttachmentsForMessage(root, budget);
}

Array ReadMSG::getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget, const MsgText& text) {
    return MsgAttachments::getAttachmentsForMessage(root, budget, text);
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

Dict ReadMSG::buildHeaderForMessage(const Dict& root) { return buildHeaderForMessage(root, MsgText(*rules_)); }

Dict ReadMSG::buildHeaderForMessage(const Dict& root, const MsgText& text) {
    // Read like every string property (with its 8-bit fallback); a message
    // without a header has "" here.
    fullHeader_ = text.property(kTransportHeaders, kTypeUnicode, &root);
    if (fullHeader_->empty()) return Dict();
    return MsgTransportHeader::parse(*fullHeader_, rules_->header);
}

namespace {

// The decompressed RTF body (0x1009, else 0x1008), or none.
std::optional<Blob> rtfBodyOf(const Dict& root) {
    std::optional<Blob> rtf = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kRtfCompressed, kTypeBinary, &root);
    if (!rtf) rtf = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kRtfSyncBody, kTypeBinary, &root);
    if (!rtf || !RTFWangers::typeIsRTF(rtf->view())) return std::nullopt;
    std::optional<Bytes> decoded = RTFWangers::getRTFForData(rtf->view());
    if (!decoded || decoded->empty()) return std::nullopt;
    return Blob(std::move(*decoded));
}

// The plain body: classic as stored; complete, when none is stored, the
// RTF body's text.
std::string plainBodyOf(const Dict& root, const MsgText& text, const std::optional<Blob>& rtf) {
    std::string body = text.property(kBody, kTypeUnicode, &root, MsgText::Use::Body);
    if (body.empty() && rtf && text.rules().bodies == MsgRules::Bodies::WholeWithRtfFallback) {
        if (std::optional<std::string> rtfText = RTFReader::stringFromRTFData(rtf->view())) {
            body = text.clean(*rtfText).value_or("");
        }
    }
    return body;
}

// The HTML body: the HTML stream (classic as UTF-8, complete in the body's
// code page, or a string property of the same identifier); complete, else
// the HTML the RTF body encapsulates.
std::optional<std::string> htmlBodyOf(const Dict& root, const MsgText& text, const std::optional<Blob>& rtf) {
    const bool rtfFallback = text.rules().bodies == MsgRules::Bodies::WholeWithRtfFallback;
    if (auto html = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kBodyHtml, kTypeBinary, &root)) {
        std::string decoded = text.decodeHtml(html->view());
        // complete: only a terminating NUL goes; the markup stays as it is.
        if (rtfFallback) decoded.resize(std::min(decoded.size(), decoded.find('\0')));
        if (!decoded.empty()) return decoded;
    }
    if (!rtfFallback) return std::nullopt;
    if (auto html = text.find(kBodyHtml, kTypeUnicode, &root, MsgText::Use::Body)) return html;
    if (rtf) {
        std::string_view header = asText(rtf->view().first(std::min(rtf->size(), kRtfHeaderScan)));
        if (header.find(kRtfFromHtml) != std::string_view::npos) {
            if (auto html = RTFReader::htmlFromRTFData(rtf->view()); html && !html->empty()) return html;
        }
    }
    return std::nullopt;
}

// The first address of a transport header's From, as a record.
const Dict* headerSender(const Dict& header) {
    const Array* from = header.findArray(keys::kHeaderFrom);
    if (!from || from->empty()) return nullptr;
    return (*from)[0].dict();
}

// The sender's address record.
Dict senderOf(const Dict& root, const MsgText& text, const Dict& header) {
    if (text.rules().sender == MsgRules::Sender::FirstValidCandidate) {
        // classic: the sent-representing name (0x0042) would be read only
        // when the sender name yields no value at all, and a string read
        // always yields one, so the sender name is what is used.
        std::string name = text.property(kSenderName, kTypeUnicode, &root);
        std::string address;
        for (std::uint32_t candidate : kSenderAddressCandidates) {
            std::string found = text.property(candidate, kTypeUnicode, &root);
            if (!found.empty() && WebWangers::validateEmailAddress(found)) {
                address = std::move(found);
                break;
            }
        }
        return buildAddressFromTags(std::string_view(name), std::string_view(address));
    }
    std::optional<std::string> name = text.find(kSenderName, kTypeUnicode, &root);
    if (!name) name = text.find(kSentRepresentingName, kTypeUnicode, &root);
    std::optional<std::string> address = text.find(kSenderSmtp, kTypeUnicode, &root);
    if (!address) address = text.find(kSentRepresentingSmtp, kTypeUnicode, &root);
    // An address whose type is not SMTP is an Exchange directory name.
    for (auto [typeElement, addressElement] : {std::pair{kSenderAddressType, kSenderEmail},
                                               std::pair{kSentRepresentingAddressType, kSentRepresentingEmail}}) {
        if (address) break;
        std::optional<std::string> type = text.find(typeElement, kTypeUnicode, &root);
        if (type && TextEncoding::equalsIgnoringCase(*type, "SMTP")) address = text.find(addressElement, kTypeUnicode, &root);
    }
    if (const Dict* fromHeader = headerSender(header); fromHeader && (!address || !name)) {
        const std::string* headerAddress = fromHeader->findString(keys::kAddress);
        const std::string* headerName = fromHeader->findString(keys::kName);
        if (!address && headerAddress && !headerAddress->empty()) address = *headerAddress;
        if (!name && headerName && !headerName->empty() && (!headerAddress || *headerName != *headerAddress)) {
            name = *headerName;
        }
    }
    return buildAddressFromTags(name, std::string_view(address ? *address : std::string()));
}

// "Name; Name; ..." display lists as records with empty addresses.
Array displayList(const std::string& names) {
    Array list;
    std::size_t start = 0;
    while (start <= names.size()) {
        std::size_t end = std::min(names.find(';', start), names.size());
        std::string name = TextEncoding::trimWhitespaceAndNewlines(std::string_view(names).substr(start, end - start));
        if (!name.empty()) {
            list.push_back(Value(Dict{{std::string(keys::kName), Value(name)}, {std::string(keys::kAddress), Value("")}}));
        }
        start = end + 1;
    }
    return list;
}

}  // namespace

Dict ReadMSG::buildDictionaryForMessage(const Dict& root) {
    Dict content;
    const bool embedded = budget_ && budget_->depth > 0;
    const MsgRules& rules = *rules_;
    const ByteView properties = MsgPropertyAccess::propertyStreamOf(&root);
    const std::size_t headerSize = embedded ? kEmbeddedPropertyHeaderSize : kTopPropertyHeaderSize;
    const std::optional<Blob> rtf = rtfBodyOf(root);
    const MsgText text = MsgText::forMessage(rules, properties, headerSize, rtf ? rtf->view() : ByteView(), outer_);

    // 1. Delivery time (complete: else the submit time).
    try {
        auto value = text.fixed(kDeliveryTime, kTypeTime, properties, headerSize);
        if (!value && rules.envelope == MsgRules::Envelope::ThreadingAndSubmitTime) {
            value = text.fixed(kClientSubmitTime, kTypeTime, properties, headerSize);
        }
        if (value) {
            auto seconds = TimeWangers::unixTimeFromWindows(
                static_cast<std::int64_t>(MsgPropertyAccess::filetimeOf(*value)));
            sendDate_ = Date{static_cast<double>(seconds)};
            setKey(content, keys::kTimeStamp, Value(*sendDate_));
        }
    } catch (const std::exception& error) {
        Log::line(std::string("Error reading getting Property Element - Exception: ") + error.what() + " Locn 1");
    }

    // 2. The transport header's fields.
    const Dict header = buildHeaderForMessage(root, text);
    for (auto& [key, value] : header) content.set(key, value);

    // 3-4. Recipients. classic: "To" is stored even when empty, so the
    // display-To text is never used (the host tells "no recipients" by the
    // empty list); complete: its names stand in, and the recipients' types
    // replace the header's CC and BCC lists.
    MsgRecipients::Lists recipients = MsgRecipients::recipientsForMessage(root, text);
    if (recipients.to.empty() && recipients.cc.empty() && recipients.bcc.empty() &&
        rules.displayTo == MsgRules::DisplayTo::WhenNoRecipients) {
        recipients.to = displayList(text.property(kDisplayTo, kTypeUnicode, &root));
        recipients.cc = displayList(text.property(kDisplayCc, kTypeUnicode, &root));
        recipients.bcc = displayList(text.property(kDisplayBcc, kTypeUnicode, &root));
    }
    setKey(content, keys::kTo, Value(std::move(recipients.to)));
    if (!recipients.cc.empty()) setKey(content, keys::kCC, Value(std::move(recipients.cc)));
    if (!recipients.bcc.empty()) setKey(content, keys::kBCC, Value(std::move(recipients.bcc)));

    // 5. The kind of item; the more specific classes are tested first.
    std::string messageClass = text.property(kMessageClass, kTypeString8, &root);
    auto has = [&](std::string_view part) { return messageClass.find(part) != std::string::npos; };
    if (has("IPM.StickyNote")) {
        setKey(content, keys::kMessageType, Value("Sticky"));
    } else if (has("IPM.Note.EnterpriseVault.Shortcut")) {
        setKey(content, keys::kMessageType, Value("Vault"));
    } else if (has("IPM.Contact")) {
        for (auto& [key, value] : MsgContacts::buildContactsForMessage(root, embedded, text)) content.set(key, value);
        setKey(content, keys::kMessageType, Value("Contact"));
    } else if (has("IPM.Appointment")) {
        for (auto& [key, value] : MsgAppointments::buildAppointmentForMessage(root, embedded, text)) content.set(key, value);
        setKey(content, keys::kMessageType, Value("Calendar"));
    } else if (has("IPM.Note")) {
        setKey(content, keys::kMessageType, Value("Email"));
    } else if (!messageClass.empty()) {
        Log::line("Unknown Message Type: " + messageClass);
        setKey(content, keys::kMessageType, Value("Email"));
    }

    // 6. Subject, one line, replacing a header subject.
    if (auto subject = text.find(kSubject, kTypeUnicode, &root)) {
        if (auto line = text.oneLine(*subject)) setKey(content, keys::kSubject, Value(*line));
    }

    // 7. Plain body.
    std::string body = plainBodyOf(root, text, rtf);
    if (!body.empty()) setKey(content, keys::kBody, Value(std::move(body)));

    // 8. HTML body.
    if (auto html = htmlBodyOf(root, text, rtf)) setKey(content, keys::kHTML, Value(std::move(*html)));

    // 9. Compressed RTF body.
    if (rtf) setKey(content, keys::kRTF, Value(*rtf));

    // 10. The header text, "" when there is none.
    if (fullHeader_) setKey(content, keys::kHeader, Value(*fullHeader_));

    // 11. Display date: delivery time, else the submission identifier; else a header date stays.
    std::string displayDate;
    if (sendDate_) {
        displayDate = rules.dateText == MsgRules::DateText::Rfc5322 ? rfc5322::formatDateTime(*sendDate_).value_or("")
                                                                    : TimeWangers::displayString(*sendDate_);
    }
    if (!displayDate.empty()) {
        setKey(content, keys::kDate, Value(displayDate));
    } else if (auto submission =
                   MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, kSubmissionIdentifier, kTypeBinary, &root)) {
        if (auto date = formatDateData(submission->view()); date && !date->empty()) {
            setKey(content, keys::kDate, Value(*date));
        }
    }

    // 12. Voice notes stand in for a missing body.
    if (!content.contains(keys::kBody)) {
        std::string voiceNote = text.property(kFirstNamedString, kTypeString8, &root);
        if (!voiceNote.empty()) {
            Array notes = retrieveVoiceNotesForMessage(root);
            if (!notes.empty()) {
                setKey(content, keys::kAttachmentList, Value(std::move(notes)));
                voiceNote = Messages::localizedString("VoiceNote");
            }
            setKey(content, keys::kBody, Value(voiceNote));
        }
    }

    // 13. Sender. The header files its From as "FROM", so "From" is always
    // still free here.
    if (!content.contains(keys::kFrom)) {
        Dict record = senderOf(root, text, header);
        if (!record.empty()) setKey(content, keys::kFrom, Value(Array{Value(std::move(record))}));
    }

    // 14. classic: an HTML document found in the plain body or in the RTF's
    // text stands in for a missing HTML body (the preview host shows it as
    // HTML). complete: the plain body stays plain.
    if (rules.bodies == MsgRules::Bodies::AsStored && !content.contains(keys::kHTML)) {
        std::optional<std::string> candidate;
        if (const std::string* plain = content.findString(keys::kBody); plain && !plain->empty()) {
            candidate = *plain;
        } else if (const Blob* rtfBytes = content.findBytes(keys::kRTF)) {
            candidate = RTFReader::stringFromRTFData(rtfBytes->view());
        }
        if (candidate && !candidate->empty() && StringWangers::isHTML(*candidate)) {
            setKey(content, keys::kHTML, Value(std::move(*candidate)));
        }
    }

    // complete: the threading keys.
    if (rules.envelope == MsgRules::Envelope::ThreadingAndSubmitTime) {
        for (auto [key, element] : {std::pair{keys::kMessageID, kInternetMessageId},
                                    std::pair{keys::kInReplyTo, kInReplyToId},
                                    std::pair{keys::kReferences, kInternetReferences}}) {
            if (auto found = text.find(element, kTypeUnicode, &root)) setKey(content, key, Value(*found));
        }
    }

    // 15. Attachments of mail and appointments (replacing a voice-note list).
    const std::string* type = content.findString(keys::kMessageType);
    if (type && (*type == "Email" || *type == "Calendar")) {
        MsgReadBudget fallback;
        Array attachments = getAttachmentsForMessage(root, budget_ ? *budget_ : fallback, text);
        if (!attachments.empty()) setKey(content, keys::kAttachmentList, Value(std::move(attachments)));
    }
    return content;
}

std::optional<Dict> ReadMSG::getSummaryForMessage(ByteView data, const ReadOptions& options) {
    const MsgRules& rules = MsgRules::of(options.reading);
    Dict root;
    if (std::unique_ptr<Mole> mole = Mole::initBorrowingData(data)) {
        root = mole->getOLEDictionary(options.exactStreams);
        mole->deInitialize();
    }
    const bool plainBodyOnly = rules.bodies == MsgRules::Bodies::AsStored;
    // classic: no RTF is decompressed for a summary; its code page and text are the complete reading's.
    const std::optional<Blob> rtf = plainBodyOnly ? std::nullopt : rtfBodyOf(root);
    const MsgText text = MsgText::forMessage(rules, MsgPropertyAccess::propertyStreamOf(&root), kTopPropertyHeaderSize,
                                             rtf ? rtf->view() : ByteView());
    Dict summary;
    std::string subject;
    if (auto stored = text.find(kSubject, kTypeUnicode, &root)) subject = text.oneLine(*stored).value_or("");
    setKey(summary, keys::kSubject, Value(subject.empty() ? std::string("-") : subject));
    std::string body = plainBodyOf(root, text, rtf);
    setKey(summary, keys::kBody, Value(body.empty() ? std::string("-") : body));
    Dict record;
    if (rules.sender == MsgRules::Sender::FirstValidCandidate) {
        // classic: a string read always yields a value, so the first name and
        // the first address property are the ones used, unvalidated.
        std::string name = text.property(kSenderName, kTypeUnicode, &root);
        std::string address = text.property(kSentRepresentingEmail, kTypeUnicode, &root);
        record = buildAddressFromTags(std::string_view(name), std::string_view(address));
    } else {
        std::string headerText = text.property(kTransportHeaders, kTypeUnicode, &root);
        record = senderOf(root, text, MsgTransportHeader::parse(headerText, rules.header));
        // complete: an address stands in for a missing name, "-" for neither.
        const std::string* name = record.findString(keys::kName);
        const std::string* address = record.findString(keys::kAddress);
        if (!name || name->empty()) setKey(record, keys::kName, Value(address && !address->empty() ? *address : "-"));
    }
    // classic: a sender without name gives "" (not "-"); the host shows it blank.
    const std::string* from = record.findString(keys::kName);
    setKey(summary, keys::kFrom, Value(from ? *from : std::string("-")));
    return summary;
}

}  // namespace qh
