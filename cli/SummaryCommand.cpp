// quillhaven summary [--as K] [--whole-sectors] [-j N] FILE...
#include "Commands.h"
#include "DocumentPrinter.h"

namespace qhcli {
namespace cmd_summary {

const bool registered = Commands::add("summary", [](CLI::App& app, Outcome& outcome) {
    DocumentPrinter::install(app, outcome, "summary",
                             "Print the reader's short summary of FILE as JSON (several FILEs: JSON Lines)",
                             MessageSource::Want::summary);
});

}  // namespace cmd_summary
}  // namespace qhcli
