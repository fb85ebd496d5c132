// quillhaven rtf: a compressed-RTF stream in, the RTF, its text or its HTML out.
#include <gtest/gtest.h>

#include "support/Corpus.h"
#include "support/RtfCompressor.h"

namespace {

TEST(RtfCommand, FormsAndFailures) {
    const std::string rtf = "{\\rtf1\\ansi Caf\\'e9 \\b bold\\b0\\par}";
    const qhtest::TemporaryFile body(qhtest::RtfCompressor::compress(rtf), "body.lzfu");
    const qhtest::TemporaryFile notCompressed(qh::asBytes("{\\rtf1 not compressed at all}"), "plain.txt");
    const qhtest::TemporaryFile notRtf(qhtest::RtfCompressor::compress("just words"), "words.lzfu");
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string out;  // "<p>..." is looked for inside the output
    } cases[] = {
        {{"rtf", body.string()}, 0, rtf},
        {{"rtf", "--text", body.string()}, 0, "Caf\u00e9 bold\n"},
        {{"rtf", "--html", body.string()}, 0, "<p>Caf\u00e9 <b>bold</b></p>"},
        {{"rtf", notCompressed.string()}, 1, ""},
        {{"rtf", "--text", notRtf.string()}, 1, ""},
        // The stream decodes, so its bytes print even though they are not RTF.
        {{"rtf", notRtf.string()}, 0, "just words"},
        {{"rtf", body.string() + ".missing"}, 2, ""},
        {{"rtf", "--text", "--html", notRtf.string()}, 2, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args[1]);
        qhtest::CliResult result = qhtest::runCli(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode);
        if (c.out.starts_with("<p>")) {
            EXPECT_NE(result.out.find(c.out), std::string::npos) << result.out;
        } else if (c.exitCode == 0) {
            EXPECT_EQ(result.out, c.out);
        }
    }
}

}  // namespace
