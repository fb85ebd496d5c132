#include "plugin/GeneratorEntryPoints.h"

#include <optional>
#include <vector>

#include "plugin/MsgMetaData.h"
#include "plugin/PluginIDs.h"
#include "plugin/WholeFile.h"

namespace {

bool isAcceptedContentType(CFStringRef contentTypeUTI) {
    if (!contentTypeUTI) return false;
    return CFEqual(contentTypeUTI, CFSTR(QH_MSG_CONTENT_TYPE)) || CFEqual(contentTypeUTI, CFSTR(QH_LITE_MSG_CONTENT_TYPE));
}

std::optional<qh::Bytes> readDocument(CFURLRef url) {
    if (!url) return std::nullopt;
    std::vector<UInt8> path(4096);
    if (!CFURLGetFileSystemRepresentation(url, true, path.data(), static_cast<CFIndex>(path.size()))) return std::nullopt;
    return qh::plugin::WholeFile::read(reinterpret_cast<const char*>(path.data()));
}

void setRepresentation(QLPreviewRequestRef preview, const std::uint8_t* bytes, std::size_t length,
                       CFStringRef contentType) {
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, bytes, static_cast<CFIndex>(length));
    if (!data) return;
    QLPreviewRequestSetDataRepresentation(preview, data, contentType, nullptr);
    CFRelease(data);
}

}  // namespace

extern "C" {

OSStatus GeneratePreviewForURL(void* thisInterface, QLPreviewRequestRef preview, CFURLRef url,
                               CFStringRef contentTypeUTI, CFDictionaryRef options) {
    if (!isAcceptedContentType(contentTypeUTI)) return noErr;
    try {
        // A file that cannot be read goes on as no bytes, which no reader opens.
        std::optional<qh::Bytes> document = readDocument(url);
        qh::PreviewBody body = qh::msgMetaData(document ? qh::ByteView(*document) : qh::ByteView());
        if (auto* text = std::get_if<std::string>(&body)) {
            setRepresentation(preview, reinterpret_cast<const std::uint8_t*>(text->data()), text->size(),
                              kUTTypePlainText);
        } else if (auto* rtf = std::get_if<qh::Bytes>(&body)) {
            setRepresentation(preview, rtf->data(), rtf->size(), kUTTypeRTF);
        }
    } catch (...) {
        // The host is C: nothing may unwind into it. A preview that fails part
        // way simply is not set.
    }
    return noErr;
}

void CancelPreviewGeneration(void* thisInterface, QLPreviewRequestRef preview) {}

OSStatus GenerateThumbnailForURL(void* thisInterface, QLThumbnailRequestRef thumbnail, CFURLRef url,
                                 CFStringRef contentTypeUTI, CFDictionaryRef options, CGSize maxSize) {
    return noErr;
}

void CancelThumbnailGeneration(void* thisInterface, QLThumbnailRequestRef thumbnail) {}
}
