#pragma once
// The pieces of a standards-conformant MIME message: header fields folded
// under 78 columns, RFC 2047 encoded words, RFC 5322 address and msg-id
// checks, RFC 2045 / RFC 2231 parameters, and quoted-printable and base64
// body lines of at most 76 characters. Everything here takes text from a
// hostile file: no value can end a header line early, and every output line
// ends in CR LF.
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qh::mime {

// One header field as it is written: "Name:" then words, each after its white
// space, folded before a word (at that white space) when the line would pass
// 78 columns. A word without white space before it is never folded from the
// one before.
class FieldWriter {
public:
    explicit FieldWriter(std::string_view name);
    void add(std::string_view word, std::string_view space = " ");
    // Glues `text` to the last word (a ",", ";" or ">"), never folding before it.
    void attach(std::string_view text) { add(text, ""); }
    // Folds before the next word when `length` more characters (a whole
    // mailbox, say) would not fit on the current line.
    void keepTogether(std::size_t length);
    bool empty() const { return words_ == 0; }
    // The field with its final CR LF.
    std::string finish() const;

private:
    std::string text_;
    std::size_t lineStart_ = 0;
    std::size_t words_ = 0;
    bool foldNext_ = false;
};

// A word with the white space written before it.
struct Word {
    std::string space;
    std::string word;
};

// Text from a file made safe for a header: invalid UTF-8 as U+FFFD, NULs
// dropped, every other control character (CR, LF and TAB included) as a
// blank, trimmed.
std::string cleanText(std::string_view text);
bool isASCII(std::string_view text);

// RFC 2047 encoded words ("=?UTF-8?Q?...?=" or "?B?", whichever is shorter)
// carrying `text`, each at most 64 characters and never splitting a
// character. Q words use only the characters RFC 2047 5(3) allows in a
// phrase, so they serve every place a word may stand.
std::vector<std::string> encodedWords(std::string_view text);
std::vector<std::string> encodedWordsB(std::string_view text);

// An unstructured value (Subject): plain words where they are ASCII, encoded
// words for runs that are not (or that look like encoded words, or that are
// too long to fold); white space between words kept.
std::vector<Word> unstructuredWords(std::string_view text);
// The same words handed to `emit` (white space, word) one at a time as they
// are made, so that a value of any size costs its text and one word: a list of
// the words of a 10 MB subject would hold several times the subject.
void unstructuredWords(std::string_view text,
                       const std::function<void(std::string_view space, std::string_view word)>& emit);
// A display name (RFC 5322 phrase): atoms, else one quoted string, else
// encoded words. Empty for an empty name.
std::vector<Word> phraseWords(std::string_view name);

// RFC 5322 3.2.3 dot-atom-text.
bool isDotAtomText(std::string_view text);
// RFC 5322 3.4.1 addr-spec (local-part "@" domain), ASCII only.
bool isAddrSpec(std::string_view text);
// RFC 5322 3.6.4 msg-id without its angle brackets: id-left "@" id-right.
bool isMsgIdContent(std::string_view text);

// A parameter "attribute=value" as one or more pieces to join with "; ":
// a quoted string when the value is short ASCII, RFC 2231 continuations
// (attribute*0="...") when it is long, RFC 2231 extended values
// (attribute*=utf-8''%E2%82%AC...) when it is not ASCII.
std::vector<std::string> parameter(std::string_view attribute, std::string_view value);
// `attribute="=?UTF-8?B?...?="`: the RFC 2047 form old clients read for
// names; empty when the value is ASCII (then parameter() serves all).
std::string encodedWordParameter(std::string_view attribute, std::string_view value);
// A parameter value as an RFC 2045 quoted string.
std::string quotedString(std::string_view text);

// Every line end (CR LF, LF, lone CR) as CR LF.
std::string crlfLineEnds(std::string_view text);

enum class TransferEncoding { sevenBit, quotedPrintable, base64 };
std::string_view transferEncodingName(TransferEncoding encoding);
// For text with CR LF line ends: 7bit when it is short-lined printable
// ASCII, else quoted-printable when few bytes need escapes, else base64.
TransferEncoding chooseTextEncoding(std::string_view crlfText);
// RFC 2045 6.7 quoted-printable of text with CR LF line ends: hard line ends
// kept, soft breaks before column 76, "From " at a line start escaped so
// that mbox readers never mistake it for a separator.
std::string quotedPrintable(std::string_view crlfText);
// Base64 in lines of 76 characters joined by CR LF.
std::string base64Lines(ByteView data);
// The text in the chosen encoding.
std::string encodeText(std::string_view crlfText, TransferEncoding encoding);

}  // namespace qh::mime
