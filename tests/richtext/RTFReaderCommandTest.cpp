// quillhaven rtf: a compressed-RTF stream in, the RTF, its text or its HTML out.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/Corpus.h"
#include "support/RtfCompressor.h"

namespace {

class RtfCommand : public testing::Test {
protected:
    void SetUp() override {
        directory_ = std::filesystem::temp_directory_path() /
                     ("qh-rtf-command-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(directory_);
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string file(const std::string& name, const qh::Bytes& bytes) {
        std::filesystem::path path = directory_ / name;
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return path.string();
    }

    std::filesystem::path directory_;
};

TEST_F(RtfCommand, PrintsRtfTextOrHtml) {
    const std::string rtf = "{\\rtf1\\ansi Caf\\'e9 \\b bold\\b0\\par}";
    const std::string path = file("body.lzfu", qhtest::RtfCompressor::compress(rtf));
    struct Case {
        std::vector<std::string> args;
        std::string expected;
    } cases[] = {
        {{"rtf", path}, rtf},
        {{"rtf", "--text", path}, "Caf\u00e9 bold\n"},
    };
    for (const Case& c : cases) {
        qhtest::CliResult result = qhtest::runCli(c.args);
        EXPECT_EQ(result.exitCode, 0) << c.args[1];
        EXPECT_EQ(result.out, c.expected) << c.args[1];
    }
    qhtest::CliResult html = qhtest::runCli({"rtf", "--html", path});
    EXPECT_EQ(html.exitCode, 0);
    EXPECT_NE(html.out.find("<p>Caf\u00e9 <b>bold</b></p>"), std::string::npos) << html.out;
}

TEST_F(RtfCommand, Failures) {
    const std::string notCompressed = file("plain.txt", qh::toBytes("{\\rtf1 not compressed at all}"));
    const std::string notRtf = file("words.lzfu", qhtest::RtfCompressor::compress("just words"));
    EXPECT_EQ(qhtest::runCli({"rtf", notCompressed}).exitCode, 1);
    EXPECT_EQ(qhtest::runCli({"rtf", "--text", notRtf}).exitCode, 1);
    // The stream decodes, so its bytes print even though they are not RTF.
    EXPECT_EQ(qhtest::runCli({"rtf", notRtf}).out, "just words");
    EXPECT_EQ(qhtest::runCli({"rtf", (directory_ / "missing").string()}).exitCode, 2);
    EXPECT_EQ(qhtest::runCli({"rtf", "--text", "--html", notRtf}).exitCode, 2);
}

}  // namespace
