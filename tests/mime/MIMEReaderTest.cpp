// The part parser's line rules: which lines are read, how headers fold and
// split, how bodies and nested parts come out, and how it holds up on input
// built to make it run long.
#include <gtest/gtest.h>

#include <string>

#include "core/Log.h"
#include "readers/mime/MIMEReader.h"

namespace {

using qh::Dict;
using qh::MIMEReader;

Dict parse(const std::string& message) {
    auto reader = MIMEReader::initWithData(qh::asBytes(message));
    EXPECT_NE(reader, nullptr);
    return reader ? reader->getDictionary() : Dict();
}

std::string text(const Dict& record, std::string_view key) {
    const std::string* value = record.findString(key);
    return value ? *value : "<absent>";
}

const qh::Array& parts(const Dict& record) {
    static const qh::Array none;
    const qh::Array* list = record.findArray("MailContent");
    return list ? *list : none;
}

struct LineCase {
    const char* what;
    std::string message;
    const char* key;
    const char* expected;  // "<absent>" when the key must be missing
};

class LineRules : public ::testing::TestWithParam<LineCase> {};

TEST_P(LineRules, Apply) {
    const LineCase& c = GetParam();
    EXPECT_EQ(text(parse(c.message), c.key), c.expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    MIMEReader, LineRules,
    ::testing::Values(
        LineCase{"the first line is never read", "X-First: 1\nX-Second: 2\n\nbody\n", "X-First", "<absent>"},
        LineCase{"the second line is", "X-First: 1\nX-Second: 2\n\nbody\n", "X-Second", "2"},
        LineCase{"the last line is never read", "skip\nX-A: 1\n\none\ntwo", "content", "\none"},
        LineCase{"a final line feed makes the last line empty", "skip\nX-A: 1\n\none\ntwo\n", "content",
                 "\none\ntwo"},
        LineCase{"a header pending at the end is lost", "skip\nX-A: 1\nX-B: 2\n", "X-B", "<absent>"},
        LineCase{"the header before it is kept", "skip\nX-A: 1\nX-B: 2\n", "X-A", "1"},
        LineCase{"no empty line: no content", "skip\nX-A: 1\nX-B: 2\nX-C: 3\n", "content", "<absent>"},
        LineCase{"folded lines join without a separator", "skip\nSubject: hello\n  world\n\nb\n", "Subject",
                 "hello  world"},
        LineCase{"tab folding keeps the tab", "skip\nX-A: a;\n\tb=c\n\nb\n", "X-A", "a;\tb=c"},
        LineCase{"a value is trimmed on its first line only", "skip\nX-A:   a  \n  b  \n\nx\n", "X-A", "a  b  "},
        LineCase{"the name is taken as written", "skip\nX-A : 1\n\nx\n", "X-A ", "1"},
        LineCase{"a line without a colon is skipped", "skip\nnot a header\nX-A: 1\n\nx\n", "not a header",
                 "<absent>"},
        LineCase{"content has the non-empty body lines", "skip\nX-A: 1\n\na\n\nb\n", "content", "\na\nb"},
        LineCase{"uaContent has every body line", "skip\nX-A: 1\n\na\n\nb\n", "uaContent", "\n\na\n\nb"},
        LineCase{"body lines that look folded are body", "skip\nX-A: 1\n\na\n  b\n", "content", "\na\n  b"},
        LineCase{"CR LF line ends", "skip\r\nX-A: 1\r\n\r\na\r\nb\r\n", "content", "\na\nb"},
        LineCase{"lone CR line ends", "skip\rX-A: 1\r\ra\rb\r", "content", "\na\nb"},
        LineCase{"U+2028 separates lines", "skip\nX-A: 1\n\na\xE2\x80\xA8" "b\n", "content", "\na\nb"},
        LineCase{"content-type: media type", "skip\nContent-Type: Text/HTML; charset=\"UTF-8\"\n\nx\n",
                 "contentType", "text"},
        LineCase{"content-type: subtype", "skip\nContent-Type: Text/HTML; charset=\"UTF-8\"\n\nx\n",
                 "contentFormat", "html"},
        LineCase{"content-type: first parameter name", "skip\nContent-Type: text/html; Charset=UTF-8\n\nx\n",
                 "metaType", "charset"},
        LineCase{"content-type: first parameter value", "skip\nContent-Type: text/html; charset=\"UTF-8\"\n\nx\n",
                 "metaData", "utf-8"},
        LineCase{"content-type: only the first parameter",
                 "skip\nContent-Type: text/plain; format=flowed; charset=utf-8\n\nx\n", "metaData", "flowed"},
        LineCase{"content-type: a boundary first is lower-cased",
                 "skip\nContent-Type: multipart/mixed; boundary=\"XyZ\"\n\nx\n", "metaData", "xyz"},
        LineCase{"content-type: not stored as a header", "skip\nContent-Type: text/plain\n\nx\n", "Content-Type",
                 "<absent>"},
        LineCase{"content-type without a subtype", "skip\nContent-Type: text\n\nx\n", "contentFormat", "<absent>"},
        LineCase{"transfer encoding base64", "skip\nContent-Transfer-Encoding: BASE64\n\nx\n", "encodingType",
                 "base64"},
        LineCase{"transfer encoding quoted-printable", "skip\ncontent-transfer-encoding: Quoted-Printable\n\nx\n",
                 "encodingType", "quoted-printable"},
        LineCase{"any other transfer encoding is text", "skip\nContent-Transfer-Encoding: 8bit\n\nx\n",
                 "encodingType", "text"},
        LineCase{"disposition: the rest after filename=, lower-cased",
                 "skip\nContent-Disposition: attachment; filename=\"Report.PDF\"; size=10\n\nx\n", "fileName",
                 "report.pdf; size=10"},
        LineCase{"disposition without a file name sets nothing", "skip\nContent-Disposition: inline\n\nx\n",
                 "fileName", "<absent>"},
        LineCase{"disposition: the RFC 2231 form is not recognised",
                 "skip\nContent-Disposition: attachment; filename*=utf-8''a.txt\n\nx\n", "fileName", "<absent>"},
        LineCase{"description gives a name", "skip\nContent-Description: \"My Notes.TXT\"\n\nx\n", "fileName",
                 "my notes.txt"},
        LineCase{"disposition replaces a name from the description",
                 "skip\nContent-Description: first.txt\nContent-Disposition: attachment; filename=second.txt\n\nx\n",
                 "fileName", "second.txt"},
        LineCase{"description does not replace a name from the disposition",
                 "skip\nContent-Disposition: attachment; filename=second.txt\nContent-Description: first.txt\n\nx\n",
                 "fileName", "second.txt"},
        LineCase{"an empty description with a subtype",
                 "skip\nContent-Type: text/plain\nContent-Description: \"\"\n\nx\n", "fileName",
                 "UndecodableFilename.plain"},
        LineCase{"an empty description alone", "skip\nContent-Description: \"\"\n\nx\n", "fileName",
                 "UndecodableFilename"},
        LineCase{"content id", "skip\nContent-ID: <Image001.PNG@01D2>\n\nx\n", "Content-Id", "image001.png@01d2"},
        LineCase{"other names keep their case", "skip\nCc: a@b.c\n\nx\n", "Cc", "a@b.c"},
        LineCase{"a continuation before any header lands in the content", "skip\n folded\n", "content",
                 " folded"}));

TEST(MIMEReader, AddressHeadersByExactName) {
    Dict record = parse("skip\nFrom: Ann <ann@example.com>\nTo: b@example.com, c@example.com\nCC: d@example.com\n"
                        "BCC: e@example.com\ncc: f@example.com\n\nx\n");
    for (const char* key : {"From", "To", "CC", "BCC"}) {
        const qh::Array* list = record.findArray(key);
        ASSERT_NE(list, nullptr) << key;
        EXPECT_FALSE(list->empty()) << key;
    }
    ASSERT_NE(record.findArray("To"), nullptr);
    EXPECT_EQ(record.findArray("To")->size(), 2u);
    EXPECT_EQ(text(record, "cc"), "f@example.com");
}

TEST(MIMEReader, ContentParameters) {
    struct Case {
        const char* value;
        const char* boundary;
        const char* type;
    } cases[] = {
        {"multipart/mixed; boundary=\"XyZ\"", "--XyZ", "multipart/mixed"},
        {"multipart/mixed;\tBOUNDARY= \"a b\" ", "--a b", "multipart/mixed"},
        {"multipart/related; boundary=b1; type=\"text/html\"", "--b1", " type=\"text/html\""},
        {"text/plain; charset=utf-8", "<absent>", " charset=utf-8"},
        {"multipart/mixed; boundary=\"----=_Part_1\"", "------=_Part_1", "multipart/mixed"},
    };
    for (const Case& c : cases) {
        Dict parameters = MIMEReader::setContentParameters(c.value);
        EXPECT_EQ(text(parameters, "boundary"), c.boundary) << c.value;
        EXPECT_EQ(text(parameters, "type"), c.type) << c.value;
    }
}

TEST(MIMEReader, BytesThatAreNotTextGiveAnEmptyRecord) {
    const std::string latin1 = "skip\nSubject: caf\xE9\n\nx\n";
    EXPECT_TRUE(parse(latin1).empty());
    EXPECT_EQ(MIMEReader::initWithData({}), nullptr);
}

const char* kTwoParts =
    "From: a@example.com\n"
    "Content-Type: multipart/mixed; boundary=\"B1\"\n"
    "\n"
    "--B1\n"
    "Content-Type: text/plain\n"
    "\n"
    "one\n"
    "--B1\n"
    "Content-Type: text/html\n"
    "\n"
    "<p>two</p>\n"
    "--B1--\n";

TEST(MIMEReader, TwoPartsAndAClosingDelimiterGiveThreeRecords) {
    Dict record = parse(kTwoParts);
    EXPECT_EQ(text(record, "contentType"), "multipart");
    const qh::Array& list = parts(record);
    ASSERT_EQ(list.size(), 3u);
    const Dict& plain = *list[0].dict();
    EXPECT_EQ(text(plain, "contentFormat"), "plain");
    EXPECT_EQ(text(plain, "content"), "\none");
    const Dict& html = *list[1].dict();
    EXPECT_EQ(text(html, "contentFormat"), "html");
    EXPECT_EQ(text(html, "content"), "\n<p>two</p>");
    EXPECT_TRUE(list[2].dict()->empty());
}

TEST(MIMEReader, NestedPartsComeBeforeTheirContainer) {
    const std::string message =
        "skip\n"
        "Content-Type: multipart/mixed; boundary=outer\n"
        "\n"
        "--outer\n"
        "Content-Type: multipart/alternative; boundary=inner\n"
        "\n"
        "--inner\n"
        "Content-Type: text/plain\n"
        "\n"
        "plain\n"
        "--inner\n"
        "Content-Type: text/html\n"
        "\n"
        "<b>html</b>\n"
        "--inner--\n"
        "\n"
        "--outer\n"
        "Content-Type: application/pdf\n"
        "Content-Disposition: attachment; filename=a.pdf\n"
        "Content-Transfer-Encoding: base64\n"
        "\n"
        "AAAA\n"
        "--outer--\n";
    const Dict record = parse(message);
    const qh::Array& list = parts(record);
    std::vector<std::string> order;
    for (const qh::Value& part : list) {
        const Dict& record = *part.dict();
        order.push_back(record.empty() ? "-" : text(record, "contentFormat"));
    }
    EXPECT_EQ(order, (std::vector<std::string>{"plain", "html", "-", "alternative", "pdf", "-"}));
}

TEST(MIMEReader, AnAttachedMessageKeepsItsBlankLines) {
    const std::string message =
        "skip\n"
        "Content-Type: multipart/mixed; boundary=b\n"
        "\n"
        "--b\n"
        "Content-Type: message/rfc822\n"
        "Content-Disposition: attachment; filename=\"Fwd.EML\"\n"
        "\n"
        "Subject: inner\n"
        "\n"
        "inner body\n"
        "--b--\n";
    const Dict record = parse(message);
    const qh::Array& list = parts(record);
    ASSERT_FALSE(list.empty());
    const Dict& attached = *list[0].dict();
    EXPECT_EQ(text(attached, "fileName"), "fwd.eml");
    EXPECT_EQ(text(attached, "content"), "Subject: inner\n\ninner body");
}

TEST(MIMEReader, InterpretMIMEReportsTheLastLineRead) {
    MIMEReader reader;
    std::vector<std::string> lines = {"skip", "X-A: 1", "", "body", "END", "after", ""};
    std::int32_t index = 0;
    Dict record = reader.interpretMIME(lines, std::string_view("END"), index);
    EXPECT_EQ(index, 3);
    EXPECT_EQ(text(record, "content"), "\nbody");
    index = 0;
    reader.interpretMIME(lines, std::nullopt, index);
    EXPECT_EQ(index, 5);
}

// Input built to make the described algorithm quadratic or deep: the parser
// must come back with a bounded record and say what it left out.
TEST(MIMEReader, ABoundaryOnEveryLineStaysBounded) {
    std::string message = "skip\nContent-Type: multipart/mixed; boundary=b\n\n";
    for (int i = 0; i < 200000; ++i) message += "--b\n";
    qh::Log::Capture capture;
    Dict record = parse(message);
    EXPECT_LE(parts(record).size(), MIMEReader::kMaxParts);
    EXPECT_TRUE(capture.contains("MIME Reader - too many parts, the rest left out"));
}

TEST(MIMEReader, DeepNestingStopsAtTheLimit) {
    std::string message = "skip\nContent-Type: multipart/mixed; boundary=b0x\n\n";
    const int depth = 5000;
    for (int i = 1; i <= depth; ++i) {
        message += "--b" + std::to_string(i - 1) + "x\nContent-Type: multipart/mixed; boundary=b" +
                   std::to_string(i) + "x\n\n";
    }
    message += "--b" + std::to_string(depth) + "x\nContent-Type: text/plain\n\nleaf\n";
    qh::Log::Capture capture;
    Dict record = parse(message);
    EXPECT_FALSE(parts(record).empty());
    EXPECT_TRUE(capture.contains("MIME Reader - parts nested too deeply, the deepest read as text") ||
                capture.contains("MIME Reader - message too complex, nested parts read as text"));
}

TEST(MIMEReader, ManyHeadersAndALongLine) {
    std::string message = "skip\n";
    for (int i = 0; i < 100000; ++i) message += "X-H" + std::to_string(i % 1000) + ": v\n";
    message += "X-Long: " + std::string(4 << 20, 'a') + "\n\nbody\n";
    Dict record = parse(message);
    EXPECT_EQ(text(record, "X-H5"), "v");
    EXPECT_EQ(record.findString("X-Long")->size(), std::size_t(4 << 20));
    EXPECT_EQ(text(record, "content"), "\nbody");
}

TEST(MIMEReader, DistinctHeaderNamesAreCapped) {
    std::string message = "skip\n";
    for (int i = 0; i < 20000; ++i) message += "X-H" + std::to_string(i) + ": v\n";
    message += "\nbody\n";
    qh::Log::Capture capture;
    Dict record = parse(message);
    EXPECT_LT(record.size(), 20000u);
    EXPECT_EQ(text(record, "X-H1"), "v");
    EXPECT_EQ(text(record, "content"), "\nbody");
    EXPECT_TRUE(capture.contains("MIME Reader - too many header fields, the rest left out"));
}

}  // namespace
