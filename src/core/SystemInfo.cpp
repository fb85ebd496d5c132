#include "core/SystemInfo.h"

#include <cstdlib>
#include <mutex>

#if defined(__APPLE__)
#include <sys/sysctl.h>
#endif

namespace qh {

namespace {
std::mutex versionMutex;
std::optional<std::string> versionOverride;

std::string realSystemVersion() {
#if defined(__APPLE__)
    char text[64] = {};
    size_t size = sizeof text;
    if (sysctlbyname("kern.osproductversion", text, &size, nullptr, 0) == 0 && text[0]) return text;
#endif
    // Off Apple there is no product version to compare with; report one that
    // counts as a current system, so the writer takes its modern branch.
    return "14.0";
}
}  // namespace

std::string SystemInfo::systemVersion() {
    std::lock_guard lock(versionMutex);
    return versionOverride ? *versionOverride : realSystemVersion();
}

double SystemInfo::systemVersionNumber() {
    std::string text = systemVersion();
    return std::strtod(text.c_str(), nullptr);
}

void SystemInfo::overrideSystemVersion(std::optional<std::string> version) {
    std::lock_guard lock(versionMutex);
    versionOverride = std::move(version);
}

std::string SystemInfo::userCachesDirectory() {
#if defined(__APPLE__)
    const char* home = std::getenv("HOME");
    return std::string(home ? home : "") + "/Library/Caches";
#else
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    if (xdg && *xdg == '/') return xdg;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.cache";
#endif
}

}  // namespace qh
