// convert: one message to standard output or -o, many into a folder with
// names from the inputs.
#include <gtest/gtest.h>

#include "support/CliTestSupport.h"

namespace {

using qhclitest::corpus;
using qhclitest::fields;
using qhclitest::kSimpleEml;
using qhclitest::lines;
using qhtest::runCli;

TEST(Convert, OneMessageToStandardOutputOrOutReadsBackWithItsSubject) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    std::string eml = scratch.write("in.eml", kSimpleEml);
    auto out = (scratch.path() / "out.eml").string();
    for (const std::string& input : {corpus("msg", "poi-attachment_test_msg.msg"), eml}) {
        auto printed = runCli({"convert", input});
        ASSERT_EQ(printed.exitCode, 0) << input << printed.err;
        auto reread = qhclitest::parse(runCli({"read", "--as", "eml", "-"}, printed.out).out);
        ASSERT_TRUE(reread.is_object()) << input;
        EXPECT_EQ(reread["Subject"], qhclitest::parse(runCli({"read", input}).out)["Subject"]) << input;

        scratch.write("out.eml", "an older file that -o replaces");
        auto written = runCli({"convert", "-o", out, input});
        ASSERT_EQ(written.exitCode, 0) << written.err;
        EXPECT_TRUE(written.out.empty());
        std::string saved = qhclitest::readText(out);
        // Each message gets a fresh Message-ID and boundaries; compare the header lines before them.
        EXPECT_EQ(saved.substr(0, saved.find("Message-ID")), printed.out.substr(0, printed.out.find("Message-ID")));
        EXPECT_EQ(lines(saved).size(), lines(printed.out).size());
    }
}

TEST(Convert, ManyFilesGoIntoTheFolderUnderTheirOwnNames) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    std::string out = (scratch.path() / "out").string();
    // Two inputs share a stem; the second one given gets the number.
    std::string sameStem = scratch.write("elsewhere/hh-test2.eml", kSimpleEml);
    // Starts like a compound document, so it is read as one, and holds nothing else.
    std::string junk = scratch.write("junk.msg", std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) + "truncated");
    std::string twoDots = scratch.write("a.b.eml", kSimpleEml);
    // Standard input is named "stdin".
    std::vector<std::string> inputs = {corpus("msg", "hh-test2.msg"), junk, sameStem, twoDots, "-"};
    auto result = runCli({"convert", "-j", "3", "-d", out, inputs[0], inputs[1], inputs[2], inputs[3], "-"}, kSimpleEml);
    EXPECT_EQ(result.exitCode, 1);  // junk.msg gives no message
    auto rows = lines(result.out);
    ASSERT_EQ(rows.size(), 5u) << result.out;
    const struct {
        const char* status;
        std::string output;
    } expected[] = {
        {"ok", out + "/hh-test2.eml"},
        {"none", ""},
        {"ok", out + "/hh-test2 (2).eml"},
        {"ok", out + "/a.b.eml"},
        {"ok", out + "/stdin.eml"},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        auto row = fields(rows[i]);
        ASSERT_EQ(row.size(), 3u) << rows[i];
        EXPECT_EQ(row[0], expected[i].status) << rows[i];
        EXPECT_EQ(row[1], inputs[i]);
        EXPECT_EQ(row[2], expected[i].output);
    }
    auto files = qhclitest::filesIn(out);
    EXPECT_EQ(files.size(), 4u);
    EXPECT_NE(files["hh-test2 (2).eml"].find("Fixture subject"), std::string::npos);
}

TEST(Convert, ManyFilesIntoOneMbox) {
    qhclitest::ScratchDir scratch;
    const std::string withId = std::string(kSimpleEml).insert(0, "Message-ID: <same@example.com>\r\n");
    std::string first = scratch.write("first.eml", withId);
    std::string junk = scratch.write("junk.msg", std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8) + "truncated");
    std::string second = scratch.write("second.eml", withId);
    std::string mbox = (scratch.path() / "all.mbox").string();
    auto result = runCli({"convert", "-j", "2", "--mbox", mbox, first, junk, second});
    EXPECT_EQ(result.exitCode, 1);  // junk.msg gives no message
    EXPECT_EQ(result.out, "ok\t" + first + "\t" + mbox + "\nnone\t" + junk + "\t\nok\t" + second + "\t" + mbox + "\n");
    std::string text = qhclitest::readText(mbox);
    std::vector<std::string> separators, ids;
    for (const std::string& line : lines(text)) {
        if (line.starts_with("From ")) separators.push_back(line);
        if (line.starts_with("Message-ID: ")) ids.push_back(line);
    }
    ASSERT_EQ(separators.size(), 2u) << text;
    EXPECT_TRUE(separators[0].starts_with("From ann@example.com ")) << separators[0];
    // Two messages that share a Message-ID would be one to an archive: the second gets a fresh one.
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(ids[0], "Message-ID: <same@example.com>");
    EXPECT_NE(ids[1], ids[0]);
    // --classic writes the classic text into the archive.
    auto classic = runCli({"convert", "--classic", "--mbox", mbox, first});
    EXPECT_EQ(classic.exitCode, 0);
    EXPECT_NE(qhclitest::readText(mbox).find("\nGenerated-By: Quillhaven 3\n"), std::string::npos);
}

}  // namespace
