#pragma once
// The shared corpus of real messages lives beside the repository; a clone
// without it skips the tests that need it.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/Bytes.h"

namespace qhtest {

// The corpus folder (or one of its subfolders), empty when it is absent.
std::filesystem::path corpusDir(const std::string& sub = "");
// Every regular file of a corpus subfolder whose name ends in `suffix`, sorted.
std::vector<std::filesystem::path> corpusFiles(const std::string& sub, const std::string& suffix);
qh::Bytes readFileBytes(const std::filesystem::path& path);

// The output of one run of the command.
struct CliResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};
// Runs the built `quillhaven` with `args`, feeding `input` to its standard input.
CliResult runCli(const std::vector<std::string>& args, const std::string& input = "");

}  // namespace qhtest

#define QH_REQUIRE_CORPUS(sub)                                              \
    do {                                                                    \
        if (::qhtest::corpusDir(sub).empty()) GTEST_SKIP() << "no corpus";  \
    } while (0)
