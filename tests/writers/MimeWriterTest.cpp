// The MIME writer of the complete reading: header encoding and folding,
// values from the file never starting a header line, the structure chosen for
// the bodies and attachments, the encoders under it, and mbox entries.
#include <random>
#include <algorithm>
#include <gtest/gtest.h>

#include "core/Base64.h"
#include <quillhaven/Value.h>
#include "support/MimeShape.h"
#include <quillhaven/MboxWriter.h>
#include "util/Rfc2045.h"
#include "util/Rfc2047.h"
#include "writers/MimeEncoding.h"
#include <quillhaven/MimeWriter.h>

namespace {

using qh::Array;
using qh::Dict;
using qh::Value;
using qhtest::MimeShape;

Dict person(std::string name, std::string address) { return Dict{{"Name", std::move(name)}, {"Address", std::move(address)}}; }
Dict attachment(std::string name, std::string data, Dict extra = {}) {
    Dict item{{"name", std::move(name)}, {"data", qh::toBytes(data)}};
    for (const auto& [key, value] : extra) item.set(key, value);
    return item;
}

std::string write(const Dict& message) { return qh::MimeWriter(message).write(); }

MimeShape shapeOf(const std::string& text) {
    return MimeShape::read(text, [](std::string_view name) { return qh::MimeWriter::isOwnField(name); });
}

// The header block of a written message (up to its blank line).
std::string headerOf(const std::string& text) { return text.substr(0, text.find("\r\n\r\n") + 2); }

// The lines of the field `name` (with its continuations), CR LF kept.
std::string fieldLines(const std::string& text, std::string_view name) {
    std::string header = headerOf(text), out;
    std::size_t at = header.find("\r\n" + std::string(name) + ":");
    at = header.starts_with(std::string(name) + ":") ? 0 : (at == std::string::npos ? at : at + 2);
    if (at == std::string::npos) return {};
    do {
        std::size_t end = header.find("\r\n", at) + 2;
        out += header.substr(at, end - at);
        at = end;
    } while (at < header.size() && (header[at] == ' ' || header[at] == '\t'));
    return out;
}

TEST(MimeWriter, HeaderFields) {
    const struct {
        const char* name;
        Dict message;
        const char* field;
        std::string expected;
    } cases[] = {
        {"ascii subject", Dict{{"Subject", "  Hello  world \r\n"}}, "Subject", "Subject: Hello  world\r\n"},
        {"non-ascii word alone encoded", Dict{{"Subject", "Re: caf\u00e9 au lait"}}, "Subject",
         "Subject: Re: =?UTF-8?Q?caf=C3=A9?= au lait\r\n"},
        {"adjacent encoded words keep their blank", Dict{{"Subject", "\u00e9t\u00e9 d\u00e9j\u00e0"}}, "Subject",
         "Subject: =?UTF-8?B?w6l0w6kgZMOpasOg?=\r\n"},
        {"mostly non-latin goes as base64", Dict{{"Subject", "\u041f\u0440\u0438\u0432\u0435\u0442"}}, "Subject",
         "Subject: =?UTF-8?B?0J/RgNC40LLQtdGC?=\r\n"},
        {"text that looks encoded is encoded", Dict{{"Subject", "=?UTF-8?Q?x?="}}, "Subject",
         "Subject: =?UTF-8?Q?=3D=3FUTF-8=3FQ=3Fx=3F=3D?=\r\n"},
        {"long subject folds at blanks",
         Dict{{"Subject", "one two three four five six seven eight nine ten eleven twelve thirteen fourteen"}},
         "Subject",
         "Subject: one two three four five six seven eight nine ten eleven twelve\r\n thirteen fourteen\r\n"},
        {"atoms stay bare", Dict{{"From", Array{person("Ann Lee", "ann@example.com")}}}, "From",
         "From: Ann Lee <ann@example.com>\r\n"},
        {"specials quoted", Dict{{"From", Array{person("Lee, Ann \"AL\"", "ann@example.com")}}}, "From",
         "From: \"Lee, Ann \\\"AL\\\"\" <ann@example.com>\r\n"},
        {"non-ascii name encoded", Dict{{"From", Array{person("J\u00fcrgen", "j@example.de")}}}, "From",
         "From: =?UTF-8?Q?J=C3=BCrgen?= <j@example.de>\r\n"},
        {"name equal to address", Dict{{"To", Array{person("a@b.org", "a@b.org"), person("", "<c@d.org>")}}}, "To",
         "To: a@b.org, c@d.org\r\n"},
        {"x500 path kept as a group", Dict{{"To", Array{person("Bob", "/O=ORG/OU=ADMIN/CN=BOB"), person("", "")}}},
         "To", "To: Bob: ;\r\n"},
        {"recipients fold between addresses",
         Dict{{"CC", Array{person("Alpha Person", "alpha@example.com"), person("Beta Person", "beta@example.com"),
                           person("Gamma Person", "gamma@example.com")}}},
         "Cc",
         "Cc: Alpha Person <alpha@example.com>, Beta Person <beta@example.com>,\r\n Gamma Person "
         "<gamma@example.com>\r\n"},
        {"reply-to", Dict{{"ReplyTo", Array{person("", "list@example.org")}}}, "Reply-To",
         "Reply-To: list@example.org\r\n"},
        {"date in UTC", Dict{{"TimeStamp", qh::Date{1551771664}}}, "Date", "Date: Tue, 05 Mar 2019 07:41:04 +0000\r\n"},
        {"date string parsed", Dict{{"Date", "Sun, 9 Sep 2001 03:46:40 +0200"}}, "Date",
         "Date: Sun, 09 Sep 2001 01:46:40 +0000\r\n"},
        {"date out of range left out", Dict{{"TimeStamp", qh::Date{-1e13}}}, "Date", ""},
        {"own message id", Dict{{"MessageID", " <abc.1@example.com> "}}, "Message-ID",
         "Message-ID: <abc.1@example.com>\r\n"},
        {"references keep the valid ids", Dict{{"References", "<a@b> junk <no at> <c@[1.2.3.4]>"}}, "References",
         "References: <a@b> <c@[1.2.3.4]>\r\n"},
        {"in-reply-to without brackets", Dict{{"InReplyTo", "x@y.z"}}, "In-Reply-To", "In-Reply-To: <x@y.z>\r\n"},
        {"mime version", Dict{}, "MIME-Version", "MIME-Version: 1.0\r\n"},
    };
    for (const auto& c : cases) {
        std::string text = write(c.message);
        EXPECT_EQ(fieldLines(text, c.field), c.expected) << c.name;
        EXPECT_TRUE(shapeOf(text).problem.empty()) << c.name << ": " << shapeOf(text).problem;
    }
}

TEST(MimeWriter, FreshMessageIdsAreUniqueAndWellFormed) {
    Dict invalid{{"MessageID", "<not an id>"}};
    std::string first = fieldLines(write(invalid), "Message-ID"), second = fieldLines(write(Dict{}), "Message-ID");
    EXPECT_NE(first, second);
    for (const std::string& line : {first, second}) {
        ASSERT_TRUE(line.starts_with("Message-ID: <") && line.ends_with("@quillhaven.invalid>\r\n")) << line;
        EXPECT_TRUE(qh::mime::isMsgIdContent(line.substr(13, line.size() - 16))) << line;
    }
}

TEST(MimeWriter, EveryHeaderLineStaysUnder78ColumnsAndUnfoldsToTheValue) {
    std::string longName(40, 'x');
    Dict message{{"Subject", "Gr\u00fc\u00dfe aus M\u00fcnchen und eine sehr lange Betreffzeile, die weit \u00fcber "
                             "achtundsiebzig Zeichen hinausgeht und gefaltet werden muss"},
                 {"To", Array{person("\u5c71\u7530 \u592a\u90ce \u3055\u3093 \u3068 \u4ef2\u9593\u305f\u3061 "
                                     "\u306e \u307f\u306a\u3055\u307e",
                                     "yamada@example.jp"),
                              person(longName, "x@example.com"), person(longName, "y@example.com")}}};
    std::string header = headerOf(write(message));
    for (std::size_t at = 0; at < header.size();) {
        std::size_t end = header.find("\r\n", at);
        EXPECT_LE(end - at, 78u) << header.substr(at, end - at);
        at = end + 2;
    }
}

TEST(MimeWriter, LineBreaksFromTheFileNeverStartAHeaderLine) {
    const std::string attacks[] = {"x\r\nX-Injected: 1", "x\nX-Injected: 1", "x\rX-Injected: 1",
                                   "x\r\n\r\nX-Injected: 1", "x\u2028X-Injected: 1\u0085X-Injected: 2"};
    using Setter = void (*)(Dict&, const std::string&);
    const struct {
        const char* name;
        Setter set;
    } places[] = {
        {"Subject", [](Dict& m, const std::string& v) { m.set("Subject", v); }},
        {"From name", [](Dict& m, const std::string& v) { m.set("From", Array{person(v, "a@b.c")}); }},
        {"From address", [](Dict& m, const std::string& v) { m.set("From", Array{person("A", v + "@b.c")}); }},
        {"To name", [](Dict& m, const std::string& v) { m.set("To", Array{person(v, "")}); }},
        {"CC address", [](Dict& m, const std::string& v) { m.set("CC", Array{person("", v)}); }},
        {"BCC name", [](Dict& m, const std::string& v) { m.set("BCC", Array{person(v, "a@b.c")}); }},
        {"ReplyTo", [](Dict& m, const std::string& v) { m.set("ReplyTo", Array{person(v, v)}); }},
        {"Date", [](Dict& m, const std::string& v) { m.set("Date", v); }},
        {"MessageID", [](Dict& m, const std::string& v) { m.set("MessageID", "<a@b>" + v); }},
        {"InReplyTo", [](Dict& m, const std::string& v) { m.set("InReplyTo", "<" + v + "@b>"); }},
        {"References", [](Dict& m, const std::string& v) { m.set("References", "<a@b> " + v); }},
        {"Header trace field", [](Dict& m, const std::string& v) { m.set("Header", "Received: from " + v + "\r\n"); }},
        {"attachment name", [](Dict& m, const std::string& v) { m.set("AttachmentList", Array{attachment(v, "d")}); }},
        {"attachment type",
         [](Dict& m, const std::string& v) {
             m.set("AttachmentList", Array{attachment("a.bin", "d", Dict{{"mimeType", "text/plain" + v}})});
         }},
        {"content id",
         [](Dict& m, const std::string& v) {
             m.set("HTML", "<img src=\"cid:" + v + "\">");
             m.set("AttachmentList", Array{attachment("a.png", "d", Dict{{"AttachContentID", v}})});
         }},
        {"attached message name",
         [](Dict& m, const std::string& v) {
             m.set("AttachmentList", Array{attachment(v + ".eml", "Subject: inner\r\n\r\nbody")});
         }},
        {"body", [](Dict& m, const std::string& v) { m.set("Body", v); }},
    };
    for (const auto& place : places) {
        for (const std::string& attack : attacks) {
            Dict message;
            place.set(message, attack);
            std::string text = write(message);
            MimeShape shape = shapeOf(text);
            EXPECT_TRUE(shape.problem.empty()) << place.name << ": " << shape.problem << "\n" << text;
            EXPECT_EQ(headerOf(text).find("\r\nX-Injected"), std::string::npos) << place.name << "\n" << text;
        }
    }
}

TEST(MimeWriter, TraceFieldsCarryOverAndStructuralOnesDoNot) {
    Dict message{{"Header",
                  "Return-Path: <bounce@example.org>\r\nReceived: from a.example.org\r\n\tby b.example.org; Tue, 5 Mar "
                  "2019\r\nContent-Type: text/html; boundary=evil\r\nMIME-Version: 1.0\r\nDKIM-Signature: v=1;\n "
                  "b=abc\nList-Id: <list.example.org>\nX-Mailer: Something\nReceived: caf\xc3\xa9 not ascii\n \n"
                  "Authentication-Results: mx; spf=pass\n\nReceived: after the blank line\n"}};
    std::string header = headerOf(write(message));
    EXPECT_TRUE(header.starts_with("Return-Path: <bounce@example.org>\r\nReceived: from a.example.org\r\n\tby "
                                   "b.example.org; Tue, 5 Mar 2019\r\nDKIM-Signature: v=1;\r\n b=abc\r\nList-Id: "
                                   "<list.example.org>\r\nAuthentication-Results: mx; spf=pass\r\nMessage-ID: "))
        << header;
    EXPECT_EQ(header.find("boundary=evil"), std::string::npos);
    EXPECT_EQ(header.find("X-Mailer"), std::string::npos);
    EXPECT_EQ(header.find("after the blank"), std::string::npos);
    EXPECT_EQ(header.find("not ascii"), std::string::npos);
}

TEST(MimeWriter, StructureFollowsTheBodiesAndAttachments) {
    const std::string rtfFromHtml = "{\\rtf1\\ansi\\fromhtml1 {\\*\\htmltag <p>}Hi{\\*\\htmltag </p>}}";
    const std::string rtfFromText = "{\\rtf1\\ansi\\fromtext Plain words\\par}";
    const std::string rtfNative = "{\\rtf1\\ansi Native {\\b bold}\\par}";
    const struct {
        const char* name;
        Dict message;
        std::string outline;
    } cases[] = {
        {"nothing", Dict{}, "text/plain"},
        {"text only", Dict{{"Body", "hi"}}, "text/plain"},
        {"html only", Dict{{"HTML", "<p>hi</p>"}}, "text/html"},
        {"both", Dict{{"Body", "hi"}, {"HTML", "<p>hi</p>"}}, "multipart/alternative(text/plain,text/html)"},
        {"blank bodies count as none", Dict{{"Body", " \r\n"}, {"HTML", ""}}, "text/plain"},
        {"attachment only", Dict{{"AttachmentList", Array{attachment("a.pdf", "%PDF")}}},
         "multipart/mixed(application/pdf)"},
        {"inline image shown by the html",
         Dict{{"Body", "hi"},
              {"HTML", "<img src=\"CID:Logo@1\">"},
              {"AttachmentList", Array{attachment("logo.png", "PNG", Dict{{"AttachContentID", "<logo@1>"}}),
                                       attachment("a.txt", "text")}}},
         "multipart/mixed(multipart/alternative(text/plain,multipart/related(text/html,image/png)),text/plain)"},
        {"content id the html does not show stays an attachment",
         Dict{{"HTML", "<p>no image</p>"},
              {"AttachmentList", Array{attachment("logo.png", "PNG", Dict{{"AttachContentID", "logo@1"}})}}},
         "multipart/mixed(text/html,image/png)"},
        {"declared type wins; structural types do not",
         Dict{{"AttachmentList", Array{attachment("a.pdf", "x", Dict{{"mimeType", "Image/GIF; name=x"}}),
                                       attachment("b.txt", "x", Dict{{"mimeType", "multipart/mixed"}}),
                                       attachment("c.unknownext", "x"), attachment("", "x")}}},
         "multipart/mixed(image/gif,application/octet-stream,application/octet-stream,application/octet-stream)"},
        {"attached message by name or type",
         Dict{{"AttachmentList", Array{attachment("fwd.EML", "Subject: inner\r\n\r\nbody"),
                                       attachment("x", "From: a@b.c\nSubject: y\n\nz", Dict{{"mimeType", "message/rfc822"}}),
                                       attachment("bad.eml", std::string("no header\0here", 14))}}},
         "multipart/mixed(message/rfc822,message/rfc822,application/octet-stream)"},
        {"rtf from html gives html and text", Dict{{"RTF", qh::toBytes(rtfFromHtml)}},
         "multipart/alternative(text/plain,text/html)"},
        {"rtf from text gives text", Dict{{"RTF", qh::toBytes(rtfFromText)}}, "text/plain"},
        {"native rtf beside a body adds html", Dict{{"Body", "Native bold"}, {"RTF", qh::toBytes(rtfNative)}},
         "multipart/alternative(text/plain,text/html)"},
        {"unreadable rtf is attached", Dict{{"RTF", qh::toBytes("not rtf")}}, "multipart/mixed(application/rtf)"},
        {"appointment gets its calendar file", Dict{{"MessageType", "Calendar"}, {"Subject", "Meet"}, {"Body", "x"}},
         "multipart/mixed(text/plain,text/calendar)"},
        {"contact gets its vcard", Dict{{"MessageType", "Contact"}, {"Subject", "Ann"}}, "multipart/mixed(text/vcard)"},
    };
    for (const auto& c : cases) {
        std::string text = write(c.message);
        MimeShape shape = shapeOf(text);
        EXPECT_TRUE(shape.problem.empty()) << c.name << ": " << shape.problem;
        EXPECT_EQ(shape.outline(), c.outline) << c.name << "\n" << text;
    }
}

TEST(MimeWriter, PartsSayWhatTheyHold) {
    Dict message{{"Body", "caf\u00e9\nFrom here\n"},
                 {"HTML", "<p>\u041f\u0440\u0438\u0432\u0435\u0442</p>"},
                 {"AttachmentList",
                  Array{attachment("r\u00e9sum\u00e9.pdf", "%PDF-1.4"),
                        attachment("logo.png", "PNG", Dict{{"AttachContentID", "logo@1"}}),
                        attachment(std::string(70, 'n') + ".txt", "t")}}};
    message.set("HTML", "<p>\u041f\u0440\u0438\u0432\u0435\u0442</p><img src=\"cid:logo@1\">");
    MimeShape shape = shapeOf(write(message));
    ASSERT_TRUE(shape.problem.empty()) << shape.problem;
    ASSERT_EQ(shape.outline(),
              "multipart/mixed(multipart/alternative(text/plain,multipart/related(text/html,image/png)),"
              "application/pdf,text/plain)");
    const MimeShape& plain = shape.parts[0].parts[0];
    EXPECT_EQ(plain.field("content-type"), "text/plain; charset=utf-8");
    EXPECT_EQ(plain.field("content-transfer-encoding"), "quoted-printable");
    EXPECT_EQ(plain.body, "caf=C3=A9\r\n=46rom here\r\n");
    const MimeShape& html = shape.parts[0].parts[1].parts[0];
    EXPECT_EQ(html.field("content-transfer-encoding"), "base64");
    EXPECT_EQ(shape.parts[0].parts[1].field("content-type").find("multipart/related; type=\"text/html\";"), 0u);
    const MimeShape& image = shape.parts[0].parts[1].parts[1];
    EXPECT_EQ(image.field("content-id"), "<logo@1>");
    EXPECT_EQ(image.field("content-disposition"), "inline; filename=\"logo.png\"");
    const MimeShape& pdf = shape.parts[1];
    EXPECT_EQ(pdf.field("content-type"), "application/pdf; name=\"=?UTF-8?B?csOpc3Vtw6kucGRm?=\"");
    EXPECT_EQ(pdf.field("content-disposition"), "attachment; filename*=utf-8''r%C3%A9sum%C3%A9.pdf");
    EXPECT_EQ(pdf.body, "JVBERi0xLjQ=");
    const MimeShape& longName = shape.parts[2];
    EXPECT_EQ(longName.field("content-disposition"),
              "attachment; filename*0=\"" + std::string(60, 'n') + "\"; filename*1=\"" + std::string(10, 'n') + ".txt\"");
}

TEST(MimeWriter, AttachedMessagesAreRewrittenWhenTheCallerCan) {
    Dict message{{"AttachmentList", Array{attachment("fwd.eml", "Subject: inner\n\nbody")}}};
    qh::MimeWriter::Options options;
    options.attachedMessage = [](qh::ByteView bytes) -> std::optional<std::string> {
        return "Subject: rewritten " + std::to_string(bytes.size()) + "\r\n\r\nnew\r\n";
    };
    std::string text = qh::MimeWriter(message, options).write();
    MimeShape shape = shapeOf(text);
    ASSERT_EQ(shape.outline(), "multipart/mixed(message/rfc822)") << shape.problem;
    EXPECT_EQ(shape.parts[0].body, "Subject: rewritten 20\r\n\r\nnew\r\n");
    EXPECT_EQ(shape.parts[0].field("content-transfer-encoding"), "7bit");
    // Without a rewriter the bytes stand as they are, line ends made CR LF.
    shape = shapeOf(write(message));
    EXPECT_EQ(shape.parts[0].body, "Subject: inner\r\n\r\nbody");
}

TEST(MimeEncoding, QuotedPrintable) {
    const struct {
        std::string in, out;
    } cases[] = {
        {"a=b\tc", "a=3Db\tc"},
        {"trailing \r\nspace\t", "trailing=20\r\nspace=09"},
        {"From me\r\n>From you", "=46rom me\r\n>From you"},
        {std::string(80, 'x'), std::string(75, 'x') + "=\r\n" + std::string(5, 'x')},
        {std::string(76, 'x'), std::string(76, 'x')},
        {std::string(74, 'x') + "\xc3\xa9", std::string(74, 'x') + "=\r\n=C3=A9"},
        {std::string(75, 'x') + "From a", std::string(75, 'x') + "=\r\n=46rom a"},
    };
    for (const auto& c : cases) EXPECT_EQ(qh::mime::quotedPrintable(c.in), c.out) << c.in;
}

TEST(MimeEncoding, QuotedPrintableRoundTripsWithinTheLineLimit) {
    // Texts of the pieces the encoder treats apart: blanks before line ends,
    // "=", "From " at a line start, 8-bit bytes, long runs.
    const std::string pieces[] = {"a", "x", " ", "\t", "=", "From ", "F", "\r\n", "\xc3\xa9", "\n", std::string(30, 'y')};
    std::mt19937 random(1123);
    for (int round = 0; round < 2000; ++round) {
        std::string text;
        for (int n = static_cast<int>(random() % 40); n > 0; --n) text += pieces[random() % std::size(pieces)];
        const std::string encoded = qh::mime::quotedPrintable(text);
        const qh::Bytes decoded = qh::rfc2045::decodeQuotedPrintable(encoded, "\r\n");
        ASSERT_EQ(std::string(decoded.begin(), decoded.end()), text) << encoded;
        std::size_t lineStart = 0;
        for (std::size_t at = encoded.find("\r\n"); ; at = encoded.find("\r\n", lineStart)) {
            const std::string_view line = std::string_view(encoded).substr(lineStart, at - lineStart);
            ASSERT_LE(line.size(), 76u) << encoded;
            ASSERT_NE(line.substr(0, 5), "From ") << encoded;
            ASSERT_TRUE(std::all_of(line.begin(), line.end(), [](char c) { return c == ' ' || c == '\t' || (c > 32 && c < 127); }))
                << encoded;
            if (at == std::string::npos) break;
            lineStart = at + 2;
        }
    }
}

TEST(MimeEncoding, TextEncodingChoice) {
    using qh::mime::TransferEncoding;
    const struct {
        std::string text;
        TransferEncoding expected;
    } cases[] = {
        {"plain ascii\r\nlines", TransferEncoding::sevenBit},
        {"a = b", TransferEncoding::sevenBit},
        {std::string(77, 'x'), TransferEncoding::quotedPrintable},
        {"From the start", TransferEncoding::quotedPrintable},
        {"blank at the end \r\nx", TransferEncoding::quotedPrintable},
        {"mostly ascii with one caf\xc3\xa9", TransferEncoding::quotedPrintable},
        {"\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82", TransferEncoding::base64},
        // Long runs, which are measured eight bytes at a time.
        {"ab" + std::string(74, 'x'), TransferEncoding::sevenBit},
        {std::string(40, 'x') + "=" + std::string(40, 'y'), TransferEncoding::quotedPrintable},
        {std::string(16, 'x') + " \r\n" + std::string(16, 'y'), TransferEncoding::quotedPrintable},
        {std::string(16, 'x') + "\x7F" + std::string(16, 'y'), TransferEncoding::quotedPrintable},
    };
    for (const auto& c : cases) EXPECT_EQ(qh::mime::chooseTextEncoding(c.text), c.expected) << c.text;

    // The choice read line by line (lines end at CR LF only): 7bit when every
    // line is short, plain and starts no "From "; else quoted-printable while
    // escapes cost less than base64 would.
    auto byLines = [](std::string_view text) {
        std::size_t escaped = 0, start = 0;
        bool sevenBit = true;
        while (true) {
            const std::size_t end = text.find("\r\n", start);
            const std::string_view line = text.substr(start, end == std::string_view::npos ? end : end - start);
            if (line.size() > 76 || line.starts_with("From ")) sevenBit = false;
            if (!line.empty() && (line.back() == ' ' || line.back() == '\t')) sevenBit = false;
            for (unsigned char c : line) {
                if (c != '=' && c < 0x7F && (c >= 0x20 || c == '\t')) continue;
                ++escaped;
                sevenBit = sevenBit && c == '=';
            }
            if (end == std::string_view::npos) break;
            start = end + 2;
        }
        if (sevenBit) return TransferEncoding::sevenBit;
        return escaped * 2 <= text.size() / 3 ? TransferEncoding::quotedPrintable : TransferEncoding::base64;
    };
    const std::string pieces[] = {"x", "=", " ", "\t", "\r\n", "\r", "\n", "\xc3\xa9", "From ", "\x7F",
                                  std::string(20, 'y'), "a=b " + std::string(13, 'z')};
    std::mt19937 random(2045);
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (int n = static_cast<int>(random() % 30); n > 0; --n) text += pieces[random() % std::size(pieces)];
        ASSERT_EQ(qh::mime::chooseTextEncoding(text), byLines(text)) << testing::PrintToString(text);
    }
}

TEST(MimeEncoding, Base64Lines) {
    std::string data(200, '\xff');
    std::string lines = qh::mime::base64Lines(qh::asBytes(data));
    EXPECT_EQ(lines.substr(0, 78), qh::Base64::encode(qh::asBytes(data.substr(0, 57))) + "\r\n");
    std::string joined;
    for (std::size_t at = 0; at < lines.size();) {
        std::size_t end = std::min(lines.find("\r\n", at), lines.size());
        EXPECT_LE(end - at, 76u);
        joined += lines.substr(at, end - at);
        at = end + 2;
    }
    EXPECT_EQ(joined, qh::Base64::encode(qh::asBytes(data)));
    EXPECT_EQ(qh::mime::base64Lines({}), "");
}

TEST(MimeEncoding, EncodedWordsNeverSplitACharacter) {
    std::string text;
    for (int i = 0; i < 40; ++i) text += "\u20ac\U0001F600a ";
    text += "\u00e9";
    for (const auto& words : {qh::mime::encodedWords(text), qh::mime::encodedWordsB(text)}) {
        ASSERT_GT(words.size(), 1u);
        // Each word decoded on its own: a character split between two words
        // would not be UTF-8 in either and come back as other characters.
        std::string joined;
        for (const std::string& word : words) {
            EXPECT_LE(word.size(), 64u) << word;
            ASSERT_TRUE(word.starts_with("=?UTF-8?") && word.ends_with("?=")) << word;
            joined += qh::rfc2047::decodeText(word);
        }
        EXPECT_EQ(joined, text);
    }
}

TEST(MimeEncoding, AddressAndIdSyntax) {
    const struct {
        const char* text;
        bool addrSpec, msgId;
    } cases[] = {
        {"a@b.c", true, true},
        {"a.b+c@d-e.f", true, true},
        {"\"a b\"@c.d", true, false},
        {"a@[1.2.3.4]", true, true},
        {"a..b@c", false, false},
        {".a@c", false, false},
        {"a@", false, false},
        {"/O=ORG/CN=X", false, false},
        {"a b@c", false, false},
        {"caf\xc3\xa9@c", false, false},
        {"a@b@c", false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(qh::mime::isAddrSpec(c.text), c.addrSpec) << c.text;
        EXPECT_EQ(qh::mime::isMsgIdContent(c.text), c.msgId) << c.text;
    }
}

TEST(Mbox, EntriesQuoteFromLinesAndUseLineFeeds) {
    Dict message{{"From", Array{person("Ann", "ann@example.com")}}, {"TimeStamp", qh::Date{1551771664}}};
    const struct {
        std::string in, out;
    } cases[] = {
        {"Subject: x\r\n\r\nbody\r\n", "Subject: x\n\nbody\n"},
        {"A: b\r\n\r\nFrom here\r\n>From there\r\n>>From x\r\nFromage\r\n> From y\r\n",
         "A: b\n\n>From here\n>>From there\n>>>From x\nFromage\n> From y\n"},
        {"no final line end", "no final line end\n"},
        {"lone\rcr\n\nlf", "lone\ncr\n\nlf\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(qh::MboxWriter::entry(c.in, message), "From ann@example.com Tue Mar  5 07:41:04 2019\n" + c.out + "\n")
            << c.in;
    EXPECT_TRUE(qh::MboxWriter::separator(Dict{{"From", Array{person("x", "not valid")}}}).starts_with("From MAILER-DAEMON "));
}

}  // namespace
