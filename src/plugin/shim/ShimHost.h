#pragma once
// The host side of the shim: drives the plug-in the way the preview service
// does (factory, query-interface for the generator callbacks, one entry point,
// release) and hands back what the plug-in set on the request.
#include <string>

#include "plugin/shim/HostShim.h"

namespace qh::shim {

class ShimHost {
public:
    struct PreviewOutcome {
        bool loaded = false;  // the factory made an instance that has the callbacks interface
        OSStatus status = 0;
        QHPreviewRequestRecord request;
    };
    struct ThumbnailOutcome {
        bool loaded = false;
        OSStatus status = 0;
        QHThumbnailRequestRecord request;
    };

    static PreviewOutcome generatePreview(const std::string& path, const std::string& contentType);
    static ThumbnailOutcome generateThumbnail(const std::string& path, const std::string& contentType,
                                              CGSize maxSize = {128, 128});
};

}  // namespace qh::shim
