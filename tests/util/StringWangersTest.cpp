// Value clean-up, blank-line collapsing, whole-document HTML test, C strings,
// address validation.
#include <gtest/gtest.h>

#include <set>

#include "core/Regex.h"
#include "util/StringWangers.h"
#include "util/WebWangers.h"

using namespace qh;

TEST(ZapGremlins, CutsJunkAfterTheFirstRunOfText) {
    using namespace std::string_literals;
    struct Case {
        const char* name;
        std::optional<std::string> input;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"none", std::nullopt, std::nullopt},
        {"empty gives none", ""s, std::nullopt},
        {"cut at the first NUL", "Hello\0more text"s, "Hello"s},
        {"trimmed", "  spaced out \r\n"s, "spaced out"s},
        {"percent escape decoded", "a%3Ab"s, "a:b"s},
        {"bad percent escape kept", "100%"s, "100%"s},
        {"four Latin then CJK", "Name\xE6\xBC\xA2\xE5\xAD\x97"s, "Name"s},
        {"three Latin then CJK kept whole", "abc\xE6\xBC\xA2"s, "abc\xE6\xBC\xA2"s},
        {"second character CJK kept whole", " a\xE6\xBC\xA2\xE5\xAD\x97 "s, "a\xE6\xBC\xA2\xE5\xAD\x97"s},
        {"U+3000 itself is ordinary", "abcd\xE3\x80\x80x"s, "abcd\xE3\x80\x80x"s},
        {"surrogate pairs count as wide", "abcd\xF0\x9F\x98\x80tail"s, "abcd"s},
        {"leading NUL removed, not cut", "\0abc"s, "abc"s},
        {"NUL after the wide run cuts at the ordinary count", "abcd\xE6\xBC\xA2\0xyz"s, "abcd"s},
        {"escape decoded after the cut", "abcd%41\xE6\xBC\xA2"s, "abcdA"s},
        {"unassigned code point removed", "ab\xCD\xB8" "c"s, "abc"s},
        {"only blanks gives empty text", "   "s, ""s},
    };
    for (const auto& c : cases) {
        auto input = c.input ? std::optional<std::string_view>(*c.input) : std::nullopt;
        EXPECT_EQ(StringWangers::zapGremlins(input), c.expected) << c.name;
    }
}

TEST(ReplaceDoubleNewline, CollapsesLineEnds) {
    struct Case {
        std::string input, expected;
    };
    const Case cases[] = {
        {"a\r\n\r\nb", "a\nb"}, {"a\n\n\nb", "a\nb"}, {"\n\nx\n", "\nx\n"},
        {"a\rb", "ab"},         {"", ""},            {"no breaks", "no breaks"},
        {"line one\r\n\r\nline two is longer\rstill\n", "line one\nline two is longerstill\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(StringWangers::replaceDoubleNewline(c.input), c.expected);
    EXPECT_FALSE(StringWangers::replaceDoubleNewline(std::nullopt));
}

TEST(IsHTML, OnlyAWholeBareDocument) {
    struct Case {
        std::string input;
        bool expected;
    };
    const Case cases[] = {
        {" \r\n<HTML><body>x</body></HTML>\n ", true},
        {"<html></html>", true},
        {"<!DOCTYPE html><html></html>", false},
        {"<html lang=\"en\"><body></body></html>", false},
        {"<html></html> trailing", false},
        {"<html></html><p></html>", false},
        {"<html>", false},
        {"", false},
    };
    for (const auto& c : cases) EXPECT_EQ(StringWangers::isHTML(c.input), c.expected) << c.input;
}

TEST(StringFromCString, TriesAsciiUtf8Utf16ThenWindows1252) {
    struct Case {
        const char* name;
        std::string bytes;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"ascii", "plain", "plain"},
        {"stops at the NUL", std::string("ab\0cd", 5), "ab"},
        {"utf-8", "caf\xC3\xA9", "caf\xC3\xA9"},
        // Two bytes that are not UTF-8 form one UTF-16 code unit (little-endian).
        {"even length goes to utf-16", "c\xE9", "\xEE\xA5\xA3"},
        {"odd length reaches windows-1252", "c\xE9x", "c\xC3\xA9x"},
        {"windows-1252 takes the rest", "\x81", "\xC2\x81"},
        {"empty", "", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(StringWangers::stringFromCString(asBytes(c.bytes)), c.expected) << c.name;
    EXPECT_EQ(StringWangers::stringFromCString("text"), "text");
    EXPECT_FALSE(StringWangers::stringFromCString(static_cast<const char*>(nullptr)));
}

TEST(GenerateUUIDString, CanonicalUpperCaseAndFresh) {
    const auto form = Regex::compile("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}");
    ASSERT_TRUE(form);
    std::set<std::string> seen;
    for (int i = 0; i < 64; ++i) {
        std::string uuid = StringWangers::generateUUIDString();
        EXPECT_TRUE(form->matchesWhole(uuid)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 64u);
}

TEST(ValidateEmailAddress, WholeTextMustBeAnAddress) {
    struct Case {
        std::string input;
        bool expected;
    };
    const Case cases[] = {
        {"user@example.com", true},
        {"USER@EXAMPLE.COM", true},
        {"first.last+tag@mail.example.co.uk", true},
        {"o'brien&co^x@example.org", true},
        {"\"john..doe\"@example.com", true},
        {"\"quoted name\"@example.com", false},  // no blank in the quoted form
        {"user@[192.168.0.1]", true},
        {"user@[1.2.3.tag:x]", true},           // a general literal only after three octets
        {"user@[IPv6:2001:db8::1]", false},
        {"Name <user@example.com>", false},
        {" user@example.com", false},
        {"user@example.com ", false},
        {"user@localhost", false},
        {"a..b@example.com", false},
        {"user@", false},
        {"@example.com", false},
        {"", false},
        {"user@-example.com", false},
    };
    for (const auto& c : cases) EXPECT_EQ(WebWangers::validateEmailAddress(c.input), c.expected) << c.input;
}

TEST(ValidateEmailAddress, RunawayInputEndsInTime) {
    // Labels the domain part can split many ways, then a character that fails
    // them all: the match gives up at its time limit instead of running on.
    std::string hostile = "a@" + std::string(5000, 'a') + "-";
    EXPECT_FALSE(WebWangers::validateEmailAddress(hostile));
}
