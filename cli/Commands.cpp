#include "Commands.h"

namespace qhcli {

std::vector<Commands::Installer>& Commands::installers() {
    static std::vector<Installer> list;
    return list;
}

bool Commands::add(Installer installer) {
    installers().push_back(std::move(installer));
    return true;
}

void Commands::installAll(CLI::App& app, Outcome& outcome) {
    for (auto& installer : installers()) installer(app, outcome);
}

}  // namespace qhcli
