// Feeds every file found under the paths given on the command line to the
// fuzz target's entry point, so that seed corpora and regression inputs run
// in every build (with the sanitizers when the build has them).
//
//   replay_<target> SEEDS [REGRESS] [--optional DIR]...
//
// The first path (the target's own seed folder) must exist and hold inputs;
// later paths may be absent (a target without regression inputs yet). A path
// after --optional may be absent too (a clone without the shared corpus). The
// run fails when it replayed fewer inputs than the folders hold: a file that
// cannot be read, or a walk that stops early, is a failure, never a skip.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// Every regular file under `root` (or `root` itself); false when the walk failed.
bool collect(const fs::path& root, std::vector<fs::path>& files) {
    std::error_code ec;
    if (fs::is_regular_file(root, ec)) {
        files.push_back(root);
        return true;
    }
    fs::recursive_directory_iterator it(root, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        if (it->is_regular_file(ec)) files.push_back(it->path());
    }
    if (ec) std::fprintf(stderr, "cannot walk %s: %s\n", root.c_str(), ec.message().c_str());
    return !ec;
}

bool replay(const fs::path& path) {
    std::error_code ec;
    const auto expected = fs::file_size(path, ec);
    std::ifstream in(path, std::ios::binary);
    if (ec || !in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return false;
    }
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() != expected) {
        std::fprintf(stderr, "read %zu of %ju bytes of %s\n", bytes.size(), std::uintmax_t(expected), path.c_str());
        return false;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<fs::path> files;
    bool ok = true;
    bool optional = false;
    int positional = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--optional") == 0) {
            optional = true;
            continue;
        }
        const fs::path root(argv[i]);
        const bool required = !optional && positional++ == 0;
        optional = false;
        std::error_code ec;
        if (!fs::exists(root, ec)) {
            if (required) {
                std::fprintf(stderr, "missing seed folder %s\n", root.c_str());
                ok = false;
            }
            continue;
        }
        const std::size_t before = files.size();
        ok = collect(root, files) && ok;
        if (required && files.size() == before) {
            std::fprintf(stderr, "seed folder %s holds no inputs\n", root.c_str());
            ok = false;
        }
    }
    std::size_t replayed = 0;
    for (const fs::path& path : files) replayed += replay(path) ? 1 : 0;
    std::printf("replayed %zu of %zu inputs\n", replayed, files.size());
    return ok && replayed == files.size() ? 0 : 1;
}
