#include "plugin/shim/ShimHost.h"

#include "plugin/PluginFactory.h"
#include "plugin/PluginIDs.h"

namespace qh::shim {

namespace {

CFUUIDRef constantUUID(const unsigned char (&b)[16]) {
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8],
                                          b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
}

// An instance's first word points at its interface table, as for any COM-style
// plug-in; the host sees nothing else of it.
QLGeneratorInterfaceStruct* tableOf(void* instance) { return *static_cast<QLGeneratorInterfaceStruct**>(instance); }

// Loads the plug-in as a host does and hands the generator interface to
// `use`; releases every reference the host took before returning.
template <typename Use>
bool withGenerator(Use use) {
    void* instance = QuickLookGeneratorPluginFactory(kCFAllocatorDefault, constantUUID(plugin::kGeneratorTypeID));
    if (!instance) return false;
    LPVOID generator = nullptr;
    HRESULT result = tableOf(instance)->QueryInterface(
        instance, CFUUIDGetUUIDBytes(constantUUID(plugin::kGeneratorCallbacksInterfaceID)), &generator);
    // The factory's reference goes; the interface holds its own.
    tableOf(instance)->Release(instance);
    if (result != S_OK || !generator) return false;
    use(generator, tableOf(generator));
    tableOf(generator)->Release(generator);
    return true;
}

struct HostObjects {
    HostObjects(const std::string& path, const std::string& contentType)
        : url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                      reinterpret_cast<const UInt8*>(path.data()),
                                                      static_cast<CFIndex>(path.size()), false)),
          type(CFStringCreateWithCString(kCFAllocatorDefault, contentType.c_str(), kCFStringEncodingUTF8)) {}
    ~HostObjects() {
        CFRelease(url);
        CFRelease(type);
    }
    HostObjects(const HostObjects&) = delete;
    HostObjects& operator=(const HostObjects&) = delete;
    CFURLRef url;
    CFStringRef type;
};

}  // namespace

ShimHost::PreviewOutcome ShimHost::generatePreview(const std::string& path, const std::string& contentType) {
    PreviewOutcome outcome;
    HostObjects objects(path, contentType);
    outcome.loaded = withGenerator([&](void* generator, QLGeneratorInterfaceStruct* table) {
        outcome.status = table->GeneratePreviewForURL(generator, &outcome.request, objects.url, objects.type, nullptr);
    });
    return outcome;
}

ShimHost::ThumbnailOutcome ShimHost::generateThumbnail(const std::string& path, const std::string& contentType,
                                                       CGSize maxSize) {
    ThumbnailOutcome outcome;
    HostObjects objects(path, contentType);
    outcome.loaded = withGenerator([&](void* generator, QLGeneratorInterfaceStruct* table) {
        outcome.status =
            table->GenerateThumbnailForURL(generator, &outcome.request, objects.url, objects.type, nullptr, maxSize);
    });
    return outcome;
}

}  // namespace qh::shim
