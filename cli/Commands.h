#pragma once
// Subcommands register themselves: each cli/<Name>Command.cpp adds its
// subcommand to the application from a static registration, so commands are
// written apart from each other and from main.
#include <cstddef>
#include <string_view>

#include <CLI/CLI.hpp>

namespace qhcli {

// What a command's callback reports back to main.
struct Outcome {
    int exitCode = 0;
};

class Commands {
public:
    using Installer = void (*)(CLI::App& app, Outcome& outcome);
    // Registers the installer of the command `name` (an unnamed one is always
    // installed). Returns true so that it can initialise a namespace-scope
    // constant; it allocates nothing, so static registration costs no start-up.
    static bool add(std::string_view name, Installer installer);
    static bool add(Installer installer) { return add({}, installer); }
    // Installs only the command that the arguments name, when they name one:
    // setting up every subcommand's options costs a one-file run a fifth of
    // its instructions. Without a command name (help, usage errors) all are.
    static void installFor(int argc, const char* const* argv, CLI::App& app, Outcome& outcome);
};

}  // namespace qhcli
