#pragma once
// Wire constants of TNEF streams (MS-OXTNEF) and of the MAPI property
// encoding inside them. Nothing but constants lives here.
#include <cstddef>
#include <cstdint>

namespace qh::tnef {

// The first four bytes of every stream (78 9F 3E 22 on the wire).
inline constexpr std::uint32_t kSignature = 0x223E9F78;

// Attribute levels (the byte before each attribute header). Read and ignored.
inline constexpr std::uint8_t kLevelMessage = 0x01;
inline constexpr std::uint8_t kLevelAttachment = 0x02;

// Attribute ids: attribute type in the high 16 bits, attribute id in the low 16.
inline constexpr std::uint32_t kAttFrom = 0x00008000;
inline constexpr std::uint32_t kAttSubject = 0x00018004;
inline constexpr std::uint32_t kAttDateSent = 0x00038005;
inline constexpr std::uint32_t kAttDateReceived = 0x00038006;
inline constexpr std::uint32_t kAttMessageClass = 0x00078008;
inline constexpr std::uint32_t kAttMessageId = 0x00018009;
inline constexpr std::uint32_t kAttBody = 0x0002800C;
inline constexpr std::uint32_t kAttPriority = 0x0004800D;
inline constexpr std::uint32_t kAttAttachData = 0x0006800F;
inline constexpr std::uint32_t kAttAttachTitle = 0x00018010;
inline constexpr std::uint32_t kAttAttachMetaFile = 0x00068011;
inline constexpr std::uint32_t kAttAttachCreateDate = 0x00038012;
inline constexpr std::uint32_t kAttAttachModifyDate = 0x00038013;
inline constexpr std::uint32_t kAttDateModified = 0x00038020;
inline constexpr std::uint32_t kAttAttachRendData = 0x00069002;
inline constexpr std::uint32_t kAttMsgProps = 0x00069003;
inline constexpr std::uint32_t kAttRecipTable = 0x00069004;
inline constexpr std::uint32_t kAttAttachment = 0x00069005;
inline constexpr std::uint32_t kAttTnefVersion = 0x00089006;
inline constexpr std::uint32_t kAttOemCodepage = 0x00069007;
inline constexpr std::uint32_t kAttDateStart = 0x00030006;
inline constexpr std::uint32_t kAttDateEnd = 0x00030007;

// MAPI property types (the low 16 bits of a property tag).
inline constexpr std::uint16_t kTypeNull = 0x0001;
inline constexpr std::uint16_t kTypeShort = 0x0002;
inline constexpr std::uint16_t kTypeLong = 0x0003;
inline constexpr std::uint16_t kTypeFloat = 0x0004;
inline constexpr std::uint16_t kTypeDouble = 0x0005;
inline constexpr std::uint16_t kTypeCurrency = 0x0006;
inline constexpr std::uint16_t kTypeAppTime = 0x0007;
inline constexpr std::uint16_t kTypeError = 0x000A;
inline constexpr std::uint16_t kTypeBoolean = 0x000B;
inline constexpr std::uint16_t kTypeObject = 0x000D;
inline constexpr std::uint16_t kTypeLongLong = 0x0014;
inline constexpr std::uint16_t kTypeString8 = 0x001E;
inline constexpr std::uint16_t kTypeUnicode = 0x001F;
inline constexpr std::uint16_t kTypeSysTime = 0x0040;
inline constexpr std::uint16_t kTypeClsid = 0x0048;
inline constexpr std::uint16_t kTypeBinary = 0x0102;
// Set in the type of a multi-valued property.
inline constexpr std::uint16_t kMultiValueFlag = 0x1000;

// Property ids at and above this one are named properties.
inline constexpr std::uint16_t kFirstNamedId = 0x8000;

// Property ids and tags the decoder looks at.
inline constexpr std::uint16_t kIdSubject = 0x0037;
inline constexpr std::uint16_t kIdConversationTopic = 0x0070;
inline constexpr std::uint32_t kTagAttachLongFilename = 0x3707001E;
inline constexpr std::uint32_t kTagDisplayName = 0x3001001E;

// Property ids the complete reading takes (type chosen by the value found).
inline constexpr std::uint16_t kIdSenderName = 0x0C1A;
inline constexpr std::uint16_t kIdSenderEmail = 0x0C1F;
inline constexpr std::uint16_t kIdSenderAddressType = 0x0C1E;
inline constexpr std::uint16_t kIdSenderSmtp = 0x5D01;
inline constexpr std::uint16_t kIdSentRepresentingName = 0x0042;
inline constexpr std::uint16_t kIdSentRepresentingEmail = 0x0065;
inline constexpr std::uint16_t kIdSentRepresentingAddressType = 0x0064;
inline constexpr std::uint16_t kIdSentRepresentingSmtp = 0x5D02;
inline constexpr std::uint16_t kIdClientSubmitTime = 0x0039;
inline constexpr std::uint16_t kIdDeliveryTime = 0x0E06;
inline constexpr std::uint16_t kIdBody = 0x1000;
inline constexpr std::uint16_t kIdHtml = 0x1013;
inline constexpr std::uint16_t kIdRtfCompressed = 0x1009;
inline constexpr std::uint16_t kIdInternetMessageId = 0x1035;
inline constexpr std::uint16_t kIdInReplyTo = 0x1042;
inline constexpr std::uint16_t kIdInternetReferences = 0x1039;
inline constexpr std::uint16_t kIdTransportHeaders = 0x007D;
inline constexpr std::uint16_t kIdMessageCodePage = 0x3FFD;
inline constexpr std::uint16_t kIdInternetCodePage = 0x3FDE;
inline constexpr std::uint16_t kIdRecipientType = 0x0C15;
inline constexpr std::uint16_t kIdDisplayName = 0x3001;
inline constexpr std::uint16_t kIdAddressType = 0x3002;
inline constexpr std::uint16_t kIdEmailAddress = 0x3003;
inline constexpr std::uint16_t kIdSmtpAddress = 0x39FE;
inline constexpr std::uint16_t kIdAttachData = 0x3701;
inline constexpr std::uint16_t kIdAttachFilename = 0x3704;
inline constexpr std::uint16_t kIdAttachMethod = 0x3705;
inline constexpr std::uint16_t kIdAttachLongFilename = 0x3707;
inline constexpr std::uint16_t kIdAttachMimeTag = 0x370E;
inline constexpr std::uint16_t kIdAttachContentId = 0x3712;

// Recipient types (PR_RECIPIENT_TYPE) and the attachment method of an
// attached message (PR_ATTACH_METHOD).
inline constexpr std::uint32_t kRecipientTo = 1;
inline constexpr std::uint32_t kRecipientCc = 2;
inline constexpr std::uint32_t kRecipientBcc = 3;
inline constexpr std::uint32_t kAttachEmbeddedMessage = 5;
// PR_ATTACH_DATA_OBJ starts with the 16-byte interface id of what follows.
inline constexpr std::size_t kObjectInterfaceIdSize = 16;
// The first bytes of a compound document (an attached .msg).
inline constexpr std::uint8_t kCompoundSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

// Tags the search-based pass looks for inside a message property block.
inline constexpr std::uint32_t kTagHtml = 0x10130102;
inline constexpr std::uint32_t kTagSubjectUnicode = 0x0037001F;
inline constexpr std::uint32_t kTagSentRepresentingName = 0x0042001F;
inline constexpr std::uint32_t kTagSenderName = 0x0C1A001F;
inline constexpr std::uint32_t kTagSentRepresentingEmail = 0x0065001F;
inline constexpr std::uint32_t kTagSenderEmail = 0x0C1F001F;
inline constexpr std::uint32_t kTagNamedSenderEmail = 0x801C001F;
inline constexpr std::uint32_t kTagLastModificationTime = 0x30080040;
inline constexpr std::uint32_t kTagRtfCompressed = 0x10090102;

constexpr std::uint16_t propertyType(std::uint32_t tag) { return static_cast<std::uint16_t>(tag & 0xFFFF); }
constexpr std::uint16_t propertyId(std::uint32_t tag) { return static_cast<std::uint16_t>(tag >> 16); }
constexpr std::uint32_t propertyTag(std::uint16_t type, std::uint32_t id) {
    return (id << 16) | type;
}

}  // namespace qh::tnef
