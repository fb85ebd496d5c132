// attachments: exact bytes or whole sectors, names that stay inside the
// folder, TNEF streams and the files inside them (on messages built here),
// standard input, the current folder and clashes.
#include <gtest/gtest.h>

#include "support/CliTestSupport.h"
#include "core/Base64.h"
#include "readers/tnef/Attributes.h"
#include "msg/MsgFixture.h"
#include "support/MimeBuilder.h"
#include "support/TnefWriter.h"

namespace {

using qhtest::runCli;

// An e-mail with one 100-byte attachment: 100 bytes sit in two 64-byte mini sectors.
std::string messageWithAttachment(const std::string& attachmentName) {
    const std::string a = qhtest::MsgFixture::attachment(0);
    auto file = qhtest::MsgFixture()
                    .unicode("", 0x001A, "IPM.Note")
                    .unicode(a, 0x3707, attachmentName)
                    .binary(a, 0x3701, qh::asBytes("first " + std::string(94, 'x')))
                    .build();
    return std::string(file.begin(), file.end());
}

std::string tnefWithTwoFiles() {
    qhtest::TnefWriter stream;
    stream.attribute(qh::tnef::kLevelMessage, qh::tnef::kAttSubject, std::string("inner\0", 6))
        .attachment("first.txt", qh::asBytes("first file"))
        .attachment("second.txt", qh::asBytes("second file, longer"));
    auto bytes = stream.bytes();
    return std::string(bytes.begin(), bytes.end());
}

TEST(FixtureMessages, ExactBytesUnlessWholeSectorsAndASafeName) {
    qhclitest::ScratchDir scratch;
    std::string input = scratch.write("in.msg", messageWithAttachment("../../evil\x01.txt"));
    const struct {
        bool wholeSectors;
        std::size_t size;
    } cases[] = {{false, 100}, {true, 128}};
    for (const auto& c : cases) {
        auto out = scratch.path() / (c.wholeSectors ? "whole" : "exact");
        std::vector<std::string> args = {"attachments", "-d", out.string(), input};
        if (c.wholeSectors) args.insert(args.begin() + 1, "--whole-sectors");
        auto result = runCli(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, std::to_string(c.size) + "\t_._evil.txt\n");
        std::string written = qhclitest::readText(out / "_._evil.txt");
        EXPECT_EQ(written.size(), c.size);
        EXPECT_EQ(written.substr(0, 6), "first ");
    }
    // Nothing was written outside the folders asked for.
    EXPECT_EQ(qhclitest::filesIn(scratch.path()).size(), 1u);
}

TEST(FixtureMessages, TnefStreamsUnpackAndExpandInsideAMimeMessage) {
    qhclitest::ScratchDir scratch;
    std::string tnef = tnefWithTwoFiles();
    std::string direct = scratch.write("winmail.dat", tnef);
    auto unpacked = runCli({"attachments", "-d", (scratch.path() / "direct").string(), direct});
    ASSERT_EQ(unpacked.exitCode, 0) << unpacked.err;
    EXPECT_EQ(unpacked.out, "10\tfirst.txt\n19\tsecond.txt\n");

    // Named so that only its bytes or its content type can tell what it is.
    const qhtest::MimeBuilder attached = qhtest::MimeBuilder()
                                             .header("Content-Type", "application/ms-tnef; name=\"mail.bin\"")
                                             .header("Content-Disposition", "attachment; filename=\"mail.bin\"")
                                             .header("Content-Transfer-Encoding", "base64")
                                             .body(qh::Base64::encode(qh::asBytes(tnef)));
    std::string input = scratch.write("outer.eml", qhtest::MimeBuilder()
                                                       .header("Received", "from fixture")
                                                       .header("From", "ann@example.com")
                                                       .header("MIME-Version", "1.0")
                                                       .multipart("mixed", "SEP", {qhtest::MimeBuilder().body("see"), attached})
                                                       .str());
    const struct {
        bool expand;
        const char* listing;
    } cases[] = {
        {false, "TNEF_SIZE\tmail.bin\n"},
        {true, "TNEF_SIZE\tmail.bin\n10\tfirst.txt\n19\tsecond.txt\n"},
    };
    for (const auto& c : cases) {
        auto out = scratch.path() / (c.expand ? "expanded" : "plain");
        std::vector<std::string> args = {"attachments", "-d", out.string(), input};
        if (c.expand) args.insert(args.begin() + 1, "--expand-tnef");
        auto result = runCli(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        std::string expected = c.listing;
        expected.replace(0, 9, std::to_string(tnef.size()));
        EXPECT_EQ(result.out, expected);
        EXPECT_EQ(qhclitest::readText(out / "mail.bin"), tnef);
        if (c.expand) EXPECT_EQ(qhclitest::readText(out / "second.txt"), "second file, longer");
    }
}

TEST(Attachments, StandardInputTheCurrentFolderAndClashes) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    auto bytes = qhtest::readFileBytes(qhclitest::corpus("msg", "hh-test2.msg"));
    // Without -d the files go to the current folder: run from the scratch folder,
    // twice; the second run finds the first one's file and numbers its own.
    auto previous = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    auto first = runCli({"attachments", "-"}, std::string(bytes.begin(), bytes.end()));
    auto second = runCli({"attachments", "-"}, std::string(bytes.begin(), bytes.end()));
    std::filesystem::current_path(previous);
    ASSERT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(first.out, "11\tA.txt\n");
    EXPECT_EQ(second.out, "11\tA (2).txt\n");
    EXPECT_EQ(qhclitest::filesIn(scratch.path()), (std::map<std::string, std::string>{{"A.txt", "attach test"},
                                                                                    {"A (2).txt", "attach test"}}));
}

}  // namespace
