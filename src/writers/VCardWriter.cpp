#include "writers/VCardWriter.h"

#include "core/ItemKeys.h"
#include "core/TextEncoding.h"
#include "writers/ICalendarWriter.h"

namespace qh {

namespace keys = ItemKeys;

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
            components(item, {keys::kSurname, keys::kGivenName, keys::kMiddleName, keys::kNamePrefix, keys::kNameSuffix}));

    // FN is required: the display name, else the parts, else what else names the card.
    std::string formatted = text(item, keys::kDisplayName);
    if (formatted.empty()) {
        for (std::string_view key : {keys::kNamePrefix, keys::kGivenName, keys::kMiddleName, keys::kSurname,
                                     keys::kNameSuffix}) {
            std::string part = text(item, key);
            if (part.empty()) continue;
            if (!formatted.empty()) formatted += ' ';
            formatted += part;
        }
    }
    for (std::string_view key : {keys::kFileAs, keys::kCompanyName, keys::kEmail1, std::string_view("Subject")}) {
        if (!formatted.empty()) break;
        formatted = text(item, key);
    }
    addLine(out, "FN", ICalendarWriter::escapeText(formatted));

    addText(out, item, "NICKNAME", keys::kNickname);
    if (anyOf(item, {keys::kCompanyName, keys::kDepartment})) {
        addLine(out, "ORG", components(item, {keys::kCompanyName, keys::kDepartment}));
    }
    addText(out, item, "TITLE", keys::kJobTitle);

    bool preferred = true;
    for (std::string_view key : {keys::kEmail1, keys::kEmail2, keys::kEmail3}) {
        std::string address = text(item, key);
        if (address.empty()) continue;
        addLine(out, preferred ? "EMAIL;TYPE=INTERNET,PREF" : "EMAIL;TYPE=INTERNET",
                ICalendarWriter::escapeText(address));
        preferred = false;
    }

    addText(out, item, "TEL;TYPE=WORK,VOICE", keys::kWorkPhone);
    addText(out, item, "TEL;TYPE=HOME,VOICE", keys::kHomePhone);
    addText(out, item, "TEL;TYPE=CELL,VOICE", keys::kMobilePhone);
    addText(out, item, "TEL;TYPE=WORK,FAX", keys::kWorkFax);
    addText(out, item, "TEL;TYPE=HOME,FAX", keys::kHomeFax);

    // ADR: post office box; extended address; street; locality; region; postal code; country.
    if (anyOf(item, {keys::kWorkStreet, keys::kWorkCity, keys::kWorkState, keys::kWorkPostalCode, keys::kWorkCountry})) {
        addLine(out, "ADR;TYPE=WORK",
                components(item, {"", "", keys::kWorkStreet, keys::kWorkCity, keys::kWorkState, keys::kWorkPostalCode,
                                  keys::kWorkCountry}));
    }
    if (anyOf(item, {keys::kHomeStreet, keys::kHomeCity, keys::kHomeState, keys::kHomePostalCode, keys::kHomeCountry})) {
        addLine(out, "ADR;TYPE=HOME",
                components(item, {"", "", keys::kHomeStreet, keys::kHomeCity, keys::kHomeState, keys::kHomePostalCode,
                                  keys::kHomeCountry}));
    }
    if (std::string web = text(item, keys::kWebPage); !web.empty()) {
        addLine(out, "URL", ICalendarWriter::cleanValue(web));
    }
    if (const Value* birthday = item.find(keys::kBirthday); birthday && birthday->date()) {
        std::string day = ICalendarWriter::dayOf(*birthday->date());
        addLine(out, "BDAY", day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6, 2));
    }
    if (std::string notes = TextEncoding::trimWhitespaceAndNewlines(text(item, keys::kNotes)); !notes.empty()) {
        addLine(out, "NOTE", ICalendarWriter::escapeText(notes));
    }
    out += "END:VCARD\r\n";
    return out;
}

}  // namespace qh
