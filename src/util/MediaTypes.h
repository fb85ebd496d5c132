#pragma once
// File-name extensions for media types and back: a small table of the types
// mail carries, then Debian's /etc/mime.types (media-types), read once, when
// first needed.
#include <string>
#include <string_view>

namespace qh {

class MediaTypes {
public:
    // "png" for "image/png" (any case, parameters ignored); "bin" when unknown.
    static std::string extensionFor(std::string_view mediaType);
    // "image/png" for "png" or "x.PNG"; "application/octet-stream" when unknown.
    static std::string mediaTypeFor(std::string_view fileNameOrExtension);
};

}  // namespace qh
