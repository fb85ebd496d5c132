#include "writers/UniqueMessageIds.h"

#include <quillhaven/MimeWriter.h>

namespace qh {

std::optional<std::string_view> UniqueMessageIds::find(std::string_view text) {
    std::size_t headerEnd = text.find("\n\n");
    if (std::size_t crlf = text.find("\r\n\r\n"); crlf < headerEnd) headerEnd = crlf;
    std::size_t at = text.starts_with("Message-ID: ") ? 0 : text.find("\nMessage-ID: ");
    if (at == std::string_view::npos || at > headerEnd) return std::nullopt;
    std::size_t start = text.find(' ', at) + 1;
    std::size_t end = text.find_first_of("\r\n", start);
    if (end == std::string_view::npos) end = text.size();
    return text.substr(start, end - start);
}

void UniqueMessageIds::makeUnique(std::string& text) {
    std::optional<std::string_view> id = find(text);
    if (!id || add(*id)) return;
    std::size_t start = static_cast<std::size_t>(id->data() - text.data());
    std::size_t length = id->size();
    std::string fresh = MimeWriter::freshMessageId();
    add(fresh);
    text.replace(start, length, fresh);
}

}  // namespace qh
