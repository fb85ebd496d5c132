#pragma once
// The host's API as the plug-in sees it: the real Core Foundation and Quick
// Look frameworks when built as a generator bundle, the host shim otherwise.
#if defined(QH_PLUGIN_HOST_FRAMEWORKS)
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <QuickLook/QuickLook.h>
#else
#include "plugin/shim/HostShim.h"
#endif
