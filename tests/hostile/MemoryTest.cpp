// The command's peak resident memory on the largest real messages of the
// shared corpus stays within 8 times the input plus 64 MiB, whatever it is
// asked to do with them. (The named hostile inputs are held to the same bound
// in HostileTest.) Measured in the plain build only: under AddressSanitizer
// the shadow memory and the quarantine are most of the resident set.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/Corpus.h"

namespace {

namespace fs = std::filesystem;

// The `count` largest message files of the corpus (expected outputs left out).
std::vector<fs::path> largestMessages(std::size_t count) {
    std::vector<fs::path> files;
    for (const char* kind : {"msg", "eml", "tnef"}) {
        for (const fs::path& path : qhtest::corpusFiles(kind, "")) {
            const std::string name = path.filename().string();
            if (name.find(".expected") == std::string::npos && !name.ends_with(".json")) files.push_back(path);
        }
    }
    std::sort(files.begin(), files.end(),
              [](const fs::path& a, const fs::path& b) { return fs::file_size(a) > fs::file_size(b); });
    if (files.size() > count) files.resize(count);
    return files;
}

TEST(Memory, LargestCorpusMessagesStayWithinEightTimesTheirSize) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "resident memory is not the program's own under AddressSanitizer";
#endif
    QH_REQUIRE_CORPUS("msg");
    const std::vector<fs::path> files = largestMessages(10);
    ASSERT_EQ(files.size(), 10u);
    const fs::path out = fs::temp_directory_path() / ("qh-memory-" + std::to_string(::getpid()));
    for (const fs::path& file : files) {
        const std::size_t size = fs::file_size(file);
        const long boundKiB = static_cast<long>((8 * size + (64u << 20)) / 1024);
        const std::vector<std::vector<std::string>> commands = {
            {"read", file.string()},
            {"read", "--whole-sectors", file.string()},
            {"summary", file.string()},
            {"convert", file.string()},
            {"convert", "--classic", file.string()},
            {"attachments", "--expand-tnef", "-d", out.string(), file.string()},
            {"preview", file.string()},
            {"ls", file.string()},
        };
        for (const auto& args : commands) {
            SCOPED_TRACE(args.front() + " " + file.filename().string());
            const qhtest::CliResult result = qhtest::runCliMeasured(args);
            EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.err;
            if (result.peakRssKiB < 0) GTEST_SKIP() << "/usr/bin/time is not installed";
            EXPECT_LE(result.peakRssKiB, boundKiB) << size << " bytes";
            fs::remove_all(out);
        }
    }
}

}  // namespace
