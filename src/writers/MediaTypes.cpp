#include "writers/MediaTypes.h"

#include <fstream>
#include <mutex>

#include "writers/Format.h"

namespace qh {

namespace {

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

}  // namespace

MediaTypes MediaTypes::fromText(std::string_view text) {
    MediaTypes table;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (std::size_t hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
        std::string type;
        for (std::size_t i = 0; i < line.size();) {
            while (i < line.size() && isBlank(line[i])) ++i;
            std::size_t start = i;
            while (i < line.size() && !isBlank(line[i])) ++i;
            if (start == i) break;
            std::string_view field = line.substr(start, i - start);
            if (type.empty()) {
                if (field.find('/') == std::string_view::npos) break;
                type = asciiLower(field);
            } else {
                table.byExtension_.emplace(asciiLower(field), type);
            }
        }
    }
    return table;
}

const MediaTypes& MediaTypes::system() {
    static std::once_flag once;
    static MediaTypes table;
    std::call_once(once, [] {
        std::ifstream file{std::string(mime::kMediaTypesFile), std::ios::binary};
        if (!file) return;
        std::string text(mime::kMediaTypesLimit, '\0');
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(file.gcount()));
        table = fromText(text);
    });
    return table;
}

std::optional<std::string> MediaTypes::forFileName(std::string_view fileName) const {
    std::size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == fileName.size()) return std::nullopt;
    auto found = byExtension_.find(asciiLower(fileName.substr(dot + 1)));
    if (found == byExtension_.end()) return std::nullopt;
    return found->second;
}

}  // namespace qh
