// attachments: exact bytes or whole sectors, names that stay inside the
// folder, clashes, TNEF streams and the files inside them.
#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace {

using qhclitest::corpus;
using qhclitest::fields;
using qhclitest::lines;
using qhtest::runCli;

// Printed "<size>\t<name>" lines as (name, size) pairs, in order.
std::vector<std::pair<std::string, std::size_t>> listing(const std::string& out) {
    std::vector<std::pair<std::string, std::size_t>> rows;
    for (const auto& line : lines(out)) {
        auto row = fields(line);
        EXPECT_EQ(row.size(), 2u) << line;
        if (row.size() == 2) rows.emplace_back(row[1], std::stoul(row[0]));
    }
    return rows;
}

// Every printed file exists in `dir` with the printed size, and nothing else does.
void expectListingMatchesFolder(const std::string& out, const std::filesystem::path& dir) {
    auto files = qhclitest::filesIn(dir);
    auto rows = listing(out);
    EXPECT_EQ(rows.size(), files.size());
    for (const auto& [name, size] : rows) {
        ASSERT_TRUE(files.count(name)) << name;
        EXPECT_EQ(files[name].size(), size) << name;
    }
}

TEST(Attachments, ExactStreamsUnlessWholeSectorsAreAsked) {
    QH_REQUIRE_CORPUS("msg");
    // Sizes an independent compound-file reader gives for these attachment streams.
    const struct {
        const char* file;
        std::vector<std::size_t> exact;
        std::vector<std::size_t> wholeSectors;  // mini streams pad to 64 bytes, big ones to 512
    } cases[] = {
        {"hh-test2.msg", {11}, {64}},
        {"poi-attachment_test_msg.msg", {24064, 89}, {24064, 128}},
    };
    for (const auto& c : cases) {
        for (bool whole : {false, true}) {
            qhclitest::ScratchDir scratch;
            std::vector<std::string> args = {"attachments", "-d", scratch.str(), corpus("msg", c.file)};
            if (whole) args.insert(args.begin() + 1, "--whole-sectors");
            auto result = runCli(args);
            ASSERT_EQ(result.exitCode, 0) << c.file << result.err;
            std::vector<std::size_t> sizes;
            for (const auto& row : listing(result.out)) sizes.push_back(row.second);
            EXPECT_EQ(sizes, whole ? c.wholeSectors : c.exact) << c.file << (whole ? " whole sectors" : " exact");
            expectListingMatchesFolder(result.out, scratch.path());
        }
    }
    qhclitest::ScratchDir scratch;
    auto result = runCli({"attachments", "-d", scratch.str(), corpus("msg", "hh-test2.msg")});
    EXPECT_EQ(qhclitest::filesIn(scratch.path()).begin()->second, "attach test");
}

TEST(Attachments, HostileNamesStayInsideTheFolder) {
    qhclitest::ScratchDir scratch;
    // Base64 of "one", "two", "three", "four", "five".
    const char* names[] = {"../escape.txt", "sub/dir/file.txt", "..", "/etc/cron.d/job", "..\\..\\win.ini"};
    const char* payloads[] = {"b25l", "dHdv", "dGhyZWU=", "Zm91cg==", "Zml2ZQ=="};
    std::string eml =
        "Received: from fixture\r\n"
        "From: ann@example.com\r\n"
        "Subject: hostile names\r\n"
        "MIME-Version: 1.0\r\n"
        "Content-Type: multipart/mixed; boundary=\"SEP\"\r\n"
        "\r\n"
        "--SEP\r\n"
        "Content-Type: text/plain\r\n"
        "\r\n"
        "body\r\n";
    for (int i = 0; i < 5; ++i)
        eml += std::string("--SEP\r\n") + "Content-Type: application/octet-stream\r\n" +
               "Content-Disposition: attachment; filename=\"" + names[i] + "\"\r\n" +
               "Content-Transfer-Encoding: base64\r\n\r\n" + payloads[i] + "\r\n";
    eml += "--SEP--\r\n\r\n";
    std::string input = scratch.write("hostile.eml", eml);
    auto out = scratch.path() / "out" / "inner";
    auto result = runCli({"attachments", "-d", out.string(), input});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    auto rows = listing(result.out);
    EXPECT_EQ(rows.size(), 5u) << result.out;
    for (const auto& [name, size] : rows) {
        EXPECT_EQ(name.find('/'), std::string::npos) << name;
        EXPECT_EQ(name.find('\\'), std::string::npos) << name;
        EXPECT_EQ(name.find(".."), std::string::npos) << name;
        EXPECT_FALSE(name.empty());
    }
    expectListingMatchesFolder(result.out, out);
    // Nothing landed beside or above the folder.
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch.path())) {
        (void)entry;
        ++entries;
    }
    EXPECT_EQ(entries, 1 + 1 + 1 + rows.size());  // hostile.eml, out/, out/inner/, the files
}

TEST(Attachments, ClashesWithFilesAlreadyThereGetANumber) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    std::string input = corpus("msg", "hh-test2.msg");
    auto first = runCli({"attachments", "-d", scratch.str(), input});
    auto second = runCli({"attachments", "-d", scratch.str(), input});
    ASSERT_EQ(second.exitCode, 0);
    auto firstRows = listing(first.out), secondRows = listing(second.out);
    ASSERT_EQ(firstRows.size(), 1u);
    ASSERT_EQ(secondRows.size(), 1u);
    EXPECT_EQ(firstRows[0].first, "A.txt");
    EXPECT_EQ(secondRows[0].first, "A (2).txt");
    EXPECT_EQ(qhclitest::filesIn(scratch.path()).size(), 2u);
}

TEST(Attachments, StandardInputAndDefaultFolder) {
    QH_REQUIRE_CORPUS("msg");
    qhclitest::ScratchDir scratch;
    auto bytes = qhtest::readFileBytes(corpus("msg", "hh-test2.msg"));
    // Without -d the files go to the current folder: run from the scratch folder.
    auto previous = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    auto result = runCli({"attachments", "-"}, std::string(bytes.begin(), bytes.end()));
    std::filesystem::current_path(previous);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "11\tA.txt\n");
    EXPECT_EQ(qhclitest::readText(scratch.path() / "A.txt"), "attach test");
}

TEST(Attachments, TnefFilesUnpack) {
    QH_REQUIRE_CORPUS("tnef");
    // Names and sizes an independent TNEF decoder gives for these streams.
    const struct {
        const char* file;
        std::map<std::string, std::size_t> expected;
    } cases[] = {
        {"mk-two-files.tnef", {{"AUTHORS", 244}, {"README", 893}}},
        {"mk-attachments.tnef", {{"zappa_av1.jpg", 2937}, {"bookmark.htm", 85805}}},
    };
    for (const auto& c : cases) {
        qhclitest::ScratchDir scratch;
        auto result = runCli({"attachments", "-d", scratch.str(), corpus("tnef", c.file)});
        ASSERT_EQ(result.exitCode, 0) << c.file << result.err;
        std::map<std::string, std::size_t> got;
        for (const auto& [name, size] : listing(result.out)) got[name] = size;
        EXPECT_EQ(got, c.expected) << c.file;
        expectListingMatchesFolder(result.out, scratch.path());
    }
}

TEST(Attachments, ExpandTnefAlsoWritesTheFilesInsideWinmailDat) {
    QH_REQUIRE_CORPUS("eml");
    std::string input = corpus("eml", "mk-rich-text.eml");
    qhclitest::ScratchDir plain, expanded, direct;
    auto outer = runCli({"attachments", "-d", plain.str(), input});
    ASSERT_EQ(outer.exitCode, 0) << outer.err;
    auto outerRows = listing(outer.out);
    auto winmail = std::find_if(outerRows.begin(), outerRows.end(),
                                [](const auto& row) { return row.first == "winmail.dat"; });
    ASSERT_NE(winmail, outerRows.end()) << outer.out;

    // What the TNEF stream holds, unpacked on its own.
    auto inner = runCli({"attachments", "-d", direct.str(), (plain.path() / "winmail.dat").string()});
    ASSERT_EQ(inner.exitCode, 0);
    auto innerRows = listing(inner.out);
    ASSERT_FALSE(innerRows.empty());

    auto both = runCli({"attachments", "--expand-tnef", "-d", expanded.str(), input});
    ASSERT_EQ(both.exitCode, 0) << both.err;
    auto bothRows = listing(both.out);
    // The outer attachments first, then the files inside, in their order.
    ASSERT_EQ(bothRows.size(), outerRows.size() + innerRows.size());
    for (std::size_t i = 0; i < outerRows.size(); ++i) EXPECT_EQ(bothRows[i], outerRows[i]);
    auto expandedFiles = qhclitest::filesIn(expanded.path());
    auto directFiles = qhclitest::filesIn(direct.path());
    for (std::size_t i = 0; i < innerRows.size(); ++i) {
        EXPECT_EQ(bothRows[outerRows.size() + i].second, innerRows[i].second);
        const std::string& name = bothRows[outerRows.size() + i].first;
        // An attached message is written as MIME with a fresh Message-ID and
        // boundaries each time: the same size, not the same bytes.
        if (name.ends_with(".eml")) {
            EXPECT_EQ(expandedFiles[name].size(), directFiles[innerRows[i].first].size());
        } else {
            EXPECT_EQ(expandedFiles[name], directFiles[innerRows[i].first]);
        }
    }
}

}  // namespace
