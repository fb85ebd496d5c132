// The manual page made from the help texts, and the bash completion that asks
// the command for its words: both must know every command and option.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "ViewFixtures.h"
#include "support/Corpus.h"

namespace {

using qhviewtest::run;

TEST(Manual, PageNamesEveryCommandAndItsOptions) {
    std::filesystem::path page = std::filesystem::path(QH_CLI_PATH).parent_path() / "quillhaven.1";
    std::ifstream in(page);
    ASSERT_TRUE(in) << page;
    std::string roff((std::istreambuf_iterator<char>(in)), {});
    EXPECT_NE(roff.find(".TH QUILLHAVEN 1"), std::string::npos);
    EXPECT_EQ(roff.find("@COMMANDS@"), std::string::npos);
    for (const char* section : {".SS view\n", ".SS attachments\n", ".SS convert\n", ".SS read\n", ".SS rtf\n"})
        EXPECT_NE(roff.find(section), std::string::npos) << section;
    for (const char* option : {"\\-\\-open", "\\-\\-text", "\\-\\-expand\\-tnef", "\\-\\-whole\\-sectors", "\\-\\-verbose"})
        EXPECT_NE(roff.find(option), std::string::npos) << option;
    EXPECT_EQ(roff.find("Usage: /"), std::string::npos) << "the usage lines name the build folder";
    if (std::system("command -v man >/dev/null 2>&1") == 0) {
        std::string shown = run("MANWIDTH=100 man -l '" + page.string() + "' 2>&1");
        EXPECT_NE(shown.find("quillhaven view [OPTIONS] FILE"), std::string::npos) << shown.substr(0, 400);
    }
}

TEST(Manual, BashCompletionAsksTheCommand) {
    if (std::system("command -v bash >/dev/null 2>&1") != 0) GTEST_SKIP() << "no bash";
    std::string script = std::string(QH_SOURCE_DIR) + "/docs/completion/quillhaven";
    std::string words = run("bash -c 'source \"" + script + "\"; t() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
                            "_quillhaven; echo \"${COMPREPLY[*]}\"; }; "
                            "t \"" QH_CLI_PATH "\" v; t \"" QH_CLI_PATH "\" view --o; t \"" QH_CLI_PATH "\" read --as \"\"' 2>&1");
    EXPECT_EQ(words, "view\n--output --open\nmsg eml tnef\n");
}

}  // namespace
