#pragma once
// The four entry points the preview service reaches through the callback
// table. Generation is synchronous and short: there is nothing to cancel, and
// the plug-in makes no thumbnails (the host falls back to its own).
#include "plugin/HostAPI.h"

extern "C" {

// Previews a .msg document of one of the two accepted content types: RTF when
// the message has a compressed-RTF body, UTF-8 plain text otherwise. Any other
// content type, an unreadable file or a file that is no compound document sets
// no preview. Always answers 0.
OSStatus GeneratePreviewForURL(void* thisInterface, QLPreviewRequestRef preview, CFURLRef url,
                               CFStringRef contentTypeUTI, CFDictionaryRef options);
void CancelPreviewGeneration(void* thisInterface, QLPreviewRequestRef preview);

// Does nothing; answers 0.
OSStatus GenerateThumbnailForURL(void* thisInterface, QLThumbnailRequestRef thumbnail, CFURLRef url,
                                 CFStringRef contentTypeUTI, CFDictionaryRef options, CGSize maxSize);
void CancelThumbnailGeneration(void* thisInterface, QLThumbnailRequestRef thumbnail);
}
