#include "readers/msg/MsgText.h"

#include <algorithm>
#include <array>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "core/ByteWords.h"
#include "core/TextEncoding.h"
#include "readers/msg/Format.h"
#include "util/CodePages.h"
#include "util/DataWangers.h"
#include "core/Utf16.h"
#include "util/StringWangers.h"

namespace qh {

using namespace msgformat;

namespace {
// UTF-16LE without failing: an unpaired surrogate becomes U+FFFD and an odd
// last byte is dropped, so the rest of the text is never lost. Written
// through a pointer into room made first (bodies run to hundreds of
// kilobytes), ASCII units straight across.
std::string lenientUTF16(ByteView bytes) {
    const std::size_t count = bytes.size() / 2;
    const std::uint8_t* in = bytes.data();
    auto unit = [in](std::size_t k) -> char32_t { return char32_t(in[2 * k]) | (char32_t(in[2 * k + 1]) << 8); };
    std::string out;
    out.resize(count * 3);  // a unit gives at most three bytes, a pair four
    const char* const end = utf16::writeLenientUTF8(unit, count, out.data());
    out.resize(static_cast<std::size_t>(end - out.data()));
    return out;
}

std::uint32_t codePageValue(const std::optional<MsgPropertyAccess::PropertyValue>& value) {
    return value ? MsgPropertyAccess::integerOf(*value) : 0;
}
}  // namespace

MsgText MsgText::forMessage(const MsgRules& rules, ByteView properties, std::size_t headerSize, ByteView rtf,
                            const MsgText* outer) {
    MsgText text(rules);
    if (rules.eightBit == MsgRules::EightBitText::Windows1252) return text;
    text.messageCodePage_ =
        codePageValue(text.fixed(kMessageCodepage, kTypeInteger32, properties, headerSize));
    text.internetCodePage_ =
        codePageValue(text.fixed(kInternetCodepage, kTypeInteger32, properties, headerSize));
    text.rtfCodePage_ = rtfAnsiCodePage(rtf);
    if (outer) {
        if (!text.messageCodePage_) text.messageCodePage_ = outer->messageCodePage_;
        if (!text.internetCodePage_) text.internetCodePage_ = outer->internetCodePage_;
        if (!text.rtfCodePage_) text.rtfCodePage_ = outer->rtfCodePage_;
    }
    return text;
}

std::optional<std::string> MsgText::decode(ByteView bytes, std::uint32_t type, Use use) const {
    if (bytes.empty()) return std::nullopt;
    if (rules_->eightBit == MsgRules::EightBitText::Windows1252) {
        // classic: 8-bit text that is not ASCII comes back as Windows-1252
        // through the fallback chain; the family's dictionaries hold that.
        return DataWangers::getStringFromData(bytes, type == kTypeUnicode ? StringEncoding::UTF16LE
                                                                         : StringEncoding::ASCII);
    }
    if (type == kTypeUnicode) return lenientUTF16(bytes);
    if (use == Use::Body) {
        return CodePages::decodeWithFallback(bytes, {internetCodePage_, messageCodePage_, rtfCodePage_});
    }
    return CodePages::decodeWithFallback(bytes, {messageCodePage_, internetCodePage_, rtfCodePage_});
}

std::string MsgText::decodeHtml(ByteView bytes) const {
    if (rules_->eightBit == MsgRules::EightBitText::Windows1252) {
        return DataWangers::getStringFromData(bytes, StringEncoding::UTF8, "buildDictionaryForMessage", 0).value_or("");
    }
    return CodePages::decodeWithFallback(bytes, {internetCodePage_, messageCodePage_, 65001, rtfCodePage_});
}

std::optional<std::string> MsgText::find(std::uint32_t element, std::uint32_t preferredType, const Dict* container,
                                         Use use) const {
    std::uint32_t type = preferredType;
    std::optional<Blob> data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, type, container);
    if (!data) {
        // Files write a string property in one of the two string types; take the other.
        type = preferredType == kTypeUnicode ? kTypeString8 : kTypeUnicode;
        data = MsgPropertyAccess::getDataFromRoot(kSubstgPrefix, element, type, container);
    }
    if (!data) return std::nullopt;
    std::optional<std::string> text = decode(data->view(), type, use);
    if (!text) return std::nullopt;
    std::optional<std::string> cleaned = clean(*text);
    if (!cleaned || cleaned->empty()) return std::nullopt;
    return cleaned;
}

std::optional<std::string> MsgText::clean(std::string_view text) const {
    if (rules_->strings == MsgRules::StringCleaning::CutAtWideRun) {
        // classic: the plug-in host and scripts diffing the dictionary expect the cut.
        return StringWangers::zapGremlins(text);
    }
    std::string kept = keepWhole(text);
    if (kept.empty()) return std::nullopt;
    return kept;
}

std::optional<std::string> MsgText::oneLine(std::string_view text) const {
    if (rules_->strings == MsgRules::StringCleaning::CutAtWideRun) {
        // classic: the first line only (U+2028, U+2029 and U+0085 end it too).
        std::size_t end = text.find_first_of("\n\r\v\f");
        for (std::string_view mark : {"\xE2\x80\xA8", "\xE2\x80\xA9", "\xC2\x85"}) {
            std::size_t found = text.find(mark);
            if (found < end) end = found;
        }
        return clean(text.substr(0, end));
    }
    std::string joined;
    joined.reserve(text.size());
    bool inBreak = false;
    for (char c : text) {
        if (c == '\r' || c == '\n') {
            inBreak = true;
            continue;
        }
        if (inBreak && !joined.empty() && joined.back() != ' ' && c != ' ' && c != '\t') joined += ' ';
        inBreak = false;
        joined += c;
    }
    return clean(joined);
}

std::optional<MsgPropertyAccess::PropertyValue> MsgText::fixed(std::uint32_t element, std::uint32_t elementType,
                                                               ByteView properties, std::size_t headerSize) const {
    if (rules_->records == MsgRules::FixedRecords::SkipLastUnaligned) {
        // classic: scanned from the first byte, the last record never examined.
        return MsgPropertyAccess::getPropertyElement(element, elementType, properties);
    }
    return MsgPropertyAccess::findFixedProperty(element, elementType, properties, headerSize);
}

namespace {

// Bytes that may start a control character in UTF-8: C0 controls (tab, CR
// and LF are kept), DEL, and 0xC2, the lead byte of the C1 controls.
constexpr std::array<bool, 256> kMayStartControl = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 0x20; ++c) table[c] = c != '\t' && c != '\r' && c != '\n';
    table[0x7F] = table[0xC2] = true;
    return table;
}();

// The length of the control character at `at` in valid UTF-8, 0 when there is none.
std::size_t controlLength(std::string_view text, std::size_t at) {
    const auto c = static_cast<std::uint8_t>(text[at]);
    if (!kMayStartControl[c]) return 0;
    if (c != 0xC2) return 1;
    if (at + 1 >= text.size()) return 0;
    const auto next = static_cast<std::uint8_t>(text[at + 1]);
    return next >= 0x80 && next <= 0x9F ? 2 : 0;
}

// Where the first control character at or after `from` starts, npos when none.
std::size_t findControl(std::string_view text, std::size_t from) {
    std::size_t i = from;
#if defined(__SSE2__)
    // Sixteen bytes at a time: the bytes below 0x20 other than tab, CR and
    // LF, DEL, and 0xC2 (a C1 control when its trail byte says so).
    const __m128i below = _mm_set1_epi8(0x1F);
    const __m128i tab = _mm_set1_epi8('\t');
    const __m128i cr = _mm_set1_epi8('\r');
    const __m128i lf = _mm_set1_epi8('\n');
    const __m128i del = _mm_set1_epi8(0x7F);
    const __m128i c1Lead = _mm_set1_epi8(static_cast<char>(0xC2));
    while (text.size() - i >= 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
        const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(bytes, below), bytes);
        const __m128i kept = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, tab), _mm_cmpeq_epi8(bytes, cr)),
                                          _mm_cmpeq_epi8(bytes, lf));
        const __m128i candidates = _mm_or_si128(_mm_andnot_si128(kept, low),
                                                _mm_or_si128(_mm_cmpeq_epi8(bytes, del), _mm_cmpeq_epi8(bytes, c1Lead)));
        for (unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(candidates)); mask; mask &= mask - 1) {
            const std::size_t at = i + static_cast<unsigned>(__builtin_ctz(mask));
            if (controlLength(text, at)) return at;
        }
        i += 16;
    }
#else
    // Eight bytes at a time past runs without a byte below 0x20, DEL or 0xC2.
    while (text.size() - i >= 8) {
        const std::uint64_t word = words::load(text.data() + i);
        if (words::anyBelow(word, 0x20) || words::anyEqual(word, 0x7F) || words::anyEqual(word, 0xC2)) break;
        i += 8;
    }
#endif
    for (; i < text.size(); ++i)
        if (controlLength(text, i)) return i;
    return std::string_view::npos;
}

}  // namespace

std::string MsgText::keepWhole(std::string_view text) {
    std::size_t terminator = text.find('\0');
    if (terminator != std::string_view::npos) text = text.substr(0, terminator);
    // Text that is UTF-8 already (nearly all) is read where it stands.
    std::string sanitized;
    std::string_view sane = text;
    if (!TextEncoding::isValidUTF8(text)) {
        sanitized = TextEncoding::sanitizeUTF8(text);
        sane = sanitized;
    }
    // Controls are rare: the text between them is copied in runs, and text
    // without any is trimmed as it stands.
    std::size_t control = findControl(sane, 0);
    if (control == std::string_view::npos) return TextEncoding::trimWhitespaceAndNewlines(sane);
    std::string kept;
    kept.reserve(sane.size());
    std::size_t runStart = 0;
    while (control != std::string_view::npos) {
        kept.append(sane.substr(runStart, control - runStart));
        runStart = control + controlLength(sane, control);
        control = findControl(sane, runStart);
    }
    kept.append(sane.substr(runStart));
    return TextEncoding::trimWhitespaceAndNewlines(kept);
}

std::uint32_t MsgText::rtfAnsiCodePage(ByteView rtf) {
    std::string_view header = asText(rtf.first(std::min(rtf.size(), kRtfHeaderScan)));
    std::size_t found = header.find(kRtfAnsiCodePage);
    if (found == std::string_view::npos) return 0;
    std::uint32_t codePage = 0;
    for (std::size_t i = found + kRtfAnsiCodePage.size(); i < header.size() && header[i] >= '0' && header[i] <= '9';
         ++i) {
        codePage = codePage * 10 + static_cast<std::uint32_t>(header[i] - '0');
        if (codePage > 0xFFFF) return 0;
    }
    return codePage;
}

}  // namespace qh
