#pragma once
// The MSG reader: an Outlook message file (MS-OXMSG compound document) turned
// into the message dictionary at creation, in the classic reading (the
// default) or the complete one (MsgRules lists where they differ; most callers
// go through quillhaven/MessageReader.h). The class operations of property
// access, named properties, recipients, attachments, contacts and
// appointments live in their own classes; ReadMSG is their front.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>
#include "readers/msg/MsgRules.h"
#include "readers/msg/MsgText.h"
#include "readers/msg/NamedProperties.h"
#include "readers/msg/PropertyAccess.h"
#include "readers/msg/ReadBudget.h"

namespace qh {

class ReadMSG {
public:
    // The classic reading; none when the bytes are no compound document.
    // `exactStreams` cuts every stream to its directory size before anything
    // is read from it.
    static std::unique_ptr<ReadMSG> initWithData(ByteView data, bool exactStreams = false) {
        return initWithData(data, ReadOptions::classic(exactStreams));
    }
    // The same in the reading `options` chooses.
    static std::unique_ptr<ReadMSG> initWithData(ByteView data, const ReadOptions& options);

    // The same from an entry dictionary already taken from a compound
    // document; `inputSize` scales what embedded messages may take.
    static std::unique_ptr<ReadMSG> initWithEntryDictionary(const Dict& root, std::size_t inputSize = 0,
                                                            Reading reading = Reading::classic);

    const Dict* returnFullDictionary() const { return &mailContent_; }
    // The message dictionary moved out, for a caller done with the reader.
    Dict takeFullDictionary() { return std::move(mailContent_); }
    const Value* getContent(std::string_view key) const { return mailContent_.find(key); }
    // Does nothing: the dictionary is built by initWithData.
    void buildDictionary(ByteView data);
    // {"Subject", "Body", "From"}, "-" for what is missing; the classic reading.
    static std::optional<Dict> getSummaryForMessage(ByteView data, bool exactStreams = false) {
        return getSummaryForMessage(data, ReadOptions::classic(exactStreams));
    }
    // The same in the reading `options` chooses.
    static std::optional<Dict> getSummaryForMessage(ByteView data, const ReadOptions& options);

    // The message dictionary of one message storage, and the header dictionary
    // of its transport header (which also sets fullHeader()).
    Dict buildDictionaryForMessage(const Dict& root);
    Dict buildHeaderForMessage(const Dict& root);
    const std::optional<std::string>& fullHeader() const { return fullHeader_; }

    // An embedded message's dictionary, one level below `budget`'s, read as
    // `outer` (the message holding it) reads.
    static Dict buildEmbeddedMessage(const Dict& storage, MsgReadBudget& budget, const MsgText& outer);

    // Class operations.
    static std::string getHexFromElement(std::uint32_t element, std::uint32_t elementType) {
        return MsgPropertyAccess::getHexFromElement(element, elementType);
    }
    static std::optional<Blob> getDataFromRoot(std::string_view prefix, std::uint32_t element,
                                               std::uint32_t elementType, const Dict* container) {
        return MsgPropertyAccess::getDataFromRoot(prefix, element, elementType, container);
    }
    static std::string decodeElement(std::uint32_t element, std::uint32_t elementType, const Dict* container) {
        return MsgPropertyAccess::decodeElement(element, elementType, container);
    }
    static std::optional<MsgPropertyAccess::PropertyValue> getPropertyElement(std::uint32_t element,
                                                                              std::uint32_t elementType,
                                                                              ByteView propertyStream) {
        return MsgPropertyAccess::getPropertyElement(element, elementType, propertyStream);
    }
    static std::optional<Date> getDateFromPropertyElement(std::uint32_t element, ByteView propertyStream) {
        return MsgPropertyAccess::getDateFromPropertyElement(element, propertyStream);
    }
    static MsgNamedProperties::Mapping getNamedPropertiesForMessage(const Dict& root) {
        return MsgNamedProperties::getNamedPropertiesForMessage(root);
    }
    static Array getRecipientsForMessage(const Dict& root);
    static Array getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget);
    static Array getAttachmentsForMessage(const Dict& root, MsgReadBudget& budget, const MsgText& text);
    static Array retrieveVoiceNotesForMessage(const Dict& root);
    static std::optional<Blob> generateAttachedMessageData(const Dict& message);
    // Contact and appointment keys (quillhaven/ItemKeys.h); `embedded` tells the
    // size of the property stream's header (24 bytes instead of 32).
    static Dict buildContactsForMessage(const Dict& root, bool embedded = false);
    static Dict buildAppointmentForMessage(const Dict& root, bool embedded = false);

    ReadMSG(const ReadMSG&) = delete;
    ReadMSG& operator=(const ReadMSG&) = delete;

private:
    Dict buildHeaderForMessage(const Dict& root, const MsgText& text);
    ReadMSG(MsgReadBudget* budget, const MsgRules& rules, const MsgText* outer)
        : budget_(budget), rules_(&rules), outer_(outer) {}

    Dict mailContent_;
    std::optional<std::string> fullHeader_;
    std::optional<Date> sendDate_;
    std::string fromURL_;
    std::string toURL_;
    MsgReadBudget ownBudget_;
    MsgReadBudget* budget_;
    const MsgRules* rules_;
    const MsgText* outer_;  // the message this one is embedded in, or null
};

}  // namespace qh
