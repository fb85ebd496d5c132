#include "JsonWriter.h"

#include <array>
#include <charconv>
#include <cstring>

#include <nlohmann/json.hpp>

namespace qhcli {

namespace {

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two base64 characters for every 12-bit value: one lookup per half of a 3-byte group.
const std::array<char, 8192>& base64Pairs() {
    static const std::array<char, 8192> table = [] {
        std::array<char, 8192> pairs{};
        for (unsigned v = 0; v < 4096; ++v) {
            pairs[2 * v] = kBase64Alphabet[v >> 6];
            pairs[2 * v + 1] = kBase64Alphabet[v & 63];
        }
        return pairs;
    }();
    return table;
}

void appendBase64(qh::ByteView bytes, std::string& out) {
    const auto& pairs = base64Pairs();
    std::size_t start = out.size();
    out.resize(start + (bytes.size() + 2) / 3 * 4);
    char* dst = out.data() + start;
    const std::uint8_t* src = bytes.data();
    std::size_t whole = bytes.size() / 3 * 3;
    for (std::size_t i = 0; i < whole; i += 3, dst += 4) {
        std::uint32_t group = (std::uint32_t(src[i]) << 16) | (std::uint32_t(src[i + 1]) << 8) | src[i + 2];
        std::memcpy(dst, &pairs[2 * (group >> 12)], 2);
        std::memcpy(dst + 2, &pairs[2 * (group & 0xFFF)], 2);
    }
    std::size_t rest = bytes.size() - whole;
    if (rest == 0) return;
    std::uint32_t group = std::uint32_t(src[whole]) << 16;
    if (rest == 2) group |= std::uint32_t(src[whole + 1]) << 8;
    dst[0] = kBase64Alphabet[group >> 18];
    dst[1] = kBase64Alphabet[(group >> 12) & 63];
    dst[2] = rest == 2 ? kBase64Alphabet[(group >> 6) & 63] : '=';
    dst[3] = '=';
}

// Length of the well-formed UTF-8 sequence starting at text[i] (Unicode
// table 3-7: no overlong forms, no surrogates, nothing above U+10FFFF), or 0.
std::size_t utf8SequenceLength(std::string_view text, std::size_t i) {
    auto at = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned char lead = at(i);
    std::size_t length;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (text.size() - i < length) return 0;
    if (at(i + 1) < low || at(i + 1) > high) return 0;
    for (std::size_t k = 2; k < length; ++k)
        if (at(i + k) < 0x80 || at(i + k) > 0xBF) return 0;
    return length;
}

// Bytes that end a run of text copied as it is.
const std::array<bool, 256>& specialBytes() {
    static const std::array<bool, 256> table = [] {
        std::array<bool, 256> special{};
        for (int b = 0; b < 0x20; ++b) special[b] = true;
        for (int b = 0x80; b < 0x100; ++b) special[b] = true;
        special['"'] = special['\\'] = true;
        return special;
    }();
    return table;
}

// Appends the escaped string; false (with `out` unchanged) when it holds invalid UTF-8.
bool appendValidString(std::string_view text, std::string& out) {
    static constexpr char kHex[] = "0123456789abcdef";
    const auto& special = specialBytes();
    const std::size_t start = out.size();
    out.push_back('"');
    std::size_t run = 0;
    for (std::size_t i = 0; i < text.size();) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (!special[byte]) {
            ++i;
            continue;
        }
        out.append(text.data() + run, i - run);
        if (byte >= 0x80) {
            std::size_t length = utf8SequenceLength(text, i);
            if (length == 0) {
                out.resize(start);
                return false;
            }
            out.append(text.data() + i, length);
            i += length;
        } else {
            switch (byte) {
                case '"': out += "\\\""; break;
                case '\\': out += "\\\\"; break;
                case '\b': out += "\\b"; break;
                case '\f': out += "\\f"; break;
                case '\n': out += "\\n"; break;
                case '\r': out += "\\r"; break;
                case '\t': out += "\\t"; break;
                default:
                    out += "\\u00";
                    out.push_back(kHex[byte >> 4]);
                    out.push_back(kHex[byte & 15]);
            }
            ++i;
        }
        run = i;
    }
    out.append(text.data() + run, text.size() - run);
    out.push_back('"');
    return true;
}

}  // namespace

void JsonWriter::appendString(std::string_view text, std::string& out) {
    if (appendValidString(text, out)) return;
    // Rare: let the JSON library decide how each broken sequence is replaced.
    out += nlohmann::json(std::string(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void JsonWriter::append(const qh::Value& value, std::string& out) {
    struct Visitor {
        std::string& out;
        void operator()(std::monostate) const { out += "null"; }
        void operator()(const std::string& text) const { appendString(text, out); }
        void operator()(std::int64_t number) const {
            char buffer[24];
            auto end = std::to_chars(buffer, buffer + sizeof buffer, number).ptr;
            out.append(buffer, end);
        }
        void operator()(bool flag) const { out += flag ? "true" : "false"; }
        void operator()(const qh::Blob& bytes) const {
            out += "{\"$base64\":\"";
            appendBase64(bytes.view(), out);
            out += "\"}";
        }
        // Fractions and dates are rare and have their own formatting rules: the value's own text.
        void operator()(double) const { out += value.toJsonText(); }
        void operator()(const qh::Date&) const { out += value.toJsonText(); }
        void operator()(const qh::Array& array) const {
            out.push_back('[');
            for (std::size_t i = 0; i < array.size(); ++i) {
                if (i) out.push_back(',');
                append(array[i], out);
            }
            out.push_back(']');
        }
        void operator()(const qh::Dict& dict) const {
            out.push_back('{');
            bool first = true;
            for (const auto& [key, item] : dict) {
                if (!first) out.push_back(',');
                first = false;
                appendString(key, out);
                out.push_back(':');
                append(item, out);
            }
            out.push_back('}');
        }
        const qh::Value& value;
    };
    std::visit(Visitor{out, value}, value.storage());
}

std::string JsonWriter::text(const qh::Value& value) {
    std::string out;
    append(value, out);
    return out;
}

}  // namespace qhcli
