#pragma once
// The keys that contact items (MessageType "Contact") and appointment items
// (MessageType "Calendar") add to the message dictionary, beside the common
// keys ("Subject", "Body", "From", "To", "TimeStamp", ...). The MSG reader
// fills them; the vCard and iCalendar writers read them. A key is present only
// when the item carries a non-empty value for it.
//
// Contact keys (value type; MAPI source: tag, or named property in the
// address property set {00062004-0000-0000-C000-000000000046} by number):
//   "Display Name"          string  0x3001 display name
//   "Name Prefix"           string  0x3A45 display name prefix ("Mr.")
//   "Given Name"            string  0x3A06
//   "Middle Name"           string  0x3A44
//   "Surname"               string  0x3A11
//   "Name Suffix"           string  0x3A05 generation ("Jr.")
//   "Nickname"              string  0x3A4F
//   "File As"               string  named 0x8005
//   "Company Name"          string  0x3A16
//   "Department"            string  0x3A18
//   "Job Title"             string  0x3A17
//   "Contact Email N"       string  named 0x8083 / 0x8093 / 0x80A3 (N = 1, 2, 3)
//   "Contact Email N Name"  string  named 0x8080 / 0x8090 / 0x80A0
//   "Work Phone"            string  0x3A08
//   "Home Phone"            string  0x3A09
//   "Mobile Phone"          string  0x3A1C
//   "Work Fax"              string  0x3A24
//   "Home Fax"              string  0x3A25
//   "Work Street", "Work City", "Work State", "Work Postal Code", "Work Country"
//                           strings named 0x8045..0x8049, else tags 0x3A29, 0x3A27, 0x3A28, 0x3A2A, 0x3A26
//   "Home Street", "Home City", "Home State", "Home Postal Code", "Home Country"
//                           strings 0x3A5D, 0x3A59, 0x3A5C, 0x3A5B, 0x3A5A
//   "Web Page"              string  0x3A51 business home page, else named 0x802B
//   "Birthday"              date    0x3A42 (the day only is meaningful)
//   "Notes"                 string  0x1000 plain body
//
// Appointment keys (named properties in the appointment property set
// {00062002-0000-0000-C000-000000000046} unless said otherwise):
//   "Start Time"            date    named 0x820D (start, UTC)
//   "End Time"              date    named 0x820E (end, UTC)
//   "Location"              string  named 0x8208
//   "All Day"               bool    named 0x8215
//   "Busy Status"           string  named 0x8205: "FREE", "TENTATIVE", "BUSY", "OOF", "WORKINGELSEWHERE"
//   "Recurrence Type"       number  named 0x8231: 0 none, 1 daily, 2 weekly, 3 monthly, 4 yearly
//   "Recurrence Pattern"    string  named 0x8232: the item's own description of the recurrence
//   "Recurrence Rule"       string  RFC 5545 RRULE value made from named 0x8216 (recurrence blob)
//   "Reminder Minutes"      number  named 0x8501 in the common set {00062008-...}, only when the reminder is set (0x8503)
//   "Organizer"             address record {"Name", "Address"}: the sender (0x0C1A / 0x0C1F, SMTP 0x5D01)
//   "Attendees"             array of address records: the recipient table, else named 0x823B / 0x823C names
//   "Global Object ID"      string  upper-case hex of named 0x0003 in the meeting set {6ED8DA90-450B-101B-98DA-00AA003F1305}
#include <string_view>

namespace qh::ItemKeys {

// Contacts.
inline constexpr std::string_view kDisplayName = "Display Name";
inline constexpr std::string_view kNamePrefix = "Name Prefix";
inline constexpr std::string_view kGivenName = "Given Name";
inline constexpr std::string_view kMiddleName = "Middle Name";
inline constexpr std::string_view kSurname = "Surname";
inline constexpr std::string_view kNameSuffix = "Name Suffix";
inline constexpr std::string_view kNickname = "Nickname";
inline constexpr std::string_view kFileAs = "File As";
inline constexpr std::string_view kCompanyName = "Company Name";
inline constexpr std::string_view kDepartment = "Department";
inline constexpr std::string_view kJobTitle = "Job Title";
inline constexpr std::string_view kEmail1 = "Contact Email 1";
inline constexpr std::string_view kEmail1Name = "Contact Email 1 Name";
inline constexpr std::string_view kEmail2 = "Contact Email 2";
inline constexpr std::string_view kEmail2Name = "Contact Email 2 Name";
inline constexpr std::string_view kEmail3 = "Contact Email 3";
inline constexpr std::string_view kEmail3Name = "Contact Email 3 Name";
inline constexpr std::string_view kWorkPhone = "Work Phone";
inline constexpr std::string_view kHomePhone = "Home Phone";
inline constexpr std::string_view kMobilePhone = "Mobile Phone";
inline constexpr std::string_view kWorkFax = "Work Fax";
inline constexpr std::string_view kHomeFax = "Home Fax";
inline constexpr std::string_view kWorkStreet = "Work Street";
inline constexpr std::string_view kWorkCity = "Work City";
inline constexpr std::string_view kWorkState = "Work State";
inline constexpr std::string_view kWorkPostalCode = "Work Postal Code";
inline constexpr std::string_view kWorkCountry = "Work Country";
inline constexpr std::string_view kHomeStreet = "Home Street";
inline constexpr std::string_view kHomeCity = "Home City";
inline constexpr std::string_view kHomeState = "Home State";
inline constexpr std::string_view kHomePostalCode = "Home Postal Code";
inline constexpr std::string_view kHomeCountry = "Home Country";
inline constexpr std::string_view kWebPage = "Web Page";
inline constexpr std::string_view kBirthday = "Birthday";
inline constexpr std::string_view kNotes = "Notes";

// Appointments.
inline constexpr std::string_view kStartTime = "Start Time";
inline constexpr std::string_view kEndTime = "End Time";
inline constexpr std::string_view kLocation = "Location";
inline constexpr std::string_view kAllDay = "All Day";
inline constexpr std::string_view kBusyStatus = "Busy Status";
inline constexpr std::string_view kRecurrenceType = "Recurrence Type";
inline constexpr std::string_view kRecurrencePattern = "Recurrence Pattern";
inline constexpr std::string_view kRecurrenceRule = "Recurrence Rule";
inline constexpr std::string_view kReminderMinutes = "Reminder Minutes";
inline constexpr std::string_view kOrganizer = "Organizer";
inline constexpr std::string_view kAttendees = "Attendees";
inline constexpr std::string_view kGlobalObjectId = "Global Object ID";

}  // namespace qh::ItemKeys
