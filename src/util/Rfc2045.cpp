#include "util/Rfc2045.h"

#include <cstring>

#include "util/Ascii.h"

namespace qh::rfc2045 {

using ascii::hexValue;

namespace {

// Output written through a pointer: room is made once per line, never per
// byte. Only the room asked for is touched, so memory that a short output
// never reaches is never made resident.
class ByteSink {
public:
    explicit ByteSink(std::size_t expected) { out_.reserve(expected); }
    // At least `n` more bytes may be written after this.
    std::uint8_t* reserve(std::size_t n) {
        out_.resize(used_ + n);
        return out_.data() + used_;
    }
    void advance(std::size_t n) { used_ += n; }
    void append(std::string_view bytes) {
        std::memcpy(reserve(bytes.size()), bytes.data(), bytes.size());
        used_ += bytes.size();
    }
    Bytes take() {
        out_.resize(used_);
        return std::move(out_);
    }

private:
    Bytes out_;
    std::size_t used_ = 0;
};

}  // namespace

Bytes decodeQuotedPrintable(std::string_view text, std::string_view lineBreak) {
    ByteSink out(text.size());
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        const bool lastLine = end == std::string_view::npos;
        std::string_view line = text.substr(start, lastLine ? std::string_view::npos : end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
        bool soft = false;
        // A line never decodes longer than it is; runs without "=" are copied whole.
        std::uint8_t* const lineStart = out.reserve(line.size() + lineBreak.size());
        std::uint8_t* to = lineStart;
        std::size_t i = 0;
        while (i < line.size()) {
            if (line[i] != '=') {
                const std::size_t equals = line.find('=', i);
                const std::size_t runEnd = equals == std::string_view::npos ? line.size() : equals;
                std::memcpy(to, line.data() + i, runEnd - i);
                to += runEnd - i;
                i = runEnd;
                continue;
            }
            // Escapes in a row (text in other scripts is mostly escapes) are
            // decoded here without a search for the next one.
            if (i + 1 == line.size()) {
                soft = true;
                break;
            }
            int high, low;
            if (i + 2 < line.size() && (high = hexValue(line[i + 1])) >= 0 && (low = hexValue(line[i + 2])) >= 0) {
                *to++ = static_cast<std::uint8_t>(high * 16 + low);
                i += 3;
            } else {
                *to++ = '=';
                ++i;
            }
        }
        if (!lastLine && !soft) {
            std::memcpy(to, lineBreak.data(), lineBreak.size());
            to += lineBreak.size();
        }
        out.advance(static_cast<std::size_t>(to - lineStart));
        if (lastLine) break;
        start = end + 1;
    }
    return out.take();
}

Bytes withLineBreaks(std::string_view text, std::string_view lineBreak) {
    if (lineBreak == "\n") return toBytes(text);
    ByteSink out(text.size() + text.size() / 32);
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t lf = text.find('\n', start);
        const std::size_t end = lf == std::string_view::npos ? text.size() : lf;
        out.append(text.substr(start, end - start));
        if (lf == std::string_view::npos) break;
        out.append(lineBreak);
        start = lf + 1;
    }
    return out.take();
}

}  // namespace qh::rfc2045
