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
    // Recipients are read in UTF-16 only: an 8-bit name stays empty.
    std::optional<Blob> data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, kTypeUnicode, &storage);
    if (!data) return std::nullopt;
    return DataWangers::getStringFromData(data->view(), StringEncoding::UTF16LE, functionName, location);
}
}  // namespace

Array MsgRecipients::getRecipientsForMessage(const Dict& root) {
    Array recipients;
    std::int32_t index = 0;
    for (const auto& [name, value] : root) {
        if (!hasPrefixIgnoringCase(name, kRecipientPrefix)) continue;
        const Dict* storage = value.dict();
        if (!storage) continue;
        std::optional<std::string> displayName =
            unicodeProperty(*storage, kDisplayName, "getRecipientsForMessage:outer", index);
        std::string address;
        std::int32_t candidateIndex = 0;
        // An Exchange distinguished name in 0x3003 fails validation and gives way to the SMTP address.
        for (std::uint32_t candidate : {kEmailAddress, kSmtpAddress}) {
            std::optional<std::string> text =
                unicodeProperty(*storage, candidate, "getRecipientsForMessage:inner", candidateIndex++);
            if (text && !text->empty()) {
                std::string cleaned = StringWangers::zapGremlins(*text).value_or("");
                address = WebWangers::validateEmailAddress(cleaned) ? cleaned : "";
            }
            if (!address.empty()) break;
        }
        std::optional<std::string> cleanName =
            displayName ? StringWangers::zapGremlins(*displayName) : std::nullopt;
        std::optional<std::string> cleanAddress = StringWangers::zapGremlins(address);
        recipients.push_back(Value(buildAddressFromTags(cleanName, cleanAddress)));
        ++index;
    }
    return recipients;
}

}  // namespace qh
