// Feeds every file found under the paths given on the command line to the
// fuzz target's entry point, so that seed corpora and regression inputs run
// in every build (with the sanitizers when the build has them). Paths that do
// not exist are skipped: a clone without the shared corpus still replays its own.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {
void runFile(const std::filesystem::path& path, std::size_t& count) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++count;
}
}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path root(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_regular_file(root, ec)) {
            runFile(root, count);
        } else if (std::filesystem::is_directory(root, ec)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root, ec)) {
                if (entry.is_regular_file()) runFile(entry.path(), count);
            }
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return 0;
}
