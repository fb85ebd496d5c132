// quillhaven convert [--as K] [--classic|--whole-sectors] [-o OUT] FILE
// quillhaven convert [--as K] [--classic|--whole-sectors] [-j N] -d DIR FILE...
// quillhaven convert [--as K] [--classic|--whole-sectors] [-j N] --mbox OUT FILE...
// The complete reading is written as standards-conformant MIME (MimeWriter),
// the classic one as the library's classic text (WriteEML): readers/MimeOutput.
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "BatchRunner.h"
#include "Commands.h"
#include "MessageSource.h"
#include "Output.h"
#include "readers/MimeOutput.h"
#include "util/SafeNames.h"
#include <quillhaven/MboxWriter.h>
#include "writers/UniqueMessageIds.h"

namespace qhcli {
namespace cmd_convert {

struct Arguments {
    SourceOptions source;
    unsigned jobs = 0;
    std::string out;
    std::string dir;
    std::string mbox;
    std::vector<std::string> files;
};

// The MIME text of one input, or std::nullopt when its reader yields no dictionary.
std::optional<std::string> convertOne(const LoadedMessage& loaded, const SourceOptions& source) {
    return qh::MimeOutput::write(MessageSource::dictionary(loaded), source.read());
}

int convertSingle(const Arguments& arguments) {
    const std::string& file = arguments.files.front();
    LoadedMessage loaded = MessageSource::load(file, arguments.source, MessageSource::Want::dictionary);
    if (loaded.failed()) {
        Output::complain(loaded.problem);
        return 2;
    }
    std::optional<std::string> text = convertOne(loaded, arguments.source);
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
    return qh::SafeNames::sanitize(stem, "message") + ".eml";
}

int convertMany(const Arguments& arguments) {
    std::string problem;
    std::optional<qh::OutputFolder> folder;
    std::ofstream mbox;
    const bool toMbox = !arguments.mbox.empty();
    if (!arguments.mbox.empty()) {
        mbox.open(arguments.mbox, std::ios::binary | std::ios::trunc);
        if (!mbox) {
            Output::complain("cannot write " + arguments.mbox);
            return 2;
        }
    } else if (!(folder = qh::OutputFolder::open(arguments.dir, problem))) {
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
    const bool uniqueIds = arguments.source.read().isComplete();
    qh::UniqueMessageIds messageIds;
    BatchRunner::run(
        files.size(), arguments.jobs,
        [&](std::size_t i) {
            LoadedMessage loaded = MessageSource::load(files[i], arguments.source, MessageSource::Want::dictionary);
            std::optional<std::string> text = convertOne(loaded, arguments.source);
            if (text && toMbox) text = qh::MboxWriter::entry(*text, *MessageSource::dictionary(loaded));
            slots[i] = Slot{std::move(text), loaded.problem};
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
                if (uniqueIds) messageIds.makeUnique(*slot->text);
                if (toMbox) {
                    mbox.write(slot->text->data(), static_cast<std::streamsize>(slot->text->size()));
                    mbox.flush();
                    if (mbox) written = arguments.mbox;
                    else Output::complain("cannot write " + arguments.mbox);
                } else {
                    std::string writeProblem;
                    written = folder->write(outputName(files[i]), qh::asBytes(*slot->text), writeProblem);
                    if (written) written = (folder->path() / *written).string();
                    else Output::complain(writeProblem);
                }
            }
            if (!written) {
                allConverted = false;
                Output::out("none\t" + files[i] + "\t\n");
                return;
            }
            Output::out("ok\t" + files[i] + "\t" + *written + "\n");
        });
    mbox.close();
    if (mbox.fail() && !arguments.mbox.empty()) {
        Output::complain("cannot write " + arguments.mbox);
        return 2;
    }
    return allConverted ? 0 : 1;
}

const bool registered = Commands::add("convert", [](CLI::App& app, Outcome& outcome) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand("convert", "Write FILE as a MIME message (.eml)");
    MessageSource::addOptions(*command, arguments->source);
    auto* out = command->add_option("-o,--output", arguments->out, "Write the message to OUT instead of standard output");
    auto* dir = command->add_option("-d,--dir", arguments->dir,
                                    "Write each FILE to DIR/<name without extension>.eml and list what was written");
    auto* mbox = command->add_option("--mbox", arguments->mbox,
                                     "Write every FILE's message into the one mbox file OUT (mboxrd), in the order given");
    out->excludes(dir);
    out->excludes(mbox);
    dir->excludes(mbox);
    BatchRunner::addJobsOption(*command, arguments->jobs);
    command->add_option("FILE", arguments->files, "Message files (\"-\": standard input)")->required();
    command->callback([arguments, &outcome] {
        bool many = !arguments->dir.empty() || !arguments->mbox.empty();
        if (!many && arguments->files.size() != 1)
            throw CLI::ValidationError("FILE", "several files need -d DIR or --mbox OUT");
        outcome.exitCode = Output::guard([&] { return many ? convertMany(*arguments) : convertSingle(*arguments); });
    });
});

}  // namespace cmd_convert
}  // namespace qhcli
