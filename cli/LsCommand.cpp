// quillhaven ls FILE: one line per entry of the compound document's directory
// walk, "<full path>\t<size>", the size empty for entries that are not streams.
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "Input.h"
#include <quillhaven/Mole.h>
#include <quillhaven/MessageKeys.h>

namespace cmd_ls {

int listEntries(const std::string& path) {
    auto data = qhcli::Input::readFile(path);
    if (!data) {
        std::cerr << "quillhaven ls: cannot read " << path << "\n";
        return 2;
    }
    auto mole = qh::Mole::initBorrowingData(*data);
    if (!mole) {
        std::cerr << "quillhaven ls: " << path << " is no compound document\n";
        return 1;
    }
    std::string out;
    for (const qh::Value& record : mole->getDirectory()) {
        const qh::Dict* entry = record.dict();
        if (!entry) continue;
        const std::string* name = entry->findString(qh::keys::kEntryName);
        out += name ? *name : std::string();
        out += '\t';
        if (const qh::Value* size = entry->find(qh::keys::kEntrySize)) out += std::to_string(size->integer());
        out += '\n';
    }
    mole->deInitialize();
    std::cout << out << std::flush;
    return 0;
}

const bool registered = qhcli::Commands::add("ls", [](CLI::App& app, qhcli::Outcome& outcome) {
    auto* command = app.add_subcommand("ls", "List the entries of a compound document (.msg)");
    auto file = std::make_shared<std::string>();
    command->add_option("FILE", *file, "The file, or - for standard input")->required();
    command->callback([file, &outcome] { outcome.exitCode = listEntries(*file); });
});

}  // namespace cmd_ls
