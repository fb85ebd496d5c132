#include "MessageSource.h"

#include <mutex>

#include "Input.h"
#include "Output.h"
#include <quillhaven/MessageReader.h>

namespace qhcli {

namespace message_source {

LoadedMessage unreadable(const std::string& kind, std::string problem) {
    LoadedMessage loaded;
    loaded.status = LoadedMessage::Status::unreadable;
    loaded.kind = kind;
    loaded.problem = std::move(problem);
    return loaded;
}

// Standard input can be read only once; a command that names "-" twice (or a
// batch whose workers both ask for it) sees the same bytes each time.
const std::optional<FileBytes>& standardInput() {
    static std::once_flag once;
    static std::optional<FileBytes> data;
    std::call_once(once, [] { data = Input::readFile("-"); });
    return data;
}

}  // namespace message_source

void MessageSource::addOptions(CLI::App& command, SourceOptions& options) {
    command.add_option("--as", options.kind, "Read the input as this kind instead of telling it from the first bytes")
        ->check(CLI::IsMember({"msg", "eml", "tnef"}));
    command.add_flag("--classic", options.classic,
                     "Read as the library's classes always have (the classic reading) instead of completely");
    command.add_flag("--whole-sectors", options.wholeSectors,
                     "Give the readers whole-sector stream buffers (the library's own dictionary, padding included; implies --classic)");
}

LoadedMessage MessageSource::load(const std::string& path, const SourceOptions& options, Want want) {
    if (path == "-") {
        const auto& data = message_source::standardInput();
        if (!data) return message_source::unreadable(options.kind, "cannot read standard input");
        return run(*data, options.kind, options.read(), want);
    }
    auto data = Input::readFile(path);
    if (!data) return message_source::unreadable(options.kind, "cannot read " + path);
    return run(*data, options.kind, options.read(), want);
}

LoadedMessage MessageSource::run(qh::ByteView data, const std::string& kind, const qh::ReadOptions& options,
                                 Want want) {
    LoadedMessage loaded;
    // --as is checked against the three names, so an unknown name cannot reach here.
    std::optional<qh::MessageKind> named = qh::MessageReader::kindFromName(kind);
    qh::MessageKind messageKind = named ? *named : qh::MessageReader::detectKind(data);
    loaded.kind = std::string(qh::MessageReader::kindName(messageKind));
    loaded.inputSize = data.size();
    std::optional<qh::Dict> result = want == Want::summary ? qh::MessageReader::summary(data, messageKind, options)
                                                            : qh::MessageReader::read(data, messageKind, options);
    if (result) loaded.value = qh::Value(std::move(*result));
    loaded.status = loaded.value ? LoadedMessage::Status::result : LoadedMessage::Status::none;
    return loaded;
}

const qh::Dict* MessageSource::dictionary(const LoadedMessage& loaded) {
    return loaded.value ? loaded.value->dict() : nullptr;
}

std::optional<LoadedMessage> MessageSource::loadMessage(const std::string& path, const SourceOptions& options,
                                                       int noMessageExit, int& exitCode) {
    LoadedMessage loaded = load(path, options, Want::dictionary);
    if (loaded.failed()) {
        Output::complain(loaded.problem);
        exitCode = 2;
        return std::nullopt;
    }
    if (!dictionary(loaded)) {
        Output::complain("no message in " + path);
        exitCode = noMessageExit;
        return std::nullopt;
    }
    return loaded;
}

}  // namespace qhcli
