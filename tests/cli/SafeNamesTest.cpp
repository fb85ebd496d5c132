// The name rules for files the command writes (util/SafeNames), tested directly.
#include "util/SafeNames.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include "support/CliTestSupport.h"

namespace {

using qh::OutputFolder;
using qh::SafeNames;

struct NameCase {
    const char* given;
    const char* expected;
};

TEST(SafeNames, SanitizeTable) {
    const NameCase cases[] = {
        {"report.pdf", "report.pdf"},
        {"Ünïcødé 名前.txt", "Ünïcødé 名前.txt"},
        {"../../etc/passwd", "_._etc_passwd"},
        {"..\\..\\boot.ini", "_._boot.ini"},
        {"/abs/path.txt", "_abs_path.txt"},
        {"..", "attachment"},
        {".", "attachment"},
        {"...", "attachment"},
        {"", "attachment"},
        {"   ", "attachment"},
        {"a..b.txt", "a.b.txt"},
        {".hidden", "hidden"},
        {"trailing. . ", "trailing"},
        {"tab\there\r\n.txt", "tabhere.txt"},
        {"bell\x07\x7f.txt", "bell.txt"},
        {"C:\\temp\\x.doc", "C__temp_x.doc"},
        {"what?<>|*\".txt", "what______.txt"},
        {"bad\xff\xfe utf8.txt", "bad utf8.txt"},
        {"gpj\xe2\x80\xae.exe", "gpj.exe"},        // right-to-left override
        {"\xe2\x80\x83spaced\xe2\x80\x83.txt", "spaced\xe2\x80\x83.txt"},  // Unicode space trimmed at the start
    };
    for (const auto& c : cases) EXPECT_EQ(SafeNames::sanitize(c.given, "attachment"), c.expected) << c.given;
}

// Every ASCII character inside a name and at its ends, against the character
// database's categories (ASCII is decided without it).
TEST(SafeNames, AsciiAgreesWithTheCharacterDatabase) {
    for (char32_t c = 0; c < 0x80; ++c) {
        const char ch = static_cast<char>(c);
        const bool control = u_charType(static_cast<UChar32>(c)) == U_CONTROL_CHAR;
        const bool space = u_isUWhiteSpace(static_cast<UChar32>(c));
        const bool unsafe = std::string_view("/\\:*?\"<>|").find(ch) != std::string_view::npos;
        const std::string middle = control ? "" : unsafe ? "_" : std::string(1, ch);
        EXPECT_EQ(SafeNames::sanitize("a" + std::string(1, ch) + "b", "f"), "a" + middle + "b") << int(c);
        const std::string end = control || space || ch == '.' ? "" : middle;
        EXPECT_EQ(SafeNames::sanitize(std::string(1, ch) + "x" + std::string(1, ch), "f"), end + "x" + end) << int(c);
    }
}

TEST(SafeNames, LongNamesAreCutKeepingTheExtension) {
    std::string name(400, 'x');
    std::string cut = SafeNames::sanitize(name + ".pdf", "f");
    EXPECT_EQ(cut.size(), 240u);
    EXPECT_EQ(cut.substr(cut.size() - 4), ".pdf");

    // A cut never splits a character: 3-byte characters, 240 is not a multiple of 3 minus the extension.
    std::string wide;
    for (int i = 0; i < 200; ++i) wide += "\xe5\x90\x8d";
    std::string cutWide = SafeNames::sanitize(wide + ".txt", "f");
    EXPECT_LE(cutWide.size(), 240u);
    EXPECT_EQ((cutWide.size() - 4) % 3, 0u);
    EXPECT_EQ(cutWide.substr(cutWide.size() - 4), ".txt");
}

TEST(SafeNames, NumberedTable) {
    const struct {
        const char* name;
        unsigned n;
        const char* expected;
    } cases[] = {
        {"a.txt", 2, "a (2).txt"},
        {"archive.tar.gz", 3, "archive.tar (3).gz"},
        {"README", 2, "README (2)"},
        {".profile", 2, ".profile (2)"},
    };
    for (const auto& c : cases) EXPECT_EQ(SafeNames::numbered(c.name, c.n), c.expected) << c.name;
}

TEST(OutputFolder, ClashesGetNumbersAndNothingIsReplaced) {
    qhclitest::ScratchDir scratch;
    scratch.write("a.txt", "already here");
    std::string problem;
    auto folder = OutputFolder::open(scratch.path() / "made" / "deeper", problem);
    ASSERT_TRUE(folder) << problem;
    auto first = folder->write("x.bin", qh::asBytes("one"), problem);
    auto second = folder->write("x.bin", qh::asBytes("two"), problem);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, "x.bin");
    EXPECT_EQ(*second, "x (2).bin");

    auto existing = OutputFolder::open(scratch.path(), problem);
    ASSERT_TRUE(existing);
    auto third = existing->write("a.txt", qh::asBytes("new"), problem);
    ASSERT_TRUE(third);
    EXPECT_EQ(*third, "a (2).txt");
    auto files = qhclitest::filesIn(scratch.path());
    EXPECT_EQ(files["a.txt"], "already here");
    EXPECT_EQ(files["a (2).txt"], "new");
}

TEST(OutputFolder, RefusesAFileWhereTheFolderShouldBe) {
    qhclitest::ScratchDir scratch;
    std::string blocker = scratch.write("plain", "x");
    std::string problem;
    EXPECT_FALSE(OutputFolder::open(blocker, problem));
    EXPECT_FALSE(problem.empty());
}

}  // namespace
