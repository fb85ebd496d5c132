#include "plugin/shim/HostShim.h"

#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>

struct QHShimAllocator {};

struct QHShimUUID : QHShimObject {
    CFUUIDBytes bytes{};
    bool equals(const QHShimObject& other) const override {
        auto* uuid = dynamic_cast<const QHShimUUID*>(&other);
        return uuid && std::memcmp(&uuid->bytes, &bytes, sizeof bytes) == 0;
    }
};

struct QHShimString : QHShimObject {
    std::string text;
    bool equals(const QHShimObject& other) const override {
        auto* string = dynamic_cast<const QHShimString*>(&other);
        return string && string->text == text;
    }
};

struct QHShimURL : QHShimObject {
    std::string path;
    bool equals(const QHShimObject& other) const override {
        auto* url = dynamic_cast<const QHShimURL*>(&other);
        return url && url->path == path;
    }
};

struct QHShimData : QHShimObject {
    qh::Bytes bytes;
    bool equals(const QHShimObject& other) const override {
        auto* data = dynamic_cast<const QHShimData*>(&other);
        return data && data->bytes == bytes;
    }
};

namespace {

std::atomic<long> liveObjects{0};

struct Registry {
    std::mutex lock;
    std::map<std::string, std::unique_ptr<QHShimString>, std::less<>> strings;
    std::map<std::string, std::unique_ptr<QHShimUUID>, std::less<>> uuids;
    std::map<std::string, long, std::less<>> factoryInstances;
};
Registry& registry() {
    static Registry* shared = new Registry;  // outlives every static user
    return *shared;
}

const QHShimObject* object(CFTypeRef ref) { return static_cast<const QHShimObject*>(ref); }

template <typename T>
T* created(T* object) {
    ++liveObjects;
    return object;
}

std::string key(const CFUUIDBytes& bytes) { return std::string(reinterpret_cast<const char*>(&bytes), sizeof bytes); }

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

CFStringRef qhshim_constantString(const char* text) {
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    auto found = shared.strings.find(std::string_view(text));
    if (found != shared.strings.end()) return found->second.get();
    auto string = std::make_unique<QHShimString>();
    string->text = text;
    string->constant = true;
    CFStringRef result = string.get();
    shared.strings.emplace(text, std::move(string));
    return result;
}

CFTypeRef CFRetain(CFTypeRef ref) {
    auto* target = const_cast<QHShimObject*>(object(ref));
    if (target && !target->constant) ++target->retainCount;
    return ref;
}

void CFRelease(CFTypeRef ref) {
    auto* target = const_cast<QHShimObject*>(object(ref));
    if (!target || target->constant) return;
    if (--target->retainCount == 0) {
        --liveObjects;
        delete target;
    }
}

Boolean CFEqual(CFTypeRef a, CFTypeRef b) {
    if (a == b) return true;
    if (!a || !b) return false;
    return object(a)->equals(*object(b));
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
                                         UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8,
                                         UInt8 byte9, UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                         UInt8 byte14, UInt8 byte15) {
    CFUUIDBytes bytes{byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                      byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    auto found = shared.uuids.find(key(bytes));
    if (found != shared.uuids.end()) return found->second.get();
    auto uuid = std::make_unique<QHShimUUID>();
    uuid->bytes = bytes;
    uuid->constant = true;
    CFUUIDRef result = uuid.get();
    shared.uuids.emplace(key(bytes), std::move(uuid));
    return result;
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef, CFStringRef text) {
    if (!text) return nullptr;
    // 8-4-4-4-12 hex digits.
    const std::string& value = text->text;
    if (value.size() != 36) return nullptr;
    UInt8 raw[16];
    std::size_t digit = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (value[i] != '-') return nullptr;
            continue;
        }
        int nibble = hexValue(value[i]);
        if (nibble < 0) return nullptr;
        if (digit % 2 == 0) raw[digit / 2] = static_cast<UInt8>(nibble << 4);
        else raw[digit / 2] |= static_cast<UInt8>(nibble);
        ++digit;
    }
    CFUUIDBytes bytes;
    std::memcpy(&bytes, raw, sizeof bytes);
    return CFUUIDCreateFromUUIDBytes(nullptr, bytes);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
    auto* uuid = created(new QHShimUUID);
    uuid->bytes = bytes;
    return uuid;
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return uuid ? uuid->bytes : CFUUIDBytes{}; }

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding) {
    if (!text) return nullptr;
    auto* string = created(new QHShimString);
    string->text = text;
    return string;
}

const char* CFStringGetCStringPtr(CFStringRef text, CFStringEncoding) { return text ? text->text.c_str() : nullptr; }

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* buffer, CFIndex length, Boolean) {
    if (!buffer || length < 0) return nullptr;
    auto* url = created(new QHShimURL);
    url->path.assign(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
    return url;
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex maxLength) {
    if (!url || !buffer || maxLength <= 0) return false;
    const std::string& path = url->path;
    // Room for the terminating NUL; a path with a NUL inside has no file-system form.
    if (path.size() + 1 > static_cast<std::size_t>(maxLength) || path.find('\0') != std::string::npos) return false;
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return true;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    if (length < 0 || (length > 0 && !bytes)) return nullptr;
    auto* data = created(new QHShimData);
    if (length > 0) data->bytes.assign(bytes, bytes + length);
    return data;
}

const UInt8* CFDataGetBytePtr(CFDataRef data) { return data ? data->bytes.data() : nullptr; }
CFIndex CFDataGetLength(CFDataRef data) { return data ? static_cast<CFIndex>(data->bytes.size()) : 0; }

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
    if (!factoryID) return;
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    ++shared.factoryInstances[key(factoryID->bytes)];
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID) {
    if (!factoryID) return;
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    --shared.factoryInstances[key(factoryID->bytes)];
}

void QLPreviewRequestSetDataRepresentation(QLPreviewRequestRef preview, CFDataRef data, CFStringRef contentTypeUTI,
                                           CFDictionaryRef properties) {
    if (!preview) return;
    ++preview->representationCount;
    preview->data = data ? std::optional<qh::Bytes>(data->bytes) : std::nullopt;
    preview->contentType = contentTypeUTI ? std::optional<std::string>(contentTypeUTI->text) : std::nullopt;
    preview->hadProperties = properties != nullptr;
}

namespace qh::shim {

long liveObjectCount() { return liveObjects.load(); }

long factoryInstanceCount(CFUUIDRef factoryID) {
    if (!factoryID) return 0;
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    auto found = shared.factoryInstances.find(key(factoryID->bytes));
    return found == shared.factoryInstances.end() ? 0 : found->second;
}

}  // namespace qh::shim
