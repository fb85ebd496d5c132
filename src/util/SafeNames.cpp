#include "util/SafeNames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace qh {

namespace {

// Longest name we make, in bytes: below the usual 255-byte limit with room
// for a " (NNNN)" suffix.
constexpr std::size_t kMaxNameBytes = 240;
// A longer "extension" is treated as part of the name when cutting.
constexpr std::size_t kMaxExtensionBytes = 32;
// Numbered candidates tried before a write gives up.
constexpr unsigned kMaxClashes = 10000;

bool replacedByUnderscore(UChar32 c) {
    switch (c) {
        case '/': case '\\': case ':': case '*': case '?': case '"': case '<': case '>': case '|':
            return true;
        default:
            return false;
    }
}

// ASCII is decided here without the character database, whose first use costs
// a one-file command more than the rest of the name rules.
bool dropped(UChar32 c) {
    if (c < 0x80) return c < 0x20 || c == 0x7F;
    // Bidirectional embeddings, overrides and isolates can make "gpj.exe" show as "exe.jpg".
    if ((c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069)) return true;
    return u_charType(c) == U_CONTROL_CHAR;
}

bool trimmedSpace(UChar32 c) {
    if (c < 0x80) return c == ' ' || (c >= '\t' && c <= '\r');
    return u_isUWhiteSpace(c);
}

void appendUtf8(std::string& out, UChar32 c) {
    char buffer[U8_MAX_LENGTH];
    int32_t length = 0;
    U8_APPEND_UNSAFE(buffer, length, c);
    out.append(buffer, static_cast<std::size_t>(length));
}

// Cuts UTF-8 text to at most `limit` bytes at a character boundary.
std::string_view cutUtf8(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

// Where the extension of a name begins (its last dot), or npos.
std::size_t extensionStart(std::string_view name) {
    std::size_t dot = name.rfind('.');
    return dot == 0 ? std::string_view::npos : dot;
}

}  // namespace

std::string SafeNames::sanitize(std::string_view name, std::string_view fallback) {
    std::u32string chars;
    chars.reserve(name.size());
    const auto* bytes = reinterpret_cast<const uint8_t*>(name.data());
    const auto length = static_cast<int32_t>(std::min<std::size_t>(name.size(), INT32_MAX));
    for (int32_t i = 0; i < length;) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        if (c < 0 || dropped(c)) continue;
        if (replacedByUnderscore(c)) c = '_';
        if (c == '.' && !chars.empty() && chars.back() == '.') continue;
        chars.push_back(c);
    }
    std::size_t begin = 0, end = chars.size();
    while (begin < end && (chars[begin] == '.' || trimmedSpace(chars[begin]))) ++begin;
    while (end > begin && (chars[end - 1] == '.' || trimmedSpace(chars[end - 1]))) --end;

    std::string out;
    out.reserve(end - begin);
    for (std::size_t i = begin; i < end; ++i) appendUtf8(out, chars[i]);
    if (out.empty()) return std::string(fallback);
    if (out.size() <= kMaxNameBytes) return out;

    std::size_t dot = extensionStart(out);
    std::string_view extension;
    if (dot != std::string::npos && out.size() - dot <= kMaxExtensionBytes) extension = std::string_view(out).substr(dot);
    std::string cut(cutUtf8(std::string_view(out).substr(0, out.size() - extension.size()),
                            kMaxNameBytes - extension.size()));
    // Cutting may leave white space or a dot just before the extension.
    while (!cut.empty() && (cut.back() == ' ' || cut.back() == '.')) cut.pop_back();
    if (cut.empty()) return std::string(fallback);
    return cut + std::string(extension);
}

std::string SafeNames::numbered(std::string_view name, unsigned n) {
    std::size_t dot = extensionStart(name);
    std::string suffix = " (" + std::to_string(n) + ")";
    if (dot == std::string_view::npos) return std::string(name) + suffix;
    return std::string(name.substr(0, dot)) + suffix + std::string(name.substr(dot));
}

std::optional<OutputFolder> OutputFolder::open(const std::filesystem::path& dir, std::string& problem) {
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (!std::filesystem::is_directory(dir, error)) {
        problem = "cannot make folder " + dir.string() + (error ? ": " + error.message() : "");
        return std::nullopt;
    }
    return OutputFolder(dir);
}

std::optional<std::string> OutputFolder::write(const std::string& safeName, ByteView data,
                                               std::string& problem) const {
    for (unsigned attempt = 1; attempt <= kMaxClashes; ++attempt) {
        std::string name = attempt == 1 ? safeName : SafeNames::numbered(safeName, attempt);
        std::string target = (dir_ / name).string();
        // O_EXCL makes taking the name and creating the file one step, so a
        // name is never handed out twice and nothing already there is replaced.
        int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            problem = "cannot create " + target + ": " + std::strerror(errno);
            return std::nullopt;
        }
        std::size_t done = 0;
        while (done < data.size()) {
            ssize_t wrote = ::write(fd, data.data() + done, data.size() - done);
            if (wrote < 0 && errno == EINTR) continue;
            if (wrote <= 0) {
                problem = "cannot write " + target + ": " + std::strerror(errno);
                ::close(fd);
                return std::nullopt;
            }
            done += static_cast<std::size_t>(wrote);
        }
        if (::close(fd) != 0) {
            problem = "cannot write " + target + ": " + std::strerror(errno);
            return std::nullopt;
        }
        return name;
    }
    problem = "too many files named like " + safeName + " in " + dir_.string();
    return std::nullopt;
}

}  // namespace qh
