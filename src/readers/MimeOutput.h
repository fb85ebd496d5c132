#pragma once
// The MIME text a message dictionary is converted to, in the writer the
// reading asks for. The command's `convert` and the Python package's
// `convert` both go through here, so they write the same bytes.
#include <optional>
#include <string>

#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>

namespace qh {

class MimeOutput {
public:
    // The message as MIME text: standards-conformant MIME (MimeWriter, its
    // attached messages read and written again) for the complete reading, the
    // EML writer's text for the classic one. None when there is no dictionary.
    static std::optional<std::string> write(const Dict* message, const ReadOptions& options);
};

}  // namespace qh
