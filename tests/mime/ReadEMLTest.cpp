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

Dict read(const std::string& message, const qh::ReadOptions& options = qh::ReadOptions::classic()) {
    auto reader = ReadEML::initWithData(qh::asBytes(message), options);
    EXPECT_NE(reader, nullptr);
    return reader ? *reader->returnFullDictionary() : Dict();
}

Dict readComplete(const std::string& message) { return read(message, qh::ReadOptions::complete()); }

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

// The classic reading: one message, the keys it must give ("<absent>" for none).
TEST(ReadEML, ClassicBodiesAndHeaders) {
    const std::string quotedPrintable = "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable";
    const std::string headers = single("X-Mailer: Test 1.0\nSubject: =?UTF-8?B?SGVsbG8=?= =?utf-8?b?V29ybGQ=?=\n"
                                       "To: a@example.com\nCC: b@example.com\nDate: Mon, 1 Jan 2024 10:00:00 +0000\n"
                                       "Received: by host\nX-Spam: no\nContent-Type: text/plain",
                                       "hi");
    struct Case {
        const char* what;
        std::string message;
        std::vector<std::pair<const char*, std::string>> keys;
    } cases[] = {
        {"quoted-printable plain body: links made https, the raw text and a <BR> page kept",
         single(quotedPrintable + "; charset=utf-8", "caf=C3=A9 see http://x.org\nline two"),
         {{"Body", "caf\xC3\xA9 see https://x.org\nline two"},
          {"RawMail", "\ncaf=C3=A9 see http://x.org\nline two"},
          {"HTML", "caf\xC3\xA9 see http://x.org<BR>\nline two"}}},
        {"HTML body trimmed and rewritten",
         single("Content-Type: text/html; charset=utf-8", "<a href=\"http://x.org\">x</a>"),
         {{"HTML", "<a href=\"https://x.org\">x</a>"}, {"Body", "<absent>"}, {"RawMail", "<absent>"}}},
        {"windows-1255 quoted-printable skips the rewrite",
         single("Content-Type: text/plain; charset=windows-1255\nContent-Transfer-Encoding: quoted-printable",
                "=E0=E1 http://x.org"),
         {{"Body", "\xD7\x90\xD7\x91 http://x.org"}}},
        {"later body parts replace earlier ones",
         multipart({"Content-Type: text/plain\n\nfirst", "Content-Type: text/plain\n\nsecond",
                    "Content-Type: text/html\n\n<p>page</p>"}),
         {{"Body", "second"}, {"HTML", "<p>page</p>"}}},
        {"quoted-printable HTML is not replaced by the plain form",
         multipart({"Content-Type: text/html\nContent-Transfer-Encoding: quoted-printable\n\n<p>a=3Db</p>",
                    quotedPrintable + "\n\na=3Db\nc"}),
         {{"HTML", "<p>a=b</p>"}, {"Body", "a=b\nc"}, {"RawMail", "\na=3Db\nc"}}},
        {"an unknown format gives no body", single("Content-Type: text/enriched", "<bold>x</bold>"),
         {{"Body", "<absent>"}}},
        {"headers: words decoded, X- fields kept as text, the date as written",
         headers,
         {{"Subject", "Hello World"},
          {"Header", "X-Mailer: Test 1.0\nX-Spam: no\n"},
          {"Date", "Mon, 1 Jan 2024 10:00:00 +0000"},
          {"From", "<absent>"}}},
    };
    qh::Log::Capture capture;
    for (const Case& c : cases) {
        Dict mail = read(c.message);
        for (const auto& [key, expected] : c.keys) EXPECT_EQ(text(mail, key), expected) << c.what << ": " << key;
    }
    EXPECT_TRUE(capture.contains("unknown format type enriched"));
}

struct CharsetCase {
    const char* charset;  // "" for no parameter
    const char* base64;
    const char* body;     // "<absent>" when the conversion fails
    const char* complete = nullptr;  // the complete reading's body, when it differs
};

class CharsetTable : public ::testing::TestWithParam<CharsetCase> {};

TEST_P(CharsetTable, DecodesBase64TextBodies) {
    const CharsetCase& c = GetParam();
    std::string type = "Content-Type: text/plain";
    if (*c.charset) type += std::string("; charset=\"") + c.charset + "\"";
    const std::string message = single(type + "\nContent-Transfer-Encoding: base64", c.base64);
    EXPECT_EQ(text(read(message), "Body"), c.body) << c.charset;
    EXPECT_EQ(text(readComplete(message), "Body"), c.complete ? c.complete : c.body) << c.charset;
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
                      // ISO 8859 and every other charset are read as ASCII (classic);
                      // the complete reading knows every charset ICU knows.
                      CharsetCase{"iso-8859-1", "Y2Fm6Q==", "<absent>", "caf\xC3\xA9"},
                      CharsetCase{"iso-8859-1", "Y2FmZQ==", "cafe"},
                      CharsetCase{"Shift_JIS", "k/qWe4zq", "<absent>", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"},
                      // No charset and 8-bit bytes: UTF-8 when they are, else Windows-1252.
                      CharsetCase{"us-ascii", "Y2Fm6Q==", "<absent>", "caf\xC3\xA9"}));

TEST(ReadEML, AttachmentNames) {
    struct Case {
        const char* what;
        std::string part;
        const char* name;
        const char* complete;  // the complete reading's name
    } cases[] = {
        {"disposition", "Content-Type: application/pdf\nContent-Disposition: attachment; filename=\"A.pdf\"\n"
                        "Content-Transfer-Encoding: base64\n\nAAAA",
         "a.pdf", "A.pdf"},
        {"parameters after the name", "Content-Disposition: attachment; filename=Report.PDF; size=10\n"
                                      "Content-Transfer-Encoding: base64\n\nAAAA",
         "report.pdf; size=10", "Report.PDF"},
        {"first content-type parameter", "Content-Type: application/pdf; name=\"Doc.PDF\"\n"
                                         "Content-Transfer-Encoding: base64\n\nAAAA",
         "doc.pdf", "Doc.PDF"},
        {"name not the first parameter", "Content-Type: application/pdf; x=1; name=\"Doc.PDF\"\n\nAAAA",
         "<none>", "Doc.PDF"},
        {"RFC 2231 continuations", "Content-Disposition: attachment; filename*0*=utf-8''r%C3%A9; filename*1=sum.txt\n\nx",
         "<none>", "r\xC3\xA9sum.txt"},
        {"description", "Content-Type: application/pdf\nContent-Description: Scan.pdf\n"
                        "Content-Transfer-Encoding: base64\n\nAAAA",
         "scan.pdf", "attachment-1.pdf"},
        {"xml by extension is text", "Content-Type: application/octet-stream; name=data.xml\n\n<a/>", "data.xml",
         "data.xml"},
        {"unnamed image", "Content-Type: image/png\nContent-Transfer-Encoding: base64\n\nAAAA", "<none>",
         "attachment-1.png"},
    };
    for (const Case& c : cases) {
        const std::string message = multipart({"Content-Type: text/plain\n\nbody", c.part});
        for (const auto& [mail, expected] : {std::pair{read(message), c.name}, {readComplete(message), c.complete}}) {
            const qh::Array* list = attachments(mail);
            std::string name = list && list->size() == 1 ? text(*(*list)[0].dict(), "name") : "<none>";
            EXPECT_EQ(name, expected) << c.what;
        }
    }
}

TEST(ReadEML, AttachmentItemsAndTheFirstOfAName) {
    qh::Log::Capture capture;
    const std::string image001 =
        "Content-Disposition: attachment; filename=image001.png\nContent-Transfer-Encoding: base64";
    Dict mail = read(multipart(
        {"Content-Type: image/png\nContent-ID: <Logo@X>\nContent-Disposition: inline; filename=logo.png\n"
         "Content-Transfer-Encoding: base64\n\niVBORw0KGgo=",
         "Content-Type: text/plain; name=notes.txt\n\nh\xC3\xA9llo", image001 + "\n\nAAAA",
         image001 + "\n\nAAAAAA=="}));
    const qh::Array* list = attachments(mail);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->size(), 3u);
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
    // Of two parts of one name the first stays.
    EXPECT_EQ((*list)[2].dict()->find("size")->integer(), 3);
    EXPECT_TRUE(capture.contains("filename image001.png oldsize 3 newsize 4"));
}

// Each image part before and after the page that shows it.
TEST(ReadEML, InlineImagesBecomeDataAddresses) {
    struct Case {
        const char* what;
        std::string reference;
        std::string fileName;
        const char* expectedSource;
    } cases[] = {
        {"png", "cid:image001.png@01D2ABCD", "image001.png", "data:image/png;base64,AAAA"},
        {"jpg by extension", "cid:photo.jpg@1", "photo.jpg", "data:image/jpg;base64,AAAA"},
        {"the name must match exactly", "cid:Photo.jpg@1", "photo.jpg", "cid:Photo.jpg@1"},
        {"jpeg", "cid:p.jpeg@1", "p.jpeg", "data:image/jpeg;base64,AAAA"},
        {"gif", "cid:a.gif@1", "a.gif", "data:image/gif;base64,AAAA"},
        {"matched by file name, not content id", "cid:abc@x", "other.png", "cid:abc@x"},
        {"no @ in the reference", "cid:logo.png", "logo.png", "cid:logo.png"},
        {"not an image extension", "cid:doc.pdf@1", "doc.pdf", "cid:doc.pdf@1"},
        {"a reference to no part", "CID:x", "image001.png", "CID:x"},
    };
    for (const Case& c : cases) {
        std::string html = "Content-Type: text/html\n\n<img src=\"" + c.reference + "\">";
        std::string image = "Content-Type: image/png\nContent-ID: <abc@x>\nContent-Disposition: inline; filename=" +
                            c.fileName + "\nContent-Transfer-Encoding: base64\n\nAAAA";
        const std::string expected = "<img src=\"" + std::string(c.expectedSource) + "\">";
        EXPECT_EQ(text(read(multipart({html, image}, "related")), "HTML"), expected) << c.what;
        EXPECT_EQ(text(read(multipart({image, html}, "related")), "HTML"), expected) << c.what << ", image first";
    }
}

TEST(ReadEMLComplete, WhatTheClassicReadingLoses) {
    struct Case {
        const char* what;
        std::string message;
        const char* key;
        const char* expected;
    } cases[] = {
        {"the first line", "From: Ann <ann@example.com>\nSubject: s\n\nbody\n", "From", "Ann|ann@example.com;"},
        {"header names in any case", "FROM: a@example.com\nsubject: lower\n\nbody\n", "Subject", "lower"},
        {"folding keeps the blanks", "Subject: Twelve\n\tThirteen\n\nx\n", "Subject", "Twelve\tThirteen"},
        {"Reply-To", "Reply-To: r@example.com\n\nx\n", "ReplyTo", "r@example.com|r@example.com;"},
        {"Bcc", "Bcc: b@example.com\n\nx\n", "BCC", "b@example.com|b@example.com;"},
        {"two To fields", "To: a@example.com\nTo: b@example.com\n\nx\n", "To",
         "a@example.com|a@example.com;b@example.com|b@example.com;"},
        {"the date as a date", "Date: Tue, 12 Nov 2013 09:12:42 -0500\n\nx\n", "TimeStamp", "2013-11-12T14:12:42Z"},
        {"the date as written", "Date: Tue, 12 Nov 2013 09:12:42 -0500\n\nx\n", "Date",
         "Tue, 12 Nov 2013 09:12:42 -0500"},
        {"message id", "Message-ID: <a@b>\n\nx\n", "MessageID", "<a@b>"},
        {"in reply to", "In-Reply-To: <a@b>\n\nx\n", "InReplyTo", "<a@b>"},
        {"references", "References: <a@b>\n <c@d>\n\nx\n", "References", "<a@b> <c@d>"},
        {"the whole header block", "Received: x\nX-A: 1\n\nbody\n", "Header", "Received: x\nX-A: 1"},
        {"links untouched", "Content-Type: text/plain\n\nsee http://x.org\n", "Body", "see http://x.org"},
        {"blank lines kept", "Content-Type: text/plain\n\na\n\nb\n", "Body", "a\n\nb"},
        {"the last line without a line break", "Content-Type: text/plain\n\nlast", "Body", "last"},
        {"a header block without a body", "X: y\nSubject: only headers", "Subject", "only headers"},
        {"ISO 8859 quoted-printable",
         "Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: quoted-printable\n\ncaf=E9\n",
         "Body", "caf\xC3\xA9"},
        {"8-bit mail that is not UTF-8",
         "Subject: caf\xE9\nContent-Type: text/plain; charset=iso-8859-1\n\ncaf\xE9\n", "Body",
         "caf\xC3\xA9"},
        {"8-bit header that is not UTF-8", "Subject: caf\xE9\n\nx\n", "Subject", "caf\xC3\xA9"},
        {"no classic RawMail",
         "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\na=3Db\n", "RawMail", "<absent>"},
        {"no classic <BR> page",
         "Content-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\na=3Db\n", "HTML", "<absent>"},
    };
    for (const Case& c : cases) {
        Dict mail = readComplete(c.message);
        std::string got = "<absent>";
        if (const qh::Value* value = mail.find(c.key)) {
            if (const std::string* string = value->string()) {
                got = *string;
            } else if (const qh::Array* list = value->array()) {
                got.clear();
                for (const qh::Value& entry : *list) got += text(*entry.dict(), "Name") + "|" + text(*entry.dict(), "Address") + ";";
            } else if (value->date()) {
                got = value->toJsonText().substr(10, 20);
            }
        }
        EXPECT_EQ(got, c.expected) << c.what;
    }
}

// The parts of a message as the complete reading lists them: the chosen plain
// and HTML bodies, then every other leaf as "name mimeType disposition cid size".
std::string partsOf(const Dict& mail) {
    std::string out = "plain=" + text(mail, "Body") + " html=" + text(mail, "HTML");
    if (const qh::Array* list = attachments(mail)) {
        for (const qh::Value& entry : *list) {
            const Dict& item = *entry.dict();
            EXPECT_NE(item.findBytes("data"), nullptr);
            out += " [" + text(item, "name") + " " + text(item, "mimeType") + " " + text(item, "attachDisposition") +
                   " " + text(item, "AttachContentID") + " " + std::to_string(item.find("size")->integer()) + "]";
        }
    }
    return out;
}

TEST(ReadEMLComplete, EveryLeafPartIsKept) {
    const std::string plain = "Content-Type: text/plain\n\nhello";
    const std::string html = "Content-Type: text/html\n\n<p><img src=\"cid:logo@x\"></p>";
    const std::string logo =
        "Content-Type: image/png\nContent-ID: <logo@x>\nContent-Transfer-Encoding: base64\n\niVBORw0KGgo=";
    const std::string signature = "Content-Type: application/pkcs7-signature; name=smime.p7s\n"
                                  "Content-Transfer-Encoding: base64\n\nAAAA";
    const std::string attached = "Content-Type: message/rfc822\n\nSubject: =?utf-8?Q?Inner_caf=C3=A9?=\n"
                                 "From: x@example.com\n\ninner body";
    struct Case {
        const char* what;
        std::string message;
        const char* parts;
    } cases[] = {
        {"both alternatives", multipart({plain, html}, "alternative"),
         "plain=hello html=<p><img src=\"cid:logo@x\"></p>"},
        {"an inline image keeps its content id and the page its reference",
         multipart({html, logo}, "related"),
         "plain=<absent> html=<p><img src=\"cid:logo@x\"></p> [attachment-1.png image/png inline logo@x 8]"},
        {"a signed message shows its content and keeps the signature", multipart({plain, signature}, "signed"),
         "plain=hello html=<absent> [smime.p7s application/pkcs7-signature attachment <absent> 3]"},
        {"an attached message is named after its subject", multipart({plain, attached}),
         "plain=hello html=<absent> [Inner caf\xC3\xA9.eml message/rfc822 attachment <absent> 68]"},
        {"a second plain part is an attachment", multipart({plain, plain}),
         "plain=hello html=<absent> [attachment-1.txt text/plain attachment <absent> 5]"},
        {"a plain part marked as attachment", multipart({"Content-Disposition: attachment\n\nnotes", plain}),
         "plain=hello html=<absent> [attachment-1.txt text/plain attachment <absent> 5]"},
        {"two parts of one name are both kept",
         multipart({plain, "Content-Disposition: attachment; filename=a.bin\n\n1",
                    "Content-Disposition: attachment; filename=a.bin\n\n22"}),
         "plain=hello html=<absent> [a.bin text/plain attachment <absent> 1] [a.bin text/plain attachment <absent> 2]"},
        {"preamble and epilogue are no parts",
         "Content-Type: multipart/mixed; boundary=b\n\npreamble\n--b\n" + plain + "\n--b--\nepilogue\n",
         "plain=hello html=<absent>"},
        {"a delimiter starts a line; one boundary may begin another",
         "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: multipart/alternative; boundary=b-1\n\n"
         "--b-1\n" + plain + " --b inside\n--b-1\n" + html + "\n--b-1--\n\n--b\n" + signature + "\n--b--\n",
         "plain=hello --b inside html=<p><img src=\"cid:logo@x\"></p> "
         "[smime.p7s application/pkcs7-signature attachment <absent> 3]"},
        {"a part without header fields", multipart({"just text\nmore"}), "plain=just text\nmore html=<absent>"},
        {"of two Content-Type fields the first counts",
         "Content-Type: multipart/mixed; boundary=b\nContent-Type: text/plain\n\n--b\n" + plain + "\n--b--\n",
         "plain=hello html=<absent>"},
        {"transport padding after a delimiter", "Content-Type: multipart/mixed; boundary=b\n\n--b  \n" + plain +
                                                    "\n--b-- \n",
         "plain=hello html=<absent>"},
    };
    for (const Case& c : cases) EXPECT_EQ(partsOf(readComplete(c.message)), c.parts) << c.what;
}

TEST(ReadEMLComplete, TextAttachmentsKeepTheMessagesLineBreaks) {
    const std::string message = "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
                                "Content-Type: text/plain\r\n\r\nbody\r\n--b\r\n"
                                "Content-Disposition: attachment; filename=a.txt\r\n\r\none\r\ntwo\r\n--b--\r\n";
    Dict mail = readComplete(message);
    const qh::Array* list = attachments(mail);
    ASSERT_TRUE(list && list->size() == 1);
    EXPECT_EQ(std::string(qh::asText((*list)[0].dict()->findBytes("data")->view())), "one\r\ntwo");
    EXPECT_EQ(text(mail, "Body"), "body");
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

TEST(ReadEML, SummaryInBothReadings) {
    const std::string firstLineFrom = "From: =?utf-8?Q?Ann_=C3=89?= <ann@example.com>\nSubject: Hi\n\nBody text\n";
    struct Case {
        const char* what;
        std::string message;
        qh::ReadOptions options;
        Dict expected;
    } cases[] = {
        {"folded subject and the body",
         single("From: \"Ann Example\" <ann@example.com>\nSubject: Hello\n there\nContent-Type: text/plain",
                "Body text"),
         qh::ReadOptions::classic(), Dict{{"Subject", "Hello there"}, {"Body", "Body text"}, {"From", "Ann Example "}}},
        {"one line gives dashes", "just one line", qh::ReadOptions::classic(),
         Dict{{"Subject", "-"}, {"Body", "-"}, {"From", "-"}}},
        {"the classic reading never reads the first line, nor a body without a type", firstLineFrom,
         qh::ReadOptions::classic(), Dict{{"Subject", "Hi"}, {"Body", "-"}, {"From", "-"}}},
        {"the complete one does", firstLineFrom, qh::ReadOptions::complete(),
         Dict{{"Subject", "Hi"}, {"Body", "Body text"}, {"From", "Ann \xC3\x89"}}},
    };
    for (const Case& c : cases) {
        auto summary = ReadEML::getSummaryForMessage(qh::asBytes(c.message), c.options);
        ASSERT_TRUE(summary) << c.what;
        EXPECT_EQ(qh::Value(*summary).toJsonText(), qh::Value(c.expected).toJsonText()) << c.what;
    }
}

// Substituting inline images must stay linear: 20000 references to one part.
// (Malformed bodies, parameters and deep nesting are named hostile inputs.)
TEST(ReadEML, ManyImageReferencesStayBounded) {
    std::string page = "Content-Type: text/html\n\n";
    for (int i = 0; i < 20000; ++i) page += "<img src=\"cid:a.png@1\">";
    const std::string message = multipart({page, "Content-Disposition: inline; filename=a.png\n"
                                                 "Content-Transfer-Encoding: base64\n\n" + std::string(40000, 'A')});
    for (const qh::ReadOptions& options : {qh::ReadOptions::classic(), qh::ReadOptions::complete()}) {
        const Dict mail = read(message, options);
        if (const std::string* html = mail.findString("HTML")) EXPECT_LE(html->size(), 16 * message.size());
    }
}

}  // namespace
