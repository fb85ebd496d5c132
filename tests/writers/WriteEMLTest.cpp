// The message text the EML writer makes, compared line by line with the
// boundary (a fresh UUID per message) replaced by "BOUNDARY".
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "core/SystemInfo.h"
#include "support/EnvironmentGuard.h"
#include <quillhaven/Value.h>
#include "writers/MailFormatters.h"
#include <quillhaven/WriteEML.h>

namespace {

using qh::Array;
using qh::Dict;

constexpr std::string_view kHeaders =
    "Generated-By: Quillhaven 3\n";
constexpr std::string_view kFixedLines =
    "Message-ID: <Quillhaven-Conversion>\nMime-version: 1.0\nContent-type: multipart/related;\n\tboundary=\"BOUNDARY\"\n";
constexpr std::string_view kPlainHeader = "Content-transfer-encoding: text\nContent-type: text/plain; charset=utf-8\n";
constexpr std::string_view kHtmlHeader =
    "Content-transfer-encoding: quoted-printable\nContent-type: text/html; charset=us-ascii\n";
constexpr std::string_view kBoundaryLine = "\n\n--BOUNDARY\n";

class WriteEMLTest : public testing::Test {
protected:
    void SetUp() override {
        qh::SystemInfo::overrideSystemVersion("13.0");
        environment_.set("TZ", "UTC");
    }
    void TearDown() override { qh::SystemInfo::overrideSystemVersion(std::nullopt); }

    // The writer's text with its boundary replaced, so that layouts compare exactly.
    static std::string written(const Dict& message) {
        std::string text = qh::WriteEML(message).formatOutputFile();
        const std::string marker = "boundary=\"";
        std::size_t start = text.find(marker);
        if (start == std::string::npos) return "(no boundary) " + text;
        start += marker.size();
        std::string boundary = text.substr(start, text.find('"', start) - start);
        if (boundary.size() != 36) return "(odd boundary) " + text;
        for (std::size_t at = text.find(boundary); at != std::string::npos; at = text.find(boundary, at))
            text.replace(at, boundary.size(), "BOUNDARY");
        return text;
    }

    static std::string join(std::initializer_list<std::string_view> parts) {
        std::string text;
        for (std::string_view part : parts) text.append(part);
        return text;
    }

    qhtest::EnvironmentGuard environment_;
};

Dict address(std::string name, std::string mail) { return Dict{{"Name", std::move(name)}, {"Address", std::move(mail)}}; }

TEST_F(WriteEMLTest, Layouts) {
    const std::string rtf = "{\\rtf1 Hi \\b caf\\u233?\\b0\\par}";
    const std::string html =
        "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n"
        "<style>p { margin: 0; white-space: pre-wrap; }</style>\n</head>\n<body>\n"
        "<p>Hi <b>caf=C3=A9</b></p>\n</body>\n</html>";
    const std::string rtfPart = "Content-type: text/rtf\nContent-Disposition: attachment; filename=EmailContent.rtf\n";
    auto part = [](std::string_view name, std::string_view base64) {
        return join({"\n", "\n--BOUNDARY\n", "Content-Transfer-Encoding: base64", "\n",
                     "Content-Disposition: attachment;\n\tfilename=\"", name, "\"\n\n", base64, "\n\n"});
    };
    const std::string noBody = join({kFixedLines, kPlainHeader, "\n", "\n\n"});
    struct Case {
        const char* name;
        Dict message;
        std::string expected;
    } cases[] = {
        {"only a body", Dict{{"Body", "  Hello body \n"}},
         join({kHeaders, kFixedLines, kPlainHeader, "\n", kBoundaryLine, "Hello body", "\n\n", "\n"})},
        {"nothing to write", Dict{}, join({kHeaders, noBody, "\n"})},
        {"HTML goes out unencoded with single line ends",
         Dict{{"Subject", " Hi \n"},
              {"HTML", "\n<html><body>a\r\n\r\n\nb = c\u00e9</body></html>\n "},
              {"Body", "not written"}},
         join({kHeaders, "Subject: Hi\n", kFixedLines, kBoundaryLine, kHtmlHeader, "\n",
               "<html><body>a\nb = c\u00e9</body></html>", "\n\n", "\n"})},
        {"RawMail beats HTML and stands as it is",
         Dict{{"RawMail", "=3D raw\r\n\r\nx"}, {"HTML", "<b>not written</b>"}},
         join({kHeaders, kFixedLines, kBoundaryLine, kHtmlHeader, "\n", "=3D raw\r\n\r\nx", "\n\n", "\n"})},
        {"RTF becomes quoted-printable HTML and an RTF part", Dict{{"RTF", qh::toBytes(rtf)}, {"Body", "not written"}},
         join({kHeaders, kFixedLines, kBoundaryLine, kHtmlHeader, "\n", html, "\n\n", kBoundaryLine, rtfPart,
               "Content-length: ", std::to_string(rtf.size()), "\n\n", rtf, "\n\n", "\n"})},
        // Not RTF at all: no HTML and no text, but the bytes still go out as
        // the RTF part, read as ISO Latin-1 and counted in characters.
        {"RTF without HTML gives a plain part", Dict{{"RTF", qh::Bytes{'c', 'a', 'f', 0xE9, '\n', '\n', 'x'}}},
         join({kHeaders, kFixedLines, kBoundaryLine, kPlainHeader, "\n", "\n\n", kBoundaryLine, rtfPart,
               "Content-length: 7\n\n", "caf\u00e9\nx", "\n\n", "\n"})},
        {"address lists",
         Dict{{"From", Array{address("Ann", "ann@example.com")}},
              {"To", Array{address("Bob", "bob@example.com"), address("Bad", "not an address"),
                           Dict{{"Address", "carl@example.org"}}}},
              {"CC", Array{}},
              {"BCC", Array{address("Nobody", "nobody")}}},
         join({kHeaders, "From: \"Ann\" <ann@example.com>,\n",
               "To: \"Bob\" <bob@example.com>,\n \"carl@example.org\" <carl@example.org>,\n", "Cc: \n", "Bcc: \n",
               noBody, "\n"})},
        {"TimeStamp beats Date", Dict{{"TimeStamp", qh::Date{1000000000}}, {"Date", "Mon, 1 Jan 2001"}},
         join({kHeaders, "Date: Sun, 9 Sep 2001 01:46:40 +0000\n", noBody, "\n"})},
        {"Date trimmed", Dict{{"Date", "  Tue, 2 Feb 2021 10:00:00 +0100 \n"}},
         join({kHeaders, "Date: Tue, 2 Feb 2021 10:00:00 +0100\n", noBody, "\n"})},
        {"attachments: unnamed, empty and missing data",
         Dict{{"AttachmentList",
               Array{Dict{{"name", "a.txt"}, {"data", qh::toBytes("hello")}}, Dict{{"data", qh::toBytes("xyz")}},
                     Dict{{"name", "empty.bin"}, {"data", qh::Bytes{}}}, Dict{{"name", "nodata.bin"}},
                     Dict{{"name", ""}, {"data", qh::toBytes("1")}},
                     Dict{{"name", "long.bin"}, {"data", qh::Bytes(60, 0xFF)}}}}},
         join({kHeaders, noBody, part("a.txt", "aGVsbG8="), part("Unnamed", "eHl6"), part("Unnamed", "MQ=="),
               part("long.bin", std::string(76, '/') + "\n" + std::string(4, '/')), "\n"})},
    };
    for (const Case& c : cases) EXPECT_EQ(written(c.message), c.expected) << c.name;
}

TEST_F(WriteEMLTest, MultipartTypeFollowsSystemVersion) {
    const std::pair<const char*, const char*> cases[] = {
        {"10.7", "multipart/mixed"}, {"10.8", "multipart/mixed"}, {"10.9", "multipart/related"},
        {"13.0", "multipart/related"},
        // Read as a number, 10.15 is less than 10.8.
        {"10.15", "multipart/mixed"}};
    for (const auto& [version, type] : cases) {
        qh::SystemInfo::overrideSystemVersion(version);
        EXPECT_EQ(qh::MailFormatters::contentTagWithBoundary("B"),
                  std::string("Content-type: ") + type + ";\n\tboundary=\"B\"")
            << version;
    }
}

TEST_F(WriteEMLTest, FreshBoundaryPerMessage) {
    qh::WriteEML writer(Dict{{"Body", "x"}});
    std::string first = writer.formatOutputFile();
    std::string second = writer.formatOutputFile();
    EXPECT_NE(first, second);
    EXPECT_EQ(written(Dict{{"Body", "x"}}), written(Dict{{"Body", "x"}}));
}

TEST(MailFormatters, FixedTexts) {
    EXPECT_EQ(qh::MailFormatters::boundaryTagWithBoundary("B"), "\n--B\n");
    EXPECT_EQ(qh::MailFormatters::mailContentTagWithBoundary("B"),
              "Content-Type: multipart/alternative;\n\tboundary=\"B\"\n");
    EXPECT_EQ(qh::MailFormatters::formatMailingList(Array{}), "\n");
}

}  // namespace
