#include "readers/mime/MIMEReader.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include <unicode/utf8.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <quillhaven/MessageKeys.h>

#include "core/Log.h"
#include "core/TextEncoding.h"
#include "readers/mime/MIMEText.h"
#include "util/AddressLists.h"
#include "util/Rfc2231.h"
#include "util/WindowsCodePageWangers.h"

namespace qh {

// Limits that keep a hostile message from making the parser run long or hold
// much more than the message. An ordinary message never reaches any of them:
// its parts are expanded a handful of times and its texts are kept about twice.
struct MIMEReader::Budget {
    std::uint64_t scanLeft = 0;   // bytes the nested-part expansions may still walk
    std::uint64_t storeLeft = 0;  // bytes of header and body text the records may still keep
    bool depthLogged = false;
    bool scanLogged = false;
    bool storeLogged = false;
    bool partsLogged = false;
    bool headersLogged = false;

    bool store(std::size_t size) {
        if (size <= storeLeft) {
            storeLeft -= size;
            return true;
        }
        if (!storeLogged) {
            storeLogged = true;
            Log::line("MIME Reader - message text beyond the reader's limit dropped");
        }
        return false;
    }
};

namespace {

constexpr std::uint64_t kScanFactor = 32;
constexpr std::uint64_t kScanAllowance = 4u << 20;
constexpr std::uint64_t kStoreFactor = 4;
constexpr std::uint64_t kStoreAllowance = 1u << 20;
// Distinct header names kept per record; real mail has a few dozen.
constexpr std::size_t kMaxHeaderFields = 4096;

// The message as text: UTF-8 checked, every CR LF turned into LF and every
// other line-break character (lone CR, VT, FF, NEL, U+2028, U+2029) into LF,
// so that the lines are exactly the LF-separated runs. Most mail needs no
// rewrite for it: its bytes are read in place when their line breaks are all
// LF, or all CR LF (each line then ends before its CR; see MIMEText::lineBreaks).
enum class TextCheck { Unchanged, Rewritten, Invalid };

// The first offset at or after `i` whose byte may need work: 0x80 or above,
// or below 0x0E other than LF and tab (VT, FF and CR are); `size` when none.
std::int64_t skipOrdinary(const std::uint8_t* bytes, std::int64_t i, std::int64_t size) {
#if defined(__SSE2__)
    const __m128i below = _mm_set1_epi8(0x0E), lineFeed = _mm_set1_epi8('\n'), tab = _mm_set1_epi8('\t');
    while (size - i >= 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        // A signed compare: bytes from 0x80 up are negative, so below 0x0E too.
        const __m128i special = _mm_cmplt_epi8(chunk, below);
        const __m128i ordinary = _mm_or_si128(_mm_cmpeq_epi8(chunk, lineFeed), _mm_cmpeq_epi8(chunk, tab));
        const int mask = _mm_movemask_epi8(_mm_andnot_si128(ordinary, special));
        if (mask) return i + __builtin_ctz(static_cast<unsigned>(mask));
        i += 16;
    }
#else
    constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
    while (size - i >= 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, 8);
        if (((word - kOnes * 0x0E) | word) & kHigh) break;
        i += 8;
    }
#endif
    while (i < size) {
        const std::uint8_t b = bytes[i];
        if (b >= 0x80 || (b < 0x0E && b != '\n' && b != '\t')) return i;
        ++i;
    }
    return size;
}

// CR (with the LF after it), VT, FF, NEL, U+2028 and U+2029: the line
// breaks other than LF.
bool isOtherLineBreak(UChar32 c) {
    return c == '\r' || c == 0x0B || c == 0x0C || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// The rewrite: `out` gets the text (`outSize` bytes) unless `Unchanged`.
TextCheck canonicalText(ByteView data, std::unique_ptr<char[]>& out, std::size_t& outSize) {
    const std::uint8_t* bytes = data.data();
    const std::int64_t size = static_cast<std::int64_t>(data.size());
    // First only checked: most text needs no rewriting.
    std::int64_t i = 0, first = -1;
    while ((i = skipOrdinary(bytes, i, size)) < size) {
        const std::int64_t at = i;
        UChar32 c = bytes[i];
        if (c < 0x80) {
            ++i;
        } else {
            U8_NEXT(bytes, i, size, c);
            if (c < 0) return TextCheck::Invalid;
        }
        if (isOtherLineBreak(c)) {
            first = at;
            break;
        }
    }
    if (first < 0) return TextCheck::Unchanged;
    // Then copied while it is checked, through a pointer: the text never
    // grows (each rewrite is one LF for one to three bytes), so the output
    // never passes the input and a block may be stored ahead whole.
    // Written whole before it is read: no zero fill.
    out = std::make_unique_for_overwrite<char[]>(data.size());
    char* const start = out.get();
    char* to = start;
    std::memcpy(to, bytes, static_cast<std::size_t>(first));
    to += first;
    i = first;
    while (i < size) {
#if defined(__SSE2__)
        // Blocks of sixteen whose only line break is one CR LF (text in lines
        // longer than a block, as mail is written) are stored whole, and the
        // rest of the block once more one byte back over the CR: no branch
        // on where the line ends.
        const __m128i below = _mm_set1_epi8(0x0E), lineFeed = _mm_set1_epi8('\n'), tab = _mm_set1_epi8('\t'),
                      carriageReturn = _mm_set1_epi8('\r');
        while (size - i >= 48) {
            const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
            const __m128i after = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i + 1));
            const __m128i ordinary = _mm_or_si128(_mm_cmpeq_epi8(chunk, lineFeed), _mm_cmpeq_epi8(chunk, tab));
            const unsigned special =
                static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(ordinary, _mm_cmplt_epi8(chunk, below))));
            const unsigned crlf = static_cast<unsigned>(_mm_movemask_epi8(
                _mm_and_si128(_mm_cmpeq_epi8(chunk, carriageReturn), _mm_cmpeq_epi8(after, lineFeed))));
            if ((special & ~crlf) != 0 || (crlf & (crlf - 1)) != 0) break;
            _mm_storeu_si128(reinterpret_cast<__m128i*>(to), chunk);
            if (crlf) {
                const int at = __builtin_ctz(crlf);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i + at + 1)));
                to += 15;
            } else {
                to += 16;
            }
            i += 16;
        }
#endif
        // One step the general way: the bytes up to the next that may need
        // work, and that one.
        const std::int64_t next = skipOrdinary(bytes, i, size);
        std::memcpy(to, bytes + i, static_cast<std::size_t>(next - i));
        to += next - i;
        i = next;
        if (i == size) break;
        const std::int64_t at = i;
        UChar32 c = bytes[i];
        if (c < 0x80) {
            ++i;
            if (c == '\r' && i < size && bytes[i] == '\n') ++i;
        } else {
            U8_NEXT(bytes, i, size, c);
            if (c < 0) return TextCheck::Invalid;
        }
        if (isOtherLineBreak(c)) {
            *to++ = '\n';
        } else {
            std::memcpy(to, bytes + at, static_cast<std::size_t>(i - at));
            to += i - at;
        }
    }
    outSize = static_cast<std::size_t>(to - start);
    return TextCheck::Rewritten;
}

// The same for bytes that are not UTF-8 (8-bit mail in a local code page):
// CR LF, lone CR, VT and FF become LF, every other byte stays as it is.
void canonicalBytes(ByteView data, std::string& out) {
    out.clear();
    out.reserve(data.size());
    for (std::size_t i = 0; i < data.size(); ++i) {
        std::uint8_t b = data[i];
        if (b == '\r') {
            if (i + 1 < data.size() && data[i + 1] == '\n') ++i;
            out.push_back('\n');
        } else if (b == 0x0B || b == 0x0C) {
            out.push_back('\n');
        } else {
            out.push_back(static_cast<char>(b));
        }
    }
}

// Whether `line` is the delimiter: exactly (classic), or (RFC 2046) followed
// by transport padding or, for the closing one, by "--".
bool isDelimiterLine(std::string_view line, std::string_view delimiter, const MimeRules& rules) {
    if (line == delimiter) return true;
    if (rules.nesting != MimeRules::Nesting::ByRfc2046 || line.substr(0, delimiter.size()) != delimiter) return false;
    std::string_view rest = line.substr(delimiter.size());
    return rest.find_first_not_of(" \t") == std::string_view::npos;
}

// Where the line break at `lineFeed` starts: at the CR before it in text
// whose breaks are all CR LF.
std::size_t breakStart(std::string_view text, std::size_t lineFeed, bool crlf) {
    return crlf && lineFeed > 0 && lineFeed < text.size() && text[lineFeed - 1] == '\r' ? lineFeed - 1 : lineFeed;
}

// `text` appended with its line breaks as LF: of text whose breaks are all
// CR LF every CR goes (each is a break's); other text as it is.
void appendWithLineFeeds(std::string_view text, std::string& out, bool crlf) {
    if (!crlf) {
        out.append(text);
        return;
    }
    std::size_t from = 0;
    while (true) {
        const std::size_t cr = text.find('\r', from);
        if (cr == std::string_view::npos) break;
        out.append(text.substr(from, cr - from));
        from = cr + 1;
    }
    out.append(text.substr(from));
}

// Walks the lines of a text forwards, by index: the LF-separated runs, each
// without the CR before its LF when all the text's breaks are CR LF. The
// number of lines is counted only when asked: a leaf part's body is taken whole.
class LineCursor {
public:
    LineCursor(std::string_view text, bool crlf) : text_(text), crlf_(crlf), end_(lineEnd(0)) {}
    // Moves to the line at `index` (never before the current one); false when
    // the text has no such line.
    bool seek(std::int64_t index) {
        while (index_ < index) {
            if (atLast()) return false;
            offset_ = end_ + 1;
            end_ = lineEnd(offset_);
            ++index_;
        }
        return true;
    }
    std::string_view line() const {
        return text_.substr(offset_, std::max(offset_, breakStart(text_, end_, crlf_)) - offset_);
    }
    bool atLast() const { return end_ == text_.size(); }
    std::int64_t index() const { return index_; }
    // Where the current line starts.
    std::size_t offset() const { return offset_; }
    // Bytes from the start of the current line to the end of the text.
    std::size_t remaining() const { return text_.size() - offset_; }
    // Line feeds from the start of the current line to the end of the text.
    std::int64_t breaksAhead() const {
        return static_cast<std::int64_t>(MIMEText::count(text_.substr(offset_), '\n'));
    }
    std::int64_t count() const { return index_ + 1 + breaksAhead(); }

private:
    std::size_t lineEnd(std::size_t from) const {
        std::size_t lf = text_.find('\n', from);
        return lf == std::string_view::npos ? text_.size() : lf;
    }
    std::string_view text_;
    bool crlf_;
    std::int64_t index_ = 0;
    std::size_t offset_ = 0;
    std::size_t end_ = 0;
};

// `body` without its empty lines, each line after a line feed: what the
// line-by-line reading appends to a part's content. `body` starts with a
// non-empty line.
void appendNonEmptyLines(std::string_view body, std::string& out) {
    while (!body.empty() && body.back() == '\n') body.remove_suffix(1);
    out.push_back('\n');
    std::size_t from = 0;
    while (true) {
        std::size_t gap = MIMEText::findDoubled(body, '\n', from);
        if (gap == std::string_view::npos) break;
        out.append(body.substr(from, gap + 1 - from));
        from = body.find_first_not_of('\n', gap);
    }
    out.append(body.substr(from));
}

}  // namespace

// The state of one part while its lines are read.
struct MIMEReader::Part {
    Part(Budget& limits, const MimeRules& readingRules)
        : budget(limits), rules(readingRules), keepsNonEmptyLines(readingRules.bodies == MimeRules::Bodies::Rewritten) {
        // A part's record holds a dozen or so keys: it is not moved as it fills.
        record.reserve(16);
    }
    Budget& budget;
    const MimeRules& rules;
    // The body's non-empty lines ("content") are what the rewritten bodies are
    // made of; a body as sent is made of "uaContent" alone, so the part record
    // does not keep the second copy.
    const bool keepsNonEmptyLines;
    bool hasBodyLine = false;  // a non-empty body line was read
    Dict record;
    std::string boundary;  // the delimiter line, "--" and the boundary value; "" when none
    bool hasBoundary = false;
    // The pending header's name, as written: a piece of the text read, which
    // outlives the part.
    std::optional<std::string_view> name;
    // The current value and the content text start as one text object: a
    // continuation line read before any header lands in the content, and every
    // header handled hands both a fresh empty text.
    std::string value;
    std::string content;
    bool valueIsContent = true;
    std::string uaContent;
    // Or where the body is in the text read, when it is kept in place.
    std::optional<std::size_t> bodyAt;
    std::size_t bodyLength = 0;
    bool bodyReserved = false;
    bool anyHeader = false;  // a header field has been read

    std::string& currentValue() { return valueIsContent ? content : value; }

    void handleHeader();
};

namespace {

// The header fields a part record treats apart, by name in any case.
enum class PartField { ContentType, TransferEncoding, Description, Disposition, ContentId, Other };

PartField partField(std::string_view name) {
    // By size first: a name of another size is compared with nothing.
    switch (name.size()) {
    case 10:
        if (MIMEText::equalsASCIIIgnoringCase(name, "content-id")) return PartField::ContentId;
        break;
    case 12:
        if (MIMEText::equalsASCIIIgnoringCase(name, "content-type")) return PartField::ContentType;
        break;
    case 19:
        if (MIMEText::equalsASCIIIgnoringCase(name, "content-description")) return PartField::Description;
        if (MIMEText::equalsASCIIIgnoringCase(name, "content-disposition")) return PartField::Disposition;
        break;
    case 25:
        if (MIMEText::equalsASCIIIgnoringCase(name, "content-transfer-encoding")) return PartField::TransferEncoding;
        break;
    default:
        break;
    }
    return PartField::Other;
}

}  // namespace

void MIMEReader::Part::handleHeader() {
    if (name) {
        const std::string_view header = *name;
        const PartField field = partField(header);
        const bool byRfc2231 = rules.parameters == MimeRules::Parameters::Rfc2231;
        std::string text = std::move(currentValue());
        if (field == PartField::ContentType && byRfc2231 && record.contains(keys::kPartContentType)) {
            // A second Content-Type: the first counts, as mail clients read it.
        } else if (field == PartField::ContentType) {
            // The RFC 2231 boundary, where there is one, replaces the plain
            // reading's: that reading is only needed without it.
            std::optional<rfc2231::ContentValue> type;
            if (byRfc2231) type = rfc2231::parseContentValue(text);
            const std::string* typeBoundary = type ? type->parameter("boundary") : nullptr;
            if (typeBoundary && !typeBoundary->empty()) {
                boundary = "--" + *typeBoundary;
                hasBoundary = true;
            } else {
                std::optional<std::string> delimiter = boundaryParameter(text);
                hasBoundary = delimiter.has_value();
                boundary = delimiter ? std::move(*delimiter) : std::string();
            }
            std::string_view mediaType = MIMEText::firstPiece(text, ';');
            record.set(keys::kPartContentType, MIMEText::lowercase(MIMEText::trim(MIMEText::firstPiece(mediaType, '/'))));
            std::string_view subtype;
            if (MIMEText::secondPiece(mediaType, '/', subtype)) {
                record.set(keys::kPartContentFormat, MIMEText::lowercase(MIMEText::trim(subtype)));
            }
            // classic: only the first parameter is looked at (for text the charset,
            // for a multipart usually the boundary, for an attachment its name);
            // ReadEML's classic charset and name choices are built on it.
            std::string_view parameter;
            if (MIMEText::secondPiece(text, ';', parameter)) {
                record.set(keys::kPartMetaType, MIMEText::lowercase(MIMEText::trim(MIMEText::firstPiece(parameter, '='))));
                std::string_view parameterValue;
                if (MIMEText::secondPiece(parameter, '=', parameterValue)) {
                    record.set(keys::kPartMetaData,
                               MIMEText::removeAll(MIMEText::lowercase(MIMEText::trim(parameterValue)), '"'));
                }
            }
            if (type) {
                if (const std::string* value = type->parameter("charset")) record.set(keys::kPartCharset, *value);
                if (const std::string* value = type->parameter("name")) record.set(keys::kPartTypeName, *value);
            }
        } else if (rules.headers == MimeRules::Headers::Classic &&
                   (header == "From" || header == "To" || header == "CC" || header == "BCC")) {
            // classic: exact-case names only ("Cc" stays text); dictionaries
            // compared byte for byte depend on it.
            record.set(header, processEmailAddresses(text));
        } else if (field == PartField::TransferEncoding) {
            std::string lower = MIMEText::lowercase(text);
            const char* kind = "text";
            if (lower.find("base64") != std::string::npos) {
                kind = "base64";
            } else if (lower.find("quoted-printable") != std::string::npos) {
                kind = "quoted-printable";
            }
            record.set(keys::kPartEncoding, kind);
        } else if (field == PartField::Description && byRfc2231) {
            // A description is a description, not a file name.
            record.set(keys::kPartDescription, std::move(text));
        } else if (field == PartField::Disposition && byRfc2231) {
            rfc2231::ContentValue disposition = rfc2231::parseContentValue(text);
            record.set(keys::kPartDisposition, disposition.value);
            if (const std::string* name = disposition.parameter("filename")) record.set(keys::kPartFileName, *name);
        } else if (field == PartField::ContentId && byRfc2231) {
            std::string id(MIMEText::trim(text));
            if (id.size() >= 2 && id.front() == '<' && id.back() == '>') id = id.substr(1, id.size() - 2);
            record.set(keys::kPartContentId, std::move(id));
        } else if (field == PartField::Description) {
            // classic: a name from the description is only a fallback. It is
            // lower-cased before the encoded words are decoded, so base64 words
            // in it come out wrong; saved attachments of the family were named so.
            if (!record.contains(keys::kPartFileName)) {
                std::string lowered = MIMEText::removeAll(MIMEText::lowercase(MIMEText::trim(text)), '"');
                std::string decoded = WindowsCodePageWangers::decodeCP1255B(lowered);
                if (!decoded.empty()) {
                    record.set(keys::kPartFileName, std::move(decoded));
                } else if (const std::string* format = record.findString(keys::kPartContentFormat)) {
                    record.set(keys::kPartFileName, "UndecodableFilename." + *format);
                } else {
                    record.set(keys::kPartFileName, "UndecodableFilename");
                }
            }
        } else if (field == PartField::Disposition) {
            // classic: everything after "filename=" is the name, parameters after
            // it included, lower-cased; the RFC 2231 form (filename*=) is not
            // recognised. Attachment lists of the family were named so.
            std::string lowered = MIMEText::removeAll(MIMEText::lowercase(MIMEText::trim(text)), '"');
            std::size_t at = lowered.find("filename=");
            if (at != std::string::npos) record.set(keys::kPartFileName, lowered.substr(at + 9));
        } else if (field == PartField::ContentId) {
            // classic: the id lower-cased; the inline-image pass matches by it.
            std::string lowered = MIMEText::lowercase(MIMEText::trim(text));
            record.set(keys::kPartContentId, MIMEText::removeAll(MIMEText::removeAll(lowered, '<'), '>'));
        } else if (record.size() >= kMaxHeaderFields && !record.contains(header)) {
            if (!budget.headersLogged) {
                budget.headersLogged = true;
                Log::line("MIME Reader - too many header fields, the rest left out");
            }
        } else {
            record.set(header, std::move(text));
        }
    }
    name.reset();
    value.clear();
    content.clear();
    valueIsContent = true;
}

std::unique_ptr<MIMEReader> MIMEReader::initWithData(ByteView data) {
    return initWithData(data, MimeRules::of(Reading::classic));
}

std::unique_ptr<MIMEReader> MIMEReader::initWithData(ByteView data, const MimeRules& rules, BodyStorage storage) {
    if (data.empty()) return nullptr;
    auto reader = std::make_unique<MIMEReader>();
    reader->rules_ = rules;
    reader->storage_ = storage;
    reader->globalContentArray_.clear();
    if (auto record = reader->readMIMEMail(data)) reader->mimeContentDictionary_ = std::move(*record);
    return reader;
}

void MIMEReader::startBudget(std::size_t inputSize) {
    budget_ = std::make_shared<Budget>();
    budget_->scanLeft = kScanFactor * inputSize + kScanAllowance;
    budget_->storeLeft = kStoreFactor * inputSize + kStoreAllowance;
}

std::size_t MIMEReader::lineFeedSize(std::string_view text) const {
    if (!crlf_) return text.size();
    // The line feeds before an offset: the mark at or before it, and the rest counted.
    auto lineFeedsBefore = [&](std::size_t offset) {
        const std::size_t mark = offset / MIMEText::kLineFeedStep, from = mark * MIMEText::kLineFeedStep;
        return textIndex_.lineFeedMarks[mark] + MIMEText::count(messageText_.substr(from, offset - from), '\n');
    };
    // Only pieces of the text read have marks (the parser reads no other text).
    const std::less_equal<const char*> notAfter;
    if (!notAfter(messageText_.data(), text.data()) ||
        !notAfter(text.data() + text.size(), messageText_.data() + messageText_.size()) ||
        textIndex_.lineFeedMarks.size() <= messageText_.size() / MIMEText::kLineFeedStep) {
        return text.size() - MIMEText::count(text, '\n');
    }
    const auto start = static_cast<std::size_t>(text.data() - messageText_.data());
    return text.size() - (lineFeedsBefore(start + text.size()) - lineFeedsBefore(start));
}

std::optional<std::string_view> MIMEReader::bodyInPlace(const Dict& part) const {
    const Value* at = part.find(keys::kPartBodyAt);
    const Value* length = part.find(keys::kPartBodyLength);
    if (!at || !length || at->integer() < 0 || length->integer() < 0) return std::nullopt;
    const auto offset = static_cast<std::uint64_t>(at->integer()), size = static_cast<std::uint64_t>(length->integer());
    if (!fits(offset, size, messageText_.size())) return std::nullopt;
    return messageText_.substr(offset, size);
}

std::optional<Dict> MIMEReader::readMIMEMail(ByteView data) {
    // The text the lines are read from, and its size with LF breaks (what the
    // budget is made from).
    std::size_t lineFeedTextSize = 0;
    auto readAsText = [&](ByteView bytes) {
        switch (MIMEText::lineBreaks(bytes, textIndex_)) {
        case MIMEText::Breaks::LineFeeds:
            messageText_ = asText(bytes);
            crlf_ = false;
            dashLinesKnown_ = textIndex_.dashLinesComplete();
            lineFeedTextSize = bytes.size();
            return true;
        case MIMEText::Breaks::CrLfPairs:
            messageText_ = asText(bytes);
            crlf_ = true;
            dashLinesKnown_ = textIndex_.dashLinesComplete();
            lineFeedTextSize = bytes.size() - textIndex_.pairs;
            return true;
        case MIMEText::Breaks::Other: {
            std::size_t size = 0;
            switch (canonicalText(bytes, rewritten_, size)) {
            case TextCheck::Unchanged:
                messageText_ = asText(bytes);
                break;
            case TextCheck::Rewritten:
                messageText_ = std::string_view(rewritten_.get(), size);
                break;
            case TextCheck::Invalid:
                return false;
            }
            crlf_ = false;
            dashLinesKnown_ = false;
            lineFeedTextSize = messageText_.size();
            return true;
        }
        case MIMEText::Breaks::Invalid:
            break;
        }
        return false;
    };
    if (!readAsText(data)) {
        if (rules_.eightBit == MimeRules::EightBit::BytesAsTheyAre) {
            canonicalBytes(data, convertedText_);
            messageText_ = convertedText_;
            crlf_ = false;
            dashLinesKnown_ = false;
            lineFeedTextSize = messageText_.size();
        } else {
            // classic: not UTF-8 gives no record unless ASCII takes it (where the
            // platform's ASCII conversion accepts what UTF-8 does not); hosts of
            // the family show such a message as empty.
            std::optional<std::string> converted = TextEncoding::decode(data, StringEncoding::ASCII);
            if (!converted) return std::nullopt;
            convertedText_ = std::move(*converted);
            if (!readAsText(asBytes(convertedText_))) return std::nullopt;
        }
    }
    startBudget(lineFeedTextSize);
    std::int64_t lineIndex = rules_.firstLine == MimeRules::FirstLine::Read ? -1 : 0;
    Dict record = interpretPart(messageText_, std::nullopt, lineIndex, 0, false);
    // The part list moves into the record: its texts are most of the message.
    if (!globalContentArray_.empty()) record.set(keys::kPartChildren, std::move(globalContentArray_));
    globalContentArray_.clear();
    return record;
}

Dict MIMEReader::interpretMIME(const std::vector<std::string>& lines, std::optional<std::string_view> endLine,
                               std::int32_t& lineIndex) {
    // The lines as one LF-joined text: the nested-part split works on that text.
    std::size_t size = lines.empty() ? 0 : lines.size() - 1;
    for (const std::string& line : lines) size += line.size();
    std::string joined;
    joined.reserve(size);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i) joined.push_back('\n');
        joined.append(lines[i]);
    }
    if (!budget_) startBudget(joined.size());
    // The joined text lives only for this call: no body is kept in place in it.
    const BodyStorage storage = std::exchange(storage_, BodyStorage::Copied);
    const bool crlf = std::exchange(crlf_, false);
    const bool dashLinesKnown = std::exchange(dashLinesKnown_, false);
    std::int64_t index = lineIndex;
    Dict record = interpretPart(joined, endLine, index, 0, true);
    storage_ = storage;
    crlf_ = crlf;
    dashLinesKnown_ = dashLinesKnown;
    lineIndex = static_cast<std::int32_t>(std::clamp<std::int64_t>(index, INT32_MIN, INT32_MAX));
    return record;
}

std::optional<std::string> MIMEReader::boundaryParameter(std::string_view contentType) {
    std::optional<std::string> boundary;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = std::min(contentType.find(';', start), contentType.size());
        const std::string_view piece = contentType.substr(start, end - start);
        const std::size_t equals = piece.find('=');
        if (equals != std::string_view::npos) {
            const std::string_view name = MIMEText::trim(piece.substr(0, equals));
            const bool ascii = std::all_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
            if (ascii ? MIMEText::equalsASCIIIgnoringCase(name, "boundary") : MIMEText::lowercase(name) == "boundary") {
                const std::string value = MIMEText::removeAll(piece.substr(equals + 1), '"');
                boundary = "--" + std::string(MIMEText::trim(value));
            }
        }
        if (end == contentType.size()) break;
        start = end + 1;
    }
    return boundary;
}

Dict MIMEReader::setContentParameters(std::string_view contentType) {
    Dict parameters;
    for (std::string_view piece : MIMEText::split(contentType, ";")) {
        std::size_t equals = piece.find('=');
        if (equals != std::string_view::npos) {
            std::string_view name = MIMEText::trim(piece.substr(0, equals));
            if (MIMEText::lowercase(name) == "boundary") {
                std::string value = MIMEText::removeAll(piece.substr(equals + 1), '"');
                parameters.set("boundary", "--" + std::string(MIMEText::trim(value)));
                continue;
            }
        }
        parameters.set("type", std::string(piece));
    }
    return parameters;
}

std::size_t MIMEReader::nextDelimiterLine(std::string_view text, std::string_view delimiter, std::size_t from) const {
    if (from > text.size()) return std::string_view::npos;
    if (from == 0 && text.substr(0, delimiter.size()) == delimiter) return 0;
    // Every delimiter starts with "--": only the lines that do are looked at.
    const auto base = static_cast<std::size_t>(text.data() - messageText_.data());
    const std::vector<std::size_t>& lines = textIndex_.dashLines;
    for (auto line = std::lower_bound(lines.begin(), lines.end(), base + std::max<std::size_t>(from, 1));
         line != lines.end() && *line < base + text.size(); ++line) {
        const std::size_t at = *line - base;
        if (text.substr(at, delimiter.size()) == delimiter) return at;
    }
    return std::string_view::npos;
}

Dict MIMEReader::interpretPart(std::string_view text, std::optional<std::string_view> endLine,
                               std::int64_t& lineIndex, int depth, bool countLines) {
    Budget& budget = *budget_;
    const MimeRules& rules = rules_;
    const bool byRfc2046 = rules.nesting == MimeRules::Nesting::ByRfc2046;
    Part part(budget, rules);
    bool headersDone = false;
    LineCursor lines(text, crlf_);
    const bool inPlace = storage_ == BodyStorage::InPlace;

    // One expansion per distinct delimiter: a delimiter line met again (the
    // line index after the nested parts lags one line per part behind the
    // text) appends the same records once more, copied from the first time.
    struct Expansion {
        std::string delimiter;
        std::size_t first = 0, last = 0;  // the records it appended
        std::int64_t linesRead = 0;       // the sum of the inner line indexes
    };
    std::vector<Expansion> expansions;

    // What a record holds as text: what copies of it cost from the budget.
    auto recordTextSize = [&](const Value& record) {
        std::size_t size = 0;
        if (const Dict* dict = record.dict()) {
            for (const auto& [key, value] : *dict) {
                if (const std::string* text = value.string()) size += text->size();
            }
            // A body kept in place counts as the "uaContent" it stands for.
            if (std::optional<std::string_view> body = bodyInPlace(*dict)) size += 2 + lineFeedSize(*body);
        }
        return size;
    };

    auto appendRecord = [&](Value record) -> bool {
        if (globalContentArray_.size() >= kMaxParts) {
            if (!budget.partsLogged) {
                budget.partsLogged = true;
                Log::line("MIME Reader - too many parts, the rest left out");
            }
            return false;
        }
        globalContentArray_.push_back(std::move(record));
        return true;
    };

    // Nested parts: the whole text of this part split at the delimiter; the
    // first piece (this part's own headers and preamble) skipped; every other
    // piece, the one after the closing delimiter too, read as a part.
    auto expand = [&](std::string_view delimiter) -> std::optional<std::int64_t> {
        for (const Expansion& done : expansions) {
            if (done.delimiter != delimiter) continue;
            for (std::size_t i = done.first; i < done.last; ++i) {
                if (!budget.store(recordTextSize(globalContentArray_[i]))) break;
                Value copy = globalContentArray_[i];
                if (!appendRecord(std::move(copy))) break;
            }
            return done.linesRead;
        }
        if (depth >= kMaxPartDepth) {
            if (!budget.depthLogged) {
                budget.depthLogged = true;
                Log::line("MIME Reader - parts nested too deeply, the deepest read as text");
            }
            return std::nullopt;
        }
        // The split walks the text once and the pieces walk it once more.
        std::uint64_t cost = 2 * static_cast<std::uint64_t>(lineFeedSize(text)) + 1;
        if (cost > budget.scanLeft) {
            if (!budget.scanLogged) {
                budget.scanLogged = true;
                Log::line("MIME Reader - message too complex, nested parts read as text");
            }
            return std::nullopt;
        }
        budget.scanLeft -= cost;
        Expansion expansion{std::string(delimiter), globalContentArray_.size(), 0, 0};
        // RFC 2046: a delimiter begins a line, and "--" after it closes the multipart.
        auto nextDelimiter = [&](std::size_t from) {
            if (byRfc2046 && dashLinesKnown_) return nextDelimiterLine(text, delimiter, from);
            std::size_t found = MIMEText::find(text, delimiter, from);
            while (byRfc2046 && found != std::string_view::npos && found > 0 && text[found - 1] != '\n') {
                found = MIMEText::find(text, delimiter, found + 1);
            }
            return found;
        };
        auto closes = [&](std::size_t found) {
            return byRfc2046 && text.substr(found + delimiter.size(), 2) == "--";
        };
        std::size_t at = nextDelimiter(0);
        while (at != std::string_view::npos) {
            if (closes(at)) break;  // the epilogue is no part
            std::size_t pieceStart = at + delimiter.size();
            std::size_t next = nextDelimiter(pieceStart);
            std::size_t pieceEnd = next == std::string_view::npos ? text.size() : next;
            std::int64_t innerIndex = 0;
            // Only the classic nesting moves on by the lines a nested part read.
            Dict record = interpretPart(text.substr(pieceStart, pieceEnd - pieceStart), std::nullopt, innerIndex,
                                        depth + 1, !byRfc2046);
            // An attached message keeps its blank lines.
            const std::string* fileName = record.findString(keys::kPartFileName);
            if (rules.bodies == MimeRules::Bodies::Rewritten && fileName && !fileName->empty() &&
                MIMEText::lowercase(MIMEText::pathExtension(*fileName)) == "eml") {
                if (const std::string* whole = record.findString(keys::kPartRawContent)) {
                    record.set(keys::kPartContent, std::string(MIMEText::trim(*whole)));
                } else if (std::optional<std::string_view> body = bodyInPlace(record)) {
                    std::string copy = "\n\n";
                    appendWithLineFeeds(*body, copy, crlf_);
                    record.set(keys::kPartContent, std::string(MIMEText::trim(copy)));
                }
            }
            appendRecord(Value(std::move(record)));
            expansion.linesRead += innerIndex;
            at = next;
        }
        expansion.last = globalContentArray_.size();
        std::int64_t linesRead = expansion.linesRead;
        expansions.push_back(std::move(expansion));
        return linesRead;
    };

    auto appendLine = [&](std::string& target, std::string_view line) {
        if (!budget.store(line.size() + 1)) return;
        target.push_back('\n');
        target.append(line);
    };
    auto appendBodyLine = [&](std::string_view line) {
        if (part.keepsNonEmptyLines) appendLine(part.content, line);
        part.hasBodyLine = true;
        appendLine(part.uaContent, line);
    };

    // classic: the line at the index passed in is never read (for the message
    // its first line, for a nested part the rest of its delimiter line), nor is
    // the last line of the text; dictionaries compared byte for byte depend on
    // the first header missing.
    const bool readLast = rules.lastLine == MimeRules::LastLine::Read;
    // A leaf part's body is the rest of its text: taken in one piece (with the
    // same budget and the same line index at the end as line by line) unless
    // the budget runs out inside it. Kept in place where the reader keeps
    // bodies so and the text before it is what "uaContent" holds before it
    // (the line feeds of the empty lines that end the headers).
    auto takeWholeBody = [&]() -> std::optional<std::int64_t> {
        std::string_view rest = text.substr(lines.offset());
        const std::int64_t breaks = countLines ? lines.breaksAhead() : 0;
        const std::size_t lastBreak = text.rfind('\n');
        // The last line is read only when the rules say so and it is not the
        // empty line after the text's final line break.
        const bool lastLineRead = readLast && lastBreak + 1 < text.size();
        std::string_view body =
            lastLineRead ? rest
                         : text.substr(lines.offset(),
                                       std::max(lines.offset(), breakStart(text, lastBreak, crlf_)) - lines.offset());
        const std::size_t contentStart = part.content.size();
        if (part.keepsNonEmptyLines) {
            // One allocation: a body of many short pieces must not grow the text
            // through a doubling series.
            part.content.reserve(contentStart + body.size() + 1);
            if (crlf_) {
                std::string lineFeeds;
                lineFeeds.reserve(body.size());
                appendWithLineFeeds(body, lineFeeds, true);
                appendNonEmptyLines(lineFeeds, part.content);
            } else {
                appendNonEmptyLines(body, part.content);
            }
        }
        const std::size_t bodySize = lineFeedSize(body);
        const std::size_t cost = (part.content.size() - contentStart) + bodySize + 1;
        if (cost > budget.storeLeft) {
            part.content.resize(contentStart);
            part.content.shrink_to_fit();
            return std::nullopt;
        }
        part.hasBodyLine = true;
        budget.storeLeft -= cost;
        // "uaContent" would be its empty lines' line feeds, a line feed and the
        // body; a reader of it skips the first two.
        const std::size_t emptyLines = part.uaContent.size();
        const std::size_t breakWidth = crlf_ ? 2 : 1;
        const std::size_t before = emptyLines > 0 ? (emptyLines - 1) * breakWidth : 0;
        auto emptyLinesBefore = [&] {
            if (emptyLines == 0 || lines.offset() < before) return false;
            if (part.uaContent.find_first_not_of('\n') != std::string::npos) return false;
            std::string_view gap = text.substr(lines.offset() - before, before);
            for (std::size_t i = 0; i < gap.size(); i += breakWidth) {
                if (gap.substr(i, breakWidth) != (crlf_ ? "\r\n" : "\n")) return false;
            }
            return true;
        };
        if (inPlace && emptyLinesBefore()) {
            const std::size_t at = static_cast<std::size_t>(text.data() - messageText_.data()) + lines.offset() - before;
            part.bodyAt = at;
            part.bodyLength = before + body.size();
            part.uaContent.clear();
        } else {
            part.uaContent.reserve(part.uaContent.size() + bodySize + 1);
            part.uaContent.push_back('\n');
            appendWithLineFeeds(body, part.uaContent, crlf_);
        }
        return lines.index() + breaks + (lastLineRead ? 1 : 0);
    };

    std::int64_t index = lineIndex + 1;
    bool wholeBodyTried = false;
    while (lines.seek(index)) {
        std::string_view line = lines.line();
        if (!readLast && lines.atLast()) break;
        if (endLine && line == *endLine) break;
        // The line break that ends the text (before the next delimiter) opens no line.
        if (lines.atLast() && line.empty()) break;
        if (line.empty()) {
            if (!headersDone) {
                part.handleHeader();
                headersDone = true;
            }
            if (budget.store(1)) part.uaContent.push_back('\n');
        } else if (std::optional<std::int64_t> linesRead;
                   part.hasBoundary && isDelimiterLine(line, part.boundary, rules) &&
                   (linesRead = expand(part.boundary))) {
            if (byRfc2046) {
                // The nested parts are the rest of this part.
                part.record.set(keys::kPartExpanded, true);
                const std::int64_t count = countLines ? lines.count() : lines.index() + 1;
                index = readLast ? count : count - 1;
                break;
            }
            // classic: the index lags one line per part behind the text, and the
            // lines after the nested parts are read as header lines again (the
            // records come twice); part lists of the family have this shape.
            index += *linesRead;
            headersDone = false;
        } else if (headersDone) {
            if (!part.hasBoundary && !endLine && !wholeBodyTried) {
                wholeBodyTried = true;
                if (std::optional<std::int64_t> end = takeWholeBody()) {
                    index = *end;
                    break;
                }
            }
            if (!part.bodyReserved && !part.hasBoundary) {
                part.bodyReserved = true;
                // The rest of the text bounds a leaf part's body: one allocation
                // instead of a doubling series (trimmed below when far too much).
                // A multipart's own body is only its preamble.
                std::size_t bound = static_cast<std::size_t>(std::min<std::uint64_t>(lines.remaining() + 1, budget.storeLeft));
                if (part.keepsNonEmptyLines) part.content.reserve(part.content.size() + bound);
                part.uaContent.reserve(part.uaContent.size() + bound);
            }
            appendBodyLine(line);
        } else if (line.front() == ' ' || line.front() == '\t') {
            // A folded header: the continuation is appended as it stands.
            if (budget.store(line.size())) part.currentValue().append(line);
        } else if (line.find(':') == std::string_view::npos && !part.anyHeader &&
                   rules.headerless == MimeRules::Headerless::BodyStarts) {
            // A part without header fields (RFC 2046): its body starts here.
            part.handleHeader();
            headersDone = true;
            if (budget.store(1)) part.uaContent.push_back('\n');
            appendBodyLine(line);
        } else {
            if (part.name) part.handleHeader();
            std::size_t colon = line.find(':');
            if (colon != std::string_view::npos) {
                std::string_view value = MIMEText::trim(line.substr(colon + 1));
                if (budget.store(colon + value.size())) {
                    part.name = line.substr(0, colon);
                    part.value.assign(value);
                    part.valueIsContent = false;
                    part.anyHeader = true;
                }
            }
        }
        ++index;
    }
    // classic: a header still pending here, with no empty line after it, is
    // never handled; a message without a body loses its last header.
    if (rules.lastLine == MimeRules::LastLine::Read && part.name) part.handleHeader();
    const bool hasContent = !part.content.empty() || (!part.keepsNonEmptyLines && part.hasBodyLine);
    if (hasContent) {
        for (std::string* kept : {&part.content, &part.uaContent}) {
            if (kept->capacity() > kept->size() + kept->size() / 2 + 4096) kept->shrink_to_fit();
        }
        if (part.keepsNonEmptyLines) part.record.set(keys::kPartContent, std::move(part.content));
        if (part.bodyAt) {
            part.record.set(keys::kPartBodyAt, static_cast<std::uint64_t>(*part.bodyAt));
            part.record.set(keys::kPartBodyLength, static_cast<std::uint64_t>(part.bodyLength));
        } else {
            part.record.set(keys::kPartRawContent, std::move(part.uaContent));
        }
    }
    lineIndex = index - 1;
    return std::move(part.record);
}

}  // namespace qh
