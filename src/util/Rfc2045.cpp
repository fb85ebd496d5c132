#include "util/Rfc2045.h"

#include "util/Ascii.h"

namespace qh::rfc2045 {

using ascii::hexValue;

Bytes decodeQuotedPrintable(std::string_view text, std::string_view lineBreak) {
    Bytes out;
    out.reserve(text.size());
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        const bool lastLine = end == std::string_view::npos;
        std::string_view line = text.substr(start, lastLine ? std::string_view::npos : end - start);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
        bool soft = false;
        for (std::size_t i = 0; i < line.size(); ++i) {
            char c = line[i];
            if (c == '=') {
                if (i + 1 == line.size()) {
                    soft = true;
                    break;
                }
                if (i + 2 < line.size() && hexValue(line[i + 1]) >= 0 && hexValue(line[i + 2]) >= 0) {
                    out.push_back(static_cast<std::uint8_t>(hexValue(line[i + 1]) * 16 + hexValue(line[i + 2])));
                    i += 2;
                    continue;
                }
            }
            out.push_back(static_cast<std::uint8_t>(c));
        }
        if (lastLine) break;
        if (!soft) out.insert(out.end(), lineBreak.begin(), lineBreak.end());
        start = end + 1;
    }
    return out;
}

Bytes withLineBreaks(std::string_view text, std::string_view lineBreak) {
    Bytes out;
    out.reserve(text.size() + text.size() / 32);
    for (char c : text) {
        if (c == '\n') {
            out.insert(out.end(), lineBreak.begin(), lineBreak.end());
        } else {
            out.push_back(static_cast<std::uint8_t>(c));
        }
    }
    return out;
}

}  // namespace qh::rfc2045
