// The part parser's line rules: which lines are read, how headers fold and
// split, how bodies and nested parts come out, and how it holds up on input
// built to make it run long.
#include <gtest/gtest.h>

#include <iterator>
#include <random>
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

TEST(MIMEReader, LineRules) {
    struct Case {
        const char* what;
        std::string message;
        const char* key;
        const char* expected;  // "<absent>" when the key must be missing
    } cases[] = {
        {"the first line is never read", "X-First: 1\nX-Second: 2\n\nbody\n", "X-First", "<absent>"},
        {"the second line is", "X-First: 1\nX-Second: 2\n\nbody\n", "X-Second", "2"},
        {"the last line is never read", "skip\nX-A: 1\n\none\ntwo", "content", "\none"},
        {"a final line feed makes the last line empty", "skip\nX-A: 1\n\none\ntwo\n", "content", "\none\ntwo"},
        {"a header pending at the end is lost", "skip\nX-A: 1\nX-B: 2\n", "X-B", "<absent>"},
        {"no empty line: no content", "skip\nX-A: 1\nX-B: 2\nX-C: 3\n", "content", "<absent>"},
        {"folded lines join without a separator", "skip\nSubject: hello\n  world\n\nb\n", "Subject", "hello  world"},
        {"tab folding keeps the tab", "skip\nX-A: a;\n\tb=c\n\nb\n", "X-A", "a;\tb=c"},
        {"a value is trimmed on its first line only", "skip\nX-A:   a  \n  b  \n\nx\n", "X-A", "a  b  "},
        {"the name is taken as written", "skip\nX-A : 1\n\nx\n", "X-A ", "1"},
        {"a line without a colon is skipped", "skip\nnot a header\nX-A: 1\n\nx\n", "not a header", "<absent>"},
        {"content has the non-empty body lines", "skip\nX-A: 1\n\na\n\nb\n", "content", "\na\nb"},
        {"uaContent has every body line", "skip\nX-A: 1\n\na\n\nb\n", "uaContent", "\n\na\n\nb"},
        {"blank lines around the body: content", "skip\nX-A: 1\n\n\na\n\n\n", "content", "\na"},
        {"blank lines around the body: uaContent", "skip\nX-A: 1\n\n\na\n\n\n", "uaContent", "\n\n\na\n\n"},
        {"body lines that look folded are body", "skip\nX-A: 1\n\na\n  b\n", "content", "\na\n  b"},
        {"CR LF line ends", "skip\r\nX-A: 1\r\n\r\na\r\nb\r\n", "content", "\na\nb"},
        {"lone CR line ends", "skip\rX-A: 1\r\ra\rb\r", "content", "\na\nb"},
        {"U+2028 separates lines", "skip\nX-A: 1\n\na\xE2\x80\xA8" "b\n", "content", "\na\nb"},
        {"content-type: media type", "skip\nContent-Type: Text/HTML; charset=\"UTF-8\"\n\nx\n", "contentType", "text"},
        {"content-type: subtype", "skip\nContent-Type: Text/HTML; charset=\"UTF-8\"\n\nx\n", "contentFormat", "html"},
        {"content-type: first parameter name", "skip\nContent-Type: text/html; Charset=UTF-8\n\nx\n",
         "metaType", "charset"},
        {"content-type: first parameter value", "skip\nContent-Type: text/html; charset=\"UTF-8\"\n\nx\n",
         "metaData", "utf-8"},
        {"content-type: only the first parameter",
         "skip\nContent-Type: text/plain; format=flowed; charset=utf-8\n\nx\n", "metaData", "flowed"},
        {"content-type: a boundary first is lower-cased",
         "skip\nContent-Type: multipart/mixed; boundary=\"XyZ\"\n\nx\n", "metaData", "xyz"},
        {"content-type: not stored as a header", "skip\nContent-Type: text/plain\n\nx\n", "Content-Type", "<absent>"},
        {"content-type without a subtype", "skip\nContent-Type: text\n\nx\n", "contentFormat", "<absent>"},
        {"transfer encoding base64", "skip\nContent-Transfer-Encoding: BASE64\n\nx\n", "encodingType", "base64"},
        {"transfer encoding quoted-printable", "skip\ncontent-transfer-encoding: Quoted-Printable\n\nx\n",
         "encodingType", "quoted-printable"},
        {"any other transfer encoding is text", "skip\nContent-Transfer-Encoding: 8bit\n\nx\n", "encodingType", "text"},
        {"disposition: the rest after filename=, lower-cased",
         "skip\nContent-Disposition: attachment; filename=\"Report.PDF\"; size=10\n\nx\n", "fileName",
         "report.pdf; size=10"},
        {"disposition without a file name sets nothing", "skip\nContent-Disposition: inline\n\nx\n",
         "fileName", "<absent>"},
        {"disposition: the RFC 2231 form is not recognised",
         "skip\nContent-Disposition: attachment; filename*=utf-8''a.txt\n\nx\n", "fileName", "<absent>"},
        {"description gives a name", "skip\nContent-Description: \"My Notes.TXT\"\n\nx\n", "fileName", "my notes.txt"},
        {"disposition replaces a name from the description",
         "skip\nContent-Description: first.txt\nContent-Disposition: attachment; filename=second.txt\n\nx\n",
         "fileName", "second.txt"},
        {"description does not replace a name from the disposition",
         "skip\nContent-Disposition: attachment; filename=second.txt\nContent-Description: first.txt\n\nx\n",
         "fileName", "second.txt"},
        {"an empty description with a subtype",
         "skip\nContent-Type: text/plain\nContent-Description: \"\"\n\nx\n", "fileName",
         "UndecodableFilename.plain"},
        {"an empty description alone", "skip\nContent-Description: \"\"\n\nx\n", "fileName", "UndecodableFilename"},
        {"content id", "skip\nContent-ID: <Image001.PNG@01D2>\n\nx\n", "Content-Id", "image001.png@01d2"},
        {"other names keep their case", "skip\nCc: a@b.c\n\nx\n", "Cc", "a@b.c"},
        {"a continuation before any header lands in the content", "skip\n folded\n", "content", " folded"},
    };
    for (const Case& c : cases) EXPECT_EQ(text(parse(c.message), c.key), c.expected) << c.what;
}

// A record read with bodies kept in place, each such body put back as the
// "uaContent" it stands for: the record read with bodies copied.
Dict withBodiesCopied(const MIMEReader& reader, const Dict& record) {
    Dict copied;
    for (const auto& [key, value] : record) {
        if (key == "bodyAt") {
            std::string copy = "\n\n";
            for (char c : reader.bodyInPlace(record).value_or("<none>")) {
                if (c != '\r') copy.push_back(c);
            }
            copied.set("uaContent", std::move(copy));
        } else if (key == "MailContent" && value.array()) {
            qh::Array copies;
            for (const qh::Value& part : *value.array()) copies.push_back(withBodiesCopied(reader, *part.dict()));
            copied.set(key, std::move(copies));
        } else if (key != "bodyLength") {
            copied.set(key, value);
        }
    }
    return copied;
}

TEST(MIMEReader, EveryLineBreakReadsAsLineFeed) {
    // Random messages, some of them multipart, with lines of every length
    // around the sixteen-byte blocks the text is checked in, their breaks all
    // CR LF (read in place) or now and then a lone CR, VT, FF, NEL or U+2028
    // (rewritten), some lines with 8-bit letters, blank lines between headers
    // and body: each must read in both readings exactly as the same message
    // with LF breaks, and with its bodies kept in place as with them copied.
    const std::string breaks[] = {"\r\n", "\r\n", "\r\n", "\r\n", "\r", "\x0B", "\x0C", "\xC2\x85", "\xE2\x80\xA8"};
    std::mt19937 random(2028);
    for (int round = 0; round < 600; ++round) {
        std::vector<std::string> lines = {"skip", "Subject: s"};
        auto body = [&] {
            for (int blank = static_cast<int>(random() % 3); blank >= 0; --blank) lines.push_back("");
            const int count = 1 + static_cast<int>(random() % 12);
            for (int line = 0; line < count; ++line) {
                std::string text(random() % (round % 4 ? 40 : 130), 'a');
                for (char& c : text) c = "abc =\t-"[random() % 7];
                if (random() % 8 == 0) text += "\xC3\xA9";
                // Now and then a line that is, or nearly is, a delimiter.
                const char* delimiters[] = {"--b", "--bb", "--b--", "--b \t", "x--b", "---b"};
                if (random() % 16 == 0) text = delimiters[random() % std::size(delimiters)];
                lines.push_back(std::move(text));
            }
        };
        if (round % 2) {
            lines.push_back("Content-Type: multipart/mixed; boundary=b");
            lines.push_back("");
            for (int part = static_cast<int>(random() % 3); part >= 0; --part) {
                lines.push_back("--b");
                lines.push_back(random() % 2 ? "Content-Type: text/plain" : "Content-Transfer-Encoding: base64");
                body();
            }
            lines.push_back("--b--");
        } else {
            body();
        }
        const bool rewritten = round % 3 == 0;
        const bool finalBreak = random() % 2;
        std::string crlf, lf;
        for (std::size_t k = 0; k < lines.size(); ++k) {
            crlf += lines[k];
            lf += lines[k];
            if (k + 1 == lines.size() && !finalBreak) break;
            crlf += breaks[rewritten ? random() % std::size(breaks) : 0];
            lf += "\n";
        }
        for (qh::Reading reading : {qh::Reading::classic, qh::Reading::complete}) {
            const qh::MimeRules rules = qh::MimeRules::of(reading);
            auto copied = MIMEReader::initWithData(qh::asBytes(crlf), rules);
            auto lineFeeds = MIMEReader::initWithData(qh::asBytes(lf), rules);
            auto inPlace = MIMEReader::initWithData(qh::asBytes(crlf), rules, MIMEReader::BodyStorage::InPlace);
            ASSERT_EQ(copied->getDictionary(), lineFeeds->getDictionary()) << testing::PrintToString(crlf);
            ASSERT_EQ(withBodiesCopied(*inPlace, inPlace->getDictionary()), copied->getDictionary())
                << testing::PrintToString(crlf);
        }
    }
    // A body kept in place is the message's own bytes, CR LF and all.
    const std::string message = "X-A: 1\r\nX-B: 2\r\n\r\n\r\na\r\nb\r\nlast";
    auto reader = MIMEReader::initWithData(qh::asBytes(message), qh::MimeRules::of(qh::Reading::complete),
                                           MIMEReader::BodyStorage::InPlace);
    EXPECT_EQ(reader->bodyInPlace(reader->getDictionary()), std::optional<std::string_view>("\r\na\r\nb\r\nlast"));
    EXPECT_EQ(reader->getDictionary().find("uaContent"), nullptr);
}

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
        {"multipart/mixed; boundary=one; Boundary=two;", "--two", ""},
        {"multipart/mixed; \xC3\x89" "boundary=x", "<absent>", " \xC3\x89" "boundary=x"},
    };
    for (const Case& c : cases) {
        Dict parameters = MIMEReader::setContentParameters(c.value);
        EXPECT_EQ(text(parameters, "boundary"), c.boundary) << c.value;
        EXPECT_EQ(text(parameters, "type"), c.type) << c.value;
    }
    // The part parser asks for the boundary alone: random values must give
    // the same one.
    std::mt19937 random(2046);
    const char* pieces[] = {"boundary", "BOUNDARY", "=", ";", "\"", " ", "\t", "x", "b", "\xC3\xA9"};
    for (int round = 0; round < 5000; ++round) {
        std::string value;
        for (int k = static_cast<int>(random() % 12); k > 0; --k) value += pieces[random() % std::size(pieces)];
        const Dict parameters = MIMEReader::setContentParameters(value);
        const std::string* expected = parameters.findString("boundary");
        const std::optional<std::string> boundary = MIMEReader::boundaryParameter(value);
        ASSERT_EQ(boundary.has_value(), expected != nullptr) << testing::PrintToString(value);
        if (expected) ASSERT_EQ(*boundary, *expected) << testing::PrintToString(value);
    }
}

TEST(MIMEReader, BytesThatAreNotTextGiveAnEmptyRecord) {
    const std::string latin1 = "skip\nSubject: caf\xE9\n\nx\n";
    EXPECT_TRUE(parse(latin1).empty());
    EXPECT_EQ(MIMEReader::initWithData({}), nullptr);
}

// The parts of a record in the order the parser ends them: "format=content"
// for a leaf, the format alone for a container, "-" for an empty record.
std::string outline(const Dict& record) {
    std::string out;
    for (const qh::Value& part : parts(record)) {
        const Dict& p = *part.dict();
        const bool leaf = text(p, "contentType") != "multipart";
        out += (out.empty() ? "" : " | ") +
               (p.empty() ? "-" : text(p, "contentFormat") + (leaf ? "=" + text(p, "content") : std::string()));
    }
    return out;
}

TEST(MIMEReader, PartsComeInTheOrderTheyEnd) {
    struct Case {
        const char* what;
        std::string message;
        std::string outline;
    } cases[] = {
        {"two parts and a closing delimiter give three records",
         "From: a@example.com\nContent-Type: multipart/mixed; boundary=\"B1\"\n\n--B1\nContent-Type: text/plain\n\n"
         "one\n--B1\nContent-Type: text/html\n\n<p>two</p>\n--B1--\n",
         "plain=\none | html=\n<p>two</p> | -"},
        {"nested parts come before their container",
         "skip\nContent-Type: multipart/mixed; boundary=outer\n\n--outer\n"
         "Content-Type: multipart/alternative; boundary=inner\n\n--inner\nContent-Type: text/plain\n\nplain\n"
         "--inner\nContent-Type: text/html\n\n<b>html</b>\n--inner--\n\n--outer\nContent-Type: application/pdf\n"
         "Content-Disposition: attachment; filename=a.pdf\nContent-Transfer-Encoding: base64\n\nAAAA\n--outer--\n",
         "plain=\nplain | html=\n<b>html</b> | - | alternative | pdf=\nAAAA | -"},
        {"an attached message keeps its blank lines",
         "skip\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: message/rfc822\n"
         "Content-Disposition: attachment; filename=\"Fwd.EML\"\n\nSubject: inner\n\ninner body\n--b--\n",
         "rfc822=Subject: inner\n\ninner body | -"},
    };
    for (const Case& c : cases) EXPECT_EQ(outline(parse(c.message)), c.outline) << c.what;
    EXPECT_EQ(text(parse(cases[0].message), "contentType"), "multipart");
    EXPECT_EQ(text(*parts(parse(cases[2].message))[0].dict(), "fileName"), "fwd.eml");
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
    // Read in place with CR LF breaks, the limits are met at the same parts.
    std::string crlf;
    for (char c : message) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(parse(crlf), record);
}

TEST(MIMEReader, DistinctHeaderNamesAreCappedAndALongLineKept) {
    std::string message = "skip\nX-Long: " + std::string(4 << 20, 'a') + "\n";
    for (int i = 0; i < 20000; ++i) message += "X-H" + std::to_string(i) + ": v\n";
    message += "\nbody\n";
    qh::Log::Capture capture;
    Dict record = parse(message);
    EXPECT_LT(record.size(), 20000u);
    EXPECT_EQ(record.findString("X-Long")->size(), std::size_t(4 << 20));
    EXPECT_EQ(text(record, "X-H1"), "v");
    EXPECT_EQ(text(record, "content"), "\nbody");
    EXPECT_TRUE(capture.contains("MIME Reader - too many header fields, the rest left out"));
}

}  // namespace
