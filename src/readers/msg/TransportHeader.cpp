#include "readers/msg/TransportHeader.h"

#include <vector>

#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "util/AddressLists.h"
#include "util/WebWangers.h"

namespace qh {

namespace {
std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (true) {
        std::size_t found = text.find(separator, start);
        if (found == std::string_view::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, found - start));
        start = found + separator.size();
    }
}

void removeAll(std::string& text, std::string_view what) {
    std::string out;
    out.reserve(text.size());
    std::size_t start = 0;
    while (true) {
        std::size_t found = text.find(what, start);
        if (found == std::string::npos) break;
        out.append(text, start, found - start);
        start = found + what.size();
    }
    out.append(text, start, std::string::npos);
    text.swap(out);
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

void trimRecords(Array& list) {
    for (Value& entry : list) {
        Dict* record = entry.dict();
        if (!record) continue;
        for (std::string_view key : {keys::kName, keys::kAddress}) {
            if (const std::string* text = record->findString(key)) {
                record->set(std::string(key), Value(TextEncoding::trimWhitespaceAndNewlines(*text)));
            }
        }
    }
}

}  // namespace

std::string MsgTransportHeader::decodeSubject(const std::string& value) {
    std::vector<std::string_view> pieces = split(value, "=?iso-8859-1?Q?");
    if (pieces.size() == 1) pieces = split(value, "=?UTF-8?Q?");
    if (pieces.size() == 1) return value;
    // classic: the text before the first encoded word is dropped, in both
    // readings (the header's subject stands in only when the message has none).
    std::string joined;
    for (std::size_t i = 1; i < pieces.size(); ++i) joined += pieces[i];
    removeAll(joined, " ");
    removeAll(joined, "\n");
    removeAll(joined, "?=");
    for (char& c : joined) {
        if (c == '_') c = ' ';
    }
    return WebWangers::decodeQuotedPrintableString(joined, "quoted-printable");
}

Dict MsgTransportHeader::parse(std::string_view header, MsgRules::HeaderFields fields) {
    Dict parsed;
    std::string pendingName;
    std::string pendingValue;
    auto file = [&] {
        if (pendingName.empty() || pendingValue.empty()) return;
        // Address fields under their upper-case names ("TO", "FROM", "CC",
        // "BCC"); Date and Subject only when written in that case.
        const std::string name = upper(pendingName);
        auto addresses = [&] {
            Array list = processEmailAddresses(pendingValue);
            // classic: names keep the blank before "<address>"; complete: trimmed.
            if (fields == MsgRules::HeaderFields::EveryField) trimRecords(list);
            return Value(std::move(list));
        };
        for (std::string_view key : {keys::kHeaderTo, keys::kHeaderFrom, keys::kCC, keys::kBCC}) {
            if (name == key) parsed.set(std::string(key), addresses());
        }
        if (fields == MsgRules::HeaderFields::EveryField && name == "REPLY-TO") {
            parsed.set(std::string(keys::kReplyTo), addresses());
        }
        if (pendingName == keys::kDate) {
            parsed.set(std::string(keys::kDate), Value(pendingValue));
        } else if (pendingName == keys::kSubject) {
            parsed.set(std::string(keys::kSubject), Value(decodeSubject(pendingValue)));
        }
    };
    for (std::string_view line : split(header, "\n")) {
        std::string firstWord = TextEncoding::trimWhitespaceAndNewlines(line.substr(0, line.find(' ')));
        if (firstWord.empty() || firstWord.back() != ':') {
            // A continuation, and also a field written without a blank after its colon.
            pendingValue += '\n';
            pendingValue += line;
            continue;
        }
        file();
        std::size_t colon = line.find(':');
        pendingName = std::string(line.substr(0, colon));
        pendingValue = TextEncoding::trimWhitespaceAndNewlines(line.substr(colon + 1));
    }
    // classic: the field still pending here is not filed, so a header ending
    // in "Subject:" yields no subject; readers of these dictionaries rely on it.
    if (fields == MsgRules::HeaderFields::EveryField) file();
    return parsed;
}

}  // namespace qh
