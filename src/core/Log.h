#pragma once
// The one sink for the system's diagnostics. Every diagnostic is one fixed
// line of text ("MOLE Reader - Error opening NSData", ...). By default the
// lines go to the system log at debug priority; the command can mirror them to
// standard error, and tests capture them to assert the exact text.
#include <string>
#include <string_view>
#include <vector>

namespace qh {

class Log {
public:
    static void line(std::string_view text);

    // Copy every line to standard error as well (the command's -v).
    static void setMirrorToStandardError(bool enabled);
    // Stop writing to the system log (tests and bulk runs that only capture).
    static void setSystemLogEnabled(bool enabled);

    // While a Capture lives, lines logged from any thread are recorded in it.
    class Capture {
    public:
        Capture();
        ~Capture();
        Capture(const Capture&) = delete;
        Capture& operator=(const Capture&) = delete;
        std::vector<std::string> lines() const;
        bool contains(std::string_view text) const;
        void clear();

    private:
        friend class Log;
        std::vector<std::string> lines_;
    };
};

}  // namespace qh
