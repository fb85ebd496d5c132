#pragma once
// The corpus files the benchmarks run over, read whole and sorted by name; an
// absent corpus gives no files (the benchmark then reports "no corpus").
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qhbench {

inline std::vector<std::filesystem::path> corpusPaths(std::string_view sub,
                                                      const std::function<bool(const std::string&)>& keep) {
    std::vector<std::filesystem::path> paths;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(QH_CORPUS_DIR) / sub, ec))
        if (entry.is_regular_file() && keep(entry.path().filename().string())) paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

// The files of a corpus folder whose names end in one of `suffixes`.
inline std::vector<std::filesystem::path> corpusPaths(std::string_view sub,
                                                      std::initializer_list<std::string_view> suffixes) {
    std::vector<std::string_view> wanted(suffixes);
    return corpusPaths(sub, [wanted](const std::string& name) {
        return std::any_of(wanted.begin(), wanted.end(), [&](std::string_view s) { return name.ends_with(s); });
    });
}

inline qh::Bytes readWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return qh::Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline std::vector<qh::Bytes> readAll(const std::vector<std::filesystem::path>& paths) {
    std::vector<qh::Bytes> files;
    files.reserve(paths.size());
    for (const auto& path : paths) files.push_back(readWhole(path));
    return files;
}

}  // namespace qhbench
