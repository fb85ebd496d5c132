#pragma once
// The header and part texts of the MIME messages that WriteEML writes.
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

class MailFormatters {
public:
    // "\n--<boundary>\n".
    static std::string boundaryTagWithBoundary(std::string_view boundary);
    // The multipart/alternative content type (kept for callers; the writer does not use it).
    static std::string mailContentTagWithBoundary(std::string_view boundary);
    // The message's content type: multipart/related on systems newer than
    // 10.8, multipart/mixed on older ones.
    static std::string contentTagWithBoundary(std::string_view boundary);
    // A value read from a message, made fit for one header line: every run of
    // CR and LF characters becomes one space. Anything else stays as it is.
    static std::string singleLine(std::string_view value);
    // One "\"Name\" <address>,\n " entry per valid address, the last comma
    // kept, then "\n".
    static std::string formatMailingList(const Array& addresses);
    // The body parts (raw mail, HTML, RTF or plain text) of a message dictionary.
    static std::string messageContent(const Dict& message, std::string_view boundary);
    // One base64 part per attachment with data; `convertType` is not consulted.
    static std::string attachmentContents(const Dict& message, std::string_view boundary, bool convertType);
};

}  // namespace qh
