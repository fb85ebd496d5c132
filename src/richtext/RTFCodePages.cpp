#include "richtext/RTFCodePages.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unicode/ucnv.h>

#include "core/Utf16.h"
#include "util/CodePages.h"

namespace qh {
namespace {

UConverter* openConverter(std::uint16_t codePage) {
    // Every code page a document may name (\ansicpg, \cpg, \fcharset), double-byte ones included.
    std::optional<std::string> name = CodePages::converterName(codePage);
    if (!name) return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open(name->c_str(), &status);
    if (U_FAILURE(status)) {
        if (converter) ucnv_close(converter);
        return nullptr;
    }
    return converter;
}

// The converters this thread has opened, by code page; nullptr for a code
// page ICU lacks. Closed when the thread ends.
class ThreadConverters {
public:
    ThreadConverters() = default;
    ThreadConverters(const ThreadConverters&) = delete;
    ThreadConverters& operator=(const ThreadConverters&) = delete;
    ~ThreadConverters() {
        for (auto& entry : converters_)
            if (entry.second) ucnv_close(entry.second);
    }
    // The converter of `codePage`; `found` tells whether it was asked for before.
    UConverter*& slot(std::uint16_t codePage, bool& found) {
        for (auto& entry : converters_) {
            if (entry.first == codePage) {
                found = true;
                return entry.second;
            }
        }
        found = false;
        converters_.emplace_back(codePage, nullptr);
        return converters_.back().second;
    }

private:
    // A document names a handful of code pages; a thread meets a few dozen at most.
    std::vector<std::pair<std::uint16_t, UConverter*>> converters_;
};

}  // namespace

void RTFCodePages::appendUTF16(const char16_t* units, std::size_t count, std::string& out) {
    // A unit gives at most three bytes, a surrogate pair four: written
    // through a pointer into room made first, then cut to what was written.
    const std::size_t start = out.size();
    out.resize(start + count * 3);
    const char* const end =
        utf16::writeLenientUTF8([units](std::size_t k) -> char32_t { return units[k]; }, count, out.data() + start);
    out.resize(static_cast<std::size_t>(end - out.data()));
}

void RTFCodePages::appendUTF8(char32_t c, std::string& out) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::uint16_t RTFCodePages::codePageForCharset(std::int32_t charset) {
    switch (charset) {
        case 0: return 1252;
        case 2: return 1252;  // Symbol: its bullets and dashes sit where Windows-1252 has similar marks
        case 77: return 10000;
        case 128: return 932;
        case 129: return 949;
        case 130: return 1361;
        case 134: return 936;
        case 136: return 950;
        case 161: return 1253;
        case 162: return 1254;
        case 163: return 1258;
        case 177: return 1255;
        case 178: return 1256;
        case 186: return 1257;
        case 204: return 1251;
        case 222: return 874;
        case 238: return 1250;
        case 254: return 437;
        case 255: return 850;
        default: return 0;  // 1 (default), 3 (OEM) and unknown sets follow the document
    }
}

UConverter* RTFCodePages::converterFor(std::uint16_t codePage) {
    thread_local ThreadConverters opened;
    bool found = false;
    UConverter*& converter = opened.slot(codePage, found);
    if (!found) converter = openConverter(codePage);  // a code page ICU lacks is remembered as missing
    if (!converter && codePage != kDefaultCodePage) return converterFor(kDefaultCodePage);
    return converter;
}

void RTFCodePages::appendDecoded(ByteView bytes, std::uint16_t codePage, std::string& out) {
    if (bytes.empty()) return;
    bool ascii = true;
    for (std::uint8_t b : bytes)
        if (b >= 0x80) {
            ascii = false;
            break;
        }
    // Every code page an RTF writer names agrees with ASCII below 0x80, except
    // where a double-byte lead byte precedes: those runs are not pure ASCII.
    if (ascii) {
        out.append(asText(bytes));
        return;
    }
    UConverter* converter = converterFor(codePage);
    if (!converter) {
        // No converter at all: read the bytes as ISO Latin-1.
        for (std::uint8_t b : bytes) appendUTF8(b, out);
        return;
    }
    ucnv_reset(converter);
    // Converted through a scratch buffer of at most kChunk units so that a
    // long run never needs a second copy of its size; a short run (most are:
    // the escapes between two tags) gets one its own size, which every code
    // page's text fits in (a byte gives at most one unit).
    constexpr std::size_t kChunk = 4096;
    const std::size_t chunk = std::min(kChunk, bytes.size() + 2);
    if (scratch_.size() < chunk) scratch_.resize(chunk);
    const char* source = reinterpret_cast<const char*>(bytes.data());
    const char* sourceEnd = source + bytes.size();
    std::size_t carried = 0;  // a high surrogate held back for the next chunk
    for (;;) {
        UChar* target = scratch_.data() + carried;
        UErrorCode status = U_ZERO_ERROR;
        ucnv_toUnicode(converter, &target, scratch_.data() + chunk, &source, sourceEnd, nullptr, true, &status);
        std::size_t count = static_cast<std::size_t>(target - scratch_.data());
        const bool more = status == U_BUFFER_OVERFLOW_ERROR;
        carried = (more && count > 0 && scratch_[count - 1] >= 0xD800 && scratch_[count - 1] <= 0xDBFF) ? 1 : 0;
        appendUTF16(scratch_.data(), count - carried, out);
        if (!more) break;
        if (carried) scratch_[0] = scratch_[count - 1];
    }
}

}  // namespace qh
