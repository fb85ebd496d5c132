// Transfer and header encodings: quoted-printable, encoded words, base64, hex,
// and the bytes-to-text fallback chain.
#include <gtest/gtest.h>

#include <random>

#include "core/Log.h"
#include "core/TextEncoding.h"
#include "util/CodePages.h"
#include "util/Base64Codec.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"
#include "util/WindowsCodePageWangers.h"
#include "writers/MimeEncoding.h"

using namespace qh;

namespace {
std::string latin1(unsigned char c) {  // the UTF-8 of one ISO Latin-1 character
    return c < 0x80 ? std::string(1, char(c)) : std::string{char(0xC0 | c >> 6), char(0x80 | (c & 0x3F))};
}
}  // namespace

TEST(QuotedPrintable, DecodesAsUtf8AndFallsBackBytePerCharacter) {
    struct Case {
        const char* name;
        std::string input, encoding, expected;
    };
    const Case cases[] = {
        {"escape", "a=3Db", "quoted-printable", "a=b"},
        {"other encoding name only trims", "  a=3Db\n", "base64", "a=3Db"},
        {"name compared case-sensitively", "a=3Db", "Quoted-Printable", "a=3Db"},
        {"utf-8 pair", "caf=C3=A9", "quoted-printable", "caf\xC3\xA9"},
        {"invalid utf-8 falls back", "caf=E9 ok", "quoted-printable", "caf" + latin1(0xE9) + " ok"},
        {"lone percent falls back unchanged", "100%", "quoted-printable", "100%"},
        {"=FF is outside the loop", "x=FF", "quoted-printable", "x=FF"},
        {"=00 is outside the loop", "x=00y", "quoted-printable", "x=00y"},
        {"lower-case escape stays", "a=3db", "quoted-printable", "a=3db"},
        {"soft break LF removed", "ab=\ncd", "quoted-printable", "abcd"},
        {"percent escape already in text is decoded", "a%41=42", "quoted-printable", "aAB"},
        {"result trimmed", " =20x=20 \n", "quoted-printable", "x"},
        // Only "=\n" is a soft break here: the callers reduce line ends to LF first.
        {"soft break CR LF breaks the percent decoding", "=41=\r\nB", "quoted-printable", "A=\r\nB"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WebWangers::decodeQuotedPrintableString(c.input, c.encoding), c.expected) << c.name;
}

// The text-to-text decoders of the header and transfer encodings, each quirk one row.
TEST(TextDecoders, EachQuirkOneRow) {
    using Decoder = std::string (*)(std::string_view);
    const Decoder bytewise = WebWangers::decodedQuotedPrintable, utf8B = WebWangers::decodeUTF8B,
                  utf8Q = WebWangers::decodeUTF8Q, cp1255B = WindowsCodePageWangers::decodeCP1255B,
                  cp1255 = WindowsCodePageWangers::decodeCP1255FromMimeEncodedString;
    struct Case {
        Decoder decode;
        std::string input, expected;
    };
    const Case cases[] = {
        // Quoted-printable a byte per character leaves the edges alone.
        {bytewise, "=41BCDE", "=41BCDE"},                      // index 0 is never decoded
        {bytewise, "x=41BCDE", "xABCDE"},
        {bytewise, "abc=41", "abc=41"},                        // within the last four characters
        {bytewise, "abc=41xy", "abcAxy"},                       // exactly five from the end
        {bytewise, "ab=41x", "ab=41x"},
        {bytewise, "a=E9bcde", "a" + latin1(0xE9) + "bcde"},     // codes above 127 as Latin-1
        {bytewise, "a=G1bcde", "a" + std::string(1, '\0') + "bcde"},  // no hex digit reads 0
        {bytewise, "a=4Gbcde", "a\x04" "bcde"},                          // one digit
        {bytewise, "a=\r\nb=\nc=41zzzz", "abcAzzzz"},           // soft breaks, CR LF first
        {bytewise, "a=3D41zzzz", "a=41zzzz"},                  // a decoded "=" is not decoded again
        {bytewise, "", ""},
        // UTF-8 "B" words keep the blank between them.
        {utf8B, "=?UTF-8?B?SGVsbG8=?= =?utf-8?b?V29ybGQ=?=", "Hello World"},  // lower-case marker
        {utf8B, "Re: =?UTF-8?B?Y2Fmw6k=?= !", "Re: caf\xC3\xA9 !"},
        {utf8B, "plain text", "plain text"},
        {utf8B, "=?UTF-8?B?YQ==?==?UTF-8?B?Yg==?=", "ab"},              // adjacent words
        {utf8B, "QUJD?= tail", "ABC tail"},                             // ?= without a marker is taken as a word
        {utf8B, "=?UTF-8?B?6Q==?=", "\xC3\xA9"},                        // Latin-1 bytes fall back to Windows-1252
        {utf8B, "x=?UTF-8?B?QQ?=y", "xy"},                              // an undecodable word adds nothing
        {utf8B, "x=?UTF-8?B?SGk", "xSGk"},                              // an unterminated word is kept
        // UTF-8 "Q" words drop the text after the last word.
        {utf8Q, "=?UTF-8?Q?caf=C3=A9?=", "caf\xC3\xA9"},
        {utf8Q, "Subject: =?utf-8?q?a_b?= tail", "Subject: a b"},
        {utf8Q, "=?UTF-8?Q?100%?=", "100%"},
        {utf8Q, "no words here", ""},
        {utf8Q, "=?UTF-8?Q?one?= =?UTF-8?Q?two?=", "onetwo"},
        {utf8Q, "=?UTF-8?Q?bad=E9?=", ""},
        // Windows-1255 "B" words ("shalom" is F9 EC E5 ED); 0xFF has no character: the word adds nothing.
        {cp1255B, "=?windows-1255?B?+ezl7Q==?= x", "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D x"},
        {cp1255B, "a =?WINDOWS-1255?b?4A==?=", "a \xD7\x90"},
        {cp1255B, "[=?windows-1255?B?/w==?=]", "[]"},
        // Windows-1255 escapes: only the codes of the list, in any case.
        {cp1255, "=E0=e1", "\xD7\x90\xD7\x91"},
        {cp1255, "=FA", "\xD7\xAA"},                   // last code of the list
        {cp1255, "=D0=D8", "\xD7\x80\xD7\xB4"},
        {cp1255, "=D9=DF=FB=FF", "=D9=DF=FB=FF"},      // deliberately not in the list
        {cp1255, "=41 =\n =?x?=", "=41 =\n =?x?="},     // nothing else is touched
        {cp1255, "==E0=", "=\xD7\x90="},
    };
    for (const auto& c : cases) EXPECT_EQ(c.decode(c.input), c.expected) << c.input;
}

TEST(Base64, DecoderSkipsEverythingOutsideTheAlphabet) {
    struct Case {
        std::string input;
        std::string expected;
    };
    const Case cases[] = {
        {"QQ", "A"},
        {"Q", ""},
        {"QU=JD", "ABC"},
        {"QUJD\r\nREVG", "ABCDEF"},
        {"QQ==QQ==", "A\x04\x10"},  // padding plays no part: four values, three bytes
        {"Q\xC3U J!\r\nD", "ABC"},   // junk, blanks and line ends anywhere in a group
        {"QUJDRA", "ABCD"},         // a last group of two values gives one byte
        {"QUJDREU", "ABCDE"},       // of three, two
        {"", ""},
        {"!!!", ""},
    };
    for (const auto& c : cases) {
        std::size_t length = 99;
        Bytes out = NewBase64Decode(c.input.data(), c.input.size(), &length);
        EXPECT_EQ(std::string(out.begin(), out.end()), c.expected) << c.input;
        EXPECT_EQ(length, c.expected.size());
    }
    // The all-ones length reads up to the NUL.
    std::size_t length = 0;
    Bytes out = NewBase64Decode("QUJD\0REVG", kBase64NulTerminated, &length);
    EXPECT_EQ(std::string(out.begin(), out.end()), "ABC");
    // Text holding anything but ASCII decodes as nothing.
    EXPECT_TRUE(dataFromBase64String("QUJD\xC3\xA9").empty());
    EXPECT_EQ(dataFromBase64String("QUJD"), toBytes("ABC"));
}

// Whole blocks of 32 characters (24 bytes) take a vectorised path where the
// processor has one: both directions against the definition, six bits at a
// time, on random bytes and on their text broken by noise.
TEST(Base64, BlocksMatchTheDefinition) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::mt19937 random(65);
    for (int round = 0; round < 2000; ++round) {
        Bytes input(round % 50 ? random() % 200 : 3000 + random() % 4000);  // long ones encode in pieces
        for (auto& byte : input) byte = static_cast<std::uint8_t>(random());
        std::string text, noisy;
        for (std::size_t i = 0; i < input.size(); i += 3) {
            std::uint32_t group = std::uint32_t(input[i]) << 16;
            if (i + 1 < input.size()) group |= std::uint32_t(input[i + 1]) << 8;
            if (i + 2 < input.size()) group |= input[i + 2];
            text += alphabet[group >> 18];
            text += alphabet[(group >> 12) & 63];
            text += i + 1 < input.size() ? alphabet[(group >> 6) & 63] : '=';
            text += i + 2 < input.size() ? alphabet[group & 63] : '=';
        }
        for (char c : text) {
            noisy += c;
            if (random() % 40 == 0) noisy += "\r\n= !\xC3"[random() % 7];
        }
        // In lines as mail carries it: 76 characters or any other length, LF or CR LF.
        std::string lined;
        const std::size_t lineLength = round % 3 ? 76 : 1 + random() % 100;
        const char* lineBreak = round % 2 ? "\n" : "\r\n";
        for (std::size_t i = 0; i < text.size(); i += lineLength) lined += text.substr(i, lineLength) + lineBreak;
        ASSERT_EQ(NewBase64Encode(input, false), text) << round;
        ASSERT_EQ(NewBase64Decode(asBytes(noisy)), input) << noisy;
        ASSERT_EQ(NewBase64Decode(asBytes(lined)), input) << lined;
    }
}

TEST(Base64, EncoderLineLayouts) {
    const Bytes input48(48, 0xFF), input49(49, 0xFF), input96(96, 0);
    struct Case {
        const char* name;
        std::string encoded;
        std::string expected;
    };
    const Case cases[] = {
        {"48 bytes: one line, no CR LF", base64EncodedString(input48), std::string(64, '/')},
        {"49 bytes: a second line", base64EncodedString(input49), std::string(64, '/') + "\r\n/w=="},
        {"96 bytes: no CR LF after the last line", base64EncodedString(input96),
         std::string(64, 'A') + "\r\n" + std::string(64, 'A')},
        {"one line when not separated", NewBase64Encode(input49, false), std::string(64, '/') + "/w=="},
        {"two bytes", NewBase64Encode(toBytes("AB"), true), "QUI="},
        {"empty", NewBase64Encode(Bytes{}, true), ""},
    };
    for (const auto& c : cases) EXPECT_EQ(c.encoded, c.expected) << c.name;
    std::size_t length = 0;
    NewBase64Encode(input49.data(), input49.size(), true, &length);
    EXPECT_EQ(length, 70u);
}

TEST(Base64, MimeEncoderUses76CharacterLines) {
    const Bytes input57(57, 0), input58(58, 0);
    EXPECT_EQ(DataWangers::b64EncodeData(input57), std::string(76, 'A'));
    EXPECT_EQ(DataWangers::b64EncodeData(input58), std::string(76, 'A') + "\r\nAA==");
    EXPECT_EQ(DataWangers::b64EncodeData(Bytes(114, 0)), std::string(76, 'A') + "\r\n" + std::string(76, 'A'));
    EXPECT_EQ(DataWangers::b64EncodeData(std::string_view("not base64 at all")), "not base64 at all");
    EXPECT_EQ(DataWangers::b64EncodeData(Bytes{}), "");
}

TEST(Base64, StrictDecoderWantsWholeGroups) {
    struct Case {
        std::optional<std::string> input;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt},
        {"", std::nullopt},
        {"QUJD", "ABC"},
        {"QUI=", "AB"},
        {"QQ==", "A"},
        {"QQ", std::nullopt},       // not a whole group
        {"QQ==QQ==", std::nullopt},  // padding inside
        {"QU JD\r\n", "ABC"},       // blanks and line ends ignored
        {"QU*JD", "ABC"},
    };
    for (const auto& c : cases) {
        auto out = DataWangers::b64DecodeDataString(c.input ? std::optional<std::string_view>(*c.input) : std::nullopt);
        ASSERT_EQ(out.has_value(), c.expected.has_value()) << c.input.value_or("(none)");
        if (out) EXPECT_EQ(std::string(out->begin(), out->end()), *c.expected);
    }
}

TEST(Hex, CleaningAndReading) {
    struct Case {
        std::string input;
        std::string cleaned;
        Bytes data;
    };
    const Case cases[] = {
        {"0x1F 2g3", "1F23", Bytes{0x1F, 0x23}},
        {"ABC", "ABC", Bytes{0xAB}},
        {"0X0x", "", {}},
        {"00xx1", "01", Bytes{0x01}},  // one pass: the "0x" that the removal forms stays, its x goes
        {"a", "a", {}},
        {"de:ad:BE:ef", "deadBEef", Bytes{0xDE, 0xAD, 0xBE, 0xEF}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DataWangers::cleanNonHexCharsFromHexString(c.input), c.cleaned) << c.input;
        EXPECT_EQ(DataWangers::dataFromHexString(c.input), c.data) << c.input;
    }
    EXPECT_FALSE(DataWangers::cleanNonHexCharsFromHexString(std::nullopt));
    EXPECT_FALSE(DataWangers::dataFromHexString(std::nullopt));
    EXPECT_EQ(DataWangers::dataFromInt(258, 7), (Bytes{0, 0, 1, 2}));
    EXPECT_EQ(DataWangers::dataFromInt(0x1122334455667788, 0), (Bytes{0x55, 0x66, 0x77, 0x88}));
    EXPECT_EQ(DataWangers::dataFromInt(-1, 0), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(BytesToText, FallbackChain) {
    Log::setSystemLogEnabled(false);
    struct Case {
        const char* name;
        Bytes data;
        StringEncoding encoding;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"empty gives none", {}, StringEncoding::UTF8, std::nullopt},
        {"utf-8", toBytes("caf\xC3\xA9"), StringEncoding::UTF8, "caf\xC3\xA9"},
        {"invalid utf-8 falls back to 1252", Bytes{'c', 0xE9, 0x80}, StringEncoding::UTF8, "c\xC3\xA9\xE2\x82\xAC"},
        {"ascii rejects the high byte, 1252 takes it", Bytes{'x', 0x93, 'y', 0x94}, StringEncoding::ASCII,
         "x\xE2\x80\x9Cy\xE2\x80\x9D"},
        {"utf-16le", Bytes{'H', 0, 'i', 0}, StringEncoding::UTF16LE, "Hi"},
        {"odd utf-16le falls back", Bytes{'H', 0, 'i'}, StringEncoding::UTF16LE, std::string("H\0i", 3)},
        {"unpaired surrogate falls back", Bytes{0x00, 0xD8, 'a', 0}, StringEncoding::UTF16LE,
         std::string("\0\xC3\x98" "a\0", 5)},
        {"valid utf-8", Bytes{0xC3, 0x81}, StringEncoding::UTF8, "\xC3\x81"},
        {"1252 takes every byte", Bytes{0xFF, 0x81}, StringEncoding::UTF8, "\xC3\xBF\xC2\x81"},
    };
    for (const auto& c : cases) {
        Log::Capture capture;
        EXPECT_EQ(DataWangers::getStringFromData(c.data, c.encoding, "test", 3), c.expected) << c.name;
        EXPECT_TRUE(capture.lines().empty()) << c.name;
    }
}

TEST(BytesToText, ConversionThatCannotRunIsLoggedAndFallsBack) {
    Log::setSystemLogEnabled(false);
    Log::Capture capture;
    auto text = DataWangers::getStringFromData(toBytes("abc"), static_cast<StringEncoding>(999), "readBody", -7);
    EXPECT_EQ(text, "abc");
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0],
              "Error reading getting Message Dictionary - Exception: unsupported string encoding 999 Locn readBody -7 a");

    Value null;
    EXPECT_FALSE(DataWangers::getStringFromData(&null, StringEncoding::UTF8, "x", 0));
    Value blob(toBytes("ok"));
    EXPECT_EQ(DataWangers::getStringFromData(&blob, StringEncoding::UTF8, "x", 0), "ok");
    EXPECT_EQ(DataWangers::getStringFromData(toBytes("plain"), StringEncoding::ASCII), "plain");
}

TEST(PercentDecoding, FailsOnBadEscapesAndInvalidUtf8) {
    EXPECT_EQ(WebWangers::removePercentEncodingFromString("a%20b%C3%A9"), "a b\xC3\xA9");
    EXPECT_FALSE(WebWangers::removePercentEncodingFromString("100%"));
    EXPECT_FALSE(WebWangers::removePercentEncodingFromString("%zz"));
    EXPECT_FALSE(WebWangers::removePercentEncodingFromString("%E9"));
    EXPECT_EQ(WebWangers::removePercentEncodingFromString("plain"), "plain");
}

// 8-bit text by Windows code page, and the fallback that keeps every byte.
TEST(CodePages, DecodeByNumberWithWindows1252Fallback) {
    struct Case {
        std::uint32_t codePage;
        std::string bytes;
        std::string expected;
    } cases[] = {
        {932, "\x93\xfa\x96\x7b\x8c\xea", "日本語"},
        {1258, "Vi\xd2t", "Vi\u0309t"},
        {20127, "plain", "plain"},
        {50220, "\x1b$B$\"\x1b(B", "あ"},
        {65001, "caf\xc3\xa9", "café"},
        // A lying or unknown code page falls back to Windows-1252.
        {65001, "caf\xe9", "café"},
        {20127, "caf\xe9", "café"},
        {12345, "caf\xe9", "café"},
        {1200, "caf\xe9", "café"},
        {0, "\x80", "€"},
        // Bytes Windows-1252 leaves unmapped stand for themselves.
        {0, "a\x81" "b", "a\u0081b"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(qh::CodePages::decodeWithFallback(qh::asBytes(c.bytes), {c.codePage}), c.expected) << c.codePage;
    }
    EXPECT_FALSE(qh::CodePages::converterName(1200));
    EXPECT_FALSE(qh::CodePages::decode(qh::asBytes("caf\xe9"), 65001));
    EXPECT_EQ(qh::CodePages::decodeWithFallback(qh::asBytes("\xe4\xe0"), {0, 65001, 1251}), "да");
}

// The text scans that pass over eight bytes at a time, against their simple
// definitions, on texts whose special bytes fall anywhere in and across the
// eight-byte steps.
TEST(WordAtATimeScans, MatchTheirDefinitions) {
    auto replaceAll = [](std::string text, std::string_view from, std::string_view to) {
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
            text.replace(at, from.size(), to);
        return text;
    };
    auto lower = [](std::string text) {
        for (char& c : text) c = (c >= 'A' && c <= 'Z') ? char(c + 32) : c;
        return text;
    };
    const std::string pieces[] = {"abcdefgh", "xyz", "~", std::string(100, 'x'), " ", "\r", "\n", "\r\n", "=", "\t", "\x7F", "\x1F",
                                  "\xC3\xA9", "\xF0\x9F\x98\x80", "\xFF", "cid:", "CID:", "ci", "C"};
    std::mt19937 random(8);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (int n = static_cast<int>(random() % 24); n > 0; --n) text += pieces[random() % std::size(pieces)];
        SCOPED_TRACE(testing::PrintToString(text));

        std::string qp;
        for (unsigned char c : text) {
            if ((c >= 32 && c <= 126) || c == 10) qp += char(c);
            else qp += "=" + std::string(1, "0123456789ABCDEF"[c >> 4]) + "0123456789ABCDEF"[c & 15];
        }
        EXPECT_EQ(WebWangers::createQuotedPrintableFromString(text), qp);

        std::string collapsed = replaceAll(text, "\r", "");
        while (collapsed.find("\n\n") != std::string::npos) collapsed = replaceAll(collapsed, "\n\n", "\n");
        EXPECT_EQ(StringWangers::replaceDoubleNewline(text), collapsed);

        EXPECT_EQ(mime::crlfLineEnds(text), replaceAll(replaceAll(replaceAll(text, "\r\n", "\n"), "\r", "\n"), "\n", "\r\n"));
        EXPECT_EQ(TextEncoding::utf16Length(text), TextEncoding::toUTF16(text).size());
        const std::size_t from = random() % (text.size() + 1);
        EXPECT_EQ(TextEncoding::findIgnoringASCIICase(text, "cid:", from), lower(text).find("cid:", from));
        EXPECT_EQ(TextEncoding::findIgnoringASCIICase(text, "=\r", from), text.find("=\r", from));
    }
}
