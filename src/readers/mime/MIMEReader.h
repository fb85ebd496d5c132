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
#include "readers/mime/MimeRules.h"

namespace qh {

class MIMEReader {
public:
    // Parts nested deeper than this are left unexpanded: their delimiter lines
    // are read as ordinary lines. Real mail nests four or five levels.
    static constexpr int kMaxPartDepth = 64;
    // The part list stops growing here; no real message comes near it.
    static constexpr std::size_t kMaxParts = 10000;

    // Null for no bytes; otherwise parses at once (an unreadable message gives
    // an empty record).
    static std::unique_ptr<MIMEReader> initWithData(ByteView data);
    // The same, reading as `rules` say (the classic rules above).
    static std::unique_ptr<MIMEReader> initWithData(ByteView data, const MimeRules& rules);

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

    // The part list of a parse in progress (readMIMEMail moves it into its record).
    const Array& globalContentArray() const { return globalContentArray_; }

private:
    struct Budget;
    struct Part;

    // `lineIndex` comes back exact only when `countLines` says it is wanted
    // (counting the lines of a long body is a pass over it).
    Dict interpretPart(std::string_view text, std::optional<std::string_view> endLine, std::int64_t& lineIndex,
                       int depth, bool countLines);
    void startBudget(std::size_t inputSize);

    MimeRules rules_ = MimeRules::of(Reading::classic);
    Dict mimeContentDictionary_;
    Array globalContentArray_;
    std::shared_ptr<Budget> budget_;
};

}  // namespace qh
