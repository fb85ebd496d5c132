#pragma once
// What the message commands (read, summary, convert, attachments) share: the
// input flags, loading a file or standard input, choosing its kind and running
// the kind's reader.
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include <quillhaven/Reading.h>
#include <quillhaven/Value.h>

namespace qhcli {

struct SourceOptions {
    std::string kind;  // "msg", "eml", "tnef"; empty: told by the first bytes
    bool classic = false;       // --classic: the library's classic reading
    bool wholeSectors = false;  // --whole-sectors: classic on whole-sector buffers

    // The readers' options these flags choose: complete on exact streams by
    // default; --whole-sectors implies --classic.
    qh::ReadOptions read() const {
        if (wholeSectors) return qh::ReadOptions::classic(false);
        if (classic) return qh::ReadOptions::classic(true);
        return qh::ReadOptions::complete();
    }
};

// One input as a command sees it after the reader ran.
struct LoadedMessage {
    enum class Status {
        result,      // the reader gave a value
        none,        // the reader yielded nothing
        unreadable,  // the file could not be read
    };
    Status status = Status::none;
    std::string kind;
    std::optional<qh::Value> value;
    // Bytes of input the reader was given.
    std::size_t inputSize = 0;
    // For unreadable: one line for standard error.
    std::string problem;

    bool failed() const { return status == Status::unreadable; }
};

class MessageSource {
public:
    enum class Want { dictionary, summary };

    // Adds --as, --classic and --whole-sectors to a message command.
    static void addOptions(CLI::App& command, SourceOptions& options);

    // Reads `path` ("-": standard input, read once and kept for later uses)
    // and runs the reader of its kind.
    static LoadedMessage load(const std::string& path, const SourceOptions& options, Want want);
    // Runs the reader of `kind` (empty: told by the first bytes) on bytes in memory.
    static LoadedMessage run(qh::ByteView data, const std::string& kind, const qh::ReadOptions& options, Want want);

    // The dictionary inside a loaded result, or null.
    static const qh::Dict* dictionary(const LoadedMessage& loaded);

    // Loads `path` for a command that needs its message. None after saying
    // why on standard error, with `exitCode` set: 2 when the file cannot be
    // read, `noMessageExit` when it holds no message.
    static std::optional<LoadedMessage> loadMessage(const std::string& path, const SourceOptions& options,
                                                    int noMessageExit, int& exitCode);
};

}  // namespace qhcli
