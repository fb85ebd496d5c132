// The ls and cat commands: output shapes and exit codes, files and standard input.
#include <gtest/gtest.h>

#include "support/CompoundWriter.h"
#include "support/Corpus.h"

TEST(Commands, LsAndCatOnStandardInput) {
    const qh::Bytes file = qhtest::CompoundWriter::fromDescription(R"(
        a: "hello"
        big: 4097 * 42
        st/inner: ""
    )").bytes();
    const std::string input(file.begin(), file.end());
    struct Case {
        std::vector<std::string> args;
        std::string stdinText;
        int exitCode;
        std::string out;
    } cases[] = {
        // sibling order (shorter names first), depth first
        {{"ls", "-"}, input, 0, "/a\t5\n/st\t\n/st/inner\t0\n/big\t4097\n"},
        {{"cat", "-", "a"}, input, 0, std::string("hello") + std::string(59, '\0')},
        {{"cat", "-", "/st/inner"}, input, 0, ""},
        {{"cat", "-", "st"}, input, 1, ""},
        {{"cat", "-", "missing"}, input, 1, ""},
        {{"ls", "-"}, "From: someone\n\nnot a compound document\n", 1, ""},
        {{"cat", "-", "a"}, std::string(600, 'x'), 1, ""},
        {{"ls", "/nonexistent/file.msg"}, "", 2, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args.back());
        auto run = qhtest::runCli(c.args, c.stdinText);
        EXPECT_EQ(run.exitCode, c.exitCode) << run.err;
        EXPECT_EQ(run.out, c.out);
    }
    auto big = qhtest::runCli({"cat", "-", "big"}, input);
    ASSERT_EQ(big.out.size(), 4608u);
    EXPECT_EQ(big.out.substr(0, 4097), std::string(4097, '\x42'));
}
