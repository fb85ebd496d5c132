#pragma once
// MIME header values with parameters (RFC 2045 section 5.1, RFC 2231):
// "text/plain; charset=iso-8859-1", "attachment; filename*0*=utf-8''%E2%82;
// filename*1*=%AC.txt". Parse functions work over a cursor: on a match they
// consume what they read and return true; otherwise they return false and
// leave the cursor where it was.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qh::rfc2231 {

// One parameter as written: name without its section and "*", values
// still encoded.
struct RawParameter {
    std::string name;     // lower-case
    int section = -1;     // -1 when the name has no "*<n>"
    bool extended = false;  // the name ended in "*": charset'language'percent-escapes
    std::string value;    // quotes removed, quoted pairs resolved
};

// token = 1*<any CHAR except SPACE, CTLs, or tspecials>
bool parseToken(std::string_view& cursor, std::string& out);
// quoted-string = DQUOTE *(qtext / quoted-pair) DQUOTE (an unclosed one runs to the end)
bool parseQuotedString(std::string_view& cursor, std::string& out);
// parameter = attribute ["*" section] ["*"] "=" value; value = token / quoted-string.
// An unquoted value with blanks in it (seen in the wild) runs to the next ";".
bool parseParameter(std::string_view& cursor, RawParameter& out);

// A header value and its parameters, continuations joined and values decoded
// to UTF-8 (RFC 2231 charset'language'value, RFC 2047 words inside quotes as
// many mailers write them, raw 8-bit as UTF-8 or Windows-1252).
struct ContentValue {
    std::string value;  // "text/plain", "attachment": lower-case, trimmed
    std::vector<std::pair<std::string, std::string>> parameters;  // names lower-case, first of a name wins
    // The value of parameter `name` (lower-case), null when absent.
    const std::string* parameter(std::string_view name) const;
};
ContentValue parseContentValue(std::string_view text);

// "%XX" escapes to bytes (a malformed "%" stays as it is).
std::string percentDecode(std::string_view text);

}  // namespace qh::rfc2231
