#pragma once
// Where the classic and the complete reading of an Internet message part ways:
// every difference is one rule here, and the MIME parser and the EML reader
// ask the rule instead of the reading. docs/readings.md lists them side by side.
#include <quillhaven/Reading.h>

namespace qh {

struct MimeRules {
    // classic: the message's first line is never read (for a nested part it is
    // the rest of the delimiter line): dictionaries compared byte for byte
    // depend on the first header missing. complete: 6 of 11 real messages
    // start with From, which would be lost.
    enum class FirstLine { Skipped, Read } firstLine;
    // classic: the last line of a message and a header pending there are never
    // handled. complete: a message without a final line break keeps its last
    // line, and one without a body keeps its last header.
    enum class LastLine { NeverRead, Read } lastLine;
    // classic: a message that is not UTF-8 gives an empty record. complete:
    // 8-bit mail in a local code page is read byte for byte, decoded per part.
    enum class EightBit { NoRecord, BytesAsTheyAre } eightBit;
    // classic: only the first Content-Type parameter is seen, file names are
    // lower-cased and keep the parameters after them, a description stands in
    // for a name. complete: RFC 2045/2231 parameters (quoted strings,
    // continuations, charset'lang'value), a name is the value alone, case kept,
    // and of two Content-Type fields the first counts.
    enum class Parameters { FirstOnly, Rfc2231 } parameters;
    // classic: a first line without ":" is skipped as a malformed header.
    // complete: a part may have no header fields (RFC 2046); its body starts
    // there (later malformed lines in a header block are still skipped).
    enum class Headerless { Skipped, BodyStarts } headerless;
    // classic: a delimiter is found anywhere in the text, and the text after
    // the nested parts is read again as headers (the records come twice; the
    // duplicate-name check drops them); the epilogue is read as a part.
    // complete: a delimiter starts a line (RFC 2046), the multipart ends at
    // its closing delimiter, preamble and epilogue are no parts.
    enum class Nesting { SplitAnywhere, ByRfc2046 } nesting;

    // classic: only UTF-8 "B" words are decoded in the subject, the address
    // lists come from the parser's split at quotes, "Date" is the text alone.
    // complete: RFC 2047 words in any charset, RFC 5322 address lists (groups,
    // quoted names with commas, comments), "TimeStamp", "ReplyTo",
    // "MessageID", "InReplyTo", "References"; header names in any case.
    enum class Headers { Classic, Rfc5322 } headers;
    // classic: "Header" holds only the "X-" fields (readers of the family show
    // them as extra fields). complete: the whole header block as it stands.
    enum class HeaderText { XFieldsOnly, WholeBlock } headerText;
    // classic: eight charsets are known, everything else (ISO 8859 too) is read
    // as ASCII, so such bodies vanish. complete: any charset ICU knows, then
    // UTF-8, then Windows-1252: never nothing.
    enum class Charsets { EightKnown, AnyIcu } charsets;
    // classic: bodies keep their non-empty lines, trimmed, "http:" becomes
    // "https:", a quoted-printable body is kept raw as "RawMail" and as
    // "<BR>" HTML. complete: the body as sent, blank lines and links untouched;
    // no "RawMail".
    enum class Bodies { Rewritten, AsSent } bodies;
    // classic: only named parts are attachments (the first of a name wins) and
    // text parts hold text. complete: every leaf part that is not the chosen
    // plain or HTML body is an attachment (signatures, unnamed images,
    // attached messages as "<subject>.eml"), its data always bytes, with its
    // media type, content id and disposition.
    enum class Attachments { NamedFirstWins, EveryLeaf } attachments;
    // classic: cid: images are written into the HTML as data: addresses,
    // matched by file name. complete: the HTML keeps its cid: references; the
    // image is an attachment with its content id, as a writer needs it.
    enum class InlineImages { DataAddresses, CidKept } inlineImages;

    static MimeRules of(Reading reading) {
        if (reading == Reading::complete) {
            return {FirstLine::Read,         LastLine::Read,           EightBit::BytesAsTheyAre,
                    Parameters::Rfc2231,     Headerless::BodyStarts,   Nesting::ByRfc2046,       Headers::Rfc5322,
                    HeaderText::WholeBlock,  Charsets::AnyIcu,         Bodies::AsSent,
                    Attachments::EveryLeaf,  InlineImages::CidKept};
        }
        return {FirstLine::Skipped,          LastLine::NeverRead,      EightBit::NoRecord,
                Parameters::FirstOnly,       Headerless::Skipped,      Nesting::SplitAnywhere,   Headers::Classic,
                HeaderText::XFieldsOnly,     Charsets::EightKnown,     Bodies::Rewritten,
                Attachments::NamedFirstWins, InlineImages::DataAddresses};
    }
};

}  // namespace qh
