#pragma once
// The identifiers the plug-in and its host agree on. cmake/Bundle.cmake reads
// the factory UUID out of this file for the bundle's Info.plist.
#include <string_view>

// The factory this plug-in registers (its own, fixed for good).
#define QH_PLUGIN_FACTORY_UUID "2532AE17-A829-4928-B7D6-84DB6FDFC821"

// The two content types the host application declares for .msg documents,
// one per edition. Only these are previewed.
#define QH_MSG_CONTENT_TYPE "com.quillhaven.msg"
#define QH_LITE_MSG_CONTENT_TYPE "com.quillhaven.lite.msg"

namespace qh::plugin {

inline constexpr std::string_view kMsgContentType = QH_MSG_CONTENT_TYPE;
inline constexpr std::string_view kLiteMsgContentType = QH_LITE_MSG_CONTENT_TYPE;

// The preview service's generator type, 5E2D9680-5022-40FA-B806-43349622E5B9.
inline constexpr unsigned char kGeneratorTypeID[16] = {0x5E, 0x2D, 0x96, 0x80, 0x50, 0x22, 0x40, 0xFA,
                                                       0xB8, 0x06, 0x43, 0x34, 0x96, 0x22, 0xE5, 0xB9};
// Its callbacks interface, 865AF5E0-6D30-4345-951B-D37105754F2D.
inline constexpr unsigned char kGeneratorCallbacksInterfaceID[16] = {0x86, 0x5A, 0xF5, 0xE0, 0x6D, 0x30, 0x43, 0x45,
                                                                     0x95, 0x1B, 0xD3, 0x71, 0x05, 0x75, 0x4F, 0x2D};

}  // namespace qh::plugin
