#pragma once
// RFC 2047 encoded words ("=?iso-8859-1?Q?Some_=DFtring?="), read in any
// charset ICU knows. Parse functions work over a cursor: on a match they
// consume what they read and return true; otherwise they return false and
// leave the cursor where it was.
#include <string>
#include <string_view>

#include <quillhaven/Bytes.h>

namespace qh::rfc2047 {

struct EncodedWord {
    std::string charset;   // as written, the RFC 2231 language suffix removed
    std::string language;  // "" when none
    Bytes bytes;           // the encoded text decoded, still in `charset`
};

// encoded-word = "=?" charset ["*" language] "?" encoding "?" encoded-text "?="
// encoding = "B" / "Q" (either case); encoded-text has no "?" and no white space.
bool parseEncodedWord(std::string_view& cursor, EncodedWord& out);

// The "Q" encoding: "_" is a blank, "=XX" a byte; other characters stand for
// themselves (a malformed "=" too).
Bytes decodeQ(std::string_view text);

// Unstructured header text with every encoded word decoded. White space
// between two adjacent encoded words is dropped, and adjacent words in the same
// charset are joined before conversion (a character may be split between
// them). Raw 8-bit text that is not UTF-8 is read as Windows-1252.
std::string decodeText(std::string_view text);

// One header word ("=?utf-8?B?...?=") the writer side encodes: UTF-8, "B" when
// more than a third of the bytes need escaping, else "Q"; text that is plain
// printable ASCII comes back unchanged.
std::string encodeWord(std::string_view utf8);

}  // namespace qh::rfc2047
