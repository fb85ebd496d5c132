#pragma once
// Every known attack class on the formats this library reads, as a named
// input made with the fixture writers of tests/support from a short
// description. HostileTest runs each through every path the command has.
#include <functional>
#include <string>
#include <vector>

#include <quillhaven/Bytes.h>

namespace qhtest {

enum class HostileKind {
    message,  // a .msg, TNEF or MIME file: every message command
    lzfu,     // a compressed-RTF stream: the rtf command (and the message commands)
};

struct HostileInput {
    std::string name;  // what it attacks; also its file name
    HostileKind kind;
    std::function<qh::Bytes()> make;
};

const std::vector<HostileInput>& hostileInputs();

// Text that an injected header line would start with: no output line of a
// writer may begin with it.
inline constexpr const char* kInjectedHeader = "X-Injected:";

}  // namespace qhtest
