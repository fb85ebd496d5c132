#pragma once
// A stand-in for the few Core Foundation and Quick Look calls the preview
// plug-in makes, so that the plug-in's own source builds and runs where those
// frameworks do not exist (and in the command and the tests on every system).
// It behaves as a host does: reference-counted objects, UUID equality, plug-in
// instance registration; and it records what the plug-in hands over to a
// preview request instead of showing it.
//
// The functions keep the frameworks' names in source; at link level they carry
// a "qhshim_" prefix so that they never meet the real ones.
#include <cstdint>
#include <optional>
#include <string>

#include <quillhaven/Bytes.h>

#define CFRetain qhshim_CFRetain
#define CFRelease qhshim_CFRelease
#define CFEqual qhshim_CFEqual
#define CFUUIDGetConstantUUIDWithBytes qhshim_CFUUIDGetConstantUUIDWithBytes
#define CFUUIDCreateFromString qhshim_CFUUIDCreateFromString
#define CFUUIDCreateFromUUIDBytes qhshim_CFUUIDCreateFromUUIDBytes
#define CFUUIDGetUUIDBytes qhshim_CFUUIDGetUUIDBytes
#define CFStringCreateWithCString qhshim_CFStringCreateWithCString
#define CFStringGetCStringPtr qhshim_CFStringGetCStringPtr
#define CFURLCreateFromFileSystemRepresentation qhshim_CFURLCreateFromFileSystemRepresentation
#define CFURLGetFileSystemRepresentation qhshim_CFURLGetFileSystemRepresentation
#define CFDataCreate qhshim_CFDataCreate
#define CFDataGetBytePtr qhshim_CFDataGetBytePtr
#define CFDataGetLength qhshim_CFDataGetLength
#define CFPlugInAddInstanceForFactory qhshim_CFPlugInAddInstanceForFactory
#define CFPlugInRemoveInstanceForFactory qhshim_CFPlugInRemoveInstanceForFactory
#define QLPreviewRequestSetDataRepresentation qhshim_QLPreviewRequestSetDataRepresentation

typedef unsigned char Boolean;
typedef std::uint8_t UInt8;
typedef std::uint32_t UInt32;
typedef std::int32_t SInt32;
typedef long CFIndex;
typedef SInt32 OSStatus;
typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef UInt32 CFStringEncoding;

struct CFUUIDBytes {
    UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
    UInt8 byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
};
typedef CFUUIDBytes REFIID;

struct CGSize {
    double width;
    double height;
};

// Every object handed out is one of these: a reference count and a kind.
struct QHShimObject {
    virtual ~QHShimObject() = default;
    virtual bool equals(const QHShimObject& other) const = 0;
    long retainCount = 1;
    bool constant = false;  // CFSTR strings and constant UUIDs live forever
};
struct QHShimAllocator;
struct QHShimUUID;
struct QHShimString;
struct QHShimURL;
struct QHShimData;
struct QHShimDictionary;

typedef const void* CFTypeRef;
typedef const QHShimAllocator* CFAllocatorRef;
typedef const QHShimUUID* CFUUIDRef;
typedef const QHShimString* CFStringRef;
typedef const QHShimURL* CFURLRef;
typedef const QHShimData* CFDataRef;
typedef const QHShimDictionary* CFDictionaryRef;

#define kCFAllocatorDefault (static_cast<CFAllocatorRef>(nullptr))
#define kCFStringEncodingUTF8 static_cast<CFStringEncoding>(0x08000100)
#define noErr 0
#define S_OK static_cast<HRESULT>(0)
#define E_NOINTERFACE static_cast<HRESULT>(0x80000004)
#define STDMETHODCALLTYPE
#define CFSTR(text) qhshim_constantString("" text "")
#define kUTTypePlainText CFSTR("public.plain-text")
#define kUTTypeRTF CFSTR("public.rtf")

// What a preview request has been given. The host (the command, the tests)
// owns the record and passes its address as the request.
struct QHPreviewRequestRecord {
    int representationCount = 0;  // calls of QLPreviewRequestSetDataRepresentation
    std::optional<qh::Bytes> data;
    std::optional<std::string> contentType;
    bool hadProperties = false;
};
// The plug-in draws no thumbnails; the record exists so that a host can hand
// one over and check that it stays untouched.
struct QHThumbnailRequestRecord {
    int drawCount = 0;
};
typedef QHPreviewRequestRecord* QLPreviewRequestRef;
typedef QHThumbnailRequestRecord* QLThumbnailRequestRef;

#define IUNKNOWN_C_GUTS                                                         \
    void* _reserved;                                                            \
    HRESULT(STDMETHODCALLTYPE* QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv); \
    ULONG(STDMETHODCALLTYPE* AddRef)(void* thisPointer);                        \
    ULONG(STDMETHODCALLTYPE* Release)(void* thisPointer)

struct QLGeneratorInterfaceStruct {
    IUNKNOWN_C_GUTS;
    OSStatus (*GenerateThumbnailForURL)(void* thisInterface, QLThumbnailRequestRef thumbnail, CFURLRef url,
                                        CFStringRef contentTypeUTI, CFDictionaryRef options, CGSize maxSize);
    void (*CancelThumbnailGeneration)(void* thisInterface, QLThumbnailRequestRef thumbnail);
    OSStatus (*GeneratePreviewForURL)(void* thisInterface, QLPreviewRequestRef preview, CFURLRef url,
                                      CFStringRef contentTypeUTI, CFDictionaryRef options);
    void (*CancelPreviewGeneration)(void* thisInterface, QLPreviewRequestRef preview);
};

CFStringRef qhshim_constantString(const char* text);

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
Boolean CFEqual(CFTypeRef a, CFTypeRef b);

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2,
                                         UInt8 byte3, UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7,
                                         UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12,
                                         UInt8 byte13, UInt8 byte14, UInt8 byte15);
// None when the text is not a UUID in the 8-4-4-4-12 hex form.
CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text);
CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);
const char* CFStringGetCStringPtr(CFStringRef text, CFStringEncoding encoding);

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer, CFIndex length,
                                                 Boolean isDirectory);
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer, CFIndex maxLength);

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);

void QLPreviewRequestSetDataRepresentation(QLPreviewRequestRef preview, CFDataRef data, CFStringRef contentTypeUTI,
                                           CFDictionaryRef properties);

namespace qh::shim {

// Objects created and not yet released (constants excluded): a balanced
// plug-in leaves this where it found it.
long liveObjectCount();
// Instances registered for `factoryID` and not yet removed.
long factoryInstanceCount(CFUUIDRef factoryID);

}  // namespace qh::shim
