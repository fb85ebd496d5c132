// read and summary: one document per file, JSON Lines for several, standard
// input, kinds told by the first bytes or forced.
#include <gtest/gtest.h>

#include "support/Oracle.h"

namespace {

using qhclitest::corpus;
using qhclitest::kSimpleEml;
using qhclitest::lines;
using qhclitest::parse;
using qhtest::runCli;

TEST(Read, OneFileGivesOneJsonDocumentAndALineFeedFromTheFileOrStandardInput) {
    QH_REQUIRE_CORPUS("msg");
    for (const char* name : {"poi-attachment_test_msg.msg", "hh-test2.msg"}) {
        std::string path = corpus("msg", name);
        auto fromFile = runCli({"read", path});
        auto bytes = qhtest::readFileBytes(path);
        auto fromStdin = runCli({"read", "-"}, std::string(bytes.begin(), bytes.end()));
        ASSERT_EQ(fromFile.exitCode, 0) << name << fromFile.err;
        EXPECT_EQ(fromStdin.exitCode, 0) << name;
        EXPECT_EQ(fromStdin.out, fromFile.out) << name;
        EXPECT_TRUE(fromFile.out.ends_with("}\n")) << name;
        EXPECT_EQ(lines(fromFile.out).size(), 1u);
        EXPECT_TRUE(parse(fromFile.out).is_object()) << name;
    }
}

TEST(Read, AFileIsReadWholeAtAnySize) {
    // A regular file is read in one piece of its size; standard input in
    // chunks of 64 KiB. Both must give every byte, around a chunk's size too.
    qhclitest::ScratchDir scratch;
    for (std::size_t size : {0, 1, 20, 65535, 65536, 65537, 200001}) {
        std::string text = "Subject: s\n\n";
        text = size < text.size() ? text.substr(0, size) : text + std::string(size - text.size(), 'x');
        std::string path = scratch.write("m" + std::to_string(size) + ".eml", text);
        auto fromFile = runCli({"read", path});
        auto fromStdin = runCli({"read", "-"}, text);
        EXPECT_EQ(fromFile.exitCode, fromStdin.exitCode) << size;
        EXPECT_EQ(fromFile.out, fromStdin.out) << size;
        if (size > 20) {
            EXPECT_EQ(parse(fromFile.out)["Body"].get<std::string>().size(), size - 12) << size;
        }
    }
}

TEST(Read, KindsAreToldByTheFirstBytesAndCanBeForced) {
    qhclitest::ScratchDir scratch;
    std::string text = scratch.write("plain.bin", kSimpleEml);
    // Read as a compound document, MIME text is no message at all.
    auto forced = runCli({"read", "--as", "msg", text});
    EXPECT_EQ(forced.exitCode, 0);
    EXPECT_EQ(forced.out, "null\n");
    auto detected = runCli({"read", text});
    EXPECT_EQ(parse(detected.out)["Subject"], "Fixture subject");
}

TEST(Read, SeveralFilesGiveJsonLinesInTheOrderGiven) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    std::string eml = scratch.write("simple.eml", kSimpleEml);
    std::string notMsg = scratch.write("fake.msg", "not a compound document");
    std::vector<std::string> files = {corpus("msg", "hh-test2.msg"), eml, corpus("msg", "hh-Simple.msg")};
    auto all = runCli({"read", files[0], files[1], files[2]});
    ASSERT_EQ(all.exitCode, 0) << all.err;
    auto rows = lines(all.out);
    ASSERT_EQ(rows.size(), files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        auto row = parse(rows[i]);
        ASSERT_TRUE(row.is_object()) << rows[i].substr(0, 200);
        EXPECT_EQ(row.begin().key(), "file");
        EXPECT_EQ(row["file"], files[i]);
        EXPECT_TRUE(row["result"].is_object());
    }
    // The single-file form's document is exactly the "result" of the line.
    EXPECT_EQ(parse(rows[1])["result"], parse(runCli({"read", eml}).out));

    // A file that cannot be read, or gives no message, is a null result; the rest still come, exit 1.
    std::string missing = (scratch.path() / "missing.eml").string();
    auto mixed = runCli({"read", "--as", "msg", missing, notMsg, files[0]});
    EXPECT_EQ(mixed.exitCode, 1);
    auto mixedRows = lines(mixed.out);
    ASSERT_EQ(mixedRows.size(), 3u);
    EXPECT_EQ(parse(mixedRows[0])["file"], missing);
    EXPECT_TRUE(parse(mixedRows[0])["result"].is_null());
    EXPECT_TRUE(parse(mixedRows[1])["result"].is_null());
    EXPECT_TRUE(parse(mixedRows[2])["result"].is_object());
    EXPECT_NE(mixed.err.find(missing), std::string::npos);
}

// Every corpus file of every kind reads, whatever the number of threads.
TEST(Read, ThreadCountDoesNotChangeTheOutput) {
    QH_REQUIRE_CORPUS("msg");
    std::vector<std::string> args = {"read"};
    for (const auto& path : qhtest::corpusOf("mail")) args.push_back(path.string());
    auto one = args, four = args;
    one.insert(one.begin() + 1, {"-j", "1"});
    four.insert(four.begin() + 1, {"-j", "4"});
    auto serial = runCli(one);
    auto again = runCli(one);
    auto parallel = runCli(four);
    EXPECT_EQ(serial.exitCode, 0) << serial.err;
    EXPECT_EQ(parallel.exitCode, serial.exitCode);
    auto serialRows = lines(serial.out), againRows = lines(again.out), parallelRows = lines(parallel.out);
    ASSERT_EQ(serialRows.size(), args.size() - 1);
    ASSERT_EQ(parallelRows.size(), serialRows.size());
    // Embedded messages are converted with fresh MIME boundaries on every run, so only
    // the lines that two serial runs agree on can be compared byte for byte.
    std::size_t compared = 0;
    for (std::size_t i = 0; i < serialRows.size(); ++i) {
        EXPECT_EQ(parse(parallelRows[i])["file"], args[i + 1]);
        EXPECT_TRUE(parse(serialRows[i])["result"].is_object()) << args[i + 1];
        if (serialRows[i] != againRows[i]) continue;
        ++compared;
        EXPECT_TRUE(parallelRows[i] == serialRows[i]) << args[i + 1];  // not EXPECT_EQ: lines are megabytes
    }
    EXPECT_GT(compared, serialRows.size() / 2);
    // Not a terminal: no progress bar.
    EXPECT_EQ(parallel.err.find('\r'), std::string::npos);
}

TEST(Summary, GivesTheThreeKeysForEveryKind) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    std::string eml = scratch.write("simple.eml", kSimpleEml);
    for (const std::string& file : {corpus("msg", "hh-test2.msg"), eml}) {
        auto result = runCli({"summary", file});
        ASSERT_EQ(result.exitCode, 0) << file << result.err;
        auto summary = parse(result.out);
        ASSERT_TRUE(summary.is_object()) << file << ": " << result.out;
        for (const char* key : {"Subject", "Body", "From"}) EXPECT_TRUE(summary.contains(key)) << file << " " << key;
    }
    auto both = runCli({"summary", corpus("msg", "hh-test2.msg"), eml});
    EXPECT_EQ(both.exitCode, 0);
    EXPECT_EQ(lines(both.out).size(), 2u);
}

}  // namespace
