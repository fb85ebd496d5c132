#include "readers/msg/Recipients.h"

#include <optional>
#include <string>

#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "readers/msg/PropertyAccess.h"
#include "util/AddressLists.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"

namespace qh {

using namespace msgformat;

bool MsgRecipients::hasPrefixIgnoringCase(std::string_view name, std::string_view prefix) {
    if (name.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char a = name[i], b = prefix[i];
        if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
        if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
        if (a != b) return false;
    }
    return true;
}

namespace {
std::optional<std::string> unicodeProperty(const Dict& storage, std::uint32_t element, const char* functionName,
                                           std::int32_t location) {
    std::optional<Blob> data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, kTypeUnicode, &storage);
    if (!data) return std::nullopt;
    return DataWangers::getStringFromData(data->view(), StringEncoding::UTF16LE, functionName, location);
}

// classic: names and addresses in UTF-16 only (an 8-bit name stays empty),
// the first of 0x3003 and 0x39FE that validates as an address.
Dict unicodeOnlyRecord(const Dict& storage, std::int32_t index) {
    std::optional<std::string> displayName =
        unicodeProperty(storage, kDisplayName, "getRecipientsForMessage:outer", index);
    std::string address;
    std::int32_t candidateIndex = 0;
    // An Exchange distinguished name in 0x3003 fails validation and gives way to the SMTP address.
    for (std::uint32_t candidate : {kEmailAddress, kSmtpAddress}) {
        std::optional<std::string> text =
            unicodeProperty(storage, candidate, "getRecipientsForMessage:inner", candidateIndex++);
        if (text && !text->empty()) {
            std::string cleaned = StringWangers::zapGremlins(*text).value_or("");
            address = WebWangers::validateEmailAddress(cleaned) ? cleaned : "";
        }
        if (!address.empty()) break;
    }
    std::optional<std::string> cleanName = displayName ? StringWangers::zapGremlins(*displayName) : std::nullopt;
    std::optional<std::string> cleanAddress = StringWangers::zapGremlins(address);
    return buildAddressFromTags(cleanName, cleanAddress);
}

// complete: either string type in the message's code page; the SMTP address
// (0x39FE), else the address when its type (0x3002) is SMTP, never an
// Exchange distinguished name.
Dict eitherStringRecord(const Dict& storage, const MsgText& text) {
    std::optional<std::string> name = text.find(kDisplayName, kTypeUnicode, &storage);
    std::optional<std::string> address = text.find(kSmtpAddress, kTypeUnicode, &storage);
    if (!address) {
        std::optional<std::string> type = text.find(kAddressType, kTypeUnicode, &storage);
        std::optional<std::string> stored = text.find(kEmailAddress, kTypeUnicode, &storage);
        // Without a type, an address that reads as one is taken; "EX" and
        // the other types hold directory names and fax numbers.
        const bool smtp = type ? TextEncoding::equalsIgnoringCase(*type, "SMTP")
                               : stored && WebWangers::validateEmailAddress(*stored);
        if (smtp) address = stored;
    }
    // Both keys always, as every record of the complete reading has them.
    return buildAddressFromTags(name, std::string_view(address ? *address : std::string()));
}

Array* listFor(MsgRecipients::Lists& lists, const Dict& storage) {
    ByteView properties = MsgPropertyAccess::propertyStreamOf(&storage);
    auto type = MsgPropertyAccess::findFixedProperty(kRecipientType, kTypeInteger32, properties,
                                                     kRecipientPropertyHeaderSize);
    // The high bits flag resent and submitted recipients; a recipient without
    // a type is a To recipient.
    switch (type ? MsgPropertyAccess::integerOf(*type) & 0xFF : 0) {
        case kRecipientTypeCc: return &lists.cc;
        case kRecipientTypeBcc: return &lists.bcc;
        default: return &lists.to;
    }
}
}  // namespace

Array MsgRecipients::getRecipientsForMessage(const Dict& root) {
    return recipientsForMessage(root, MsgText(MsgRules::classic())).to;
}

MsgRecipients::Lists MsgRecipients::recipientsForMessage(const Dict& root, const MsgText& text) {
    Lists lists;
    const bool byType = text.rules().recipients == MsgRules::Recipients::ByTypeEitherString;
    std::int32_t index = 0;
    for (const auto& [name, value] : root) {
        if (!hasPrefixIgnoringCase(name, kRecipientPrefix)) continue;
        const Dict* storage = value.dict();
        if (!storage) continue;
        if (byType) {
            listFor(lists, *storage)->push_back(Value(eitherStringRecord(*storage, text)));
        } else {
            lists.to.push_back(Value(unicodeOnlyRecord(*storage, index)));
        }
        ++index;
    }
    return lists;
}

}  // namespace qh
