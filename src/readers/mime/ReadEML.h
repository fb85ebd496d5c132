#pragma once
// Reads an Internet message (.eml) into the message dictionary the MSG and
// TNEF readers make: addresses and date copied from the headers, the subject
// decoded, the "X-" headers gathered under "Header", every body part decoded
// into "Body", "HTML", "RawMail" or an attachment item, and inline "cid:"
// images turned into data addresses.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>
#include "readers/mime/MimeRules.h"

namespace qh {

class ReadEML {
public:
    // Null when no bytes are given; otherwise builds the dictionary at once.
    static std::unique_ptr<ReadEML> initWithData(ByteView data);
    // The same in the reading `options` chooses.
    static std::unique_ptr<ReadEML> initWithData(ByteView data, const ReadOptions& options);

    const Dict* returnFullDictionary() const { return &mailContent_; }
    // The message dictionary moved out, for a caller done with the reader.
    Dict takeFullDictionary() { return std::move(mailContent_); }
    // The dictionary's value for `key`, or null.
    const Value* getContent(std::string_view key) const { return mailContent_.find(key); }
    // Does nothing: the dictionary is built by initWithData.
    void buildDictionary(ByteView data) {}
    // An Internet message carries neither a contact nor an appointment.
    std::optional<std::string> exportContacts() const { return std::nullopt; }
    std::optional<std::string> exportAppointment() const { return std::nullopt; }

    // Decodes one part record of MIMEReader into `dictionary`: a body part
    // into "Body", "HTML" and "RawMail", a named part into "AttachmentList".
    static void decodeContent(const Dict& part, Dict& dictionary);
    // RFC 2231 percent escapes %01..%FE (upper-case hex) decoded one character
    // per byte, then every "=\n" removed.
    static std::string trimMIMEStrings(std::string_view text);

    // {"Subject", "Body", "From"} of a message, each "-" when empty.
    static std::optional<Dict> getSummaryForMessage(ByteView data);
    static std::optional<Dict> getSummaryForMessage(ByteView data, const ReadOptions& options);

private:
    struct DecodeState;
    static void decodeContent(const Dict& part, Dict& dictionary, DecodeState& state);
    static void embedInlineImages(Dict& dictionary, DecodeState& state);
    static void readHeaderFields(ByteView data, Dict& dictionary);
    static void decodeLeaf(const Dict& part, Dict& dictionary, DecodeState& state);
    static void addAttachment(Dict item, Dict& dictionary, DecodeState& state);

    Dict mailContent_;
};

}  // namespace qh
