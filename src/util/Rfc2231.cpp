#include "util/Rfc2231.h"

#include <algorithm>
#include <map>

#include <quillhaven/Bytes.h>
#include "util/Ascii.h"
#include "util/MimeCharset.h"
#include "util/Rfc2047.h"

namespace qh::rfc2231 {

namespace {

// Continuations one parameter may have, and distinct parameters one value
// may have: a real name needs a handful of sections, a real header a few
// parameters; beyond these the rest is ignored (the search by name is linear).
constexpr int kMaxSections = 1000;
constexpr std::size_t kMaxParameters = 64;

bool isTspecial(char c) {
    return c == '(' || c == ')' || c == '<' || c == '>' || c == '@' || c == ',' || c == ';' || c == ':' ||
           c == '\\' || c == '"' || c == '/' || c == '[' || c == ']' || c == '?' || c == '=';
}

void skipBlanks(std::string_view& cursor) {
    while (!cursor.empty() && (cursor.front() == ' ' || cursor.front() == '\t' || cursor.front() == '\r' ||
                               cursor.front() == '\n')) {
        cursor.remove_prefix(1);
    }
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

std::string trimmed(std::string_view text) {
    skipBlanks(text);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n')) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

}  // namespace

bool parseToken(std::string_view& cursor, std::string& out) {
    std::size_t end = 0;
    while (end < cursor.size()) {
        unsigned char c = static_cast<unsigned char>(cursor[end]);
        if (c <= 0x20 || c == 0x7F || isTspecial(static_cast<char>(c))) break;
        ++end;
    }
    if (end == 0) return false;
    out.assign(cursor.substr(0, end));
    cursor.remove_prefix(end);
    return true;
}

bool parseQuotedString(std::string_view& cursor, std::string& out) {
    if (cursor.empty() || cursor.front() != '"') return false;
    std::string value;
    std::size_t i = 1;
    while (i < cursor.size()) {
        // A run of plain characters in one piece.
        std::size_t run = i;
        while (run < cursor.size() && cursor[run] != '"' && cursor[run] != '\\' && cursor[run] != '\r' &&
               cursor[run] != '\n') {
            ++run;
        }
        value.append(cursor.substr(i, run - i));
        i = run;
        if (i == cursor.size()) break;
        char c = cursor[i];
        if (c == '"') break;
        if (c == '\\' && i + 1 < cursor.size()) c = cursor[++i];
        ++i;
        if (c == '\r' || c == '\n') continue;  // folding inside the quotes
        value.push_back(c);
    }
    out = std::move(value);
    cursor.remove_prefix(std::min(i + 1, cursor.size()));
    return true;
}

bool parseParameter(std::string_view& cursor, RawParameter& out) {
    std::string_view in = cursor;
    skipBlanks(in);
    std::string attribute;
    // The attribute is a token without "*": the section and the extended mark follow it.
    std::size_t end = 0;
    while (end < in.size()) {
        unsigned char c = static_cast<unsigned char>(in[end]);
        if (c <= 0x20 || c == 0x7F || c == '*' || isTspecial(static_cast<char>(c))) break;
        ++end;
    }
    if (end == 0) return false;
    RawParameter parameter;
    parameter.name = asciiLower(in.substr(0, end));
    in.remove_prefix(end);
    if (!in.empty() && in.front() == '*') {
        in.remove_prefix(1);
        std::size_t digits = 0;
        while (digits < in.size() && digits < 6 && in[digits] >= '0' && in[digits] <= '9') ++digits;
        if (digits > 0) {
            parameter.section = std::stoi(std::string(in.substr(0, digits)));
            in.remove_prefix(digits);
            if (!in.empty() && in.front() == '*') {
                parameter.extended = true;
                in.remove_prefix(1);
            }
        } else {
            parameter.extended = true;
        }
    }
    skipBlanks(in);
    if (in.empty() || in.front() != '=') return false;
    in.remove_prefix(1);
    skipBlanks(in);
    if (!parseQuotedString(in, parameter.value)) {
        // token, or (in the wild) anything up to the next ";"
        std::size_t stop = in.find(';');
        parameter.value = trimmed(in.substr(0, stop));
        in.remove_prefix(stop == std::string_view::npos ? in.size() : stop);
    }
    out = std::move(parameter);
    cursor = in;
    return true;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && ascii::hexValue(text[i + 1]) >= 0 && ascii::hexValue(text[i + 2]) >= 0) {
            out.push_back(static_cast<char>(ascii::hexValue(text[i + 1]) * 16 + ascii::hexValue(text[i + 2])));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

const std::string* ContentValue::parameter(std::string_view name) const {
    for (const auto& [key, value] : parameters) {
        if (key == name) return &value;
    }
    return nullptr;
}

ContentValue parseContentValue(std::string_view text) {
    ContentValue result;
    std::size_t semicolon = text.find(';');
    result.value = asciiLower(trimmed(text.substr(0, semicolon)));
    if (semicolon == std::string_view::npos) return result;
    std::string_view cursor = text.substr(semicolon + 1);

    // Parameters by name, their sections in order; the plain form of a name
    // and its sections are kept apart so that the RFC 2231 form wins.
    struct Gathered {
        std::string plain;
        bool hasPlain = false;
        std::map<int, std::pair<bool, std::string>> sections;  // section -> (extended, value)
    };
    std::vector<std::pair<std::string, Gathered>> gathered;
    gathered.reserve(4);  // a real value has one to three parameters
    auto entry = [&](std::string&& name) -> Gathered& {
        for (auto& [key, value] : gathered) {
            if (key == name) return value;
        }
        gathered.emplace_back(std::move(name), Gathered{});
        return gathered.back().second;
    };
    while (!cursor.empty()) {
        RawParameter parameter;
        if (parseParameter(cursor, parameter) && gathered.size() < kMaxParameters) {
            Gathered& target = entry(std::move(parameter.name));
            if (parameter.section < 0 && !parameter.extended) {
                if (!target.hasPlain) {
                    target.plain = std::move(parameter.value);
                    target.hasPlain = true;
                }
            } else if (parameter.section < kMaxSections) {
                int section = parameter.section < 0 ? 0 : parameter.section;
                target.sections.emplace(section, std::make_pair(parameter.extended, std::move(parameter.value)));
            }
        }
        // On to the next ";" (what is left of a malformed parameter is skipped).
        std::size_t next = cursor.find(';');
        if (next == std::string_view::npos) break;
        cursor.remove_prefix(next + 1);
    }

    result.parameters.reserve(gathered.size());
    for (auto& [name, found] : gathered) {
        std::string value;
        if (!found.sections.empty()) {
            // charset'language' leads the first section when it is extended.
            std::string charset;
            std::string bytes;
            bool first = true;
            for (auto& [section, piece] : found.sections) {
                auto& [extended, raw] = piece;
                std::string_view part = raw;
                if (first && extended) {
                    std::size_t quote = part.find('\'');
                    std::size_t second = quote == std::string_view::npos ? quote : part.find('\'', quote + 1);
                    if (second != std::string_view::npos) {
                        charset = std::string(part.substr(0, quote));
                        part.remove_prefix(second + 1);
                    }
                }
                first = false;
                bytes += extended ? percentDecode(part) : std::string(part);
            }
            value = charset.empty() ? MimeCharset::utf8OrWindows1252(bytes) : MimeCharset::decode(asBytes(bytes), charset);
        } else {
            value = rfc2047::decodeText(found.plain);
        }
        result.parameters.emplace_back(std::move(name), std::move(value));
    }
    return result;
}

}  // namespace qh::rfc2231
