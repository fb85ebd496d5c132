// The EML reader's decoding choices: the charset table, where body parts go,
// the https rewrite and the <BR> form, attachment naming and the first-name
// rule, inline cid: images, the "X-" header text and the summary.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/Log.h"
#include "readers/mime/ReadEML.h"

namespace {

using qh::Dict;
using qh::ReadEML;

Dict read(const std::string& message) {
    auto reader = ReadEML::initWithData(qh::asBytes(message));
    EXPECT_NE(reader, nullptr);
    return reader ? *reader->returnFullDictionary() : Dict();
}

std::string text(const Dict& dict, std::string_view key) {
    const std::string* value = dict.findString(key);
    return value ? *value : "<absent>";
}

// A multipart/mixed message of the given parts (each "headers\n\nbody").
std::string multipart(const std::vector<std::string>& parts, const std::string& type = "mixed") {
    std::string message = "From: first line, never read\nContent-Type: multipart/" + type + "; boundary=\"=_B\"\n\n";
    for (const std::string& part : parts) message += "--=_B\n" + part + "\n";
    message += "--=_B--\n";
    return message;
}

std::string single(const std::string& headers, const std::string& body) {
    return "Received: first line, never read\n" + headers + "\n\n" + body + "\n";
}

const qh::Array* attachments(const Dict& dict) {
    return dict.findArray("AttachmentList");
}

TEST(ReadEML, QuotedPrintablePlainBody) {
    Dict mail = read(single("Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: quoted-printable",
                            "caf=C3=A9 see http://x.org\nline two"));
    EXPECT_EQ(text(mail, "Body"), "caf\xC3\xA9 see https://x.org\nline two");
    EXPECT_EQ(text(mail, "RawMail"), "\ncaf=C3=A9 see http://x.org\nline two");
    EXPECT_EQ(text(mail, "HTML"), "caf\xC3\xA9 see http://x.org<BR>\nline two");
}

TEST(ReadEML, HtmlBodyIsTrimmedAndRewritten) {
    Dict mail = read(single("Content-Type: text/html; charset=utf-8", "<a href=\"http://x.org\">x</a>"));
    EXPECT_EQ(text(mail, "HTML"), "<a href=\"https://x.org\">x</a>");
    EXPECT_EQ(text(mail, "Body"), "<absent>");
    EXPECT_EQ(text(mail, "RawMail"), "<absent>");
}

struct CharsetCase {
    const char* charset;  // "" for no parameter
    const char* base64;
    const char* body;     // "<absent>" when the conversion fails
};

class CharsetTable : public ::testing::TestWithParam<CharsetCase> {};

TEST_P(CharsetTable, DecodesBase64TextBodies) {
    const CharsetCase& c = GetParam();
    std::string type = "Content-Type: text/plain";
    if (*c.charset) type += std::string("; charset=\"") + c.charset + "\"";
    Dict mail = read(single(type + "\nContent-Transfer-Encoding: base64", c.base64));
    EXPECT_EQ(text(mail, "Body"), c.body) << c.charset;
}

INSTANTIATE_TEST_SUITE_P(
    ReadEML, CharsetTable,
    ::testing::Values(CharsetCase{"utf-8", "Y2Fmw6k=", "caf\xC3\xA9"},
                      CharsetCase{"UTF-8", "Y2Fmw6k=", "caf\xC3\xA9"},
                      CharsetCase{"", "Y2Fmw6k=", "caf\xC3\xA9"},
                      CharsetCase{"windows-1252", "Y2Fm6Q==", "caf\xC3\xA9"},
                      CharsetCase{"windows-1250", "6g==", "\xC4\x99"},           // e with ogonek
                      CharsetCase{"windows-1251", "7/Do", "\xD0\xBF\xD1\x80\xD0\xB8"},  // при
                      CharsetCase{"windows-1253", "4Q==", "\xCE\xB1"},           // alpha
                      CharsetCase{"windows-1254", "/Q==", "\xC4\xB1"},           // dotless i
                      CharsetCase{"windows-1255", "4OE=", "\xD7\x90\xD7\x91"},   // alef bet
                      CharsetCase{"utf-16", "//5oAGkA", "hi"},
                      // ISO 8859 and every other charset are read as ASCII.
                      CharsetCase{"iso-8859-1", "Y2Fm6Q==", "<absent>"},
                      CharsetCase{"iso-8859-1", "Y2FmZQ==", "cafe"},
                      CharsetCase{"koi8-r", "0A==", "<absent>"}));

TEST(ReadEML, Windows1255QuotedPrintableSkipsTheRewrite) {
    Dict mail = read(single("Content-Type: text/plain; charset=windows-1255\n"
                            "Content-Transfer-Encoding: quoted-printable",
                            "=E0=E1 http://x.org"));
    EXPECT_EQ(text(mail, "Body"), "\xD7\x90\xD7\x91 http://x.org");
}

TEST(ReadEML, LaterBodyPartsReplaceEarlierOnes) {
    Dict mail = read(multipart({"Content-Type: text/plain\n\nfirst", "Content-Type: text/plain\n\nsecond",
                                "Content-Type: text/html\n\n<p>page</p>"}));
    EXPECT_EQ(text(mail, "Body"), "second");
    EXPECT_EQ(text(mail, "HTML"), "<p>page</p>");
}

TEST(ReadEML, QuotedPrintableHtmlIsNotReplacedByThePlainForm) {
    Dict mail = read(multipart(
        {"Content-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n\n<p>a=3Db</p>",
         "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\na=3Db\nc"}));
    EXPECT_EQ(text(mail, "HTML"), "<p>a=b</p>");
    EXPECT_EQ(text(mail, "Body"), "a=b\nc");
    EXPECT_EQ(text(mail, "RawMail"), "\na=3Db\nc");
}

TEST(ReadEML, UnknownFormatsAreLogged) {
    qh::Log::Capture capture;
    Dict mail = read(single("Content-Type: text/enriched", "<bold>x</bold>"));
    EXPECT_TRUE(capture.contains("unknown format type enriched"));
    EXPECT_EQ(text(mail, "Body"), "<absent>");
}

TEST(ReadEML, AttachmentNames) {
    struct Case {
        const char* what;
        std::string part;
        const char* name;
    } cases[] = {
        {"disposition", "Content-Type: application/pdf\nContent-Disposition: attachment; filename=\"A.pdf\"\n"
                        "Content-Transfer-Encoding: base64\n\nAAAA",
         "a.pdf"},
        {"first content-type parameter", "Content-Type: application/pdf; name=\"Doc.PDF\"\n"
                                         "Content-Transfer-Encoding: base64\n\nAAAA",
         "doc.pdf"},
        {"description", "Content-Type: application/pdf\nContent-Description: Scan.pdf\n"
                        "Content-Transfer-Encoding: base64\n\nAAAA",
         "scan.pdf"},
        {"xml by extension is text", "Content-Type: application/octet-stream; name=data.xml\n\n<a/>", "data.xml"},
    };
    for (const Case& c : cases) {
        Dict mail = read(multipart({"Content-Type: text/plain\n\nbody", c.part}));
        const qh::Array* list = attachments(mail);
        ASSERT_NE(list, nullptr) << c.what;
        ASSERT_EQ(list->size(), 1u) << c.what;
        EXPECT_EQ(text(*(*list)[0].dict(), "name"), c.name) << c.what;
    }
}

TEST(ReadEML, AttachmentItems) {
    Dict mail = read(multipart(
        {"Content-Type: image/png\nContent-ID: <Logo@X>\nContent-Disposition: inline; filename=logo.png\n"
         "Content-Transfer-Encoding: base64\n\niVBORw0KGgo=",
         "Content-Type: text/plain; name=notes.txt\n\nh\xC3\xA9llo"}));
    const qh::Array* list = attachments(mail);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->size(), 2u);
    const Dict& image = *(*list)[0].dict();
    ASSERT_NE(image.findBytes("data"), nullptr);
    EXPECT_EQ(image.findBytes("data")->size(), 8u);
    EXPECT_EQ(image.find("size")->integer(), 8);
    EXPECT_EQ(text(image, "sizeString"), "8.00 bytes");
    EXPECT_EQ(text(image, "ContentID"), "logo@x");
    // A text attachment keeps its content text; its size counts characters.
    const Dict& notes = *(*list)[1].dict();
    EXPECT_EQ(text(notes, "data"), "\nh\xC3\xA9llo");
    EXPECT_EQ(notes.find("size")->integer(), 6);
    EXPECT_FALSE(notes.contains("ContentID"));
}

TEST(ReadEML, TheFirstAttachmentOfANameWins) {
    qh::Log::Capture capture;
    Dict mail = read(multipart({"Content-Disposition: attachment; filename=image001.png\n"
                                "Content-Transfer-Encoding: base64\n\nAAAA",
                                "Content-Disposition: attachment; filename=image001.png\n"
                                "Content-Transfer-Encoding: base64\n\nAAAAAA=="}));
    const qh::Array* list = attachments(mail);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->size(), 1u);
    EXPECT_EQ((*list)[0].dict()->find("size")->integer(), 3);
    EXPECT_TRUE(capture.contains("filename image001.png oldsize 3 newsize 4"));
}

TEST(ReadEML, InlineImagesBecomeDataAddresses) {
    const std::string html = "Content-Type: text/html\n\n<img src=\"cid:image001.png@01D2ABCD\"><img SRC=\"CID:x\">";
    const std::string png = "Content-Type: image/png\nContent-Disposition: inline; filename=image001.png\n"
                            "Content-Transfer-Encoding: base64\n\niVBORw0KGgo=";
    const std::string expected = "<img src=\"data:image/png;base64,iVBORw0KGgo=\"><img SRC=\"CID:x\">";
    EXPECT_EQ(text(read(multipart({html, png}, "related")), "HTML"), expected) << "image after the page";
    EXPECT_EQ(text(read(multipart({png, html}, "related")), "HTML"), expected) << "image before the page";
}

TEST(ReadEML, InlineImageRules) {
    struct Case {
        const char* what;
        std::string reference;
        std::string fileName;
        const char* expectedSource;
    } cases[] = {
        {"jpg by extension", "cid:photo.jpg@1", "photo.jpg", "data:image/jpg;base64,AAAA"},
        {"the name must match exactly", "cid:Photo.jpg@1", "photo.jpg", "cid:Photo.jpg@1"},
        {"jpeg", "cid:p.jpeg@1", "p.jpeg", "data:image/jpeg;base64,AAAA"},
        {"gif", "cid:a.gif@1", "a.gif", "data:image/gif;base64,AAAA"},
        {"matched by file name, not content id", "cid:abc@x", "other.png", "cid:abc@x"},
        {"no @ in the reference", "cid:logo.png", "logo.png", "cid:logo.png"},
        {"not an image extension", "cid:doc.pdf@1", "doc.pdf", "cid:doc.pdf@1"},
    };
    for (const Case& c : cases) {
        std::string html = "Content-Type: text/html\n\n<img src=\"" + c.reference + "\">";
        std::string image = "Content-Type: image/png\nContent-ID: <abc@x>\nContent-Disposition: inline; filename=" +
                            c.fileName + "\nContent-Transfer-Encoding: base64\n\nAAAA";
        Dict mail = read(multipart({html, image}, "related"));
        EXPECT_EQ(text(mail, "HTML"), "<img src=\"" + std::string(c.expectedSource) + "\">") << c.what;
    }
}

TEST(ReadEML, HeadersSubjectAndAddresses) {
    Dict mail = read(single("X-Mailer: Test 1.0\nSubject: =?UTF-8?B?SGVsbG8=?= =?utf-8?b?V29ybGQ=?=\n"
                            "To: a@example.com\nCC: b@example.com\nDate: Mon, 1 Jan 2024 10:00:00 +0000\n"
                            "Received: by host\nX-Spam: no\nContent-Type: text/plain",
                            "hi"));
    EXPECT_EQ(text(mail, "Subject"), "Hello World");
    EXPECT_EQ(text(mail, "Header"), "X-Mailer: Test 1.0\nX-Spam: no\n");
    EXPECT_EQ(text(mail, "Date"), "Mon, 1 Jan 2024 10:00:00 +0000");
    ASSERT_NE(mail.findArray("To"), nullptr);
    ASSERT_NE(mail.findArray("CC"), nullptr);
    EXPECT_EQ(text(*(*mail.findArray("CC"))[0].dict(), "Address"), "b@example.com");
    EXPECT_FALSE(mail.contains("From"));
}

TEST(ReadEML, UnreadableBytesGiveOnlyAnEmptyHeader) {
    Dict mail = read("skip\nSubject: caf\xE9\n\nbody\n");
    EXPECT_EQ(mail, (Dict{{"Header", ""}}));
    EXPECT_EQ(ReadEML::initWithData({}), nullptr);
}

TEST(ReadEML, TrimMIMEStrings) {
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {
        {"report%20final.pdf", "report final.pdf"},
        {"%41%42", "AB"},
        {"%e9", "%e9"},                      // lower-case hex is left alone
        {"%C3%A9t%C3%A9", "\xC3\x83\xC2\xA9t\xC3\x83\xC2\xA9"},  // one character per byte
        {"%00%FF", "%00%FF"},                // outside 1..254
        {"%2541", "A"},                      // an escaped % forms a new escape
        {"a=\nb", "ab"},
    };
    for (const Case& c : cases) EXPECT_EQ(ReadEML::trimMIMEStrings(c.in), c.out) << c.in;
}

TEST(ReadEML, DispositionEntriesFromOtherSources) {
    struct Case {
        const char* disposition;
        const char* name;  // "<absent>" for no attachment
    } cases[] = {
        {"attachment\tfilename=\"a.txt\"", "a.txt"},
        {"attachment\tfilename*=utf-8''r%C3%A9sum%C3%A9.txt", "r\xC3\x83\xC2\xA9sum\xC3\x83\xC2\xA9.txt"},
        {"attachment\tfilename*=r%20s.txt", "<absent>"},
        {"attachment; filename=a.txt", "<absent>"},
    };
    for (const Case& c : cases) {
        Dict part{{"contentType", "application"}, {"encodingType", "base64"}, {"content", "\nAAAA"},
                  {"Content-Disposition", c.disposition}};
        Dict mail;
        ReadEML::decodeContent(part, mail);
        const qh::Array* list = attachments(mail);
        std::string name = list && !list->empty() ? text(*(*list)[0].dict(), "name") : "<absent>";
        EXPECT_EQ(name, c.name) << c.disposition;
    }
}

TEST(ReadEML, Summary) {
    auto summary = ReadEML::getSummaryForMessage(qh::asBytes(single(
        "From: \"Ann Example\" <ann@example.com>\nSubject: Hello\n there\nContent-Type: text/plain", "Body text")));
    ASSERT_TRUE(summary);
    EXPECT_EQ(text(*summary, "Subject"), "Hello there");
    EXPECT_EQ(text(*summary, "Body"), "Body text");
    EXPECT_EQ(text(*summary, "From").rfind("Ann Example", 0), 0u);

    auto empty = ReadEML::getSummaryForMessage(qh::asBytes(std::string("just one line")));
    ASSERT_TRUE(empty);
    EXPECT_EQ(*empty, (Dict{{"Subject", "-"}, {"Body", "-"}, {"From", "-"}}));
}

TEST(ReadEML, HostileBodiesGiveADictionary) {
    std::vector<std::string> messages = {
        single("Content-Type: text/plain\nContent-Transfer-Encoding: base64", "!!!!not base64 at all%%%%\n===="),
        single("Content-Type: image/png\nContent-Transfer-Encoding: base64\nContent-Disposition: inline; filename=x",
               std::string(100000, '=')),
        multipart({"Content-Type: text/html\n\n" + std::string(20000, 'x') + "<img src=\"cid:a.png@1\">",
                   "Content-Disposition: inline; filename=a.png\nContent-Transfer-Encoding: base64\n\nAAAA"}),
    };
    std::string manyReferences = "Content-Type: text/html\n\n";
    for (int i = 0; i < 20000; ++i) manyReferences += "<img src=\"cid:a.png@1\">";
    messages.push_back(multipart({manyReferences, "Content-Disposition: inline; filename=a.png\n"
                                                  "Content-Transfer-Encoding: base64\n\n" +
                                                      std::string(40000, 'A')}));
    for (const std::string& message : messages) {
        auto reader = ReadEML::initWithData(qh::asBytes(message));
        ASSERT_NE(reader, nullptr);
        const std::string* html = reader->returnFullDictionary()->findString("HTML");
        if (html) {
            EXPECT_LE(html->size(), 16 * message.size());
        }
    }
}

}  // namespace
