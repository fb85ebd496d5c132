// Address header splitting, address records, contact lists, and the TNEF helpers.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include <unistd.h>

#include "support/EnvironmentGuard.h"
#include "core/Log.h"
#include "core/Regex.h"
#include "util/AddressLists.h"

using namespace qh;

namespace {
using Pair = std::pair<std::string, std::string>;  // Name, Address
std::vector<Pair> pairs(const Array& list) {
    std::vector<Pair> out;
    for (const Value& v : list) {
        const Dict* d = v.dict();
        out.emplace_back(d && d->findString("Name") ? *d->findString("Name") : "<none>",
                         d && d->findString("Address") ? *d->findString("Address") : "<none>");
    }
    return out;
}
}  // namespace

TEST(ProcessEmailAddresses, SplitsHeaders) {
    struct Case {
        const char* name;
        std::string header;
        std::vector<Pair> expected;
    };
    const Case cases[] = {
        {"two quoted names", "\"Ann Lee\" <ann@example.com>, \"Bob\" <bob@example.com>",
         {{"Ann Lee ", "ann@example.com"}, {"Bob ", "bob@example.com"}}},
        {"two bare addresses", "ann@example.com, bob@example.com",
         {{"ann@example.com", "ann@example.com"}, {"bob@example.com", "bob@example.com"}}},
        {"empty header", "", {{"", ""}}},
        {"empty pieces kept without quotes", "a@x.org,,b@x.org", {{"a@x.org", "a@x.org"}, {"", ""}, {"b@x.org", "b@x.org"}}},
        // Without "<" nothing removes the comma that ends the piece.
        {"piece before the first quote keeps its comma", "first@x.org, \"Second\" <s@x.org>",
         {{"first@x.org,", "first@x.org,"}, {"Second ", "s@x.org"}}},
        {"comma inside quotes stays in the name piece", "\"Lee, Ann\" <ann@x.org>", {{"Lee Ann ", "ann@x.org"}}},
        {"parenthesised quote inside a quoted name", "\"A (\"x\") B\" <ab@x.org>, \"C\" <c@x.org>",
         {{"A (x) B ", "ab@x.org"}, {"C ", "c@x.org"}}},
        {"folded header", "\"Ann\"\r\n\t<ann@x.org>", {{"Ann", "ann@x.org"}}},
        {"pairs of blanks removed", "Ann   Lee <ann@x.org>", {{"Ann Lee ", "ann@x.org"}}},
        {"encoded name", "=?UTF-8?B?Sm9zw6k=?= <jose@x.org>", {{"Jos\xC3\xA9 ", "jose@x.org"}}},
        {"undecoded word shows the address", "=?iso-8859-1?Q?Jos=E9 <jose@x.org>", {{"jose@x.org", "jose@x.org"}}},
        // A whole word of another charset ends in "?=", which the UTF-8 decoder
        // takes as the end of a word of its own: what follows it is the name.
        {"whole word of another charset", "=?iso-8859-1?Q?Jos=E9?= <jose@x.org>", {{" ", "jose@x.org"}}},
        {"angle address only", "<solo@x.org>", {{"solo@x.org", "solo@x.org"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(pairs(processEmailAddresses(c.header)), c.expected) << c.name;
}

TEST(ProcessEmailAddresses, QuotedNamesAsThePatternFindsThem) {
    // Texts made of the characters the pattern cares about, so that quotes
    // inside parentheses, unclosed parentheses and unclosed quotes abound.
    const auto pattern = Regex::compile("\"(\\([^)]*\\)|[^\"])*\"", Regex::CaseInsensitive);
    ASSERT_TRUE(pattern);
    std::mt19937 random(20261123);
    const char alphabet[] = {'"', '(', ')', 'a', ',', '<'};
    for (int round = 0; round < 3000; ++round) {
        std::string text(random() % 24, ' ');
        for (char& c : text) c = alphabet[random() % sizeof alphabet];
        std::vector<std::pair<std::size_t, std::size_t>> expected;
        for (const Regex::Match& match : pattern->findAll(text))
            expected.emplace_back(match.range.location, match.range.length);
        ASSERT_EQ(findQuotedNames(text), expected) << text;
    }
}

TEST(ProcessEmailAddresses, HostileQuotingEndsInTime) {
    std::string header = "\"";
    for (int i = 0; i < 3000; ++i) header += "(\"";
    header += "<a@b.c>";
    Array list = processEmailAddresses(header);
    EXPECT_FALSE(list.empty());
}

TEST(CreateEmailDictionary, NamesAndAddresses) {
    struct Case {
        std::string text;
        Pair expected;
    };
    const Case cases[] = {
        {" bare@x.org ", {"bare@x.org", "bare@x.org"}},
        {"no address here", {"no address here", "noaddresshere"}},
        {"'O''Neil', \"Pat\" <pat @x.org>", {"ONeil Pat ", "pat@x.org"}},
        {"Pat <pat@x.org> <other@x.org>", {"Pat ", "pat@x.org"}},
        {"<>", {"", ""}},
        {"=?x <a@x.org>", {"a@x.org", "a@x.org"}},
    };
    for (const auto& c : cases) EXPECT_EQ(pairs({Value(createEmailDictionary(c.text))})[0], c.expected) << c.text;
}

TEST(BuildAddressFromTags, PicksNameAndAddress) {
    struct Case {
        std::optional<std::string> name, address;
        Dict expected;
    };
    const Case cases[] = {
        {"Ann", "ann@x.org", Dict{{"Name", "Ann"}, {"Address", "ann@x.org"}}},
        {"Ann", std::nullopt, Dict{{"Name", "Ann"}}},
        {"", "ann@x.org", Dict{{"Name", ""}, {"Address", "ann@x.org"}}},
        {std::nullopt, "ann@x.org", Dict{{"Name", "ann@x.org"}, {"Address", "ann@x.org"}}},
        {std::nullopt, "", Dict{{"Name", ""}, {"Address", ""}}},
        {std::nullopt, std::nullopt, Dict{{"Name", ""}, {"Address", ""}}},
    };
    for (const auto& c : cases) {
        auto name = c.name ? std::optional<std::string_view>(*c.name) : std::nullopt;
        auto address = c.address ? std::optional<std::string_view>(*c.address) : std::nullopt;
        EXPECT_EQ(buildAddressFromTags(name, address), c.expected)
            << c.name.value_or("(none)") << " / " << c.address.value_or("(none)");
    }
}

TEST(ContactLists, HtmlAndPlainText) {
    const Array list = {Value(Dict{{"Name", "Ann"}, {"Address", "ann@x.org"}}),
                        Value(Dict{{"Address", "bob@x.org"}}),
                        Value(Dict{{"Name", "No Link"}, {"Address", "has space@x.org"}})};
    EXPECT_EQ(buildHTMLContactList(list),
              "<a href=\"mailto:ann@x.org\">Ann</a>, <a href=\"mailto:bob@x.org\">bob@x.org</a>, No Link");
    EXPECT_EQ(buildHTMLContactList(Value(Array{})), "");
    EXPECT_EQ(buildHTMLContactList(Value("not a list")), "");
    // The last separator goes only when the text is at least three characters long.
    EXPECT_EQ(buildHTMLContactList(Array{Value(Dict{{"Name", ""}})}), ", ");
    EXPECT_EQ(buildContactList(list), "Ann <ann@x.org>, bob@x.org, No Link <has space@x.org>");
}

TEST(TypeIsHTML, ContainsAnHtmlTagInAnyCase) {
    struct Case {
        std::string bytes;
        bool expected;
    };
    const Case cases[] = {
        {"<!DOCTYPE html><HTML lang=en>", true},
        {"text <html", true},
        {"<htm>", false},
        {std::string("abc\0<html>", 10), false},  // stops at the NUL
        {"\x81<html>", true},                     // Windows-1252 takes any byte
        {"", false},
    };
    for (const auto& c : cases) EXPECT_EQ(typeIsHTML(asBytes(c.bytes)), c.expected) << c.bytes;
    EXPECT_TRUE(typeIsHTML("<Html>"));
}

TEST(MakeUTF8, DerivesEveryCharacterFromTheFirstByte) {
    struct Case {
        const char* name;
        Bytes input;
        std::string expected;
    };
    const Case cases[] = {
        {"H and J, not H and i", {0x48, 0x00, 0x69, 0x00}, "HJ"},
        {"length 1 gives only the terminator", {0x41}, ""},
        {"odd length: the last byte starts no character", {0x41, 0x00, 0x42}, "A"},
        {"crosses into two bytes", {0x7E, 0, 0, 0, 0, 0}, "~\xC2\x80\xC2\x82"},
        // Values above 0x7F: b + i as an unsigned 32-bit number.
        {"negative first byte", {0x80, 0x00}, "\xEF\xBE\x80"},
    };
    for (const auto& c : cases) EXPECT_EQ(makeUTF8(c.input), c.expected) << c.name;
    EXPECT_EQ(makeUTF8(Bytes{}), "");

    // The two-byte form ends at 0x7FE: 0x7FF already takes three bytes.
    Bytes wide(2 * 0x400, 0);
    wide[0] = 0x01;  // characters 0x01, 0x03, ..., 0x7FF
    std::string out = makeUTF8(wide);
    ASSERT_GE(out.size(), 3u);
    EXPECT_EQ(out.substr(out.size() - 3), "\xE0\x9F\xBF");  // 0x7FF in three bytes
    EXPECT_EQ(out.substr(out.size() - 5, 2), "\xDF\xBD");   // 0x7FD in two
}

TEST(TempCacheDirectory, CreatedUnderTheCachesFolderOrFallsBack) {
    Log::setSystemLogEnabled(false);
    const auto base = std::filesystem::temp_directory_path() / ("qh-cache-test-" + std::to_string(::getpid()));
    std::filesystem::remove_all(base);
    qhtest::EnvironmentGuard env;
    env.set("XDG_CACHE_HOME", base.string());
    EXPECT_EQ(getTempCacheDirectory(), (base / "Quillhaven").string());
    EXPECT_TRUE(std::filesystem::is_directory(base / "Quillhaven"));

    // A file where the folder should be: the caches folder itself, and one log line.
    std::filesystem::remove_all(base / "Quillhaven");
    { std::ofstream(base / "Quillhaven") << "x"; }
    Log::Capture capture;
    EXPECT_EQ(getTempCacheDirectory(), base.string());
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0].rfind("Failed to create directory \"" + (base / "Quillhaven").string() + "\". Error: ", 0), 0u);
    EXPECT_NE(capture.lines()[0].find(" - Cached file saved in general cache folder."), std::string::npos);
    std::filesystem::remove_all(base);
}
