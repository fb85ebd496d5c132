#pragma once
// The shared corpus of real messages lives beside the repository; a clone
// without it skips the tests that need it.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillhaven/Bytes.h>

namespace qhtest {

// The corpus folder (or one of its subfolders), empty when it is absent.
std::filesystem::path corpusDir(const std::string& sub = "");
// Every regular file of a corpus subfolder whose name ends in `suffix`, sorted.
std::vector<std::filesystem::path> corpusFiles(const std::string& sub, const std::string& suffix);
qh::Bytes readFileBytes(const std::filesystem::path& path);

// The output of one run of the command.
struct CliResult {
    int exitCode = -1;  // -1 when the command did not exit by itself (a signal)
    std::string out;
    std::string err;
    long peakRssKiB = 0;  // the command's peak resident memory (runCliMeasured only)
};
// Runs `argv` (the program's path first), feeding `input` to its standard input.
CliResult runProgram(const std::vector<std::string>& argv, const std::string& input = "");
// Runs the built `quillhaven` with `args`, feeding `input` to its standard input.
CliResult runCli(const std::vector<std::string>& args, const std::string& input = "");
// The same under /usr/bin/time, which gives the command's own peak resident
// memory: a process spawned straight from a test program inherits the test
// program's high-water mark, one forked by a small program does not. The
// peak is -1 when /usr/bin/time is not installed.
CliResult runCliMeasured(const std::vector<std::string>& args, const std::string& input = "");

// Whether /usr/bin/python3 imports `modules` ("olefile, json"): an oracle's
// absence skips a test, its failure fails it.
bool pythonHas(const std::string& modules);

// A file holding `contents` in the temporary folder, removed when the object goes.
class TemporaryFile {
public:
    explicit TemporaryFile(qh::ByteView contents, const std::string& name = "file");
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::string string() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

}  // namespace qhtest

#define QH_REQUIRE_CORPUS(sub)                                              \
    do {                                                                    \
        if (::qhtest::corpusDir(sub).empty()) GTEST_SKIP() << "no corpus";  \
    } while (0)
