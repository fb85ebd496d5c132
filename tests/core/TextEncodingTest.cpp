// Strict conversions by the platform's encoding numbers, and the Unicode services.
#include "core/TextEncoding.h"

#include <gtest/gtest.h>
#include <unicode/utf8.h>

#include <random>
#include <string>

using namespace qh;

TEST(TextEncoding, DecodesStrictly) {
    using namespace std::string_literals;
    struct Case {
        const char* name;
        Bytes input;
        StringEncoding encoding;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"ascii", toBytes("plain"), StringEncoding::ASCII, "plain"s},
        {"ascii rejects 0x80", Bytes{'a', 0x80}, StringEncoding::ASCII, std::nullopt},
        {"ascii keeps NUL", Bytes{'a', 0, 'b'}, StringEncoding::ASCII, "a\0b"s},
        {"utf-8", toBytes("\xE2\x82\xAC"), StringEncoding::UTF8, "\xE2\x82\xAC"s},
        {"utf-8 truncated", Bytes{0xE2, 0x82}, StringEncoding::UTF8, std::nullopt},
        {"utf-8 overlong", Bytes{0xC0, 0xAF}, StringEncoding::UTF8, std::nullopt},
        {"utf-8 surrogate", Bytes{0xED, 0xA0, 0x80}, StringEncoding::UTF8, std::nullopt},
        {"utf-8 after a long ascii run", toBytes(std::string(40, 'a') + "\xFF"), StringEncoding::UTF8, std::nullopt},
        {"latin-1 takes every byte", Bytes{0xE9, 0x80}, StringEncoding::Latin1, "\xC3\xA9\xC2\x80"s},
        {"utf-16 without mark is little-endian", Bytes{'H', 0, 'i', 0}, StringEncoding::UTF16, "Hi"s},
        {"utf-16 little-endian mark", Bytes{0xFF, 0xFE, 'H', 0}, StringEncoding::UTF16, "H"s},
        {"utf-16 big-endian mark", Bytes{0xFE, 0xFF, 0, 'H'}, StringEncoding::UTF16, "H"s},
        {"utf-16le keeps a mark", Bytes{0xFF, 0xFE, 'H', 0}, StringEncoding::UTF16LE, "\xEF\xBB\xBFH"s},
        {"utf-16be", Bytes{0x00, 0xE9}, StringEncoding::UTF16BE, "\xC3\xA9"s},
        {"utf-16 odd length", Bytes{'H', 0, 'i'}, StringEncoding::UTF16LE, std::nullopt},
        {"utf-16 pair", Bytes{0x3D, 0xD8, 0x00, 0xDE}, StringEncoding::UTF16LE, "\xF0\x9F\x98\x80"s},
        {"utf-16 lone high surrogate", Bytes{0x3D, 0xD8, 'a', 0}, StringEncoding::UTF16LE, std::nullopt},
        {"utf-16 lone low surrogate", Bytes{0x00, 0xDE}, StringEncoding::UTF16LE, std::nullopt},
        {"windows-1252 euro", Bytes{0x80}, StringEncoding::Windows1252, "\xE2\x82\xAC"s},
        {"windows-1255 alef", Bytes{0xE0}, StringEncoding::Windows1255, "\xD7\x90"s},
        {"windows-1255 unmapped", Bytes{0xE0, 0xFF}, StringEncoding::Windows1255, std::nullopt},
        {"empty", {}, StringEncoding::Windows1255, ""s},
        {"unknown number", toBytes("x"), static_cast<StringEncoding>(77), std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(TextEncoding::decode(c.input, c.encoding), c.expected) << c.name;
}

TEST(TextEncoding, EncodesStrictly) {
    EXPECT_EQ(TextEncoding::encode("\xE2\x82\xAC", StringEncoding::Windows1252), Bytes{0x80});
    EXPECT_EQ(TextEncoding::encode("\xD7\xA9", StringEncoding::Windows1255), Bytes{0xF9});
    EXPECT_FALSE(TextEncoding::encode("\xD7\xA9", StringEncoding::Windows1252));
    EXPECT_FALSE(TextEncoding::encode("\xC3\xA9", StringEncoding::ASCII));
    EXPECT_EQ(TextEncoding::encode("\xC3\xA9", StringEncoding::Latin1), Bytes{0xE9});
    EXPECT_EQ(TextEncoding::encode("H", StringEncoding::UTF16), (Bytes{0xFF, 0xFE, 'H', 0}));
    EXPECT_EQ(TextEncoding::encode("\xF0\x9F\x98\x80", StringEncoding::UTF16BE), (Bytes{0xD8, 0x3D, 0xDE, 0x00}));
    EXPECT_FALSE(TextEncoding::encode("\xFF", StringEncoding::UTF8));
}

TEST(TextEncoding, CodePagesAndCharsets) {
    EXPECT_EQ(TextEncoding::fromCodePageConstant(0x0505), StringEncoding::Windows1255);
    EXPECT_EQ(TextEncoding::fromCodePageConstant(0x0500), StringEncoding::Windows1252);
    EXPECT_FALSE(TextEncoding::fromCodePageConstant(0x9999));

    EXPECT_EQ(TextEncoding::decodeCharset(Bytes{0xE9}, "ISO-8859-1"), "\xC3\xA9");
    EXPECT_EQ(TextEncoding::decodeCharset(Bytes{0xC1}, "koi8-r"), "\xD0\xB0");
    EXPECT_EQ(TextEncoding::decodeCharset(Bytes{0xE0}, " Windows-1255 "), "\xD7\x90");
    EXPECT_FALSE(TextEncoding::decodeCharset(Bytes{0xFF}, "utf-8"));
    EXPECT_FALSE(TextEncoding::decodeCharset(toBytes("x"), "no-such-charset"));
    EXPECT_EQ(TextEncoding::decodeCodePage(Bytes{0x82, 0xA0}, 932), "\xE3\x81\x82");
    EXPECT_EQ(TextEncoding::decodeCodePage(Bytes{0x80}, 1252), "\xE2\x82\xAC");
    EXPECT_FALSE(TextEncoding::decodeCodePage(toBytes("x"), 4));
}

TEST(TextEncoding, UnicodeServices) {
    struct TrimCase {
        std::string input, expected;
    };
    const TrimCase trims[] = {
        {" \t\r\n a b \n", "a b"},
        {"\xC2\xA0x\xE3\x80\x80", "x"},  // no-break and ideographic spaces
        {"\xE2\x80\xA8x\xC2\x85", "x"},  // line separator, next line
        {"\xE2\x80\x8Bx", "\xE2\x80\x8Bx"},  // a zero-width space is no white space
        {"   ", ""},
        {"\xFF ", "\xFF"},
    };
    for (const auto& c : trims) EXPECT_EQ(TextEncoding::trimWhitespaceAndNewlines(c.input), c.expected);

    EXPECT_EQ(TextEncoding::removePercentEncoding("%41%c3%A9"), "A\xC3\xA9");
    EXPECT_FALSE(TextEncoding::removePercentEncoding("%4"));
    EXPECT_FALSE(TextEncoding::removePercentEncoding("%FF"));

    EXPECT_EQ(TextEncoding::uppercase("stra\xC3\x9F" "e"), "STRASSE");
    EXPECT_EQ(TextEncoding::lowercase("\xC3\x89T\xC3\x89"), "\xC3\xA9t\xC3\xA9");
    EXPECT_TRUE(TextEncoding::equalsIgnoringCase("Stra\xC3\x9F" "e", "STRASSE"));
    EXPECT_EQ(TextEncoding::compareIgnoringCase("apple", "Banana"), -1);
    EXPECT_EQ(TextEncoding::findIgnoringASCIICase("xx=?utf-8?b?", "=?UTF-8?B?"), 2u);
    EXPECT_EQ(TextEncoding::findIgnoringASCIICase("abc", "abcd"), std::string_view::npos);

    EXPECT_EQ(TextEncoding::utf16Length("a\xC3\xA9\xF0\x9F\x98\x80"), 4u);
    EXPECT_EQ(TextEncoding::fromUTF16(TextEncoding::toUTF16("a\xF0\x9F\x98\x80")), "a\xF0\x9F\x98\x80");
    EXPECT_EQ(TextEncoding::fromUTF16(u"\xD800x"), "\xEF\xBF\xBDx");
    EXPECT_EQ(TextEncoding::sanitizeUTF8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
}

TEST(TextEncoding, ValidUtf8AsIcuReadsIt) {
    // Random byte strings built from pieces of UTF-8 (lead bytes at and
    // around the edges of their ranges, continuation bytes, ASCII): the
    // validity check must agree with ICU's reading of every sequence.
    auto icuValid = [](const std::string& text) {
        const auto* s = reinterpret_cast<const std::uint8_t*>(text.data());
        std::int32_t i = 0;
        const auto length = static_cast<std::int32_t>(text.size());
        while (i < length) {
            UChar32 c;
            U8_NEXT(s, i, length, c);
            if (c < 0) return false;
        }
        return true;
    };
    const std::uint8_t pieces[] = {'a', ' ', 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
                                   0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF3, 0xF4, 0xF5, 0xFF};
    std::mt19937 random(8);
    int valid = 0;
    for (int round = 0; round < 200000; ++round) {
        std::string text;
        const int length = static_cast<int>(random() % 12);
        for (int k = 0; k < length; ++k) {
            // Mostly well-formed three-byte sequences, so that valid texts occur.
            if (random() % 3 == 0) {
                text += "\xE5\x90\x8D";
            } else {
                text.push_back(static_cast<char>(pieces[random() % sizeof pieces]));
            }
        }
        if (round % 7 == 0) text = std::string(random() % 70, 'x') + text;  // over whole 32-byte runs too
        const bool expected = icuValid(text);
        valid += expected;
        ASSERT_EQ(TextEncoding::isValidUTF8(text), expected) << testing::PrintToString(text);
    }
    EXPECT_GT(valid, 10000);
}

