#include "util/Rfc2047.h"

#include "util/Base64Codec.h"
#include "util/Ascii.h"
#include "util/MimeCharset.h"

namespace qh::rfc2047 {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// A charset name is a token: no blanks, controls or tspecials that would end it.
bool isTokenChar(char c) {
    return static_cast<unsigned char>(c) > 0x20 && static_cast<unsigned char>(c) < 0x7F && c != '?' && c != '(' &&
           c != ')' && c != '<' && c != '>' && c != '@' && c != ',' && c != ';' && c != ':' && c != '"' &&
           c != '/' && c != '[' && c != ']' && c != '=';
}

}  // namespace

Bytes decodeQ(std::string_view text) {
    Bytes out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '_') {
            out.push_back(' ');
        } else if (c == '=' && i + 2 < text.size() && ascii::hexValue(text[i + 1]) >= 0 && ascii::hexValue(text[i + 2]) >= 0) {
            out.push_back(static_cast<std::uint8_t>(ascii::hexValue(text[i + 1]) * 16 + ascii::hexValue(text[i + 2])));
            i += 2;
        } else {
            out.push_back(static_cast<std::uint8_t>(c));
        }
    }
    return out;
}

bool parseEncodedWord(std::string_view& cursor, EncodedWord& out) {
    std::string_view in = cursor;
    if (in.size() < 8 || in.substr(0, 2) != "=?") return false;
    in.remove_prefix(2);
    std::size_t nameEnd = 0;
    while (nameEnd < in.size() && isTokenChar(in[nameEnd])) ++nameEnd;
    if (nameEnd == 0 || nameEnd >= in.size() || in[nameEnd] != '?') return false;
    std::string_view charset = in.substr(0, nameEnd);
    in.remove_prefix(nameEnd + 1);
    if (in.size() < 2 || in[1] != '?') return false;
    const char encoding = in[0];
    if (encoding != 'B' && encoding != 'b' && encoding != 'Q' && encoding != 'q') return false;
    in.remove_prefix(2);
    std::size_t textEnd = 0;
    while (textEnd < in.size() && in[textEnd] != '?' && !isBlank(in[textEnd])) ++textEnd;
    if (textEnd + 1 >= in.size() || in[textEnd] != '?' || in[textEnd + 1] != '=') return false;
    std::string_view encoded = in.substr(0, textEnd);
    in.remove_prefix(textEnd + 2);

    std::size_t star = charset.find('*');
    out.charset = std::string(charset.substr(0, star));
    out.language = star == std::string_view::npos ? std::string() : std::string(charset.substr(star + 1));
    out.bytes = (encoding == 'B' || encoding == 'b') ? NewBase64Decode(asBytes(encoded)) : decodeQ(encoded);
    cursor = in;
    return true;
}

std::string decodeText(std::string_view text) {
    // Raw 8-bit header text: UTF-8 as it stands, else the sender's Windows-1252.
    std::string owned;
    if (!MimeCharset::isValidUTF8(text)) {
        owned = MimeCharset::decodeWindows1252(asBytes(text));
        text = owned;
    }
    if (text.find("=?") == std::string_view::npos) return std::string(text);

    std::string out;
    out.reserve(text.size());
    std::string_view cursor = text;
    while (!cursor.empty()) {
        EncodedWord word;
        if (!parseEncodedWord(cursor, word)) {
            out.push_back(cursor.front());
            cursor.remove_prefix(1);
            continue;
        }
        // Gather the words that follow with only white space between them: the
        // space is dropped, and words of one charset are converted together.
        std::string charset = std::move(word.charset);
        Bytes run = std::move(word.bytes);
        while (true) {
            std::string_view after = cursor;
            while (!after.empty() && isBlank(after.front())) after.remove_prefix(1);
            EncodedWord next;
            if (!parseEncodedWord(after, next)) break;
            cursor = after;
            if (ascii::equalsIgnoringCase(next.charset, charset)) {
                run.insert(run.end(), next.bytes.begin(), next.bytes.end());
            } else {
                out += MimeCharset::decode(run, charset);
                charset = std::move(next.charset);
                run = std::move(next.bytes);
            }
        }
        out += MimeCharset::decode(run, charset);
    }
    return out;
}

std::string encodeWord(std::string_view utf8) {
    std::size_t escapes = 0;
    bool plain = true;
    for (unsigned char c : utf8) {
        bool printable = c >= 0x20 && c < 0x7F;
        if (!printable) plain = false;
        if (!printable || c == '=' || c == '?' || c == '_' || c == '"') ++escapes;
    }
    if (plain && utf8.find("=?") == std::string_view::npos) return std::string(utf8);
    if (escapes * 3 > utf8.size()) return "=?UTF-8?B?" + NewBase64Encode(asBytes(utf8), false) + "?=";
    static const char kHex[] = "0123456789ABCDEF";
    std::string out = "=?UTF-8?Q?";
    for (unsigned char c : utf8) {
        if (c == ' ') {
            out.push_back('_');
        } else if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '!' ||
                   c == '*' || c == '+' || c == '-' || c == '/') {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('=');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
    return out + "?=";
}

}  // namespace qh::rfc2047
