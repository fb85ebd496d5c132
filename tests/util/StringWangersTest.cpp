// Value clean-up, blank-line collapsing, whole-document HTML test, C strings,
// address validation.
#include <gtest/gtest.h>

#include <random>
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

// The text cases are held to their definition by WordAtATimeScans (EncodingsTest).
TEST(ReplaceDoubleNewline, NoTextGivesNone) { EXPECT_FALSE(StringWangers::replaceDoubleNewline(std::nullopt)); }

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

// Whole-text predicates: a bare HTML document only, and an address that is the
// whole text (IsThePublishedExpression holds the address matcher to its definition).
TEST(TextPredicates, WholeTextOnly) {
    using Predicate = bool (*)(std::string_view);
    const Predicate isHTML = StringWangers::isHTML, isAddress = WebWangers::validateEmailAddress;
    struct Case {
        Predicate holds;
        std::string input;
        bool expected;
    };
    const Case cases[] = {
        {isHTML, " \r\n<HTML><body>x</body></HTML>\n ", true},
        {isHTML, "<html></html>", true},
        {isHTML, "<!DOCTYPE html><html></html>", false},
        {isHTML, "<html lang=\"en\"><body></body></html>", false},
        {isHTML, "<html></html> trailing", false},
        {isHTML, "<html></html><p></html>", false},
        {isHTML, "<html>", false},
        {isHTML, "", false},
        {isAddress, "user@example.com", true},
        {isAddress, "USER@EXAMPLE.COM", true},
        {isAddress, "first.last+tag@mail.example.co.uk", true},
        {isAddress, "o'brien&co^x@example.org", true},
        {isAddress, "\"john..doe\"@example.com", true},
        {isAddress, "\"quoted name\"@example.com", false},  // no blank in the quoted form
        {isAddress, "user@[192.168.0.1]", true},
        {isAddress, "user@[1.2.3.tag:x]", true},           // a general literal only after three octets
        {isAddress, "user@[IPv6:2001:db8::1]", false},
        {isAddress, "Name <user@example.com>", false},
        {isAddress, " user@example.com", false},
        {isAddress, "user@example.com ", false},
        {isAddress, "user@localhost", false},
        {isAddress, "a..b@example.com", false},
        {isAddress, "user@", false},
        {isAddress, "@example.com", false},
        {isAddress, "", false},
        {isAddress, "user@-example.com", false},
    };
    for (const auto& c : cases) EXPECT_EQ(c.holds(c.input), c.expected) << c.input;
}

TEST(ValidateEmailAddress, RunawayInputEndsInTime) {
    // Labels the domain part can split many ways, then a character that fails
    // them all: the match gives up at its time limit instead of running on.
    std::string hostile = "a@" + std::string(5000, 'a') + "-";
    EXPECT_FALSE(WebWangers::validateEmailAddress(hostile));
}

// The plain matcher against the published expression it reads, matched whole
// and case-blind by the regular-expression engine, on addresses built from
// the pieces each part of the expression treats apart, some of them broken.
TEST(ValidateEmailAddress, IsThePublishedExpression) {
    const std::string_view published =
        "(?:[a-z0-9!#$%\\&'*+/=?\\^_`{|}~-]+(?:\\.[a-z0-9!#$%\\&'*+/=?\\^_`{|}~-]+)*|\"(?:[\\x01-\\x08\\x0b\\x0c\\x0e-\\x1f\\x21"
        "\\x23-\\x5b\\x5d-\\x7f]|\\\\[\\x01-\\x09\\x0b\\x0c\\x0e-\\x7f])*\")@(?:(?:[a-z0-9](?:[a-z0-9-]*[a-z0-9])?\\.)+"
        "[a-z0-9](?:[a-z0-9-]*[a-z0-9])?|\\[(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\.){3}(?:25[0-5]|2[0-4][0-9]|"
        "[01]?[0-9][0-9]?|[a-z0-9-]*[a-z0-9]:(?:[\\x01-\\x08\\x0b\\x0c\\x0e-\\x1f\\x21-\\x5a\\x53-\\x7f]|\\\\[\\x01-"
        "\\x09\\x0b\\x0c\\x0e-\\x7f])+)\\])";
    const std::optional<Regex> expression = Regex::compile(published, Regex::CaseInsensitive);
    ASSERT_TRUE(expression);
    auto pick = [](std::mt19937& random, const auto& list) { return std::string(list[random() % std::size(list)]); };
    const char* atoms[] = {"a", "Bc", "x!y~", "\xC5\xBF", "\xE2\x84\xAA", "\xC4\xB0", "\xC3\xA9", "\xEF\xAC\x80", ""};
    const char* quoted[] = {"a", "\\\"", "\\ ", " ", "@", "\\\\", "\x7F", "\\\r", "\\", "\xC5\xBF"};
    const char* labels[] = {"ex", "a-b", "-a", "b-", "0", "Z9", "\xE2\x84\xAA", "\xC4\xB1", ""};
    const char* octets[] = {"1", "25", "255", "256", "099", "0001", "2a", ""};
    const char* lasts[] = {"4", "tag:x", "t-g:a\\ b", "x:\\ ]", "-:y", "::", "a:\\\t", "k:]", "a:b\\", "q: "};
    const char* noise[] = {"@", ".", "\"", "[", "]", "\\", " ", "\t", "\n", std::string_view("\0", 1).data(), "\xFF"};
    std::mt19937 random(5322);
    for (int round = 0; round < 4000; ++round) {
        std::string local, domain;
        if (random() % 3) {
            for (int n = 1 + random() % 3; n > 0; --n) local += (local.empty() ? "" : ".") + pick(random, atoms);
        } else {
            local = "\"";
            for (int n = random() % 4; n > 0; --n) local += pick(random, quoted);
            local += "\"";
        }
        if (random() % 3) {
            for (int n = 1 + random() % 3; n > 0; --n) domain += (domain.empty() ? "" : ".") + pick(random, labels);
        } else {
            domain = "[";
            for (int n = 0; n < 3; ++n) domain += pick(random, octets) + ".";
            domain += (random() % 2 ? pick(random, octets) : pick(random, lasts)) + "]";
        }
        std::string text = local + "@" + domain;
        if (random() % 4 == 0) text.insert(random() % (text.size() + 1), pick(random, noise));
        EXPECT_EQ(WebWangers::validateEmailAddress(text), expression->matchesWhole(text)) << text;
    }
}
