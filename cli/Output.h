#pragma once
// Standard output and error for the message commands: whole documents and
// lines written in one piece, and the "quillhaven: ..." complaint form.
#include <functional>
#include <string_view>

namespace qhcli {

class Output {
public:
    static void out(std::string_view text);
    static void complain(std::string_view text);
    // Runs a command's body; anything it throws is reported and gives exit status 2.
    static int guard(const std::function<int()>& body);
};

}  // namespace qhcli
