#pragma once
// What the library needs to know of the running system: its version number
// (the MIME writer chooses its multipart type by it) and the user's caches folder.
#include <optional>
#include <string>

namespace qh {

class SystemInfo {
public:
    // The running system's version as "major.minor" (the product version on
    // Apple systems; elsewhere a version that counts as current).
    static std::string systemVersion();
    // The version read as a floating-point number ("10.8" -> 10.8).
    static double systemVersionNumber();
    // Tests pin the version; std::nullopt returns to the real one.
    static void overrideSystemVersion(std::optional<std::string> version);

    // The user's caches folder: $XDG_CACHE_HOME, else ~/.cache (Library/Caches on Apple).
    static std::string userCachesDirectory();
};

}  // namespace qh
