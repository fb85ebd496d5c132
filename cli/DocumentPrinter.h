#pragma once
// The shared body of `read` and `summary`: one JSON document for one file,
// JSON Lines {"file": ..., "result": ...} in the order given for several.
#include <string>
#include <vector>

#include "Commands.h"
#include "MessageSource.h"

namespace qhcli {

class DocumentPrinter {
public:
    // Adds a subcommand NAME [--as K] [--whole-sectors] [-j N] FILE... that prints `want`.
    static void install(CLI::App& app, Outcome& outcome, const std::string& name, const std::string& description,
                        MessageSource::Want want);
    // Prints the documents and returns the exit status: for one file 0, or 2
    // when it cannot be read; for several 0 when every file gave a result, else 1.
    static int print(const std::vector<std::string>& files, const SourceOptions& options, unsigned jobs,
                     MessageSource::Want want);
    // {"file":"<path>","result":<document>} with a line feed; null result when `loaded` is null.
    static std::string jsonLine(const std::string& path, const LoadedMessage* loaded);
};

}  // namespace qhcli
