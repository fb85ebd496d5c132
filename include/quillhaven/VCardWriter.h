#pragma once
// vCard 3.0 (RFC 2426) text of a contact item: the contact keys of
// quillhaven/ItemKeys.h plus "Subject"/"Body" as fallbacks for the name and the note.
// Lines end in CR LF, are folded at 75 octets (never inside a UTF-8 sequence)
// and values escape backslash, comma, semicolon and line breaks.
#include <string>

#include <quillhaven/Value.h>

namespace qh {

class VCardWriter {
public:
    static std::string write(const Dict& item);
};

}  // namespace qh
