#include "util/AddressLists.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/SystemInfo.h"
#include "core/TextEncoding.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"

namespace qh {

namespace {

std::string withoutCharacters(std::string_view text, std::string_view unwanted) {
    std::string out;
    out.reserve(text.size());
    for (char c : text)
        if (unwanted.find(c) == std::string_view::npos) out += c;
    return out;
}

// What a link "mailto:ADDR" may hold: the characters of RFC 3986 and escapes.
bool formsLink(std::string_view address) {
    static constexpr std::string_view kAllowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~:/?#[]@!$&'()*+,;=";
    auto isHex = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); };
    for (std::size_t i = 0; i < address.size(); ++i) {
        char c = address[i];
        if (c == '%') {
            if (i + 2 >= address.size() || !isHex(address[i + 1]) || !isHex(address[i + 2])) return false;
            i += 2;
            continue;
        }
        if (kAllowed.find(c) == std::string_view::npos) return false;
    }
    return true;
}


}  // namespace

// The quoted display names of an address list, left to right, as the pattern
// "(\([^)]*\)|[^"])*" finds them with a backtracking matcher: inside the
// quotes, a parenthesised part (up to its first ")") is tried before a single
// character, so a quote inside parentheses does not end the name unless
// nothing after it would. Plain code with the same results (the tests compare
// it with the pattern): compiling any regular expression costs a process its
// first 7.5 million instructions, more than reading a whole message.
std::vector<std::pair<std::size_t, std::size_t>> findQuotedNames(std::string_view text) {
    const std::size_t n = text.size();
    constexpr std::size_t kNoMatch = std::string_view::npos;
    // end[p]: where the name ends (after its closing quote) when the matcher
    // stands inside quotes at p; kNoMatch when it fails from there. Each
    // position depends only on later ones, so one pass from the right.
    std::vector<std::size_t> end(n + 1, kNoMatch);
    std::size_t nextClose = kNoMatch;  // the first ')' at or after p + 1
    for (std::size_t p = n; p-- > 0;) {
        std::size_t result = kNoMatch;
        if (text[p] == '(' && nextClose != kNoMatch) result = end[nextClose + 1];
        if (result == kNoMatch) result = text[p] == '"' ? p + 1 : end[p + 1];
        end[p] = result;
        if (text[p] == ')') nextClose = p;
    }
    std::vector<std::pair<std::size_t, std::size_t>> names;
    for (std::size_t start = 0; start < n; ++start) {
        if (text[start] != '"' || end[start + 1] == kNoMatch) continue;
        names.emplace_back(start, end[start + 1] - start);
        start = end[start + 1] - 1;
    }
    return names;
}

Array processEmailAddresses(std::string_view header) {
    std::string text;
    text.reserve(header.size());
    for (char c : header)
        if (c != '\n' && c != '\r' && c != '\f' && c != '\t') text += c;
    // Pairs of blanks go, left to right: a run of three leaves one.
    std::string collapsed;
    collapsed.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ' && i + 1 < text.size() && text[i + 1] == ' ') {
            ++i;
            continue;
        }
        collapsed += text[i];
    }
    const auto matches = findQuotedNames(collapsed);

    Array entries;
    const std::string_view all = collapsed;
    if (matches.empty()) {
        std::size_t position = 0;
        while (true) {
            std::size_t comma = all.find(',', position);
            entries.emplace_back(createEmailDictionary(all.substr(position, comma - position)));
            if (comma == std::string_view::npos) break;
            position = comma + 1;
        }
        return entries;
    }
    // Cut at the start of every quoted name; the commas stay in the pieces.
    std::size_t start = 0;
    for (const auto& [location, length] : matches) {
        std::string_view piece = all.substr(start, location - start);
        if (!piece.empty()) entries.emplace_back(createEmailDictionary(piece));
        start = location;
    }
    entries.emplace_back(createEmailDictionary(all.substr(start)));
    return entries;
}

Dict createEmailDictionary(std::string_view text) {
    std::string name, address;
    std::size_t open = text.find('<');
    if (open == std::string_view::npos) {
        name = TextEncoding::trimWhitespaceAndNewlines(text);
        address = withoutCharacters(text, " ");
    } else {
        std::size_t close = text.find('<', open + 1);
        std::string_view second = text.substr(open + 1, close == std::string_view::npos ? close : close - open - 1);
        name = WebWangers::decodeUTF8B(withoutCharacters(text.substr(0, open), ",\">'"));
        address = withoutCharacters(second, " ,\">");
    }
    // A name that is empty or still an encoded word (another charset) shows the address.
    if (name.empty() || name[0] == '=') name = address;
    return Dict{{keys::kName, std::move(name)}, {keys::kAddress, std::move(address)}};
}

Dict buildAddressFromTags(std::optional<std::string_view> name, std::optional<std::string_view> address) {
    Dict record;
    if (name && !name->empty()) {
        record.set(keys::kName, *name);
        if (address) record.set(keys::kAddress, *address);
    } else if (address && !address->empty()) {
        record.set(keys::kName, name ? *name : *address);
        record.set(keys::kAddress, *address);
    } else {
        record.set(keys::kName, "");
        record.set(keys::kAddress, "");
    }
    return record;
}

std::string buildHTMLContactList(const Value& list) {
    const Array* entries = list.array();
    return entries ? buildHTMLContactList(*entries) : std::string();
}

std::string buildHTMLContactList(const Array& list) {
    std::string out;
    for (const Value& entry : list) {
        const Dict* record = entry.dict();
        const std::string* name = record ? record->findString(keys::kName) : nullptr;
        const std::string* address = record ? record->findString(keys::kAddress) : nullptr;
        const bool link = address && formsLink(*address);
        if (link) out += "<a href=\"mailto:" + *address + "\">";
        if (name) out += *name;
        else if (address) out += *address;
        if (link) out += "</a>";
        out += ", ";
    }
    if (out.size() >= 3) out.resize(out.size() - 2);
    return out;
}

std::string buildContactList(const Array& list) {
    std::string out;
    for (const Value& entry : list) {
        const Dict* record = entry.dict();
        const std::string* name = record ? record->findString(keys::kName) : nullptr;
        const std::string* address = record ? record->findString(keys::kAddress) : nullptr;
        if (!out.empty()) out += ", ";
        if (name && !name->empty()) {
            out += *name;
            if (address && !address->empty() && *address != *name) out += " <" + *address + ">";
        } else if (address) {
            out += *address;
        }
    }
    return out;
}

bool typeIsHTML(ByteView text) {
    std::optional<std::string> string = StringWangers::stringFromCString(text);
    return string && TextEncoding::lowercase(*string).find("<html") != std::string::npos;
}

bool typeIsHTML(const char* text) {
    std::optional<std::string> string = StringWangers::stringFromCString(text);
    return string && TextEncoding::lowercase(*string).find("<html") != std::string::npos;
}

std::string makeUTF8(ByteView utf16le) {
    const std::size_t n = utf16le.size();
    std::string out;
    // A length of 1 gives only the terminator; 0 never comes from the TNEF
    // reader (and would wrap the bound below).
    if (n < 2) return out;
    out.reserve(n * 3 / 2);
    // classic: every character derives from the first byte, not from the
    // code unit at its position; the classic TNEF reading's 0x001F property
    // texts are made so.
    const auto first = static_cast<std::int8_t>(utf16le[0]);
    for (std::size_t i = 0; i < n - 1; i += 2) {
        const auto v = static_cast<std::uint32_t>(std::int64_t(first) + std::int64_t(i));
        if (v <= 0x7F) {
            out += char((std::uint8_t(utf16le[0]) + i) & 0x7F);
        } else if (v <= 0x7FE) {
            out += char(0xC0 | (v >> 6 & 0x1F));
            out += char(0x80 | (v & 0x3F));
        } else {
            out += char(0xE0 | (v >> 12 & 0x0F));
            out += char(0x80 | (v >> 6 & 0x3F));
            out += char(0x80 | (v & 0x3F));
        }
    }
    return out;
}

std::string getTempCacheDirectory() {
    const std::string caches = SystemInfo::userCachesDirectory();
    const std::string folder = caches + "/Quillhaven";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error && std::filesystem::is_directory(folder, error)) return folder;
    if (!error) error = std::make_error_code(std::errc::not_a_directory);
    Log::line("Failed to create directory \"" + folder + "\". Error: " + error.message() +
              " - Cached file saved in general cache folder.");
    return caches;
}

}  // namespace qh
