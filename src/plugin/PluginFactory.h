#pragma once
// The plug-in as the host loads it: a factory that makes instances, and the
// COM-style interface of an instance (query-interface, add-ref, release) whose
// callback table carries the generator's entry points. Reference counting is
// not atomic: the host creates, queries and releases an instance from one
// thread at a time.
#include "plugin/HostAPI.h"

// One instance: its own callback table, the factory UUID (retained while the
// instance lives) and the reference count.
struct QuickLookGeneratorPluginType {
    QLGeneratorInterfaceStruct* conduitInterface;
    CFUUIDRef factoryID;
    UInt32 refCount;
};

extern "C" {

// An instance when `typeID` is the preview service's generator type, else none.
void* QuickLookGeneratorPluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID);

QuickLookGeneratorPluginType* AllocQuickLookGeneratorPluginType(CFUUIDRef inFactoryID);
void DeallocQuickLookGeneratorPluginType(QuickLookGeneratorPluginType* thisInstance);

// S_OK with the instance (one more reference) for the generator callbacks
// interface, whose four entry-point slots it fills; E_NOINTERFACE and none else.
HRESULT QuickLookGeneratorQueryInterface(void* thisInstance, REFIID iid, LPVOID* ppv);
ULONG QuickLookGeneratorPluginAddRef(void* thisInstance);
// Deallocates the instance when the count drops to 0.
ULONG QuickLookGeneratorPluginRelease(void* thisInstance);
}
