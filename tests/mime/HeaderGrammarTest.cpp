// The header grammar under the complete reading (and the MIME writer): RFC 2047
// words in the charsets mail uses, RFC 2231 parameters, RFC 5322 address
// lists, dates and identifiers, quoted-printable, charset fallbacks, media types.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "core/DateFormatting.h"
#include <quillhaven/Value.h>
#include "readers/mime/MIMEText.h"
#include "util/Ascii.h"
#include "util/Base64Codec.h"
#include "util/MediaTypes.h"
#include "util/MimeCharset.h"
#include "core/TextEncoding.h"
#include "util/Rfc2045.h"
#include "util/Rfc2047.h"
#include "util/Rfc2231.h"
#include "util/Rfc5322.h"

namespace {

using namespace qh;

TEST(Rfc2047, DecodesWordsInTheirCharsets) {
    struct Case {
        const char* encoded;
        const char* decoded;
    } cases[] = {
        {"=?iso-8859-1?Q?Some_=DFtring?=", "Some \xC3\x9Ftring"},
        {"=?koi8-r?B?8NLJ18XU?=", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},  // Привет
        {"=?windows-1252?Q?M=FCller?=", "M\xC3\xBCller"},
        {"=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?=", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"},
        {"=?utf-8?b?Y2Fmw6k=?=", "caf\xC3\xA9"},
        {"=?UTF-7?Q?Hi_+AOk-?=", "Hi \xC3\xA9"},
        {"=?utf-8*en?Q?language_suffix?=", "language suffix"},
        // Adjacent words: the blank between them goes, a character split between them is joined.
        {"=?utf-8?Q?caf=C3?= =?utf-8?Q?=A9?=", "caf\xC3\xA9"},
        {"=?utf-8?Q?a?=\r\n =?iso-8859-1?Q?=E9?=", "a\xC3\xA9"},
        {"Re: =?utf-8?Q?x?= and =?utf-8?Q?y?=", "Re: x and y"},
        // Not words: kept as written.
        {"=?utf-8?Q?no end", "=?utf-8?Q?no end"},
        {"=?utf-8?X?abc?=", "=?utf-8?X?abc?="},
        {"a ?= b", "a ?= b"},
        // An unknown charset still gives text (UTF-8, else Windows-1252).
        {"=?x-unknown?Q?caf=E9?=", "caf\xC3\xA9"},
        // Raw 8-bit header text: UTF-8 kept, anything else as Windows-1252.
        {"caf\xC3\xA9", "caf\xC3\xA9"},
        {"caf\xE9", "caf\xC3\xA9"},
    };
    for (const Case& c : cases) EXPECT_EQ(rfc2047::decodeText(c.encoded), c.decoded) << c.encoded;
}

TEST(Rfc2047, EncodeWordRoundTrips) {
    for (const char* text : {"plain ascii", "caf\xC3\xA9 au lait", "\xE4\xB8\xAD\xE6\x96\x87", "a=?b?=c"}) {
        EXPECT_EQ(rfc2047::decodeText(rfc2047::encodeWord(text)), text) << text;
    }
    EXPECT_EQ(rfc2047::encodeWord("plain ascii"), "plain ascii");
}

TEST(Rfc2231, ParametersOfContentValues) {
    struct Case {
        const char* header;
        const char* value;
        const char* parameter;
        const char* expected;  // nullptr: absent
    } cases[] = {
        {"text/plain; charset=\"ISO-8859-1\"", "text/plain", "charset", "ISO-8859-1"},
        {"Text/HTML;CHARSET=utf-8", "text/html", "charset", "utf-8"},
        {"attachment; filename=test.txt; source-filename=original.txt", "attachment", "filename", "test.txt"},
        {"attachment; filename=\"Outlook-facebook.png\"; size=2018;\r\n\tcreation-date=\"Tue, 18 Feb 2025\"",
         "attachment", "filename", "Outlook-facebook.png"},
        {"attachment; filename=\"a;b \\\"c\\\".txt\"", "attachment", "filename", "a;b \"c\".txt"},
        {"attachment; filename*=utf-8''%E2%82%AC%20rates.txt", "attachment", "filename", "\xE2\x82\xAC rates.txt"},
        {"attachment; filename*=iso-8859-1'en'caf%E9.txt", "attachment", "filename", "caf\xC3\xA9.txt"},
        {"attachment; filename*0=\"long \"; filename*1=\"name.txt\"", "attachment", "filename", "long name.txt"},
        {"attachment; filename*1*=%AC.txt; filename*0*=utf-8''%E2%82", "attachment", "filename",
         "\xE2\x82\xAC.txt"},
        // The RFC 2231 form wins over the plain one, whichever comes first.
        {"attachment; filename=fallback.txt; filename*=utf-8''real.txt", "attachment", "filename", "real.txt"},
        // Encoded words inside quotes, as many mailers write them.
        {"image/png; name=\"=?utf-8?B?w6kucG5n?=\"", "image/png", "name", "\xC3\xA9.png"},
        {"attachment; filename=my file.pdf", "attachment", "filename", "my file.pdf"},
        {"multipart/mixed", "multipart/mixed", "boundary", nullptr},
        {"text/plain; ; =x; charset", "text/plain", "charset", nullptr},
    };
    for (const Case& c : cases) {
        rfc2231::ContentValue parsed = rfc2231::parseContentValue(c.header);
        EXPECT_EQ(parsed.value, c.value) << c.header;
        const std::string* value = parsed.parameter(c.parameter);
        if (c.expected) {
            ASSERT_NE(value, nullptr) << c.header;
            EXPECT_EQ(*value, c.expected) << c.header;
        } else {
            EXPECT_EQ(value, nullptr) << c.header;
        }
    }
}

std::string listed(const std::vector<rfc5322::Mailbox>& list) {
    std::string out;
    for (const rfc5322::Mailbox& mailbox : list) out += "[" + mailbox.name + "|" + mailbox.address + "]";
    return out;
}

TEST(Rfc5322, AddressLists) {
    struct Case {
        const char* header;
        const char* expected;
    } cases[] = {
        {"a@example.com", "[|a@example.com]"},
        {"Jane Doe <jane@example.com>", "[Jane Doe|jane@example.com]"},
        {"\"Doe, Jane\" <jane@example.com>, john@example.com", "[Doe, Jane|jane@example.com][|john@example.com]"},
        {"john@example.com (John Doe)", "[John Doe|john@example.com]"},
        {"Jane (work) <jane@example.com>", "[Jane|jane@example.com]"},
        {"John Q. Public <jqp@example.com>", "[John Q. Public|jqp@example.com]"},
        {"Team: a@example.com, \"B, b\" <b@example.com>;, c@example.com",
         "[|a@example.com][B, b|b@example.com][|c@example.com]"},
        {"undisclosed-recipients:;", ""},
        {"=?iso-8859-1?Q?Some_=DFtring?= <some@example.com>\"", "[Some \xC3\x9Ftring|some@example.com]"},
        {"\"=?utf-8?Q?M=C3=BCller?=, Peter\" <p@example.ch>", "[M\xC3\xBCller, Peter|p@example.ch]"},
        {"<@route.example:a@example.com>", "[|a@example.com]"},
        {"\"quoted local\"@example.com", "[|\"quoted local\"@example.com]"},
        {"a@[192.0.2.1]", "[|a@[192.0.2.1]]"},
        {" , ,a@example.com,, ", "[|a@example.com]"},
        // What does not parse is kept as well as it can be.
        {"jang.abcdef@xyzlinu <jang.abcdef@example.it>", "[jang.abcdef@xyzlinu|jang.abcdef@example.it]"},
        {"Name With Spaces", "[|Name With Spaces]"},
        {"Broken <unclosed@example.com", "[|Broken <unclosed@example.com]"},
        {"", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(listed(rfc5322::parseAddressList(c.header)), c.expected) << c.header;
    EXPECT_EQ(rfc5322::parseAddressList("a@x, b@x, c@x", 2).size(), 2u);
}

TEST(Rfc5322, ParseFunctionsLeaveTheCursorOnNoMatch) {
    std::string_view cursor = "<not closed";
    std::string out;
    EXPECT_FALSE(rfc5322::parseAngleAddr(cursor, out));
    EXPECT_EQ(cursor, "<not closed");
    cursor = "no-at-sign rest";
    EXPECT_FALSE(rfc5322::parseAddrSpec(cursor, out));
    EXPECT_EQ(cursor, "no-at-sign rest");
    rfc5322::Mailbox mailbox;
    cursor = ":;";
    EXPECT_FALSE(rfc5322::parseMailbox(cursor, mailbox));
    EXPECT_EQ(cursor, ":;");
    cursor = "  (a comment) word";
    EXPECT_TRUE(rfc5322::parseAtom(cursor, out));
    EXPECT_EQ(out, "word");
    EXPECT_TRUE(cursor.empty());
}

TEST(Rfc5322, Dates) {
    struct Case {
        const char* header;
        const char* utc;  // "" when it does not parse
    } cases[] = {
        {"Tue, 12 Nov 2013 09:12:42 -0500", "2013-11-12T14:12:42Z"},
        {"2 Oct 2025 10:45:48 -0400", "2025-10-02T14:45:48Z"},
        {"Thu, 4 Sep 2025 17:14:47 -0400 (EDT)", "2025-09-04T21:14:47Z"},
        {"Mon, 24 Sep 07 15:28 +0200", "2007-09-24T13:28:00Z"},
        {"Fri, 01 Jan 99 00:00:00 GMT", "1999-01-01T00:00:00Z"},
        {"Sat, 29 Feb 2020 23:59:59 PST", "2020-03-01T07:59:59Z"},
        {"Wed,\r\n 15 Nov 2017 14:16:14 +0000", "2017-11-15T14:16:14Z"},
        {"(comment) 1 Jan 2000 12:00:00 +0130", "2000-01-01T10:30:00Z"},
        {"1 Jan 2000 12:00:00", "2000-01-01T12:00:00Z"},
        {"Mon Jan  5 10:02:03 2024", "2024-01-05T10:02:03Z"},
        {"31 Feb 2020 10:00:00 +0000", ""},
        {"29 Feb 2021 10:00:00 +0000", ""},
        {"1 Foo 2020 10:00:00 +0000", ""},
        {"1 Jan 2020 25:00:00 +0000", ""},
        {"yesterday", ""},
        {"", ""},
    };
    for (const Case& c : cases) {
        std::optional<Date> date = rfc5322::parseDateTime(c.header);
        std::string got = date ? nlohmann::json::parse(Value(*date).toJsonText())["$date"].get<std::string>() : "";
        EXPECT_EQ(got, c.utc) << c.header;
    }
}

TEST(Rfc5322, FormattedDatesReadAsIcuWritesThemAndBack) {
    // Whole seconds, fractions and instants before 1970, over the years the
    // writer accepts; the ICU pattern is what the text must equal.
    std::mt19937_64 random(5322);
    for (int round = 0; round < 2000; ++round) {
        const double seconds = -2208988800.0 + static_cast<double>(random() % 254611289600ull) + (round % 3) * 0.25;
        const std::optional<std::string> text = rfc5322::formatDateTime(Date{seconds});
        ASSERT_TRUE(text) << seconds;
        EXPECT_EQ(*text, DateFormatting::format(Date{std::floor(seconds)}, "EEE, dd MMM yyyy HH:mm:ss Z", "UTC"));
        ASSERT_EQ(rfc5322::parseDateTime(*text), Date{std::floor(seconds)}) << *text;
    }
    EXPECT_EQ(rfc5322::formatDateTime(Date{0}), "Thu, 01 Jan 1970 00:00:00 +0000");
    EXPECT_FALSE(rfc5322::formatDateTime(Date{-2208988801.0}));
    EXPECT_FALSE(rfc5322::formatDateTime(Date{253402300800.0}));
    EXPECT_FALSE(rfc5322::formatDateTime(Date{std::nan("")}));
}

TEST(Rfc5322, MessageIdentifiersAndFields) {
    EXPECT_EQ(rfc5322::msgIdList("<a@x>\r\n <b@y> <c@z>"), "<a@x> <b@y> <c@z>");
    EXPECT_EQ(rfc5322::msgIdList("Your message of Monday <a@x>"), "<a@x>");
    EXPECT_EQ(rfc5322::msgIdList("no identifier"), "no identifier");

    std::vector<rfc5322::Field> fields = rfc5322::parseFields(
        "From: a@x\r\nSubject: One Two\r\n  Three\r\nnot a field\r\nX-Empty:\r\nTo : b@y\r\n\r\nBody: no\r\n");
    ASSERT_EQ(fields.size(), 4u);
    EXPECT_EQ(fields[0].name, "From");
    EXPECT_EQ(fields[1].value, "One Two  Three");  // unfolded, the continuation's blanks kept
    EXPECT_EQ(fields[2].value, "");
    EXPECT_EQ(fields[3].name, "To");
}

TEST(MIMEText, HeaderBlockEnd) {
    struct Case {
        const char* text;
        std::size_t end;
    } cases[] = {
        {"A: 1\n\nbody", 4},
        {"A: 1\r\n\r\nbody", 4},
        {"A: 1\r\nB: 2\n\nbody\r\n\r\n", 10},  // mixed: the first blank line counts
        {"A: 1\n\r\n\r\n", 5},
        {"\r\n\r\n", 0},
        {"\n\n", 0},
        {"A: 1\r\nB: 2\r\n", std::string_view::npos},
        {"A: 1\r\n\r", std::string_view::npos},
        {"", std::string_view::npos},
    };
    for (const Case& c : cases) EXPECT_EQ(MIMEText::headerBlockEnd(c.text), c.end) << c.text;
}

TEST(MIMEText, LineBreaks) {
    using Breaks = MIMEText::Breaks;
    // Byte by byte, as the breaks are defined: what the block-wise check must give.
    auto byCharacters = [](std::string_view text, MIMEText::LineIndex& index) {
        const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
        const auto size = static_cast<std::int64_t>(text.size());
        bool lineFeed = false, pair = false;
        std::vector<std::size_t> lineFeeds;
        for (std::int64_t i = 0; i < size;) {
            UChar32 c = s[i];
            if (c == '\r') {
                if (i + 1 == size || s[i + 1] != '\n' || lineFeed) return Breaks::Other;
                pair = true;
                lineFeeds.push_back(static_cast<std::size_t>(i + 1));
                i += 2;
            } else if (c == '\n') {
                if (pair) return Breaks::Other;
                lineFeed = true;
                ++i;
            } else if (c == 0x0B || c == 0x0C) {
                return Breaks::Other;
            } else if (c < 0x80) {
                ++i;
            } else {
                U8_NEXT(s, i, size, c);
                if (c < 0) return Breaks::Invalid;
                if (c == 0x85 || c == 0x2028 || c == 0x2029) return Breaks::Other;
            }
        }
        index.pairs = lineFeeds.size();
        for (std::size_t at = 0; at <= text.size(); at += MIMEText::kLineFeedStep) {
            index.lineFeedMarks.push_back(static_cast<std::size_t>(
                std::lower_bound(lineFeeds.begin(), lineFeeds.end(), at) - lineFeeds.begin()));
        }
        for (std::size_t at = 1; at + 1 < text.size(); ++at) {
            if (text[at - 1] == '\n' && text[at] == '-' && text[at + 1] == '-') index.dashLines.push_back(at);
        }
        return pair ? Breaks::CrLfPairs : Breaks::LineFeeds;
    };
    struct Case {
        std::string text;
        Breaks breaks;
    } cases[] = {
        {"", Breaks::LineFeeds},
        {"a\nb\n", Breaks::LineFeeds},
        {"a\r\nb\r\n", Breaks::CrLfPairs},
        {"a\r\nb\n", Breaks::Other},
        {"a\nb\r\n", Breaks::Other},
        {"a\rb", Breaks::Other},
        {"a\r", Breaks::Other},
        {"a\x0B" "b", Breaks::Other},
        {"a\xC2\x85" "b", Breaks::Other},
        {"a\xE2\x80\xA8" "b", Breaks::Other},
        {"caf\xC3\xA9\r\n", Breaks::CrLfPairs},
        {"caf\xE9\r\n", Breaks::Invalid},
        {"a\rb\xFF", Breaks::Other},  // the first that is met decides
    };
    for (const Case& c : cases) {
        MIMEText::LineIndex index;
        EXPECT_EQ(MIMEText::lineBreaks(asBytes(c.text), index), c.breaks) << testing::PrintToString(c.text);
    }
    // Random texts over the blocks of sixteen and thirty-two and the marks
    // every 512 bytes: lines of plain letters, some starting with dashes, with
    // tabs, 8-bit letters and now and then a break of another kind or a byte
    // that is not UTF-8.
    std::mt19937 random(512);
    for (int round = 0; round < 3000; ++round) {
        const bool pairs = round % 2 == 0;
        std::string text;
        const std::size_t size = random() % (round % 5 ? 700 : 3000);
        while (text.size() < size) {
            if (random() % 4 == 0) text += random() % 2 ? "--" : "-";
            text.append(random() % 90, "abcdefgh"[random() % 8]);
            if (random() % 6 == 0) text += "\t";
            if (random() % 9 == 0) text += "\xC3\xA9";
            if (round % 7 == 0 && random() % 20 == 0) {
                const char* odd[] = {"\r", "\n", "\r\n", "\x0C", "\xC2\x85", "\xFF", "\r\r\n"};
                text += odd[random() % std::size(odd)];
            }
            text += pairs ? "\r\n" : "\n";
        }
        if (random() % 3 == 0 && !text.empty()) text.pop_back();
        MIMEText::LineIndex index, expectedIndex;
        const Breaks expected = byCharacters(text, expectedIndex);
        ASSERT_EQ(MIMEText::lineBreaks(asBytes(text), index), expected) << testing::PrintToString(text);
        if (expected == Breaks::CrLfPairs) {
            ASSERT_EQ(index.pairs, expectedIndex.pairs) << testing::PrintToString(text);
            ASSERT_EQ(index.lineFeedMarks, expectedIndex.lineFeedMarks) << testing::PrintToString(text);
        }
        if (expected == Breaks::CrLfPairs || expected == Breaks::LineFeeds) {
            ASSERT_EQ(index.dashLinesComplete(), expectedIndex.dashLines.size() <= text.size() / MIMEText::kBytesPerDashLine)
                << testing::PrintToString(text);
            if (index.dashLinesComplete()) ASSERT_EQ(index.dashLines, expectedIndex.dashLines) << testing::PrintToString(text);
        }
    }
    // A text of nothing but "--" lines keeps its index within a quarter of its size.
    std::string dashes;
    for (int line = 0; line < 20000; ++line) dashes += "--\r\n";
    MIMEText::LineIndex index;
    ASSERT_EQ(MIMEText::lineBreaks(asBytes(dashes), index), Breaks::CrLfPairs);
    EXPECT_FALSE(index.dashLinesComplete());
    EXPECT_LE(index.dashLines.capacity() * sizeof(std::size_t), dashes.size() / 4 + sizeof(std::size_t));
}

TEST(Rfc2045, QuotedPrintable) {
    struct Case {
        const char* encoded;
        std::string decoded;
    } cases[] = {
        {"caf=C3=A9", "caf\xC3\xA9"},
        {"caf=c3=a9", "caf\xC3\xA9"},
        {"soft=\nbreak", "softbreak"},
        {"soft=\r\nbreak", "softbreak"},
        {"trailing   \nblanks", "trailing\nblanks"},
        {"a=3Db", "a=b"},
        {"bad=ZZ escape=", "bad=ZZ escape"},
        {"=FF=00", std::string("\xFF\0", 2)},
        {"=E4=B8=ADx=E5=9B=BD", "\xE4\xB8\xADx\xE5\x9B\xBD"},  // escapes in a row, then a run, then escapes
        {"=4=41 ==41 =", "=4A =A "},
    };
    for (const Case& c : cases)
        EXPECT_EQ(asText(rfc2045::decodeQuotedPrintable(c.encoded)), std::string_view(c.decoded)) << c.encoded;
    EXPECT_EQ(std::string(asText(rfc2045::decodeQuotedPrintable("a\nb", "\r\n"))), "a\r\nb");

    // The decoder works in one pass; the rules read line by line, as here:
    // random texts of the characters that matter must decode the same.
    auto byLines = [](std::string_view text, std::string_view lineBreak) {
        std::string out;
        std::size_t start = 0;
        while (true) {
            const std::size_t end = text.find('\n', start);
            std::string_view line = text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.remove_suffix(1);
            bool soft = false;
            for (std::size_t i = 0; i < line.size(); ++i) {
                const int high = i + 2 < line.size() ? ascii::hexValue(line[i + 1]) : -1;
                const int low = i + 2 < line.size() ? ascii::hexValue(line[i + 2]) : -1;
                if (line[i] == '=' && i + 1 == line.size()) {
                    soft = true;
                } else if (line[i] == '=' && high >= 0 && low >= 0) {
                    out.push_back(static_cast<char>(high * 16 + low));
                    i += 2;
                } else {
                    out.push_back(line[i]);
                }
            }
            if (end == std::string_view::npos) break;
            if (!soft) out.append(lineBreak);
            start = end + 1;
        }
        return out;
    };
    std::mt19937 random(2045);
    const char alphabet[] = {'=', '=', '=', '\n', '\r', ' ', '\t', 'A', 'f', '0', '9', 'g', 'x', '\xE4'};
    for (int round = 0; round < 20000; ++round) {
        // Lines of plain letters as well, over the sixteen-byte blocks copied whole.
        std::string text(random() % (round % 2 ? 40 : 100), ' ');
        for (char& c : text) c = alphabet[random() % (round % 4 ? sizeof alphabet : 4)];
        for (char& c : text) c = round % 2 == 0 && random() % 8 ? 'x' : c;
        for (std::string_view lineBreak : {"\n", "\r\n"}) {
            ASSERT_EQ(asText(rfc2045::decodeQuotedPrintable(text, lineBreak)), byLines(text, lineBreak))
                << testing::PrintToString(text);
            ASSERT_EQ(rfc2045::decodeQuotedPrintableText(text, lineBreak), byLines(text, lineBreak))
                << testing::PrintToString(text);
        }
    }
}

TEST(Rfc2045, CrLfBreaksDecodeAsLineFeeds) {
    // Bodies are decoded where they stand in the message, CR LF breaks and
    // all: each decoder must give for them what it gives for the same text
    // with LF breaks.
    struct Case {
        const char* text;
        const char* lineBreak;
        const char* expected;
    } cases[] = {
        {"a\r\nb\r\n", "\n", "a\nb\n"},
        {"a\r\nb", "\r\n", "a\r\nb"},
        {"a\nb", "\r\n", "a\r\nb"},
        {"\r\n\r\n", "\n", "\n\n"},
        {"no break", "\r\n", "no break"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(asText(rfc2045::withLineBreaks(c.text, c.lineBreak)), std::string_view(c.expected))
            << testing::PrintToString(c.text);
    }
    std::mt19937 random(5045);
    const char alphabet[] = {'=', '=', '\n', ' ', '\t', 'A', 'f', '0', 'D', 'x', '\xE4'};
    for (int round = 0; round < 20000; ++round) {
        std::string lf(random() % 60, ' ');
        for (char& c : lf) c = alphabet[random() % sizeof alphabet];
        std::string crlf;
        for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
        for (std::string_view lineBreak : {"\n", "\r\n"}) {
            ASSERT_EQ(rfc2045::decodeQuotedPrintable(crlf, lineBreak), rfc2045::decodeQuotedPrintable(lf, lineBreak))
                << testing::PrintToString(lf);
            ASSERT_EQ(rfc2045::withLineBreaks(crlf, lineBreak), rfc2045::withLineBreaks(lf, lineBreak))
                << testing::PrintToString(lf);
            ASSERT_EQ(rfc2045::withLineBreaksText(crlf, lineBreak), asText(rfc2045::withLineBreaks(lf, lineBreak)))
                << testing::PrintToString(lf);
        }
        ASSERT_EQ(NewBase64Decode(asBytes(crlf)), NewBase64Decode(asBytes(lf))) << testing::PrintToString(lf);
    }
}

TEST(MimeCharset, NeverGivesNothing) {
    struct Case {
        std::string bytes;
        const char* charset;
        const char* text;
    } cases[] = {
        {"caf\xE9", "iso-8859-1", "caf\xC3\xA9"},
        {"\xD0\xD2\xC9", "KOI8-R", "\xD0\xBF\xD1\x80\xD0\xB8"},
        {"caf\xC3\xA9", "us-ascii", "caf\xC3\xA9"},        // mislabelled UTF-8
        {"caf\xE9", "us-ascii", "caf\xC3\xA9"},            // 8-bit in ASCII: Windows-1252
        {"caf\xE9", "x-no-such-charset", "caf\xC3\xA9"},
        {"caf\xE9", "", "caf\xC3\xA9"},
        {"\x80\x81", "windows-1252", "\xE2\x82\xAC\xC2\x81"},
        {"ok \xFF", "utf-8", "ok \xEF\xBF\xBD"},            // declared UTF-8: a bad byte is U+FFFD
        {"caf\xC3\xA9", " UTF-8 ", "caf\xC3\xA9"},
        {"plain", "US-ASCII", "plain"},
        {"plain", "", "plain"},
        {"plain", "utf-7", "plain"},
        {"a+AOk-", "utf-7", "a\xC3\xA9"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(MimeCharset::decode(asBytes(c.bytes), c.charset), c.text) << c.charset;
        // Bytes held in a string (kept as they are where they are the text) give the same.
        EXPECT_EQ(MimeCharset::decode(std::string(c.bytes), c.charset), c.text) << c.charset;
    }
}

// 8-bit bytes in text labelled US-ASCII are read as Windows-1252: every byte,
// between ASCII runs of every length the word-wise copy meets, against the
// code page's table built from ICU.
TEST(MimeCharset, EightBitAsciiIsWindows1252) {
    std::string bytes;
    for (int b = 0; b < 256; ++b) bytes += std::string(static_cast<std::size_t>(b % 11), 'x') + static_cast<char>(b);
    const std::optional<std::string> expected = TextEncoding::decodeCharset(asBytes(bytes), "windows-1252");
    ASSERT_TRUE(expected);
    EXPECT_EQ(MimeCharset::decode(asBytes(bytes), "US-ASCII"), *expected);
    EXPECT_EQ(MimeCharset::decodeWindows1252(asBytes(bytes)), *expected);
}

TEST(MediaTypes, ExtensionsBothWays) {
    EXPECT_EQ(MediaTypes::extensionFor("image/PNG"), "png");
    EXPECT_EQ(MediaTypes::extensionFor("text/plain; charset=utf-8"), "txt");
    EXPECT_EQ(MediaTypes::extensionFor("image/jpeg"), "jpg");
    EXPECT_EQ(MediaTypes::extensionFor("application/x-no-such-type"), "bin");
    EXPECT_EQ(MediaTypes::extensionFor("text/x-no-such-type"), "txt");
    EXPECT_EQ(MediaTypes::mediaTypeFor("Report.PDF"), "application/pdf");
    EXPECT_EQ(MediaTypes::mediaTypeFor("noextension"), "application/octet-stream");
}

}  // namespace
