#pragma once
// Helpers for the tests that drive the built command (tests/cli, tests/view):
// a scratch folder, the lines of an output, the files a folder holds.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/Corpus.h"

namespace qhclitest {

// A fresh folder under the system's temporary folder, removed with its contents.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    // Writes a file below the folder (creating subfolders) and returns its path.
    std::string write(const std::string& relative, const std::string& contents) const;

private:
    std::filesystem::path path_;
};

std::vector<std::string> lines(const std::string& text);
std::vector<std::string> fields(const std::string& line);
// Name -> contents of every regular file directly in `dir`.
std::map<std::string, std::string> filesIn(const std::filesystem::path& dir);
std::string readText(const std::filesystem::path& path);
nlohmann::ordered_json parse(const std::string& text);

// A short MIME message; its first line is a throwaway trace line.
inline constexpr const char* kSimpleEml =
    "Received: from fixture\r\n"
    "From: Ann Example <ann@example.com>\r\n"
    "To: bob@example.com\r\n"
    "Subject: Fixture subject\r\n"
    "MIME-Version: 1.0\r\n"
    "Content-Type: text/plain; charset=us-ascii\r\n"
    "\r\n"
    "Hello from the fixture.\r\n"
    "\r\n";

// Corpus files by name, e.g. corpus("msg", "hh-test2.msg").
std::string corpus(const std::string& sub, const std::string& name);

}  // namespace qhclitest
