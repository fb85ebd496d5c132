#pragma once
// Sets environment variables for one test and restores them after it.
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qhtest {

class EnvironmentGuard {
public:
    EnvironmentGuard() = default;
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;
    ~EnvironmentGuard() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            if (it->second) ::setenv(it->first.c_str(), it->second->c_str(), 1);
            else ::unsetenv(it->first.c_str());
        }
    }
    void set(const std::string& name, const std::optional<std::string>& value) {
        const char* old = std::getenv(name.c_str());
        saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        if (value) ::setenv(name.c_str(), value->c_str(), 1);
        else ::unsetenv(name.c_str());
    }
    // The user's locale and zone as the date display reads them.
    void locale(const std::string& lang, const std::string& tz) {
        set("LC_ALL", std::nullopt);
        set("LC_TIME", std::nullopt);
        set("LANG", lang);
        set("TZ", tz);
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace qhtest
