#include "plugin/PluginFactory.h"

#include "plugin/GeneratorEntryPoints.h"
#include "plugin/PluginIDs.h"

namespace {

CFUUIDRef uuidConstant(const unsigned char (&b)[16]) {
    return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8],
                                          b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
}

// Every instance's table starts as this one; the entry points are filled in
// when the host asks for the callbacks interface.
const QLGeneratorInterfaceStruct kInterfaceTemplate = {
    nullptr,
    QuickLookGeneratorQueryInterface,
    QuickLookGeneratorPluginAddRef,
    QuickLookGeneratorPluginRelease,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

extern "C" {

QuickLookGeneratorPluginType* AllocQuickLookGeneratorPluginType(CFUUIDRef inFactoryID) {
    auto* instance = new QuickLookGeneratorPluginType;
    instance->conduitInterface = new QLGeneratorInterfaceStruct(kInterfaceTemplate);
    instance->factoryID = static_cast<CFUUIDRef>(CFRetain(inFactoryID));
    CFPlugInAddInstanceForFactory(inFactoryID);
    instance->refCount = 1;
    return instance;
}

void DeallocQuickLookGeneratorPluginType(QuickLookGeneratorPluginType* thisInstance) {
    CFUUIDRef factoryID = thisInstance->factoryID;
    delete thisInstance->conduitInterface;
    delete thisInstance;
    if (factoryID) {
        CFPlugInRemoveInstanceForFactory(factoryID);
        CFRelease(factoryID);
    }
}

HRESULT QuickLookGeneratorQueryInterface(void* thisInstance, REFIID iid, LPVOID* ppv) {
    auto* instance = static_cast<QuickLookGeneratorPluginType*>(thisInstance);
    CFUUIDRef interfaceID = CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, iid);
    if (CFEqual(interfaceID, uuidConstant(qh::plugin::kGeneratorCallbacksInterfaceID))) {
        QLGeneratorInterfaceStruct* table = instance->conduitInterface;
        table->GenerateThumbnailForURL = GenerateThumbnailForURL;
        table->CancelThumbnailGeneration = CancelThumbnailGeneration;
        table->GeneratePreviewForURL = GeneratePreviewForURL;
        table->CancelPreviewGeneration = CancelPreviewGeneration;
        table->AddRef(instance);
        *ppv = thisInstance;
        CFRelease(interfaceID);
        return S_OK;
    }
    *ppv = nullptr;
    CFRelease(interfaceID);
    return E_NOINTERFACE;
}

ULONG QuickLookGeneratorPluginAddRef(void* thisInstance) {
    auto* instance = static_cast<QuickLookGeneratorPluginType*>(thisInstance);
    instance->refCount += 1;
    return instance->refCount;
}

ULONG QuickLookGeneratorPluginRelease(void* thisInstance) {
    auto* instance = static_cast<QuickLookGeneratorPluginType*>(thisInstance);
    instance->refCount -= 1;
    if (instance->refCount == 0) {
        DeallocQuickLookGeneratorPluginType(instance);
        return 0;
    }
    return instance->refCount;
}

void* QuickLookGeneratorPluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID) {
    if (!CFEqual(typeID, uuidConstant(qh::plugin::kGeneratorTypeID))) return nullptr;
    CFUUIDRef uuid = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR(QH_PLUGIN_FACTORY_UUID));
    QuickLookGeneratorPluginType* result = AllocQuickLookGeneratorPluginType(uuid);
    CFRelease(uuid);
    return result;
}
}
