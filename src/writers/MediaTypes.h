#pragma once
// File name extensions to media types, as Debian's media-types package lists
// them in /etc/mime.types ("type/subtype ext1 ext2 ..."). The system table is
// read once, on first use; a missing file gives an empty table.
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace qh {

class MediaTypes {
public:
    // A table from text in the mime.types layout; the first type listing an extension wins.
    static MediaTypes fromText(std::string_view text);
    // The table of /etc/mime.types.
    static const MediaTypes& system();

    // The media type for the extension of `fileName` (any case), or none.
    std::optional<std::string> forFileName(std::string_view fileName) const;
    std::size_t size() const { return byExtension_.size(); }

private:
    std::unordered_map<std::string, std::string> byExtension_;
};

}  // namespace qh
