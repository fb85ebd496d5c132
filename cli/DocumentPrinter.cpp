#include "DocumentPrinter.h"

#include <memory>
#include <optional>

#include "BatchRunner.h"
#include "Output.h"

namespace qhcli {

namespace document_printer {

void appendDocument(const LoadedMessage& loaded, std::string& out) {
    if (!loaded.value) {
        out += "null";
        return;
    }
    // Most of a message's bytes come back as base64 (4 characters for 3 bytes):
    // room for that up front spares growing the text through several copies.
    out.reserve(out.size() + loaded.inputSize / 3 * 4 + 4096);
    loaded.value->appendJson(out);
}

}  // namespace document_printer

void DocumentPrinter::install(CLI::App& app, Outcome& outcome, const std::string& name,
                              const std::string& description, MessageSource::Want want) {
    struct Arguments {
        SourceOptions source;
        unsigned jobs = 0;
        std::vector<std::string> files;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App* command = app.add_subcommand(name, description);
    MessageSource::addOptions(*command, arguments->source);
    BatchRunner::addJobsOption(*command, arguments->jobs);
    command->add_option("FILE", arguments->files, "Message files (\"-\": standard input)")->required();
    command->callback([arguments, want, &outcome] {
        outcome.exitCode =
            Output::guard([&] { return print(arguments->files, arguments->source, arguments->jobs, want); });
    });
}

std::string DocumentPrinter::jsonLine(const std::string& path, const LoadedMessage* loaded) {
    std::string line = "{\"file\":";
    // Paths are bytes; one that is not UTF-8 still gives valid JSON.
    qh::Value::appendJsonString(path, line);
    line += ",\"result\":";
    if (loaded)
        document_printer::appendDocument(*loaded, line);
    else
        line += "null";
    line += "}\n";
    return line;
}

int DocumentPrinter::print(const std::vector<std::string>& files, const SourceOptions& options, unsigned jobs,
                           MessageSource::Want want) {
    if (files.size() == 1) {
        LoadedMessage loaded = MessageSource::load(files.front(), options, want);
        if (loaded.failed()) {
            Output::complain(loaded.problem);
            return 2;
        }
        std::string document;
        document_printer::appendDocument(loaded, document);
        document.push_back('\n');
        Output::out(document);
        return 0;
    }

    struct Slot {
        std::string line;
        std::string problem;
        bool gaveResult = false;
    };
    std::vector<std::optional<Slot>> slots(files.size());
    bool allGaveResults = true;
    BatchRunner::run(
        files.size(), jobs,
        [&](std::size_t i) {
            LoadedMessage loaded = MessageSource::load(files[i], options, want);
            slots[i] = Slot{jsonLine(files[i], &loaded), loaded.problem,
                            loaded.status == LoadedMessage::Status::result};
        },
        [&](std::size_t i) {
            if (!slots[i]) {
                Output::complain("failed on " + files[i]);
                Output::out(jsonLine(files[i], nullptr));
                allGaveResults = false;
                return;
            }
            Slot slot = std::move(*slots[i]);
            slots[i].reset();
            if (!slot.problem.empty()) Output::complain(slot.problem);
            Output::out(slot.line);
            allGaveResults = allGaveResults && slot.gaveResult;
        });
    return allGaveResults ? 0 : 1;
}

}  // namespace qhcli
