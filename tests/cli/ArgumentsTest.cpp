// Usage errors and the exit statuses of the message commands.
#include <gtest/gtest.h>

#include "support/CliTestSupport.h"

namespace {

using qhtest::runCli;

TEST(Arguments, UsageAndInputErrorsExitWithTwo) {
    qhclitest::ScratchDir scratch;
    std::string present = scratch.write("m.eml", "X: y\nSubject: s\n\nbody\n");
    std::string missing = (scratch.path() / "missing.msg").string();
    std::string junk = scratch.write("junk.msg", "definitely not a compound document");
    const struct {
        std::vector<std::string> args;
        int exitCode;
    } cases[] = {
        {{"read"}, 2},                                  // no FILE
        {{"summary"}, 2},
        {{"convert"}, 2},
        {{"attachments"}, 2},
        {{"read", "--as", "pdf", present}, 2},          // unknown kind
        {{"read", "--bogus", present}, 2},              // unknown flag
        {{"convert", present, present}, 2},             // several files need -d
        {{"convert", "-o", "x.eml", "-d", scratch.str(), present}, 2},
        {{"attachments", present, present}, 2},         // one file only
        {{"read", missing}, 2},                         // unreadable single file
        {{"read", scratch.str()}, 2},                   // a folder is no file
        {{"convert", missing}, 2},
        {{"attachments", "-d", scratch.str(), missing}, 2},
        {{"attachments", "-d", present, present}, 2},   // DIR is a file
        {{"read", "-j", "x", present}, 2},
        {{"convert", "--as", "msg", junk}, 1},          // no message
        {{"--help"}, 0},
        {{"read", "--help"}, 0},
        {{"--version"}, 0},
    };
    for (const auto& c : cases) {
        auto result = runCli(c.args);
        std::string joined;
        for (const auto& a : c.args) joined += a + " ";
        EXPECT_EQ(result.exitCode, c.exitCode) << joined << "\n" << result.err;
        if (c.exitCode == 1) EXPECT_TRUE(result.out.empty()) << joined;
        // An unreadable file is named on standard error, nothing on standard output.
        if (c.args.back() == missing) {
            EXPECT_TRUE(result.out.empty()) << joined;
            EXPECT_NE(result.err.find(missing), std::string::npos) << joined;
        }
    }
}

}  // namespace
