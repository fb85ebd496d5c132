#pragma once
// Writes a message dictionary of any kind's complete reading as a
// standards-conformant MIME message (RFC 5322, RFC 2045 to 2049, RFC 2047,
// RFC 2231), with CR LF line ends:
//  - headers: the original transport header's trace fields (Received,
//    Return-Path, Authentication-Results, DKIM-Signature, ARC-*,
//    Received-SPF, List-*), then Date, From, To, Cc, Bcc, Reply-To, Subject,
//    Message-ID (the message's own, else a fresh one), In-Reply-To,
//    References, MIME-Version; folded under 78 columns, non-ASCII text as
//    UTF-8 encoded words, nothing from the input able to start a line;
//  - structure: multipart/mixed holding multipart/alternative (text/plain,
//    then text/html or multipart/related with the images the HTML shows by
//    content id), then the attachments; one part where there is one;
//  - an RTF-only message gets its text and HTML from the RTF reader;
//  - an appointment or a contact also gets its iCalendar or vCard file.
// WriteEML keeps the classic text.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

struct MimeWriterOptions {
    // Turns the bytes of an attached message into the MIME text to embed (for
    // example: read it and write it again with this writer), or none to embed
    // the bytes as they are when they look like a message.
    std::function<std::optional<std::string>(ByteView message)> attachedMessage;
};

class MimeWriter {
public:
    using Options = MimeWriterOptions;

    explicit MimeWriter(const Dict& message, Options options = {});

    // The whole message text, CR LF line ends.
    std::string write() const;
    static std::string write(const Dict& message, const Options& options) { return MimeWriter(message, options).write(); }

    // A new Message-ID ("<random UUID@quillhaven.invalid>") for messages without one.
    static std::string freshMessageId();

    // The header field names this writer may write at the top of a message
    // or a part (lower case); trace fields are the ones in isTraceField().
    static bool isOwnField(std::string_view lowerName);
    static bool isTraceField(std::string_view lowerName);

private:
    const Dict& message_;
    Options options_;
};

}  // namespace qh
