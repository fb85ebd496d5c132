#include "MessageSource.h"

#include <mutex>

#include "Input.h"

namespace qhcli {

namespace {

LoadedMessage unreadable(const std::string& kind, std::string problem) {
    LoadedMessage loaded;
    loaded.status = LoadedMessage::Status::unreadable;
    loaded.kind = kind;
    loaded.problem = std::move(problem);
    return loaded;
}

// Standard input can be read only once; a command that names "-" twice (or a
// batch whose workers both ask for it) sees the same bytes each time.
const std::optional<qh::Bytes>& standardInput() {
    static std::once_flag once;
    static std::optional<qh::Bytes> data;
    std::call_once(once, [] { data = Input::readFile("-"); });
    return data;
}

}  // namespace

void MessageSource::addOptions(CLI::App& command, SourceOptions& options) {
    command.add_option("--as", options.kind, "Read the input as this kind instead of telling it from the first bytes")
        ->check(CLI::IsMember({"msg", "eml", "tnef"}));
    command.add_flag("--whole-sectors", options.read.wholeSectors,
                     "Give the readers whole-sector stream buffers (the library's own dictionary, padding included)");
}

LoadedMessage MessageSource::load(const std::string& path, const SourceOptions& options, Want want) {
    if (path == "-") {
        const auto& data = standardInput();
        if (!data) return unreadable(options.kind, "cannot read standard input");
        return run(*data, options.kind, options.read, want);
    }
    auto data = Input::readFile(path);
    if (!data) return unreadable(options.kind, "cannot read " + path);
    return run(*data, options.kind, options.read, want);
}

LoadedMessage MessageSource::run(qh::ByteView data, const std::string& kind, const ReadOptions& options, Want want) {
    LoadedMessage loaded;
    loaded.kind = kind.empty() ? Input::detectKind(data) : kind;
    loaded.inputSize = data.size();
    const MessageKind* reader = MessageKinds::find(loaded.kind);
    if (!reader) {
        loaded.status = LoadedMessage::Status::noReader;
        loaded.problem = "no reader for " + loaded.kind + " input is built in";
        return loaded;
    }
    loaded.value = want == Want::summary ? reader->summary(data, options) : reader->read(data, options);
    loaded.status = loaded.value ? LoadedMessage::Status::result : LoadedMessage::Status::none;
    return loaded;
}

const qh::Dict* MessageSource::dictionary(const LoadedMessage& loaded) {
    return loaded.value ? loaded.value->dict() : nullptr;
}

}  // namespace qhcli
