#pragma once
// Wire constants of Outlook message files (MS-OXMSG): stream and storage
// names, property types and the property identifiers the MSG reader uses.
#include <array>
#include <cstdint>
#include <string_view>

namespace qh::msgformat {

// Storage and stream names.
inline constexpr std::string_view kSubstgPrefix = "__substg1.0_";
inline constexpr std::string_view kPropertiesStream = "__properties_version1.0";
inline constexpr std::string_view kNameIdStorage = "__nameid_version1.0";
inline constexpr std::string_view kRecipientPrefix = "__recip";
inline constexpr std::string_view kAttachmentPrefix = "__attach";

// Property stream records: 16 bytes each; type at 0, identifier at 2,
// flags at 4, value at 8.
inline constexpr std::size_t kPropertyRecordSize = 16;
inline constexpr std::size_t kPropertyValueOffset = 8;
inline constexpr std::size_t kPropertyValueSize = 8;
// Property stream headers: 32 bytes for the file's message, 24 for an
// embedded one, 8 for an attachment or a recipient.
inline constexpr std::size_t kTopPropertyHeaderSize = 32;
inline constexpr std::size_t kEmbeddedPropertyHeaderSize = 24;
inline constexpr std::size_t kAttachmentPropertyHeaderSize = 8;
inline constexpr std::size_t kRecipientPropertyHeaderSize = 8;

// Property types.
inline constexpr std::uint32_t kTypeInteger32 = 0x0003;
inline constexpr std::uint32_t kTypeBoolean = 0x000B;
inline constexpr std::uint32_t kTypeObject = 0x000D;
inline constexpr std::uint32_t kTypeString8 = 0x001E;
inline constexpr std::uint32_t kTypeUnicode = 0x001F;
inline constexpr std::uint32_t kTypeTime = 0x0040;
inline constexpr std::uint32_t kTypeBinary = 0x0102;
inline constexpr std::uint32_t kTypeMultipleUnicode = 0x101F;

// Message properties.
inline constexpr std::uint32_t kMessageClass = 0x001A;
inline constexpr std::uint32_t kSubject = 0x0037;
inline constexpr std::uint32_t kClientSubmitTime = 0x0039;
inline constexpr std::uint32_t kSentRepresentingName = 0x0042;
inline constexpr std::uint32_t kSubmissionIdentifier = 0x0047;
inline constexpr std::uint32_t kSentRepresentingAddressType = 0x0064;
inline constexpr std::uint32_t kSentRepresentingEmail = 0x0065;
inline constexpr std::uint32_t kTransportHeaders = 0x007D;
inline constexpr std::uint32_t kSenderName = 0x0C1A;
inline constexpr std::uint32_t kSenderAddressType = 0x0C1E;
inline constexpr std::uint32_t kSenderEmail = 0x0C1F;
inline constexpr std::uint32_t kDisplayBcc = 0x0E02;
inline constexpr std::uint32_t kDisplayCc = 0x0E03;
inline constexpr std::uint32_t kDisplayTo = 0x0E04;
inline constexpr std::uint32_t kDeliveryTime = 0x0E06;
inline constexpr std::uint32_t kAttachNumber = 0x0E21;
inline constexpr std::uint32_t kBody = 0x1000;
inline constexpr std::uint32_t kRtfSyncBody = 0x1008;
inline constexpr std::uint32_t kRtfCompressed = 0x1009;
inline constexpr std::uint32_t kBodyHtml = 0x1013;
inline constexpr std::uint32_t kInternetMessageId = 0x1035;
inline constexpr std::uint32_t kInternetReferences = 0x1039;
inline constexpr std::uint32_t kInReplyToId = 0x1042;
inline constexpr std::uint32_t kInternetCodepage = 0x3FDE;
inline constexpr std::uint32_t kMessageCodepage = 0x3FFD;
inline constexpr std::uint32_t kSenderSmtp = 0x5D01;
inline constexpr std::uint32_t kSentRepresentingSmtp = 0x5D02;
inline constexpr std::uint32_t kFirstNamedString = 0x8000;
inline constexpr std::uint32_t kVoiceNoteSound = 0x6803;

// The sender address candidates, in the order they are tried.
inline constexpr std::array<std::uint32_t, 8> kSenderAddressCandidates = {
    0x0065, 0x0C1F, 0x801C, 0x8083, 0x8011, 0x802B, 0x5D01, 0x5D02};

// Recipient properties.
inline constexpr std::uint32_t kRecipientType = 0x0C15;  // 1 To, 2 Cc, 3 Bcc (low byte)
inline constexpr std::uint32_t kRecipientTypeCc = 2;
inline constexpr std::uint32_t kRecipientTypeBcc = 3;
inline constexpr std::uint32_t kDisplayName = 0x3001;
inline constexpr std::uint32_t kAddressType = 0x3002;
inline constexpr std::uint32_t kEmailAddress = 0x3003;
inline constexpr std::uint32_t kSmtpAddress = 0x39FE;

// Attachment properties.
inline constexpr std::uint32_t kAttachData = 0x3701;
inline constexpr std::uint32_t kAttachShortFilename = 0x3704;
inline constexpr std::uint32_t kAttachMethod = 0x3705;
inline constexpr std::uint32_t kAttachLongFilename = 0x3707;
inline constexpr std::uint32_t kAttachMimeTag = 0x370E;
inline constexpr std::uint32_t kAttachAdditionalInfo = 0x370F;
inline constexpr std::uint32_t kAttachContentId = 0x3712;
inline constexpr std::uint32_t kAttachContentLocation = 0x3713;
inline constexpr std::uint32_t kAttachDisposition = 0x3716;
inline constexpr std::uint32_t kAttachMethodEmbeddedMessage = 5;
inline constexpr std::uint32_t kAttachMethodUnread = 0xBEEFCAFE;

// RTF header words that the MSG reader looks for in the decompressed body.
inline constexpr std::string_view kRtfAnsiCodePage = "\\ansicpg";
inline constexpr std::string_view kRtfFromHtml = "\\fromhtml1";
inline constexpr std::size_t kRtfHeaderScan = 4096;

// Named-property mapping streams (binary) inside "__nameid_version1.0".
inline constexpr std::uint32_t kNameIdGuidStream = 0x0002;
inline constexpr std::uint32_t kNameIdEntryStream = 0x0003;
inline constexpr std::uint32_t kNameIdStringStream = 0x0004;
inline constexpr std::uint32_t kFirstNamedPropertyId = 0x8000;
inline constexpr std::size_t kNameIdEntrySize = 8;
inline constexpr std::size_t kGuidSize = 16;
// GUID index values of an entry record: 1 and 2 stand for the two well-known
// sets, 3 and up index the GUID stream.
inline constexpr std::uint32_t kGuidIndexMapi = 1;
inline constexpr std::uint32_t kGuidIndexPublicStrings = 2;
inline constexpr std::uint32_t kGuidIndexFirstStream = 3;

// Property sets (GUID bytes as stored on disk: Data1-3 little-endian).
using GuidBytes = std::array<std::uint8_t, 16>;
// {00062004-0000-0000-C000-000000000046} contacts
inline constexpr GuidBytes kPsetAddress = {0x04, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00,
                                           0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
// {00062002-0000-0000-C000-000000000046} appointments
inline constexpr GuidBytes kPsetAppointment = {0x02, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00,
                                               0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
// {00062008-0000-0000-C000-000000000046} common
inline constexpr GuidBytes kPsetCommon = {0x08, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00,
                                          0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
// {6ED8DA90-450B-101B-98DA-00AA003F1305} meetings
inline constexpr GuidBytes kPsetMeeting = {0x90, 0xDA, 0xD8, 0x6E, 0x0B, 0x45, 0x1B, 0x10,
                                           0x98, 0xDA, 0x00, 0xAA, 0x00, 0x3F, 0x13, 0x05};

// Contact properties (tags).
inline constexpr std::uint32_t kGeneration = 0x3A05;
inline constexpr std::uint32_t kGivenName = 0x3A06;
inline constexpr std::uint32_t kBusinessTelephone = 0x3A08;
inline constexpr std::uint32_t kHomeTelephone = 0x3A09;
inline constexpr std::uint32_t kSurname = 0x3A11;
inline constexpr std::uint32_t kCompanyName = 0x3A16;
inline constexpr std::uint32_t kTitle = 0x3A17;
inline constexpr std::uint32_t kDepartmentName = 0x3A18;
inline constexpr std::uint32_t kMobileTelephone = 0x3A1C;
inline constexpr std::uint32_t kBusinessFax = 0x3A24;
inline constexpr std::uint32_t kHomeFax = 0x3A25;
inline constexpr std::uint32_t kCountry = 0x3A26;
inline constexpr std::uint32_t kLocality = 0x3A27;
inline constexpr std::uint32_t kStateOrProvince = 0x3A28;
inline constexpr std::uint32_t kStreetAddress = 0x3A29;
inline constexpr std::uint32_t kPostalCode = 0x3A2A;
inline constexpr std::uint32_t kBirthday = 0x3A42;
inline constexpr std::uint32_t kMiddleName = 0x3A44;
inline constexpr std::uint32_t kDisplayNamePrefix = 0x3A45;
inline constexpr std::uint32_t kNickname = 0x3A4F;
inline constexpr std::uint32_t kBusinessHomePage = 0x3A51;
inline constexpr std::uint32_t kHomeAddressCity = 0x3A59;
inline constexpr std::uint32_t kHomeAddressCountry = 0x3A5A;
inline constexpr std::uint32_t kHomeAddressPostalCode = 0x3A5B;
inline constexpr std::uint32_t kHomeAddressState = 0x3A5C;
inline constexpr std::uint32_t kHomeAddressStreet = 0x3A5D;

// Contact named properties (address set, numeric names).
inline constexpr std::uint32_t kLidFileUnder = 0x8005;
inline constexpr std::uint32_t kLidHtml = 0x802B;
inline constexpr std::uint32_t kLidWorkAddressStreet = 0x8045;
inline constexpr std::uint32_t kLidWorkAddressCity = 0x8046;
inline constexpr std::uint32_t kLidWorkAddressState = 0x8047;
inline constexpr std::uint32_t kLidWorkAddressPostalCode = 0x8048;
inline constexpr std::uint32_t kLidWorkAddressCountry = 0x8049;
inline constexpr std::uint32_t kLidEmail1DisplayName = 0x8080;
inline constexpr std::uint32_t kLidEmail1Address = 0x8083;
inline constexpr std::uint32_t kLidEmail2DisplayName = 0x8090;
inline constexpr std::uint32_t kLidEmail2Address = 0x8093;
inline constexpr std::uint32_t kLidEmail3DisplayName = 0x80A0;
inline constexpr std::uint32_t kLidEmail3Address = 0x80A3;

// Appointment named properties (appointment set unless noted).
inline constexpr std::uint32_t kLidBusyStatus = 0x8205;
inline constexpr std::uint32_t kLidLocation = 0x8208;
inline constexpr std::uint32_t kLidAppointmentStartWhole = 0x820D;
inline constexpr std::uint32_t kLidAppointmentEndWhole = 0x820E;
inline constexpr std::uint32_t kLidAppointmentSubType = 0x8215;
inline constexpr std::uint32_t kLidAppointmentRecur = 0x8216;
inline constexpr std::uint32_t kLidRecurrenceType = 0x8231;
inline constexpr std::uint32_t kLidRecurrencePattern = 0x8232;
inline constexpr std::uint32_t kLidToAttendeesString = 0x823B;
inline constexpr std::uint32_t kLidCcAttendeesString = 0x823C;
inline constexpr std::uint32_t kLidReminderDelta = 0x8501;      // common set
inline constexpr std::uint32_t kLidReminderSet = 0x8503;        // common set
inline constexpr std::uint32_t kLidGlobalObjectId = 0x0003;     // meeting set

// Recurrence pattern blob (MS-OXOCAL): frequencies and pattern types.
inline constexpr std::uint16_t kRecurFrequencyDaily = 0x200A;
inline constexpr std::uint16_t kRecurFrequencyWeekly = 0x200B;
inline constexpr std::uint16_t kRecurFrequencyMonthly = 0x200C;
inline constexpr std::uint16_t kRecurFrequencyYearly = 0x200D;
inline constexpr std::uint16_t kPatternDay = 0x0000;
inline constexpr std::uint16_t kPatternWeek = 0x0001;
inline constexpr std::uint16_t kPatternMonth = 0x0002;
inline constexpr std::uint16_t kPatternMonthNth = 0x0003;
inline constexpr std::uint16_t kPatternMonthEnd = 0x0004;
inline constexpr std::uint16_t kPatternHjMonth = 0x000A;
inline constexpr std::uint16_t kPatternHjMonthNth = 0x000B;
inline constexpr std::uint16_t kPatternHjMonthEnd = 0x000C;
inline constexpr std::uint32_t kEndAfterDate = 0x2021;
inline constexpr std::uint32_t kEndAfterOccurrences = 0x2022;
inline constexpr std::uint32_t kEndNever = 0x2023;
inline constexpr std::uint32_t kEndNeverAlternate = 0xFFFFFFFF;

// Limits against hostile files. Real messages nest a handful of levels; a
// deeper chain is an attack on the stack and on memory, since every level
// carries the base64 text of the one below.
inline constexpr int kMaxEmbeddingDepth = 32;
inline constexpr std::size_t kMaxAttachmentStorages = 2048;

}  // namespace qh::msgformat
