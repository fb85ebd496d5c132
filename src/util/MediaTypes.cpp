#include "util/MediaTypes.h"

#include <fstream>
#include <unordered_map>
#include <utility>

namespace qh {

namespace {

// The types mail carries most, with the extension people expect (the system
// table lists "asc" first for text/plain, "jpeg" for image/jpeg).
constexpr std::pair<std::string_view, std::string_view> kCommon[] = {
    {"text/plain", "txt"},          {"text/html", "html"},          {"text/calendar", "ics"},
    {"text/csv", "csv"},            {"text/xml", "xml"},            {"text/rtf", "rtf"},
    {"text/vcard", "vcf"},          {"text/x-vcard", "vcf"},        {"text/enriched", "txt"},
    {"image/png", "png"},           {"image/jpeg", "jpg"},          {"image/jpg", "jpg"},
    {"image/pjpeg", "jpg"},         {"image/gif", "gif"},           {"image/bmp", "bmp"},
    {"image/tiff", "tif"},          {"image/svg+xml", "svg"},       {"image/webp", "webp"},
    {"application/pdf", "pdf"},     {"application/zip", "zip"},     {"application/rtf", "rtf"},
    {"application/msword", "doc"},  {"application/ms-tnef", "dat"}, {"application/vnd.ms-tnef", "dat"},
    {"application/vnd.ms-outlook", "msg"},
    {"application/vnd.ms-excel", "xls"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "pptx"},
    {"application/pkcs7-signature", "p7s"}, {"application/x-pkcs7-signature", "p7s"},
    {"application/pkcs7-mime", "p7m"},      {"application/x-pkcs7-mime", "p7m"},
    {"application/pgp-signature", "asc"},   {"application/pgp-encrypted", "asc"},
    {"application/octet-stream", "bin"},    {"message/rfc822", "eml"},
    {"message/delivery-status", "txt"},     {"message/disposition-notification", "txt"},
    {"audio/mpeg", "mp3"},                  {"video/mp4", "mp4"},
};

std::string lowerType(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == ';') break;
        if (c == ' ' || c == '\t') continue;
        out.push_back((c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c);
    }
    return out;
}

struct SystemTable {
    std::unordered_map<std::string, std::string> extensionOf;  // type -> first extension
    std::unordered_map<std::string, std::string> typeOf;       // extension -> type
};

const SystemTable& systemTable() {
    static const SystemTable table = [] {
        SystemTable loaded;
        std::ifstream in("/etc/mime.types");
        std::string line;
        // A sane bound on what is read: the real file has some two thousand lines.
        for (int count = 0; count < 20000 && std::getline(in, line); ++count) {
            if (line.empty() || line[0] == '#' || line.size() > 1024) continue;
            std::size_t end = line.find_first_of(" \t");
            if (end == std::string::npos) continue;
            std::string type = lowerType(line.substr(0, end));
            std::size_t at = end;
            while (true) {
                std::size_t begin = line.find_first_not_of(" \t", at);
                if (begin == std::string::npos) break;
                at = line.find_first_of(" \t", begin);
                std::string extension = line.substr(begin, at == std::string::npos ? std::string::npos : at - begin);
                loaded.extensionOf.emplace(type, extension);
                loaded.typeOf.emplace(extension, type);
                if (at == std::string::npos) break;
            }
        }
        return loaded;
    }();
    return table;
}

}  // namespace

std::string MediaTypes::extensionFor(std::string_view mediaType) {
    std::string type = lowerType(mediaType);
    for (const auto& [known, extension] : kCommon) {
        if (type == known) return std::string(extension);
    }
    const SystemTable& table = systemTable();
    if (auto found = table.extensionOf.find(type); found != table.extensionOf.end()) return found->second;
    if (type.rfind("text/", 0) == 0) return "txt";
    return "bin";
}

std::string MediaTypes::mediaTypeFor(std::string_view fileNameOrExtension) {
    std::size_t dot = fileNameOrExtension.rfind('.');
    std::string extension = lowerType(dot == std::string_view::npos ? fileNameOrExtension
                                                                     : fileNameOrExtension.substr(dot + 1));
    for (const auto& [type, known] : kCommon) {
        if (extension == known) return std::string(type);
    }
    const SystemTable& table = systemTable();
    if (auto found = table.typeOf.find(extension); found != table.typeOf.end()) return found->second;
    return "application/octet-stream";
}

}  // namespace qh
