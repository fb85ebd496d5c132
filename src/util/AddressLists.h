#pragma once
// Address header text to address lists ({"Name", "Address"} records), address
// records from separate tags, contact-list rendering, and two TNEF helpers.
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <quillhaven/Bytes.h>
#include <quillhaven/Value.h>

namespace qh {

// Splits a header at its quoted names (or at every "," when there are none).
Array processEmailAddresses(std::string_view header);
// The quoted names processEmailAddresses splits at: {offset, length} of each,
// left to right, as the pattern "(\([^)]*\)|[^"])*" finds them.
std::vector<std::pair<std::size_t, std::size_t>> findQuotedNames(std::string_view text);
// One "Name <address>" or bare address as a record.
Dict createEmailDictionary(std::string_view text);
// A record from a name and an address; either may be absent.
Dict buildAddressFromTags(std::optional<std::string_view> name, std::optional<std::string_view> address);
// "<a href=\"mailto:ADDR\">NAME</a>, ..." (the last ", " removed); "" for
// anything but an array.
std::string buildHTMLContactList(const Value& list);
std::string buildHTMLContactList(const Array& list);
// The plain-text rendering: "NAME <ADDR>, ..." (NAME alone when it is the address).
std::string buildContactList(const Array& list);
// Whether the C text (up to its NUL or the end of the view) contains "<html", any case.
bool typeIsHTML(ByteView text);
bool typeIsHTML(const char* text);
// The TNEF reader's conversion of a UTF-16LE property value: every output
// character derives from the FIRST input byte (b, b+2, b+4, ...), with the
// two-byte form ending at 0x7FE (the classic TNEF reading's property texts).
// Returns the bytes written before the terminating NUL.
std::string makeUTF8(ByteView utf16le);
// "<user caches>/Quillhaven", created when missing; the caches folder itself
// when it cannot be created.
std::string getTempCacheDirectory();

}  // namespace qh
