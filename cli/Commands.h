#pragma once
// Subcommands register themselves: each cli/<Name>Command.cpp adds its
// subcommand to the application from a static registration, so commands are
// written apart from each other and from main.
#include <functional>
#include <vector>

#include <CLI/CLI.hpp>

namespace qhcli {

// What a command's callback reports back to main.
struct Outcome {
    int exitCode = 0;
};

class Commands {
public:
    using Installer = std::function<void(CLI::App& app, Outcome& outcome)>;
    // Returns true so that it can initialise a namespace-scope constant.
    static bool add(Installer installer);
    static void installAll(CLI::App& app, Outcome& outcome);

private:
    static std::vector<Installer>& installers();
};

}  // namespace qhcli
