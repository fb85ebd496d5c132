#pragma once
// The MIME part parser: an Internet message (RFC 5322 headers, RFC 2045/2046
// bodies) into a header record for the message and a flat list of part
// records, one per body part at any depth. It does not decode bodies; ReadEML
// does. The parser is line-based and deliberately simple, and ReadEML depends
// on the exact keys and text shapes it makes (see the .cpp for the rules).
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>
#include "readers/mime/MIMEText.h"
#include "readers/mime/MimeRules.h"

namespace qh {

class MIMEReader {
public:
    // Parts nested deeper than this are left unexpanded: their delimiter lines
    // are read as ordinary lines. Real mail nests four or five levels.
    static constexpr int kMaxPartDepth = 64;
    // The part list stops growing here; no real message comes near it.
    static constexpr std::size_t kMaxParts = 10000;

    // Where a leaf part's body goes: copied into its record as "uaContent", or
    // left in the text the reader read, the record saying where ("bodyAt",
    // "bodyLength"; see bodyInPlace). In place, the bytes passed in must outlive
    // the reader.
    enum class BodyStorage { Copied, InPlace };

    // Null for no bytes; otherwise parses at once (an unreadable message gives
    // an empty record).
    static std::unique_ptr<MIMEReader> initWithData(ByteView data);
    // The same, reading as `rules` say (the classic rules above).
    static std::unique_ptr<MIMEReader> initWithData(ByteView data, const MimeRules& rules,
                                                    BodyStorage storage = BodyStorage::Copied);

    // The message's header record, with the part list under "MailContent".
    const Dict& getDictionary() const { return mimeContentDictionary_; }

    // The header record of a whole message, or none when the bytes are neither
    // UTF-8 nor ASCII.
    std::optional<Dict> readMIMEMail(ByteView data);

    // The header record of the part whose lines start after `lineIndex`; on
    // return `lineIndex` names the last line read. Nested parts go to the part list.
    Dict interpretMIME(const std::vector<std::string>& lines, std::optional<std::string_view> endLine,
                       std::int32_t& lineIndex);

    // {"boundary": "--<value>", "type": <last other piece>} of a Content-Type value.
    static Dict setContentParameters(std::string_view contentType);
    // Its "boundary" alone (the last of them), without the rest.
    static std::optional<std::string> boundaryParameter(std::string_view contentType);

    // The part list of a parse in progress (readMIMEMail moves it into its record).
    const Array& globalContentArray() const { return globalContentArray_; }

    // The body of a part record kept in place: what its "uaContent" would hold
    // after the first two line feeds, but with the message's own line breaks
    // (LF or CR LF). None when the record has no body kept in place.
    std::optional<std::string_view> bodyInPlace(const Dict& part) const;

private:
    struct Budget;
    struct Part;

    // `lineIndex` comes back exact only when `countLines` says it is wanted
    // (counting the lines of a long body is a pass over it).
    Dict interpretPart(std::string_view text, std::optional<std::string_view> endLine, std::int64_t& lineIndex,
                       int depth, bool countLines);
    void startBudget(std::size_t inputSize);
    // The size of `text` (a piece of the text being read) with its line breaks as LF.
    std::size_t lineFeedSize(std::string_view text) const;
    // The first delimiter of a RFC 2046 multipart in `text` (a piece of the text
    // read) at or after `from`: at its start or after a line feed.
    std::size_t nextDelimiterLine(std::string_view text, std::string_view delimiter, std::size_t from) const;

    MimeRules rules_ = MimeRules::of(Reading::classic);
    BodyStorage storage_ = BodyStorage::Copied;
    // The text read: the bytes passed in, or a rewrite of them held here.
    std::unique_ptr<char[]> rewritten_;
    std::string convertedText_;  // of 8-bit bytes
    std::string_view messageText_;
    // Every line break of the text read is CR LF: its lines end before the CR.
    bool crlf_ = false;
    MIMEText::LineIndex textIndex_;  // of the text read when it is the bytes passed in
    bool dashLinesKnown_ = false;     // the index's lines starting with "--" are those of the text
    Dict mimeContentDictionary_;
    Array globalContentArray_;
    std::shared_ptr<Budget> budget_;
};

}  // namespace qh
