// quillhaven view [--as K] [--classic] [-o PAGE] [--open] [--text] FILE
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"
#include "MessageSource.h"
#include "Output.h"
#include <quillhaven/HtmlView.h>

extern char** environ;

namespace qhcli {
namespace cmd_view {

struct Arguments {
    SourceOptions source;
    std::string out;
    bool open = false;
    bool text = false;
    std::string file;
};

#ifdef __APPLE__
constexpr const char* kOpener = "open";
#else
constexpr const char* kOpener = "xdg-open";
#endif

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.close();
    return static_cast<bool>(stream);
}

// A new file only we can read, for a page that has no name of its own.
std::optional<std::string> writeTemporaryPage(const std::string& page) {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/quillhaven-view-XXXXXX.html";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    int fd = mkstemps(name.data(), 5);
    if (fd < 0) return std::nullopt;
    std::size_t written = 0;
    while (written < page.size()) {
        ssize_t n = ::write(fd, page.data() + written, page.size() - written);
        if (n <= 0) {
            ::close(fd);
            return std::nullopt;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) return std::nullopt;
    return std::string(name.data());
}

// Hands the page to the desktop's browser; no shell sees the path.
bool openInBrowser(const std::string& path) {
    std::string opener = kOpener;
    std::string target = std::filesystem::absolute(path).string();
    char* argv[] = {opener.data(), target.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, opener.c_str(), nullptr, nullptr, argv, environ) != 0) return false;
    int status = 0;
    if (waitpid(pid, &status, 0) < 0) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int view(const Arguments& arguments) {
    int exitCode = 0;
    const std::optional<LoadedMessage> loaded =
        MessageSource::loadMessage(arguments.file, arguments.source, 1, exitCode);
    if (!loaded) return exitCode;
    const qh::Dict* message = MessageSource::dictionary(*loaded);
    std::string document;
    if (arguments.text) {
        document = qh::HtmlView::text(*message);
    } else {
        qh::HtmlView::Options options;
        options.sourceName = arguments.file;
        const qh::ReadOptions reading = arguments.source.read();
        // Attached messages are read like the outer one: .msg, TNEF or MIME by their first bytes.
        options.openEmbedded = [reading](qh::ByteView data) -> std::optional<qh::Dict> {
            LoadedMessage inner = MessageSource::run(data, "", reading, MessageSource::Want::dictionary);
            const qh::Dict* dictionary = MessageSource::dictionary(inner);
            if (!dictionary) return std::nullopt;
            return *dictionary;
        };
        document = qh::HtmlView::page(*message, options);
    }

    std::string path = arguments.out == "-" ? std::string() : arguments.out;
    if (path.empty() && !arguments.open) {
        Output::out(document);
        return 0;
    }
    if (!path.empty()) {
        if (!writeFile(path, document)) {
            Output::complain("cannot write " + path);
            return 2;
        }
    } else {
        std::optional<std::string> temporary = writeTemporaryPage(document);
        if (!temporary) {
            Output::complain("cannot write a temporary page");
            return 2;
        }
        path = *temporary;
        Output::out(path + "\n");
    }
    if (arguments.open && !openInBrowser(path)) {
        Output::complain(std::string("cannot open the page with ") + kOpener + "; it is at " + path);
        return 2;
    }
    return 0;
}

const bool registered = Commands::add("view", [](CLI::App& app, Outcome& outcome) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand(
        "view", "Write FILE as one self-contained, safe HTML page (no script, nothing fetched from the network)");
    MessageSource::addOptions(*command, arguments->source);
    command->add_option("-o,--output", arguments->out, "Write the page to PAGE instead of standard output")
        ->type_name("PAGE");
    command->add_flag("--open", arguments->open,
                      "Open the page in the desktop's browser (written to a temporary file when there is no -o)");
    command->add_flag("--text", arguments->text,
                      "Write the message as text for a terminal instead: a short header block and the body");
    command->add_option("FILE", arguments->file, "Message file (\"-\": standard input)")->required();
    command->callback([arguments, &outcome] { outcome.exitCode = Output::guard([&] { return view(*arguments); }); });
});

}  // namespace cmd_view
}  // namespace qhcli
