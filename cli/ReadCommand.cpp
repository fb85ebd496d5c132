// quillhaven read [--as K] [--whole-sectors] [-j N] FILE...
#include "Commands.h"
#include "DocumentPrinter.h"

namespace qhcli {
namespace cmd_read {

const bool registered = Commands::add("read", [](CLI::App& app, Outcome& outcome) {
    DocumentPrinter::install(app, outcome, "read",
                             "Print the message dictionary of FILE as JSON (several FILEs: JSON Lines)",
                             MessageSource::Want::dictionary);
});

}  // namespace cmd_read
}  // namespace qhcli
