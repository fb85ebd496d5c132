// quillhaven attachments [--as K] [--whole-sectors] [--expand-tnef] [-d DIR] FILE
#include <memory>
#include <optional>

#include "Commands.h"
#include "MessageSource.h"
#include "Output.h"
#include "readers/AttachmentFiles.h"
#include "util/SafeNames.h"

namespace qhcli {
namespace cmd_attachments {

struct Arguments {
    SourceOptions source;
    std::string dir = ".";
    bool expandTnef = false;
    std::string file;
};

class Extractor {
public:
    Extractor(const qh::OutputFolder& folder, const Arguments& arguments) : folder_(folder), arguments_(arguments) {}

    // Writes every file the message carries (with --expand-tnef, also those
    // inside TNEF streams). False on a write error.
    bool writeAll(const qh::Dict& message) {
        return qh::AttachmentFiles::walk(
            message, arguments_.source.read(), arguments_.expandTnef,
            [&](const qh::AttachmentFiles::File& file) { return writeFile(std::string(file.name), file.data); },
            [](std::string_view problem) { Output::complain(problem); });
    }

private:
    bool writeFile(const std::string& name, qh::ByteView data) {
        std::string problem;
        std::optional<std::string> written = folder_.write(qh::SafeNames::sanitize(name, "attachment"), data, problem);
        if (!written) {
            Output::complain(problem);
            return false;
        }
        Output::out(std::to_string(data.size()) + "\t" + *written + "\n");
        return true;
    }

    const qh::OutputFolder& folder_;
    const Arguments& arguments_;
};

int extract(const Arguments& arguments) {
    int exitCode = 0;
    const std::optional<LoadedMessage> loaded =
        MessageSource::loadMessage(arguments.file, arguments.source, 0, exitCode);
    if (!loaded) return exitCode;
    const qh::Dict* message = MessageSource::dictionary(*loaded);
    std::string problem;
    std::optional<qh::OutputFolder> folder = qh::OutputFolder::open(arguments.dir, problem);
    if (!folder) {
        Output::complain(problem);
        return 2;
    }
    Extractor extractor(*folder, arguments);
    return extractor.writeAll(*message) ? 0 : 2;
}

const bool registered = Commands::add("attachments", [](CLI::App& app, Outcome& outcome) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand("attachments", "Write the attachments of FILE into a folder");
    MessageSource::addOptions(*command, arguments->source);
    command->add_option("-d,--dir", arguments->dir, "Folder to write into (default: the current folder)");
    command->add_flag("--expand-tnef", arguments->expandTnef,
                      "Also write the files inside attachments that are TNEF streams (winmail.dat)");
    command->add_option("FILE", arguments->file, "Message file (\"-\": standard input)")->required();
    command->callback([arguments, &outcome] { outcome.exitCode = Output::guard([&] { return extract(*arguments); }); });
});

}  // namespace cmd_attachments
}  // namespace qhcli
