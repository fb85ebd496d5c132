#include "Output.h"

#include <cstdio>
#include <exception>
#include <string>

namespace qhcli {

void Output::out(std::string_view text) {
    // An empty view may have no data at all (an empty preview), and fwrite
    // must not be handed a null pointer even for nothing.
    if (text.empty()) return;
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void Output::complain(std::string_view text) {
    std::string line = "quillhaven: ";
    line.append(text);
    line.push_back('\n');
    std::fflush(stdout);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

int Output::guard(const std::function<int()>& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        complain(e.what());
    } catch (...) {
        complain("unexpected failure");
    }
    return 2;
}

}  // namespace qhcli
