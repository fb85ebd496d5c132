#include "core/Log.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>

namespace qh {

namespace {
std::mutex& logMutex() {
    static std::mutex m;
    return m;
}
std::vector<Log::Capture*>& captures() {
    static std::vector<Log::Capture*> list;
    return list;
}
std::atomic<bool> mirror{false};
std::atomic<bool> systemLog{true};
}  // namespace

void Log::line(std::string_view text) {
    std::lock_guard lock(logMutex());
    for (Capture* capture : captures()) capture->lines_.emplace_back(text);
    if (mirror.load()) {
        std::fwrite(text.data(), 1, text.size(), stderr);
        std::fputc('\n', stderr);
    }
    if (systemLog.load() && captures().empty()) {
        std::string copy(text);
        syslog(LOG_USER | LOG_DEBUG, "%s", copy.c_str());
    }
}

void Log::setMirrorToStandardError(bool enabled) { mirror.store(enabled); }
void Log::setSystemLogEnabled(bool enabled) { systemLog.store(enabled); }

Log::Capture::Capture() {
    std::lock_guard lock(logMutex());
    captures().push_back(this);
}

Log::Capture::~Capture() {
    std::lock_guard lock(logMutex());
    auto& list = captures();
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
}

std::vector<std::string> Log::Capture::lines() const {
    std::lock_guard lock(logMutex());
    return lines_;
}

bool Log::Capture::contains(std::string_view text) const {
    std::lock_guard lock(logMutex());
    return std::find(lines_.begin(), lines_.end(), text) != lines_.end();
}

void Log::Capture::clear() {
    std::lock_guard lock(logMutex());
    lines_.clear();
}

}  // namespace qh
