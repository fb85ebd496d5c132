// quillhaven convert [--as K] [--whole-sectors] [-o OUT] FILE
// quillhaven convert [--as K] [--whole-sectors] [-j N] -d DIR FILE...
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "BatchRunner.h"
#include "Commands.h"
#include "MessageSource.h"
#include "Output.h"
#include "SafeNames.h"
#include "writers/WriteEML.h"

namespace qhcli {
namespace {

struct Arguments {
    SourceOptions source;
    unsigned jobs = 0;
    std::string out;
    std::string dir;
    std::vector<std::string> files;
};

// The MIME text of one input, or std::nullopt when its reader yields no dictionary.
std::optional<std::string> convertOne(const LoadedMessage& loaded) {
    auto writer = qh::WriteEML::initWithDictionary(MessageSource::dictionary(loaded));
    if (!writer) return std::nullopt;
    return writer->formatOutputFile();
}

int convertSingle(const Arguments& arguments) {
    const std::string& file = arguments.files.front();
    LoadedMessage loaded = MessageSource::load(file, arguments.source, MessageSource::Want::dictionary);
    if (loaded.failed()) {
        Output::complain(loaded.problem);
        return 2;
    }
    std::optional<std::string> text = convertOne(loaded);
    if (!text) {
        Output::complain("no message in " + file);
        return 1;
    }
    if (arguments.out.empty() || arguments.out == "-") {
        Output::out(*text);
        return 0;
    }
    std::ofstream stream(arguments.out, std::ios::binary | std::ios::trunc);
    stream.write(text->data(), static_cast<std::streamsize>(text->size()));
    stream.close();
    if (!stream) {
        Output::complain("cannot write " + arguments.out);
        return 2;
    }
    return 0;
}

// The output name for an input: its file name without the extension, ".eml".
std::string outputName(const std::string& input) {
    std::string stem = input == "-" ? std::string("stdin") : std::filesystem::path(input).stem().string();
    return SafeNames::sanitize(stem, "message") + ".eml";
}

int convertMany(const Arguments& arguments) {
    std::string problem;
    std::optional<OutputFolder> folder = OutputFolder::open(arguments.dir, problem);
    if (!folder) {
        Output::complain(problem);
        return 2;
    }
    const auto& files = arguments.files;
    struct Slot {
        std::optional<std::string> text;
        std::string problem;
    };
    std::vector<std::optional<Slot>> slots(files.size());
    bool allConverted = true;
    BatchRunner::run(
        files.size(), arguments.jobs,
        [&](std::size_t i) {
            LoadedMessage loaded = MessageSource::load(files[i], arguments.source, MessageSource::Want::dictionary);
            slots[i] = Slot{convertOne(loaded), loaded.problem};
        },
        // Names are taken here, in input order, so that clashes number the same way on every run.
        [&](std::size_t i) {
            std::optional<Slot> slot = std::move(slots[i]);
            slots[i].reset();
            std::optional<std::string> written;
            if (!slot) {
                Output::complain("failed on " + files[i]);
            } else if (!slot->problem.empty()) {
                Output::complain(slot->problem);
            } else if (!slot->text) {
                Output::complain("no message in " + files[i]);
            } else {
                std::string writeProblem;
                written = folder->write(outputName(files[i]), qh::asBytes(*slot->text), writeProblem);
                if (!written) Output::complain(writeProblem);
            }
            if (!written) {
                allConverted = false;
                Output::out("none\t" + files[i] + "\t\n");
                return;
            }
            Output::out("ok\t" + files[i] + "\t" + (folder->path() / *written).string() + "\n");
        });
    return allConverted ? 0 : 1;
}

const bool registered = Commands::add("convert", [](CLI::App& app, Outcome& outcome) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand("convert", "Write FILE as a MIME message (.eml)");
    MessageSource::addOptions(*command, arguments->source);
    auto* out = command->add_option("-o,--output", arguments->out, "Write the message to OUT instead of standard output");
    auto* dir = command->add_option("-d,--dir", arguments->dir,
                                    "Write each FILE to DIR/<name without extension>.eml and list what was written");
    out->excludes(dir);
    BatchRunner::addJobsOption(*command, arguments->jobs);
    command->add_option("FILE", arguments->files, "Message files (\"-\": standard input)")->required();
    command->callback([arguments, &outcome] {
        if (arguments->dir.empty() && arguments->files.size() != 1)
            throw CLI::ValidationError("FILE", "several files need -d DIR");
        outcome.exitCode = Output::guard([&] {
            return arguments->dir.empty() ? convertSingle(*arguments) : convertMany(*arguments);
        });
    });
});

}  // namespace
}  // namespace qhcli
