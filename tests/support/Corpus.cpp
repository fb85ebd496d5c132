#include "support/Corpus.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>

extern char** environ;

namespace qhtest {

std::filesystem::path corpusDir(const std::string& sub) {
    std::filesystem::path dir = std::filesystem::path(QH_CORPUS_DIR) / sub;
    std::error_code ec;
    return std::filesystem::is_directory(dir, ec) ? dir : std::filesystem::path();
}

std::vector<std::filesystem::path> corpusFiles(const std::string& sub, const std::string& suffix) {
    std::vector<std::filesystem::path> out;
    auto dir = corpusDir(sub);
    if (dir.empty()) return out;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_regular_file() && name.size() >= suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
            out.push_back(entry.path());
    }
    std::sort(out.begin(), out.end());
    return out;
}

qh::Bytes readFileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return qh::Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The program's standard streams are files: nothing to keep drained while it runs.
CliResult runProgram(const std::vector<std::string>& argvStore, const std::string& input) {
    const TemporaryFile in(qh::asBytes(input), "stdin"), out({}, "stdout"), err({}, "stderr");
    const std::string inPath = in.string(), outPath = out.string(), errPath = err.string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_TRUNC, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_TRUNC, 0);
    std::vector<char*> argv;
    for (const auto& a : argvStore) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid;
    const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    CliResult result;
    int status = 0;
    if (rc != 0 || waitpid(pid, &status, 0) < 0) return result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    const qh::Bytes outBytes = readFileBytes(outPath), errBytes = readFileBytes(errPath);
    result.out.assign(outBytes.begin(), outBytes.end());
    result.err.assign(errBytes.begin(), errBytes.end());
    return result;
}

CliResult runCli(const std::vector<std::string>& args, const std::string& input) {
    std::vector<std::string> argv{QH_CLI_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, input);
}

CliResult runCliMeasured(const std::vector<std::string>& args, const std::string& input) {
    const char* timer = "/usr/bin/time";
    if (::access(timer, X_OK) != 0) {
        CliResult result = runCli(args, input);
        result.peakRssKiB = -1;
        return result;
    }
    char report[] = "/tmp/qh-peak-XXXXXX";
    const int fd = ::mkstemp(report);
    if (fd >= 0) ::close(fd);
    // GNU time exits with the command's status; a command killed by a signal
    // gives "Command terminated by signal", which is no clean exit either.
    std::vector<std::string> argv{timer, "-q", "-f", "%M", "-o", report, QH_CLI_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    CliResult result = runProgram(argv, input);
    std::ifstream in(report);
    std::string line, last;
    while (std::getline(in, line)) {
        if (line.starts_with("Command terminated by signal")) result.exitCode = -1;
        if (!line.empty()) last = line;
    }
    result.peakRssKiB = last.empty() ? 0 : std::atol(last.c_str());
    ::unlink(report);
    return result;
}

bool pythonHas(const std::string& modules) {
    return runProgram({"/usr/bin/python3", "-c", "import " + modules}).exitCode == 0;
}

TemporaryFile::TemporaryFile(qh::ByteView contents, const std::string& name) {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("qh-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + "-" + name);
    std::ofstream(path_, std::ios::binary)
        .write(reinterpret_cast<const char*>(contents.data()), static_cast<std::streamsize>(contents.size()));
}

TemporaryFile::~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace qhtest
