#include "readers/msg/Appointments.h"

#include <cctype>

#include <quillhaven/ItemKeys.h>
#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/msg/ItemProperties.h"
#include "readers/msg/PropertyAccess.h"
#include "readers/msg/Recipients.h"
#include "readers/msg/Recurrence.h"
#include "util/AddressLists.h"
#include "util/WebWangers.h"

namespace qh {

using namespace msgformat;
namespace keys = ItemKeys;

namespace {
const char* busyStatusName(std::uint32_t status) {
    switch (status) {
        case 0: return "FREE";
        case 1: return "TENTATIVE";
        case 2: return "BUSY";
        case 3: return "OOF";
        case 4: return "WORKINGELSEWHERE";
        default: return nullptr;
    }
}

void appendNames(Array& attendees, const std::optional<std::string>& list) {
    if (!list) return;
    std::size_t start = 0;
    while (start <= list->size()) {
        std::size_t end = list->find(';', start);
        if (end == std::string::npos) end = list->size();
        std::string name = TextEncoding::trimWhitespaceAndNewlines(std::string_view(*list).substr(start, end - start));
        if (!name.empty()) attendees.push_back(Value(Dict{{"Name", Value(name)}, {"Address", Value("")}}));
        start = end + 1;
    }
}
}  // namespace

Dict MsgAppointments::buildAppointmentForMessage(const Dict& root, bool embedded, const MsgText& text) {
    MsgItemProperties properties(root, embedded, text);
    Dict item;
    if (auto start = properties.namedTime(kPsetAppointment, kLidAppointmentStartWhole)) {
        item.set(std::string(keys::kStartTime), Value(*start));
    }
    if (auto end = properties.namedTime(kPsetAppointment, kLidAppointmentEndWhole)) {
        item.set(std::string(keys::kEndTime), Value(*end));
    }
    MsgItemProperties::put(item, keys::kLocation, properties.namedString(kPsetAppointment, kLidLocation));
    if (auto allDay = properties.namedBoolean(kPsetAppointment, kLidAppointmentSubType)) {
        item.set(std::string(keys::kAllDay), Value(*allDay));
    }
    if (auto status = properties.namedInteger(kPsetAppointment, kLidBusyStatus)) {
        if (const char* name = busyStatusName(*status)) item.set(std::string(keys::kBusyStatus), Value(name));
    }
    if (auto type = properties.namedInteger(kPsetAppointment, kLidRecurrenceType)) {
        item.set(std::string(keys::kRecurrenceType), Value(static_cast<std::int64_t>(*type)));
    }
    MsgItemProperties::put(item, keys::kRecurrencePattern,
                           properties.namedString(kPsetAppointment, kLidRecurrencePattern));
    if (auto blob = properties.namedBinary(kPsetAppointment, kLidAppointmentRecur)) {
        MsgItemProperties::put(item, keys::kRecurrenceRule, MsgRecurrence::ruleFromPattern(blob->view()));
    }
    if (properties.namedBoolean(kPsetCommon, kLidReminderSet).value_or(false)) {
        if (auto minutes = properties.namedInteger(kPsetCommon, kLidReminderDelta)) {
            item.set(std::string(keys::kReminderMinutes), Value(static_cast<std::int64_t>(*minutes)));
        }
    }

    // The organizer is the item's sender.
    std::optional<std::string> organizerName = properties.string(kSenderName);
    std::string organizerAddress;
    for (std::uint32_t candidate : {kSenderSmtp, kSenderEmail, kSentRepresentingEmail}) {
        std::optional<std::string> text = properties.string(candidate);
        if (text && WebWangers::validateEmailAddress(*text)) {
            organizerAddress = *text;
            break;
        }
    }
    if (organizerName || !organizerAddress.empty()) {
        item.set(std::string(keys::kOrganizer),
                 Value(buildAddressFromTags(organizerName ? std::optional<std::string_view>(*organizerName)
                                                          : std::nullopt,
                                            std::string_view(organizerAddress))));
    }

    Array attendees = MsgRecipients::getRecipientsForMessage(root);
    if (attendees.empty()) {
        appendNames(attendees, properties.namedString(kPsetAppointment, kLidToAttendeesString));
        appendNames(attendees, properties.namedString(kPsetAppointment, kLidCcAttendeesString));
    }
    if (!attendees.empty()) item.set(std::string(keys::kAttendees), Value(std::move(attendees)));

    if (auto id = properties.namedBinary(kPsetMeeting, kLidGlobalObjectId)) {
        static constexpr char kHex[] = "0123456789ABCDEF";
        std::string hex;
        hex.reserve(id->size() * 2);
        for (std::uint8_t byte : id->view()) {
            hex += kHex[byte >> 4];
            hex += kHex[byte & 15];
        }
        item.set(std::string(keys::kGlobalObjectId), Value(std::move(hex)));
    }
    return item;
}

}  // namespace qh
