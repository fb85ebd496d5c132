#include "core/TextEncoding.h"

#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <unicode/locid.h>
#include <unicode/ucnv.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include "core/ByteWords.h"

namespace qh {

namespace {

constexpr std::int32_t kUnmapped = -1;

void appendUTF8(std::string& out, UChar32 c) {
    char buffer[4];
    std::int32_t length = 0;
    U8_APPEND_UNSAFE(buffer, length, c);
    out.append(buffer, static_cast<std::size_t>(length));
}

using words::asciiPrefix;

// A single-byte code page as two tables built once from ICU's converter.
struct SingleByteTable {
    std::array<std::int32_t, 256> toUnicode{};
    std::unordered_map<UChar32, std::uint8_t> fromUnicode;
    bool valid = false;
};

// The Windows code pages decoded through a table of their 256 bytes.
bool isSingleByteCodePage(StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::Windows1250:
        case StringEncoding::Windows1251:
        case StringEncoding::Windows1252:
        case StringEncoding::Windows1253:
        case StringEncoding::Windows1254:
        case StringEncoding::Windows1255: return true;
        default: return false;
    }
}

const SingleByteTable* singleByteTable(StringEncoding encoding) {
    const char* name = nullptr;
    switch (encoding) {
        case StringEncoding::Windows1250: name = "windows-1250"; break;
        case StringEncoding::Windows1251: name = "windows-1251"; break;
        case StringEncoding::Windows1252: name = "windows-1252"; break;
        case StringEncoding::Windows1253: name = "windows-1253"; break;
        case StringEncoding::Windows1254: name = "windows-1254"; break;
        case StringEncoding::Windows1255: name = "windows-1255"; break;
        default: return nullptr;
    }
    static std::mutex mutex;
    static std::unordered_map<std::string, std::unique_ptr<SingleByteTable>> tables;
    std::lock_guard lock(mutex);
    auto& slot = tables[name];
    if (slot) return slot->valid ? slot.get() : nullptr;
    slot = std::make_unique<SingleByteTable>();
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(name, &status);
    if (U_FAILURE(status)) return nullptr;
    ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    for (int byte = 0; byte < 256; ++byte) {
        char in = static_cast<char>(byte);
        UChar out[4];
        status = U_ZERO_ERROR;
        ucnv_resetToUnicode(converter);
        std::int32_t n = ucnv_toUChars(converter, out, 4, &in, 1, &status);
        std::int32_t mapped = (U_SUCCESS(status) && n == 1) ? out[0] : kUnmapped;
        slot->toUnicode[byte] = mapped;
        if (mapped != kUnmapped && !slot->fromUnicode.count(mapped)) slot->fromUnicode[mapped] = std::uint8_t(byte);
    }
    ucnv_close(converter);
    for (int byte = 0; byte < 0x80; ++byte)
        if (slot->toUnicode[byte] != byte) return nullptr;
    slot->valid = true;
    return slot.get();
}

std::optional<std::string> decodeUTF16(ByteView bytes, bool bigEndian) {
    if (bytes.size() % 2) return std::nullopt;
    std::string out;
    out.reserve(bytes.size());
    const std::size_t count = bytes.size() / 2;
    auto unit = [&](std::size_t k) -> std::uint16_t {
        return bigEndian ? std::uint16_t(bytes[2 * k] << 8 | bytes[2 * k + 1])
                         : std::uint16_t(bytes[2 * k + 1] << 8 | bytes[2 * k]);
    };
    for (std::size_t k = 0; k < count; ++k) {
        UChar32 c = unit(k);
        if (U16_IS_LEAD(c)) {
            if (k + 1 >= count || !U16_IS_TRAIL(unit(k + 1))) return std::nullopt;
            c = U16_GET_SUPPLEMENTARY(c, unit(k + 1));
            ++k;
        } else if (U16_IS_TRAIL(c)) {
            return std::nullopt;
        }
        appendUTF8(out, c);
    }
    return out;
}

// Calls `visit` with each code point of valid UTF-8; false on an invalid sequence.
template <class Visit>
bool forEachCodePoint(std::string_view text, Visit visit) {
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t i = 0;
    while (i < length) {
        UChar32 c;
        U8_NEXT(s, i, length, c);
        if (c < 0) return false;
        if (!visit(c)) return false;
    }
    return true;
}

void appendUTF16(Bytes& out, char16_t unit, bool bigEndian) {
    if (bigEndian) {
        out.push_back(std::uint8_t(unit >> 8));
        out.push_back(std::uint8_t(unit));
    } else {
        out.push_back(std::uint8_t(unit));
        out.push_back(std::uint8_t(unit >> 8));
    }
}

std::optional<Bytes> encodeUTF16(std::string_view text, bool bigEndian, bool byteOrderMark) {
    Bytes out;
    out.reserve(text.size() * 2 + 2);
    if (byteOrderMark) appendUTF16(out, 0xFEFF, bigEndian);
    bool ok = forEachCodePoint(text, [&](UChar32 c) {
        if (c > 0xFFFF) {
            appendUTF16(out, U16_LEAD(c), bigEndian);
            appendUTF16(out, U16_TRAIL(c), bigEndian);
        } else {
            appendUTF16(out, char16_t(c), bigEndian);
        }
        return true;
    });
    if (!ok) return std::nullopt;
    return out;
}

struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};

std::optional<std::string> decodeWithConverter(ByteView bytes, const char* name) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UConverter, ConverterCloser> converter(ucnv_open(name, &status));
    if (U_FAILURE(status) || !converter) return std::nullopt;
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    if (U_FAILURE(status)) return std::nullopt;
    if (bytes.size() > static_cast<std::size_t>(INT32_MAX / 2)) return std::nullopt;
    std::u16string units;
    units.resize(bytes.size() * 2 + 16);
    const char* source = reinterpret_cast<const char*>(bytes.data());
    const char* sourceEnd = source + bytes.size();
    UChar* target = reinterpret_cast<UChar*>(units.data());
    UChar* targetStart = target;
    while (true) {
        UChar* targetEnd = targetStart + units.size();
        ucnv_toUnicode(converter.get(), &target, targetEnd, &source, sourceEnd, nullptr, true, &status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            std::size_t used = std::size_t(target - targetStart);
            units.resize(units.size() * 2);
            targetStart = reinterpret_cast<UChar*>(units.data());
            target = targetStart + used;
            status = U_ZERO_ERROR;
            continue;
        }
        break;
    }
    if (U_FAILURE(status)) return std::nullopt;
    units.resize(std::size_t(target - targetStart));
    return TextEncoding::fromUTF16(units);
}

}  // namespace

std::optional<StringEncoding> TextEncoding::fromCodePageConstant(std::uint32_t codePage) {
    switch (codePage) {
        case 0x0500: return StringEncoding::Windows1252;
        case 0x0501: return StringEncoding::Windows1250;
        case 0x0502: return StringEncoding::Windows1251;
        case 0x0503: return StringEncoding::Windows1253;
        case 0x0504: return StringEncoding::Windows1254;
        case 0x0505: return StringEncoding::Windows1255;
        case 0x0600: return StringEncoding::ASCII;
        case 0x0201: return StringEncoding::Latin1;
        case 0x0100: return StringEncoding::UTF16;
        case 0x08000100: return StringEncoding::UTF8;
        case 0x10000100: return StringEncoding::UTF16BE;
        case 0x14000100: return StringEncoding::UTF16LE;
        default: return std::nullopt;
    }
}

bool TextEncoding::isSupported(StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::ASCII:
        case StringEncoding::UTF8:
        case StringEncoding::Latin1:
        case StringEncoding::UTF16:
        case StringEncoding::UTF16BE:
        case StringEncoding::UTF16LE:
            return true;
        case StringEncoding::Windows1250:
        case StringEncoding::Windows1251:
        case StringEncoding::Windows1252:
        case StringEncoding::Windows1253:
        case StringEncoding::Windows1254:
        case StringEncoding::Windows1255:
            return singleByteTable(encoding) != nullptr;
    }
    return false;
}

bool TextEncoding::isValidUTF8(std::string_view text) {
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const std::size_t length = text.size();
    std::size_t i = 0;
    while (i < length) {
        // ASCII runs are the common case; skip them eight bytes at a time.
        i += asciiPrefix(s + i, length - i);
        // Then the multi-byte sequences that follow each other: two- and
        // three-byte ones (most of the world's text) checked inline.
        while (i < length && s[i] >= 0x80) {
            const std::uint8_t lead = s[i];
            if (lead >= 0xC2 && lead <= 0xDF) {
                if (length - i < 2 || (s[i + 1] & 0xC0) != 0x80) return false;
                i += 2;
            } else if (lead >= 0xE0 && lead <= 0xEF) {
                const std::uint8_t low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
                if (length - i < 3 || s[i + 1] < low || s[i + 1] > high || (s[i + 2] & 0xC0) != 0x80) return false;
                i += 3;
            } else {
                UChar32 c;
                auto at = static_cast<std::int64_t>(i);
                U8_NEXT(s, at, static_cast<std::int64_t>(length), c);
                if (c < 0) return false;
                i = static_cast<std::size_t>(at);
            }
        }
    }
    return true;
}

std::optional<std::string> TextEncoding::decode(ByteView bytes, StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::ASCII:
            if (asciiPrefix(bytes.data(), bytes.size()) != bytes.size()) return std::nullopt;
            return std::string(asText(bytes));
        case StringEncoding::UTF8:
            if (!isValidUTF8(asText(bytes))) return std::nullopt;
            return std::string(asText(bytes));
        case StringEncoding::Latin1: {
            std::string out;
            out.reserve(bytes.size() + bytes.size() / 4);
            for (std::size_t i = 0; i < bytes.size();) {
                std::size_t run = asciiPrefix(bytes.data() + i, bytes.size() - i);
                out.append(reinterpret_cast<const char*>(bytes.data() + i), run);
                i += run;
                if (i < bytes.size()) appendUTF8(out, bytes[i++]);
            }
            return out;
        }
        case StringEncoding::UTF16: {
            if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) return decodeUTF16(bytes.subspan(2), true);
            if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) return decodeUTF16(bytes.subspan(2), false);
            return decodeUTF16(bytes, false);
        }
        case StringEncoding::UTF16BE: return decodeUTF16(bytes, true);
        case StringEncoding::UTF16LE: return decodeUTF16(bytes, false);
        default: break;
    }
    // Every listed code page keeps ASCII as it is: text that is all ASCII
    // needs no table (building one opens an ICU converter and asks it about
    // every byte, a tenth of a small one-file run).
    if (asciiPrefix(bytes.data(), bytes.size()) == bytes.size() && isSingleByteCodePage(encoding))
        return std::string(asText(bytes));
    const SingleByteTable* table = singleByteTable(encoding);
    if (!table) return std::nullopt;
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 2);
    // Copy the ASCII runs whole.
    for (std::size_t i = 0; i < bytes.size();) {
        std::size_t run = asciiPrefix(bytes.data() + i, bytes.size() - i);
        out.append(reinterpret_cast<const char*>(bytes.data() + i), run);
        i += run;
        if (i >= bytes.size()) break;
        std::int32_t c = table->toUnicode[bytes[i++]];
        if (c == kUnmapped) return std::nullopt;
        appendUTF8(out, c);
    }
    return out;
}

std::optional<Bytes> TextEncoding::encode(std::string_view text, StringEncoding encoding) {
    switch (encoding) {
        case StringEncoding::ASCII:
        case StringEncoding::UTF8: {
            if (!isValidUTF8(text)) return std::nullopt;
            if (encoding == StringEncoding::ASCII)
                for (char c : text)
                    if (static_cast<unsigned char>(c) > 0x7F) return std::nullopt;
            return toBytes(text);
        }
        case StringEncoding::Latin1: {
            Bytes out;
            out.reserve(text.size());
            bool ok = forEachCodePoint(text, [&](UChar32 c) {
                if (c > 0xFF) return false;
                out.push_back(std::uint8_t(c));
                return true;
            });
            if (!ok) return std::nullopt;
            return out;
        }
        case StringEncoding::UTF16: return encodeUTF16(text, false, true);
        case StringEncoding::UTF16BE: return encodeUTF16(text, true, false);
        case StringEncoding::UTF16LE: return encodeUTF16(text, false, false);
        default: break;
    }
    const SingleByteTable* table = singleByteTable(encoding);
    if (!table) return std::nullopt;
    Bytes out;
    out.reserve(text.size());
    bool ok = forEachCodePoint(text, [&](UChar32 c) {
        auto it = table->fromUnicode.find(c);
        if (it == table->fromUnicode.end()) return false;
        out.push_back(it->second);
        return true;
    });
    if (!ok) return std::nullopt;
    return out;
}

std::optional<std::string> TextEncoding::decodeCharset(ByteView bytes, std::string_view charsetName) {
    std::string name(trimWhitespaceAndNewlines(charsetName));
    if (name.empty() || name.size() > 64 || name.find('\0') != std::string::npos) return std::nullopt;
    std::string lower;
    for (char c : name) lower += (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    if (lower == "utf-8" || lower == "utf8") return decode(bytes, StringEncoding::UTF8);
    if (lower == "us-ascii" || lower == "ascii") return decode(bytes, StringEncoding::ASCII);
    if (lower == "iso-8859-1" || lower == "latin1") return decode(bytes, StringEncoding::Latin1);
    if (lower == "utf-16") return decode(bytes, StringEncoding::UTF16);
    if (lower == "utf-16le") return decode(bytes, StringEncoding::UTF16LE);
    if (lower == "utf-16be") return decode(bytes, StringEncoding::UTF16BE);
    for (auto [charset, encoding] : {std::pair{"windows-1250", StringEncoding::Windows1250},
                                     std::pair{"windows-1251", StringEncoding::Windows1251},
                                     std::pair{"windows-1252", StringEncoding::Windows1252},
                                     std::pair{"windows-1253", StringEncoding::Windows1253},
                                     std::pair{"windows-1254", StringEncoding::Windows1254},
                                     std::pair{"windows-1255", StringEncoding::Windows1255}})
        if (lower == charset) return decode(bytes, encoding);
    return decodeWithConverter(bytes, name.c_str());
}

std::optional<std::string> TextEncoding::decodeCodePage(ByteView bytes, std::uint32_t codePage) {
    switch (codePage) {
        case 65001: return decode(bytes, StringEncoding::UTF8);
        case 1200: return decode(bytes, StringEncoding::UTF16LE);
        case 1201: return decode(bytes, StringEncoding::UTF16BE);
        case 20127: return decode(bytes, StringEncoding::ASCII);
        case 28591: return decode(bytes, StringEncoding::Latin1);
        case 1250: return decode(bytes, StringEncoding::Windows1250);
        case 1251: return decode(bytes, StringEncoding::Windows1251);
        case 1252: return decode(bytes, StringEncoding::Windows1252);
        case 1253: return decode(bytes, StringEncoding::Windows1253);
        case 1254: return decode(bytes, StringEncoding::Windows1254);
        case 1255: return decode(bytes, StringEncoding::Windows1255);
        default: break;
    }
    for (const char* prefix : {"windows-", "cp", "ibm-"}) {
        std::string name = prefix + std::to_string(codePage);
        UErrorCode status = U_ZERO_ERROR;
        UConverter* probe = ucnv_open(name.c_str(), &status);
        if (U_SUCCESS(status) && probe) {
            ucnv_close(probe);
            return decodeWithConverter(bytes, name.c_str());
        }
        if (probe) ucnv_close(probe);
    }
    return std::nullopt;
}

std::string TextEncoding::sanitizeUTF8(std::string_view text) {
    if (isValidUTF8(text)) return std::string(text);
    std::string out;
    out.reserve(text.size() + 8);
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t i = 0;
    while (i < length) {
        UChar32 c;
        U8_NEXT_OR_FFFD(s, i, length, c);
        appendUTF8(out, c);
    }
    return out;
}

std::u16string TextEncoding::toUTF16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t i = 0;
    while (i < length) {
        if (s[i] < 0x80) {
            out.push_back(char16_t(s[i++]));
            continue;
        }
        UChar32 c;
        U8_NEXT_OR_FFFD(s, i, length, c);
        if (c > 0xFFFF) {
            out.push_back(char16_t(U16_LEAD(c)));
            out.push_back(char16_t(U16_TRAIL(c)));
        } else {
            out.push_back(char16_t(c));
        }
    }
    return out;
}

std::string TextEncoding::fromUTF16(std::u16string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    const std::size_t count = text.size();
    for (std::size_t k = 0; k < count; ++k) {
        UChar32 c = text[k];
        if (c < 0x80) {
            out.push_back(char(c));
            continue;
        }
        if (U16_IS_LEAD(c) && k + 1 < count && U16_IS_TRAIL(text[k + 1])) {
            c = U16_GET_SUPPLEMENTARY(c, text[k + 1]);
            ++k;
        } else if (U16_IS_SURROGATE(c)) {
            c = 0xFFFD;
        }
        appendUTF8(out, c);
    }
    return out;
}

std::size_t TextEncoding::utf16Length(std::string_view text) {
    std::size_t units = 0;
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t i = 0;
    while (i < length) {
        const auto run = static_cast<std::int32_t>(asciiPrefix(s + i, static_cast<std::size_t>(length - i)));
        i += run;
        units += static_cast<std::size_t>(run);
        if (i >= length) break;
        UChar32 c;
        U8_NEXT_OR_FFFD(s, i, length, c);
        units += c > 0xFFFF ? 2 : 1;
    }
    return units;
}

bool TextEncoding::isWhitespaceOrNewline(char32_t c) {
    return u_isUWhiteSpace(static_cast<UChar32>(c));
}

std::string TextEncoding::trimWhitespaceAndNewlines(std::string_view text) {
    const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    std::int32_t start = 0;
    while (start < length) {
        std::int32_t next = start;
        UChar32 c;
        U8_NEXT(s, next, length, c);
        if (c < 0 || !u_isUWhiteSpace(c)) break;
        start = next;
    }
    std::int32_t end = length;
    while (end > start) {
        std::int32_t previous = end;
        UChar32 c;
        U8_PREV(s, start, previous, c);
        if (c < 0 || !u_isUWhiteSpace(c)) break;
        end = previous;
    }
    return std::string(text.substr(std::size_t(start), std::size_t(end - start)));
}

std::optional<std::string> TextEncoding::removePercentEncoding(std::string_view text) {
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::size_t percent = text.find('%');
    if (percent == std::string_view::npos) {
        if (!isValidUTF8(text)) return std::nullopt;
        return std::string(text);
    }
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (percent != std::string_view::npos) {
        out.append(text.substr(i, percent - i));
        if (percent + 2 >= text.size()) return std::nullopt;
        int high = hexValue(text[percent + 1]), low = hexValue(text[percent + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(char(high << 4 | low));
        i = percent + 3;
        percent = text.find('%', i);
    }
    out.append(text.substr(i));
    if (!isValidUTF8(out)) return std::nullopt;
    return out;
}

namespace {
icu::UnicodeString toUnicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}
std::string toUTF8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}
}  // namespace

std::string TextEncoding::lowercase(std::string_view text) {
    return toUTF8(toUnicode(text).toLower(icu::Locale::getRoot()));
}

std::string TextEncoding::uppercase(std::string_view text) {
    return toUTF8(toUnicode(text).toUpper(icu::Locale::getRoot()));
}

std::string TextEncoding::foldCase(std::string_view text) {
    return toUTF8(toUnicode(text).foldCase(U_FOLD_CASE_DEFAULT));
}

bool TextEncoding::equalsIgnoringCase(std::string_view a, std::string_view b) {
    return compareIgnoringCase(a, b) == 0;
}

int TextEncoding::compareIgnoringCase(std::string_view a, std::string_view b) {
    std::int8_t order = toUnicode(a).caseCompare(toUnicode(b), U_FOLD_CASE_DEFAULT);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

std::size_t TextEncoding::findIgnoringASCIICase(std::string_view text, std::string_view needle, std::size_t from) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; };
    if (needle.empty()) return from <= text.size() ? from : std::string_view::npos;
    if (text.size() < needle.size()) return std::string_view::npos;
    const char first = lower(needle[0]);
    // Eight bytes at a time while none can be the first character: a letter's
    // two cases differ only in bit 0x20, so with that bit set in every byte
    // one comparison finds both.
    const std::uint64_t fold = (first >= 'a' && first <= 'z') ? words::kOnes * 0x20 : 0;
    const std::size_t last = text.size() - needle.size();
    for (std::size_t i = from; i <= last; ++i) {
        while (last - i >= 8 && !words::anyEqual(words::load(text.data() + i) | fold, static_cast<unsigned char>(first)))
            i += 8;
        if (lower(text[i]) != first) continue;
        std::size_t k = 1;
        while (k < needle.size() && lower(text[i + k]) == lower(needle[k])) ++k;
        if (k == needle.size()) return i;
    }
    return std::string_view::npos;
}

}  // namespace qh
