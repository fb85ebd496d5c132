// ICU regular expressions over UTF-8 text, with a time limit.
#include "core/Regex.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace qh;

TEST(Regex, FindsAllMatchesWithByteRanges) {
    auto regex = Regex::compile("b(\\d)?", Regex::CaseInsensitive);
    ASSERT_TRUE(regex);
    const std::string text = "\xC3\xA9" "B1 b \xE2\x82\xAC" "b2";
    auto matches = regex->findAll(text);
    ASSERT_EQ(matches.size(), 3u);
    EXPECT_EQ(matches[0].range, (Regex::Range{2, 2}));
    EXPECT_EQ(matches[0].group(text, 1), "1");
    EXPECT_EQ(matches[1].range, (Regex::Range{5, 1}));
    EXPECT_FALSE(matches[1].groups[0].found());
    EXPECT_EQ(matches[1].group(text, 1), "");
    EXPECT_EQ(matches[2].text(text), "b2");
    EXPECT_EQ(matches[2].range.location, 10u);
}

TEST(Regex, WholeMatchFirstMatchReplace) {
    struct Case {
        const char* pattern;
        std::uint32_t options;
        const char* text;
        bool whole;
    };
    const Case cases[] = {
        {"[a-z]+", Regex::None, "abc", true},
        {"[a-z]+", Regex::None, "abc1", false},
        {"[a-z]+", Regex::CaseInsensitive, "ABC", true},
        {"a.b", Regex::None, "a\nb", false},
        {"a.b", Regex::DotMatchesLineEnds, "a\nb", true},
    };
    for (const auto& c : cases) EXPECT_EQ(Regex::matchesWhole(c.pattern, c.text, c.options), c.whole) << c.pattern;

    auto firstLine = Regex::compile("^x", Regex::Multiline);
    ASSERT_TRUE(firstLine);
    auto match = firstLine->firstMatch("ab\nxy", 1);
    ASSERT_TRUE(match);
    EXPECT_EQ(match->range.location, 3u);
    EXPECT_FALSE(firstLine->firstMatch("ab", 5));

    EXPECT_EQ(Regex::replaceAll("\n+", "a\n\n\nb\nc", "\n"), "a\nb\nc");
    EXPECT_EQ(Regex::replaceAll("x", "axb", "$1"), "a$1b");  // taken literally
    EXPECT_FALSE(Regex::compile("(unclosed"));
    EXPECT_TRUE(Regex::findAll("(unclosed", "text", Regex::None).empty());
}

TEST(Regex, RunawayMatchGivesUp) {
    auto regex = Regex::compile("(a+)+$");
    ASSERT_TRUE(regex);
    const std::string text = std::string(64, 'a') + "!";
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(regex->findAll(text).empty());
    EXPECT_FALSE(regex->matchesWhole(text));
    // Without the limit this would take longer than the universe has left.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(Regex, InvalidUtf8IsSearchedNotRejected) {
    const std::string text = "a\xFF" "b";
    auto matches = Regex::findAll("b", text, Regex::None);
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].range.location, 2u);
}
