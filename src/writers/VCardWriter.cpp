#include <quillhaven/VCardWriter.h>

#include <quillhaven/ItemKeys.h>
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include <quillhaven/ICalendarWriter.h>

namespace qh {

namespace {
std::string text(const Dict& item, std::string_view key) {
    const std::string* value = item.findString(key);
    return value ? *value : std::string();
}

void addLine(std::string& out, std::string_view nameAndParameters, std::string_view value) {
    std::string line(nameAndParameters);
    line += ':';
    line += value;
    out += ICalendarWriter::foldLine(line);
}

void addText(std::string& out, const Dict& item, std::string_view property, std::string_view key) {
    std::string value = text(item, key);
    if (!value.empty()) addLine(out, property, ICalendarWriter::escapeText(value));
}

// Structured values: each component escaped, joined by semicolons.
std::string components(const Dict& item, std::initializer_list<std::string_view> keyList) {
    std::string out;
    bool first = true;
    for (std::string_view key : keyList) {
        if (!first) out += ';';
        first = false;
        if (!key.empty()) out += ICalendarWriter::escapeText(text(item, key));
    }
    return out;
}

bool anyOf(const Dict& item, std::initializer_list<std::string_view> keyList) {
    for (std::string_view key : keyList) {
        if (!text(item, key).empty()) return true;
    }
    return false;
}
}  // namespace

std::string VCardWriter::write(const Dict& item) {
    std::string out;
    out += "BEGIN:VCARD\r\n";
    out += "VERSION:3.0\r\n";
    addLine(out, "N",
            components(item, {ItemKeys::kSurname, ItemKeys::kGivenName, ItemKeys::kMiddleName, ItemKeys::kNamePrefix, ItemKeys::kNameSuffix}));

    // FN is required: the display name, else the parts, else what else names the card.
    std::string formatted = text(item, ItemKeys::kDisplayName);
    if (formatted.empty()) {
        for (std::string_view key : {ItemKeys::kNamePrefix, ItemKeys::kGivenName, ItemKeys::kMiddleName, ItemKeys::kSurname,
                                     ItemKeys::kNameSuffix}) {
            std::string part = text(item, key);
            if (part.empty()) continue;
            if (!formatted.empty()) formatted += ' ';
            formatted += part;
        }
    }
    for (std::string_view key : {ItemKeys::kFileAs, ItemKeys::kCompanyName, ItemKeys::kEmail1, keys::kSubject}) {
        if (!formatted.empty()) break;
        formatted = text(item, key);
    }
    addLine(out, "FN", ICalendarWriter::escapeText(formatted));

    addText(out, item, "NICKNAME", ItemKeys::kNickname);
    if (anyOf(item, {ItemKeys::kCompanyName, ItemKeys::kDepartment})) {
        addLine(out, "ORG", components(item, {ItemKeys::kCompanyName, ItemKeys::kDepartment}));
    }
    addText(out, item, "TITLE", ItemKeys::kJobTitle);

    bool preferred = true;
    for (std::string_view key : {ItemKeys::kEmail1, ItemKeys::kEmail2, ItemKeys::kEmail3}) {
        std::string address = text(item, key);
        if (address.empty()) continue;
        addLine(out, preferred ? "EMAIL;TYPE=INTERNET,PREF" : "EMAIL;TYPE=INTERNET",
                ICalendarWriter::escapeText(address));
        preferred = false;
    }

    addText(out, item, "TEL;TYPE=WORK,VOICE", ItemKeys::kWorkPhone);
    addText(out, item, "TEL;TYPE=HOME,VOICE", ItemKeys::kHomePhone);
    addText(out, item, "TEL;TYPE=CELL,VOICE", ItemKeys::kMobilePhone);
    addText(out, item, "TEL;TYPE=WORK,FAX", ItemKeys::kWorkFax);
    addText(out, item, "TEL;TYPE=HOME,FAX", ItemKeys::kHomeFax);

    // ADR: post office box; extended address; street; locality; region; postal code; country.
    if (anyOf(item, {ItemKeys::kWorkStreet, ItemKeys::kWorkCity, ItemKeys::kWorkState, ItemKeys::kWorkPostalCode, ItemKeys::kWorkCountry})) {
        addLine(out, "ADR;TYPE=WORK",
                components(item, {"", "", ItemKeys::kWorkStreet, ItemKeys::kWorkCity, ItemKeys::kWorkState, ItemKeys::kWorkPostalCode,
                                  ItemKeys::kWorkCountry}));
    }
    if (anyOf(item, {ItemKeys::kHomeStreet, ItemKeys::kHomeCity, ItemKeys::kHomeState, ItemKeys::kHomePostalCode, ItemKeys::kHomeCountry})) {
        addLine(out, "ADR;TYPE=HOME",
                components(item, {"", "", ItemKeys::kHomeStreet, ItemKeys::kHomeCity, ItemKeys::kHomeState, ItemKeys::kHomePostalCode,
                                  ItemKeys::kHomeCountry}));
    }
    if (std::string web = text(item, ItemKeys::kWebPage); !web.empty()) {
        addLine(out, "URL", ICalendarWriter::cleanValue(web));
    }
    if (const Value* birthday = item.find(ItemKeys::kBirthday); birthday && birthday->date()) {
        std::string day = ICalendarWriter::dayOf(*birthday->date());
        addLine(out, "BDAY", day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6, 2));
    }
    if (std::string notes = TextEncoding::trimWhitespaceAndNewlines(text(item, ItemKeys::kNotes)); !notes.empty()) {
        addLine(out, "NOTE", ICalendarWriter::escapeText(notes));
    }
    out += "END:VCARD\r\n";
    return out;
}

}  // namespace qh
