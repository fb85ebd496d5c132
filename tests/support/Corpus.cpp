#include "support/Corpus.h"

#include <fcntl.h>
#include <poll.h>
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

CliResult runProgram(const std::vector<std::string>& argvStore, const std::string& input) {
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe(inPipe) || pipe(outPipe) || pipe(errPipe)) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1], errPipe[0], errPipe[1]})
        posix_spawn_file_actions_addclose(&actions, fd);

    std::vector<char*> argv;
    for (const auto& a : argvStore) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    pid_t pid;
    int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    CliResult result;
    if (rc != 0) {
        close(inPipe[1]);
        close(outPipe[0]);
        close(errPipe[0]);
        return result;
    }
    fcntl(inPipe[1], F_SETFL, O_NONBLOCK);
    std::size_t written = 0;
    bool inOpen = true;
    if (input.empty()) {
        close(inPipe[1]);
        inOpen = false;
    }
    bool outOpen = true, errOpen = true;
    char buffer[65536];
    while (outOpen || errOpen) {
        pollfd fds[3];
        int n = 0;
        if (outOpen) fds[n++] = {outPipe[0], POLLIN, 0};
        if (errOpen) fds[n++] = {errPipe[0], POLLIN, 0};
        if (inOpen) fds[n++] = {inPipe[1], POLLOUT, 0};
        if (poll(fds, n, -1) < 0) break;
        for (int i = 0; i < n; ++i) {
            if (!fds[i].revents) continue;
            if (fds[i].fd == inPipe[1]) {
                ssize_t w = write(inPipe[1], input.data() + written, input.size() - written);
                if (w > 0) written += static_cast<std::size_t>(w);
                if (w < 0 || written == input.size()) {
                    close(inPipe[1]);
                    inOpen = false;
                }
                continue;
            }
            ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
            bool isOut = fds[i].fd == outPipe[0];
            if (got <= 0) {
                close(fds[i].fd);
                (isOut ? outOpen : errOpen) = false;
            } else {
                (isOut ? result.out : result.err).append(buffer, static_cast<std::size_t>(got));
            }
        }
    }
    if (inOpen) close(inPipe[1]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
