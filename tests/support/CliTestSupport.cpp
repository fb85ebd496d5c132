#include "support/CliTestSupport.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

namespace qhclitest {

ScratchDir::ScratchDir() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("qh-cli-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string ScratchDir::write(const std::string& relative, const std::string& contents) const {
    auto target = path_ / relative;
    std::filesystem::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << contents;
    return target.string();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out;
    std::size_t start = 0;
    for (;;) {
        std::size_t tab = line.find('\t', start);
        out.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
        if (tab == std::string::npos) return out;
        start = tab + 1;
    }
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::map<std::string, std::string> filesIn(const std::filesystem::path& dir) {
    std::map<std::string, std::string> out;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        if (entry.is_regular_file()) out[entry.path().filename().string()] = readText(entry.path());
    return out;
}

nlohmann::ordered_json parse(const std::string& text) {
    return nlohmann::ordered_json::parse(text, nullptr, false);
}

std::string corpus(const std::string& sub, const std::string& name) {
    return (qhtest::corpusDir(sub) / name).string();
}

}  // namespace qhclitest
