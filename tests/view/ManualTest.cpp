// The manual page made from the help texts, and the bash completion that asks
// the command for its words: both must know every command and option.
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/CliTestSupport.h"

namespace {

TEST(Manual, PageNamesEveryCommandAndItsOptions) {
    std::filesystem::path page = std::filesystem::path(QH_CLI_PATH).parent_path() / "quillhaven.1";
    ASSERT_TRUE(std::filesystem::exists(page)) << page;
    const std::string roff = qhclitest::readText(page);
    EXPECT_NE(roff.find(".TH QUILLHAVEN 1"), std::string::npos);
    EXPECT_EQ(roff.find("@COMMANDS@"), std::string::npos);
    for (const char* section : {".SS view\n", ".SS attachments\n", ".SS convert\n", ".SS read\n", ".SS summary\n", ".SS rtf\n"})
        EXPECT_NE(roff.find(section), std::string::npos) << section;
    for (const char* option : {"\\-\\-open", "\\-\\-text", "\\-\\-expand\\-tnef", "\\-\\-whole\\-sectors", "\\-\\-verbose"})
        EXPECT_NE(roff.find(option), std::string::npos) << option;
    EXPECT_EQ(roff.find("Usage: /"), std::string::npos) << "the usage lines name the build folder";
    if (::access("/usr/bin/man", X_OK) == 0) {
        auto shown = qhtest::runProgram({"/usr/bin/env", "MANWIDTH=100", "/usr/bin/man", "-l", page.string()});
        EXPECT_NE(shown.out.find("quillhaven view [OPTIONS] FILE"), std::string::npos) << shown.out.substr(0, 400);
    }
}

TEST(Manual, BashCompletionAsksTheCommand) {
    if (::access("/bin/bash", X_OK) != 0) GTEST_SKIP() << "no bash";
    std::string script = std::string(QH_SOURCE_DIR) + "/docs/completion/quillhaven";
    auto words = qhtest::runProgram({"/bin/bash", "-c",
                                     "source \"" + script + "\"; t() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
                                     "_quillhaven; echo \"${COMPREPLY[*]}\"; }; t \"" QH_CLI_PATH "\" v; "
                                     "t \"" QH_CLI_PATH "\" view --o; t \"" QH_CLI_PATH "\" read --as \"\""});
    EXPECT_EQ(words.out + words.err, "view\n--output --open\nmsg eml tnef\n");
}

}  // namespace
