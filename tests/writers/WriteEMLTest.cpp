// The message text the EML writer makes, compared line by line with the
// boundary (a fresh UUID per message) replaced by "BOUNDARY".
#include <cstdlib>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "core/SystemInfo.h"
#include <quillhaven/Value.h>
#include "writers/MailFormatters.h"
#include <quillhaven/WriteEML.h>

namespace {

using qh::Array;
using qh::Dict;
using qh::Value;

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
        const char* zone = std::getenv("TZ");
        if (zone) savedZone_ = zone;
        setenv("TZ", "UTC", 1);
    }
    void TearDown() override {
        qh::SystemInfo::overrideSystemVersion(std::nullopt);
        if (savedZone_) setenv("TZ", savedZone_->c_str(), 1);
        else unsetenv("TZ");
    }

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

    std::optional<std::string> savedZone_;
};

Dict address(std::string name, std::string mail) { return Dict{{"Name", std::move(name)}, {"Address", std::move(mail)}}; }

TEST_F(WriteEMLTest, OnlyBody) {
    Dict message{{"Body", "  Hello body \n"}};
    EXPECT_EQ(written(message),
              join({kHeaders, kFixedLines, kPlainHeader, "\n", kBoundaryLine, "Hello body", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, NothingToWrite) {
    EXPECT_EQ(written(Dict{}), join({kHeaders, kFixedLines, kPlainHeader, "\n", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, HtmlGoesOutUnencodedWithSingleLineEnds) {
    Dict message{{"Subject", " Hi \n"}, {"HTML", "\n<html><body>a\r\n\r\n\nb = c\u00e9</body></html>\n "},
                 {"Body", "not written"}};
    EXPECT_EQ(written(message), join({kHeaders, "Subject: Hi\n", kFixedLines, kBoundaryLine, kHtmlHeader, "\n",
                                      "<html><body>a\nb = c\u00e9</body></html>", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, RawMailBeatsHtmlAndStandsAsItIs) {
    Dict message{{"RawMail", "=3D raw\r\n\r\nx"}, {"HTML", "<b>not written</b>"}};
    EXPECT_EQ(written(message),
              join({kHeaders, kFixedLines, kBoundaryLine, kHtmlHeader, "\n", "=3D raw\r\n\r\nx", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, RtfBecomesQuotedPrintableHtmlAndAnRtfPart) {
    const std::string rtf = "{\\rtf1 Hi \\b caf\\u233?\\b0\\par}";
    Dict message{{"RTF", qh::toBytes(rtf)}, {"Body", "not written"}};
    const std::string html =
        "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n"
        "<style>p { margin: 0; white-space: pre-wrap; }</style>\n</head>\n<body>\n"
        "<p>Hi <b>caf=C3=A9</b></p>\n</body>\n</html>";
    EXPECT_EQ(written(message),
              join({kHeaders, kFixedLines, kBoundaryLine, kHtmlHeader, "\n", html, "\n\n", kBoundaryLine,
                    "Content-type: text/rtf\n", "Content-Disposition: attachment; filename=EmailContent.rtf\n",
                    "Content-length: ", std::to_string(rtf.size()), "\n\n", rtf, "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, RtfWithoutHtmlGivesPlainPartAndCountsCharacters) {
    // Not RTF at all: no HTML and no text, but the bytes still go out as the
    // RTF part, read as ISO Latin-1 and counted in characters.
    Dict message{{"RTF", qh::Bytes{'c', 'a', 'f', 0xE9, '\n', '\n', 'x'}}};
    EXPECT_EQ(written(message),
              join({kHeaders, kFixedLines, kBoundaryLine, kPlainHeader, "\n", "\n\n", kBoundaryLine,
                    "Content-type: text/rtf\n", "Content-Disposition: attachment; filename=EmailContent.rtf\n",
                    "Content-length: 7\n\n", "caf\u00e9\nx", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, AddressLists) {
    Dict message{
        {"From", Array{address("Ann", "ann@example.com")}},
        {"To", Array{address("Bob", "bob@example.com"), address("Bad", "not an address"),
                     Dict{{"Address", "carl@example.org"}}}},
        {"CC", Array{}},
        {"BCC", Array{address("Nobody", "nobody")}},
    };
    EXPECT_EQ(written(message),
              join({kHeaders, "From: \"Ann\" <ann@example.com>,\n",
                    "To: \"Bob\" <bob@example.com>,\n \"carl@example.org\" <carl@example.org>,\n", "Cc: \n",
                    "Bcc: \n", kFixedLines, kPlainHeader, "\n", "\n\n", "\n"}));
}

TEST_F(WriteEMLTest, DateLine) {
    struct Case {
        const char* name;
        Dict message;
        std::string line;
    };
    const Case cases[] = {
        {"TimeStampBeatsDate", Dict{{"TimeStamp", qh::Date{1000000000}}, {"Date", "Mon, 1 Jan 2001"}},
         "Date: Sun, 9 Sep 2001 01:46:40 +0000\n"},
        {"DateTrimmed", Dict{{"Date", "  Tue, 2 Feb 2021 10:00:00 +0100 \n"}}, "Date: Tue, 2 Feb 2021 10:00:00 +0100\n"},
        {"NoDate", Dict{}, ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(written(c.message), join({kHeaders, c.line, kFixedLines, kPlainHeader, "\n", "\n\n", "\n"})) << c.name;
}

TEST_F(WriteEMLTest, Attachments) {
    Dict message{{"AttachmentList",
                  Array{Dict{{"name", "a.txt"}, {"data", qh::toBytes("hello")}},
                        Dict{{"data", qh::toBytes("xyz")}},
                        Dict{{"name", "empty.bin"}, {"data", qh::Bytes{}}},
                        Dict{{"name", "nodata.bin"}},
                        Dict{{"name", ""}, {"data", qh::toBytes("1")}},
                        Dict{{"name", "long.bin"}, {"data", qh::Bytes(60, 0xFF)}}}}};
    auto part = [](std::string_view name, std::string_view base64) {
        return join({"\n", "\n--BOUNDARY\n", "Content-Transfer-Encoding: base64", "\n",
                     "Content-Disposition: attachment;\n\tfilename=\"", name, "\"\n\n", base64, "\n\n"});
    };
    const std::string longBase64 = std::string(76, '/') + "\n" + std::string(4, '/');
    EXPECT_EQ(written(message),
              join({kHeaders, kFixedLines, kPlainHeader, "\n", "\n\n", part("a.txt", "aGVsbG8="),
                    part("Unnamed", "eHl6"), part("Unnamed", "MQ=="), part("long.bin", longBase64), "\n"}));
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

TEST_F(WriteEMLTest, Accessors) {
    EXPECT_EQ(qh::WriteEML::initWithDictionary(nullptr), nullptr);
    Dict message{{"Subject", "s"}, {"AttachmentList", Array{Dict{{"name", "n"}}}}};
    auto writer = qh::WriteEML::initWithDictionary(&message);
    ASSERT_NE(writer, nullptr);
    ASSERT_NE(writer->checkContent("Subject"), nullptr);
    EXPECT_EQ(*writer->checkContent("Subject"), Value("s"));
    EXPECT_EQ(writer->checkContent("subject"), nullptr);
    ASSERT_NE(writer->attachmentArray(), nullptr);
    EXPECT_EQ(writer->attachmentArray()->size(), 1u);
    EXPECT_EQ(qh::WriteEML(Dict{}).attachmentArray(), nullptr);
}

TEST(MailFormatters, FixedTexts) {
    EXPECT_EQ(qh::MailFormatters::boundaryTagWithBoundary("B"), "\n--B\n");
    EXPECT_EQ(qh::MailFormatters::mailContentTagWithBoundary("B"),
              "Content-Type: multipart/alternative;\n\tboundary=\"B\"\n");
    EXPECT_EQ(qh::MailFormatters::formatMailingList(Array{}), "\n");
}

}  // namespace
