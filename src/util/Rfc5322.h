#pragma once
// RFC 5322 header grammar: address lists, dates and message identifiers, with
// the obsolete forms of its section 4 that real mail still uses. Parse
// functions work over a cursor: on a match they consume what they read and
// return true; otherwise they return false and leave the cursor where it was.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Value.h>

namespace qh::rfc5322 {

struct Mailbox {
    std::string name;     // display name, encoded words decoded; "" when none
    std::string address;  // addr-spec as written, without angle brackets
};

// CFWS = (1*([FWS] comment) [FWS]) / FWS; comment = "(" *([FWS] ccontent) [FWS] ")".
// The text of the comments read goes to `comments` when given.
bool skipCFWS(std::string_view& cursor, std::string* comments = nullptr);
// quoted-string = [CFWS] DQUOTE *([FWS] qcontent) [FWS] DQUOTE [CFWS]
bool parseQuotedString(std::string_view& cursor, std::string& out);
// atom = [CFWS] 1*atext [CFWS]
bool parseAtom(std::string_view& cursor, std::string& out);
// phrase = 1*word / obs-phrase (word *(word / "." / CFWS)); word = atom / quoted-string.
// Encoded words in atoms and (as mailers write them) in quoted strings are decoded.
bool parsePhrase(std::string_view& cursor, std::string& out);
// addr-spec = local-part "@" domain (obsolete forms with CFWS between the dots kept whole)
bool parseAddrSpec(std::string_view& cursor, std::string& out);
// angle-addr = [CFWS] "<" [obs-route] addr-spec ">" [CFWS]; "<>" gives "".
bool parseAngleAddr(std::string_view& cursor, std::string& out);
// mailbox = name-addr / addr-spec; name-addr = [display-name] angle-addr.
// An addr-spec followed by a comment takes the comment as its name.
bool parseMailbox(std::string_view& cursor, Mailbox& out);
// group = display-name ":" [group-list] ";" [CFWS]: the members.
bool parseGroup(std::string_view& cursor, std::vector<Mailbox>& out);
// address = mailbox / group
bool parseAddress(std::string_view& cursor, std::vector<Mailbox>& out);
// address-list = (address *("," address)) / obs-addr-list. What does not parse
// up to the next "," is kept as well as it can be (a "<...>" in it as the
// address, else the text as the address). At most `limit` mailboxes.
std::vector<Mailbox> parseAddressList(std::string_view text, std::size_t limit = 10000);

// date-time = [day-of-week ","] date time [CFWS], with obs-zone names, two-
// and three-digit years and missing seconds; none when it does not parse.
std::optional<Date> parseDateTime(std::string_view text);

// The date-time of `date` in UTC, "Tue, 05 Mar 2024 10:02:03 +0000"; none
// outside the years 1900 to 9999 (four digits, what every mail reader
// accepts). The names are RFC 5322's own, whatever the user's locale.
std::optional<std::string> formatDateTime(Date date);

// msg-id = [CFWS] "<" id-left "@" id-right ">" [CFWS]: "<...>" as written.
bool parseMsgId(std::string_view& cursor, std::string& out);
// The identifiers of an In-Reply-To or References field, joined by one blank;
// the trimmed text when it holds none.
std::string msgIdList(std::string_view text);

// A header field: name ":" unstructured CRLF; the value unfolded (line breaks
// removed, the white space of the continuation kept) and trimmed.
struct Field {
    std::string name;
    std::string value;
};
// One field of a header block whose line ends are LF; false at the empty line
// that ends the block or at the end. A line that is neither a field nor a
// continuation is skipped.
bool parseField(std::string_view& cursor, Field& out);
// Every field of the header block at the start of `text` (up to `limit`).
std::vector<Field> parseFields(std::string_view text, std::size_t limit = 4096);

}  // namespace qh::rfc5322
