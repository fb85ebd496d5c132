#pragma once
// mbox archives in the mboxrd form: each message after a "From " separator
// line, its line ends LF, every line that matches ^>*From  quoted with one
// more ">" (so a reader removes exactly one and gets the message back), and a
// blank line after it.
#include <string>
#include <string_view>

#include <quillhaven/Value.h>

namespace qh {

class MboxWriter {
public:
    // One entry of the archive: the separator line (the first valid sender
    // address of `message`, else MAILER-DAEMON, and its time stamp in UTC, else
    // now, in the asctime layout), then `messageText` (any line ends) quoted.
    static std::string entry(std::string_view messageText, const Dict& message);
    // The separator line alone, without its line end.
    static std::string separator(const Dict& message);
};

}  // namespace qh
