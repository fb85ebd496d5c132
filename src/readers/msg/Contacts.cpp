#include "readers/msg/Contacts.h"

#include <quillhaven/ItemKeys.h>
#include "readers/msg/Format.h"
#include "readers/msg/ItemProperties.h"

namespace qh {

using namespace msgformat;
namespace keys = ItemKeys;

Dict MsgContacts::buildContactsForMessage(const Dict& root, bool embedded, const MsgText& text) {
    MsgItemProperties properties(root, embedded, text);
    Dict item;
    auto tag = [&](std::string_view key, std::uint32_t id) { MsgItemProperties::put(item, key, properties.string(id)); };
    auto named = [&](std::string_view key, std::uint32_t id) {
        MsgItemProperties::put(item, key, properties.namedString(kPsetAddress, id));
    };

    tag(keys::kDisplayName, kDisplayName);
    tag(keys::kNamePrefix, kDisplayNamePrefix);
    tag(keys::kGivenName, kGivenName);
    tag(keys::kMiddleName, kMiddleName);
    tag(keys::kSurname, kSurname);
    tag(keys::kNameSuffix, kGeneration);
    tag(keys::kNickname, kNickname);
    named(keys::kFileAs, kLidFileUnder);
    tag(keys::kCompanyName, kCompanyName);
    tag(keys::kDepartment, kDepartmentName);
    tag(keys::kJobTitle, kTitle);

    named(keys::kEmail1, kLidEmail1Address);
    named(keys::kEmail1Name, kLidEmail1DisplayName);
    named(keys::kEmail2, kLidEmail2Address);
    named(keys::kEmail2Name, kLidEmail2DisplayName);
    named(keys::kEmail3, kLidEmail3Address);
    named(keys::kEmail3Name, kLidEmail3DisplayName);

    tag(keys::kWorkPhone, kBusinessTelephone);
    tag(keys::kHomePhone, kHomeTelephone);
    tag(keys::kMobilePhone, kMobileTelephone);
    tag(keys::kWorkFax, kBusinessFax);
    tag(keys::kHomeFax, kHomeFax);

    // The work address lives in named properties; older items keep only the
    // business address tags.
    struct AddressPart {
        std::string_view key;
        std::uint32_t named;
        std::uint32_t tag;
    };
    for (const AddressPart& part : {AddressPart{keys::kWorkStreet, kLidWorkAddressStreet, kStreetAddress},
                                    AddressPart{keys::kWorkCity, kLidWorkAddressCity, kLocality},
                                    AddressPart{keys::kWorkState, kLidWorkAddressState, kStateOrProvince},
                                    AddressPart{keys::kWorkPostalCode, kLidWorkAddressPostalCode, kPostalCode},
                                    AddressPart{keys::kWorkCountry, kLidWorkAddressCountry, kCountry}}) {
        std::optional<std::string> value = properties.namedString(kPsetAddress, part.named);
        if (!value) value = properties.string(part.tag);
        MsgItemProperties::put(item, part.key, value);
    }
    tag(keys::kHomeStreet, kHomeAddressStreet);
    tag(keys::kHomeCity, kHomeAddressCity);
    tag(keys::kHomeState, kHomeAddressState);
    tag(keys::kHomePostalCode, kHomeAddressPostalCode);
    tag(keys::kHomeCountry, kHomeAddressCountry);

    std::optional<std::string> web = properties.string(kBusinessHomePage);
    if (!web) web = properties.namedString(kPsetAddress, kLidHtml);
    MsgItemProperties::put(item, keys::kWebPage, web);
    if (std::optional<Date> birthday = properties.time(kBirthday)) item.set(std::string(keys::kBirthday), Value(*birthday));
    tag(keys::kNotes, kBody);
    return item;
}

}  // namespace qh
