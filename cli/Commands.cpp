#include "Commands.h"

#include <array>
#include <cstdlib>
#include <cstdio>

namespace qhcli {

namespace command_table {

struct Registration {
    std::string_view name;
    Commands::Installer installer = nullptr;
};

// Constant-initialised, so registrations from other files' static
// initialisers find it ready whatever their order.
constexpr std::size_t kMaxCommands = 32;
std::array<Registration, kMaxCommands> registrations{};
std::size_t registered = 0;

// The first argument that is not a global flag: the command's name, if any.
std::string_view commandName(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        std::string_view argument = argv[i];
        if (argument == "-v" || argument == "--verbose") continue;
        return argument;
    }
    return {};
}

}  // namespace command_table

bool Commands::add(std::string_view name, Installer installer) {
    using namespace command_table;
    if (registered == kMaxCommands) {
        std::fputs("quillhaven: too many commands registered\n", stderr);
        std::abort();
    }
    registrations[registered++] = {name, installer};
    return true;
}

void Commands::installFor(int argc, const char* const* argv, CLI::App& app, Outcome& outcome) {
    using namespace command_table;
    std::string_view wanted = commandName(argc, argv);
    bool named = false;
    for (std::size_t i = 0; i < registered; ++i) named = named || (!wanted.empty() && registrations[i].name == wanted);
    for (std::size_t i = 0; i < registered; ++i) {
        const Registration& entry = registrations[i];
        if (!named || entry.name.empty() || entry.name == wanted) entry.installer(app, outcome);
    }
}

}  // namespace qhcli
