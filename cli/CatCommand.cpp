// quillhaven cat FILE PATH: the bytes of one stream of a compound document,
// exactly as the entry facade returns them (whole sectors).
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "Input.h"
#include <quillhaven/Mole.h>

namespace cmd_cat {

int catStream(const std::string& path, const std::string& streamPath) {
    auto data = qhcli::Input::readFile(path);
    if (!data) {
        std::cerr << "quillhaven cat: cannot read " << path << "\n";
        return 2;
    }
    auto mole = qh::Mole::initBorrowingData(*data);
    if (!mole) {
        std::cerr << "quillhaven cat: " << path << " is no compound document\n";
        return 1;
    }
    auto stream = mole->getStream(streamPath);
    mole->deInitialize();
    if (!stream) {
        std::cerr << "quillhaven cat: no stream " << streamPath << "\n";
        return 1;
    }
    // An empty stream has no buffer at all; there is nothing to write then.
    if (!stream->empty()) std::fwrite(stream->data(), 1, stream->size(), stdout);
    std::fflush(stdout);
    return 0;
}

const bool registered = qhcli::Commands::add("cat", [](CLI::App& app, qhcli::Outcome& outcome) {
    auto* command = app.add_subcommand("cat", "Print one stream of a compound document as whole sectors");
    auto file = std::make_shared<std::string>();
    auto stream = std::make_shared<std::string>();
    command->add_option("FILE", *file, "The file, or - for standard input")->required();
    command->add_option("PATH", *stream, "The stream's path, e.g. __substg1.0_1000001F")->required();
    command->callback([file, stream, &outcome] { outcome.exitCode = catStream(*file, *stream); });
});

}  // namespace cmd_cat
