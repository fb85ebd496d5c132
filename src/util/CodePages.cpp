#include "util/CodePages.h"

#include <array>

#include <unicode/ucnv.h>

#include "core/TextEncoding.h"

namespace qh {

namespace {
// Code pages whose ICU converter is not found under "windows-<number>".
struct NamedCodePage {
    std::uint32_t codePage;
    const char* name;
};
constexpr NamedCodePage kNamed[] = {
    {437, "cp437"},        {850, "cp850"},        {852, "cp852"},        {855, "cp855"},
    {857, "cp857"},        {860, "cp860"},        {861, "cp861"},        {862, "cp862"},
    {863, "cp863"},        {865, "cp865"},        {866, "cp866"},        {869, "cp869"},
    {10000, "macintosh"},  {20127, "US-ASCII"},   {20866, "koi8-r"},     {21866, "koi8-u"},
    {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"}, {28593, "ISO-8859-3"}, {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"}, {28596, "ISO-8859-6"}, {28597, "ISO-8859-7"}, {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"}, {28605, "ISO-8859-15"},
    // The three Japanese ISO-2022 variants of Windows differ in how they write
    // half-width katakana; ICU's ISO-2022-JP reads all three.
    {50220, "ISO-2022-JP"}, {50221, "ISO-2022-JP"}, {50222, "ISO-2022-JP"},
    {50225, "ISO-2022-KR"}, {50227, "ISO-2022-CN"},
    {51932, "EUC-JP"},     {51936, "GB2312"},     {51949, "EUC-KR"},     {52936, "HZ"},
    {54936, "GB18030"},    {65000, "UTF-7"},      {65001, "UTF-8"},
    // Johab has no converter; its Hangul overlaps Unified Hangul Code the least badly.
    {1361, "windows-949"},
};

bool opens(const std::string& name) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(name.c_str(), &status);
    if (converter) ucnv_close(converter);
    return U_SUCCESS(status) && converter;
}
}  // namespace

std::optional<std::string> CodePages::converterName(std::uint32_t codePage) {
    if (codePage == 0 || codePage == 1200 || codePage == 1201 || codePage > 0xFFFF) return std::nullopt;
    for (const NamedCodePage& entry : kNamed) {
        if (entry.codePage == codePage) return std::string(entry.name);
    }
    std::string name = "windows-" + std::to_string(codePage);
    if (opens(name)) return name;
    return std::nullopt;
}

std::optional<std::string> CodePages::decode(ByteView bytes, std::uint32_t codePage) {
    std::optional<std::string> name = converterName(codePage);
    if (!name) return std::nullopt;
    if (codePage == 65001) return TextEncoding::decode(bytes, StringEncoding::UTF8);
    return TextEncoding::decodeCharset(bytes, *name);
}

std::string CodePages::decodeWithFallback(ByteView bytes, std::initializer_list<std::uint32_t> codePages) {
    for (std::uint32_t codePage : codePages) {
        if (codePage == 0) continue;
        if (std::optional<std::string> text = decode(bytes, codePage)) return std::move(*text);
    }
    if (std::optional<std::string> text = TextEncoding::decode(bytes, StringEncoding::Windows1252)) {
        return std::move(*text);
    }
    // Windows-1252 leaves five bytes unmapped (0x81, 0x8D, 0x8F, 0x90, 0x9D):
    // they stand for themselves, as in ISO Latin-1.
    static const std::array<std::string, 256> latin = [] {
        std::array<std::string, 256> table;
        for (unsigned byte = 0; byte < 256; ++byte) {
            const std::uint8_t one[1] = {static_cast<std::uint8_t>(byte)};
            if (auto character = TextEncoding::decode(ByteView(one, 1), StringEncoding::Windows1252)) {
                table[byte] = *character;
            } else {
                table[byte] = {static_cast<char>(0xC0 | (byte >> 6)), static_cast<char>(0x80 | (byte & 0x3F))};
            }
        }
        return table;
    }();
    std::string out;
    out.reserve(bytes.size() * 2);
    for (std::uint8_t byte : bytes) out += latin[byte];
    return out;
}

}  // namespace qh
