#pragma once
// The keys of the message dictionary and of its address records and
// attachment items, by name. Every reader fills, and every writer and command
// reads, the dictionary through these. Contact and appointment keys are in
// quillhaven/ItemKeys.h.
//
// Both readings use the same keys and value shapes; the complete reading may
// add the keys marked "complete" (and fills "To", "CC", "BCC" by recipient
// type for every kind).
#include <string_view>

namespace qh::keys {

// Top level.
inline constexpr std::string_view kMessageType = "MessageType";  // "Email", "Calendar", "Contact", "Sticky", "Vault"
inline constexpr std::string_view kSubject = "Subject";
inline constexpr std::string_view kFrom = "From";    // array of address records
inline constexpr std::string_view kTo = "To";        // array of address records
inline constexpr std::string_view kCC = "CC";        // array of address records
inline constexpr std::string_view kBCC = "BCC";      // array of address records
inline constexpr std::string_view kHeaderTo = "TO";      // classic .msg: To parsed from the transport header
inline constexpr std::string_view kHeaderFrom = "FROM";  // classic .msg: From parsed from the transport header
inline constexpr std::string_view kReplyTo = "ReplyTo";  // complete: array of address records
inline constexpr std::string_view kDate = "Date";            // string for display
inline constexpr std::string_view kTimeStamp = "TimeStamp";  // date
inline constexpr std::string_view kBody = "Body";
inline constexpr std::string_view kHTML = "HTML";
inline constexpr std::string_view kRTF = "RTF";  // bytes: decompressed RTF
inline constexpr std::string_view kHeader = "Header";  // transport header text
inline constexpr std::string_view kAttachmentList = "AttachmentList";
inline constexpr std::string_view kRawMail = "RawMail";          // classic .eml
inline constexpr std::string_view kMailContent = "MailContent";  // classic .eml: the MIME part list
inline constexpr std::string_view kMessageID = "MessageID";    // complete: "<id@host>" as the message gives it
inline constexpr std::string_view kInReplyTo = "InReplyTo";    // complete
inline constexpr std::string_view kReferences = "References";  // complete

// Address record.
inline constexpr std::string_view kName = "Name";
inline constexpr std::string_view kAddress = "Address";

// Attachment item.
inline constexpr std::string_view kAttachName = "name";
inline constexpr std::string_view kAttachData = "data";  // bytes (classic .eml: bytes or text)
inline constexpr std::string_view kAttachSize = "size";
inline constexpr std::string_view kAttachSizeString = "sizeString";
inline constexpr std::string_view kAttachMimeType = "mimeType";  // complete: every kind, when known
inline constexpr std::string_view kAttachDisposition = "attachDisposition";  // "inline" / "attachment"
inline constexpr std::string_view kAttachMetaData = "attachmentMetaData";
inline constexpr std::string_view kAttachContentLocation = "AttachContentLocation";
inline constexpr std::string_view kAttachContentID = "AttachContentID";  // complete: every kind, without <>
inline constexpr std::string_view kEmlContentID = "ContentID";  // classic .eml attachment items

// MIME part record (classic .eml "MailContent"); its attachment items may carry
// the file name under kPartFileName instead of kAttachName.
inline constexpr std::string_view kPartFileName = "fileName";
inline constexpr std::string_view kPartContentType = "contentType";      // the media type's first piece, lower case
inline constexpr std::string_view kPartContentFormat = "contentFormat";  // its subtype, lower case
inline constexpr std::string_view kPartMetaType = "metaType";            // the first parameter's name
inline constexpr std::string_view kPartMetaData = "metaData";            // and its value
inline constexpr std::string_view kPartCharset = "charset";
inline constexpr std::string_view kPartTypeName = "typeName";          // the Content-Type "name" parameter
inline constexpr std::string_view kPartEncoding = "encodingType";      // "base64", "quoted-printable", ...
inline constexpr std::string_view kPartDescription = "Content-Description";
inline constexpr std::string_view kPartDisposition = "disposition";    // its value alone
inline constexpr std::string_view kPartDispositionField = "Content-Disposition";  // records built elsewhere
inline constexpr std::string_view kPartContentId = "Content-Id";
inline constexpr std::string_view kPartContent = "content";            // the decoded body text
inline constexpr std::string_view kPartRawContent = "uaContent";       // the body as it stands
// Or, from a reader that keeps bodies in place, where that body is in the text it read.
inline constexpr std::string_view kPartBodyAt = "bodyAt";
inline constexpr std::string_view kPartBodyLength = "bodyLength";
inline constexpr std::string_view kPartChildren = "MailContent";       // the parts of a multipart
inline constexpr std::string_view kPartExpanded = "expanded";          // a multipart whose parts were read

// Compound document entry (Mole): a stream or storage by its path.
inline constexpr std::string_view kEntryName = "entryname";
inline constexpr std::string_view kEntrySize = "entrysize";
inline constexpr std::string_view kEntryObjectData = "objectdata";  // bytes of a stream
inline constexpr std::string_view kEntryChildren = "childentry";    // array of entries of a storage

}  // namespace qh::keys
