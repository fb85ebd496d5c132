// quillhaven: read, preview, convert and unpack Outlook .msg, MIME .eml and
// TNEF (winmail.dat) files.
#include <cstdio>
#include <iostream>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "core/Log.h"

int main(int argc, char** argv) {
    CLI::App app{"quillhaven: read, preview, convert and unpack Outlook .msg, MIME .eml and TNEF files"};
    app.set_version_flag("--version", std::string("quillhaven ") + QH_VERSION);
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Copy every diagnostic line of the system's log to standard error");
    app.require_subcommand(0, 1);
    app.fallthrough();

    qhcli::Outcome outcome;
    qhcli::Commands::installFor(argc, argv, app, outcome);
    app.parse_complete_callback([&] { qh::Log::setMirrorToStandardError(verbose); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        // Help and version are successes; every other parse error is a usage error.
        return code == 0 ? 0 : 2;
    }
    if (app.get_subcommands().empty()) {
        std::cout << app.help();
        return 0;
    }
    return outcome.exitCode;
}
