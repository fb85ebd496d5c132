#include <quillhaven/Value.h>

#include <gtest/gtest.h>

#include <functional>
#include <cstdio>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <random>

#include <nlohmann/json.hpp>

#include "core/ByteCursor.h"
#include "core/Messages.h"
#include <quillhaven/MessageReader.h>
#include "support/Oracle.h"

using namespace qh;

TEST(Value, JsonEncodingFollowsTheCommandContract) {
    struct Case {
        Value value;
        std::string json;
    };
    const std::string kFFFD = "\xEF\xBF\xBD";
    const Case cases[] = {
        {Value(), "null"},
        {Value(42), "42"},
        {Value(std::int64_t(INT64_MIN)), "-9223372036854775808"},
        {Value(3.0), "3"},
        {Value(-0.0), "0"},
        {Value(2.5), "2.5"},
        {Value(0.1), "0.1"},
        {Value(9.5e15), "9.5e+15"},  // too large to be written whole
        {Value(-1e300), "-1e+300"},
        {Value(1.0 / 0.0), "null"},
        {Value(true), "true"},
        {Value(Bytes{}), R"({"$base64":""})"},
        {Value(Bytes{0xF7, 0xEE, 0xE5, 0xDC, 0xD3, 0xCA, 0xC1}), R"({"$base64":"9+7l3NPKwQ=="})"},
        {Value(Date{1709632923}), R"({"$date":"2024-03-05T10:02:03Z"})"},
        {Value(Date{-1.5}), R"({"$date":"1969-12-31T23:59:58Z"})"},
        {Value(Date{1e18}), R"({"$date":"9999-12-31T23:59:59Z"})"},
        {Value(Date{0.0 / 0.0}), R"({"$date":"1970-01-01T00:00:00Z"})"},
        {Value(Array{}), "[]"},
        {Value(Array{Value(1), Value("x"), Value(Array{Value()})}), R"([1,"x",[null]])"},
        {Value(Dict{{"b", 1}, {"a", Dict{{"k\"ey", "v"}}}, {"\xe9", false}}),
         R"({"b":1,"a":{"k\"ey":"v"},")" + kFFFD + R"(":false})"},
        // Strings: escapes, UTF-8 kept, each maximal broken subpart one U+FFFD.
        {Value(""), R"("")"},
        {Value("quote \" backslash \\ slash /"), R"("quote \" backslash \\ slash /")"},
        {Value("controls \b\f\n\r\t \x01\x1f \x7f end"), "\"controls \\b\\f\\n\\r\\t \\u0001\\u001f \x7f end\""},
        {Value(std::string("nul \0 inside", 12)), R"("nul \u0000 inside")"},
        {Value("UTF-8: \xc3\xa9 \xe5\x90\x8d \xf0\x9f\x98\x80"), "\"UTF-8: \xc3\xa9 \xe5\x90\x8d \xf0\x9f\x98\x80\""},
        {Value("lone continuation \x80 here"), "\"lone continuation " + kFFFD + " here\""},
        {Value("run \xc3\xa9\xe5\x90\x8d\x80\xc3\xa9 end"), "\"run \xc3\xa9\xe5\x90\x8d" + kFFFD + "\xc3\xa9 end\""},
        {Value("truncated \xe5\x90"), "\"truncated " + kFFFD + "\""},
        {Value("overlong \xc0\xaf slash"), "\"overlong " + kFFFD + kFFFD + " slash\""},
        // Three-byte sequences at the edges of their second byte's range.
        {Value("\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf"), "\"\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\""},
        {Value("\xe5\x90\x8d\xe0\x9f\xbf"), "\"\xe5\x90\x8d" + kFFFD + kFFFD + kFFFD + "\""},
        {Value("\xe5\x90\x8d\xed\xa0\x80x"), "\"\xe5\x90\x8d" + kFFFD + kFFFD + kFFFD + "x\""},
        {Value("\xe5\x90\x8d\xe5\x90\xe5\x90\x8d"), "\"\xe5\x90\x8d" + kFFFD + "\xe5\x90\x8d\""},
        {Value("\xc3\xa9\xe5\x90\x8d\xf0\x9f\x98\x80\xc3"), "\"\xc3\xa9\xe5\x90\x8d\xf0\x9f\x98\x80" + kFFFD + "\""},
        {Value("surrogate \xed\xa0\x80 half"), "\"surrogate " + kFFFD + kFFFD + kFFFD + " half\""},
        {Value("beyond \xf4\x90\x80\x80"), "\"beyond " + kFFFD + kFFFD + kFFFD + kFFFD + "\""},
        {Value("bad lead \xf8\x88\x80\x80\x80"), "\"bad lead " + kFFFD + kFFFD + kFFFD + kFFFD + kFFFD + "\""},
        {Value("ends in lead \xc3"), "\"ends in lead " + kFFFD + "\""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.toJsonText(), c.json) << c.json;
        // Long runs are scanned sixteen bytes at a time: the same strings
        // inside ordinary text, at every offset of a block.
        if (const std::string* text = c.value.string()) {
            for (std::size_t pad = 1; pad <= 17; pad += 4) {
                const std::string before(pad, 'a'), after(20, 'z');
                EXPECT_EQ(Value(before + *text + after).toJsonText(),
                          "\"" + before + c.json.substr(1, c.json.size() - 2) + after + "\"") << c.json;
            }
        }
    }
}

// Strings made at random of the bytes that need work (quotes, backslashes,
// every control, broken and whole UTF-8) among ordinary text, at lengths
// around the sixteen-byte blocks, against a byte-by-byte definition: ICU
// replaces each maximal broken subpart with U+FFFD, then each byte that JSON
// escapes is escaped.
TEST(Value, JsonStringsAgreeWithTheirDefinition) {
    const auto reference = [](const std::string& text) {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t units = 0;
        u_strFromUTF8WithSub(nullptr, 0, &units, text.data(), static_cast<std::int32_t>(text.size()), 0xFFFD, nullptr,
                             &status);
        std::u16string wide(static_cast<std::size_t>(units), u'\0');
        status = U_ZERO_ERROR;
        u_strFromUTF8WithSub(wide.data(), units, nullptr, text.data(), static_cast<std::int32_t>(text.size()), 0xFFFD,
                             nullptr, &status);
        std::string valid;
        icu::UnicodeString(false, wide.data(), units).toUTF8String(valid);
        std::string json = "\"";
        for (const char c : valid) {
            const auto byte = static_cast<unsigned char>(c);
            const char* shortEscape = c == '"' ? "\\\"" : c == '\\' ? "\\\\" : c == '\b' ? "\\b" : c == '\f' ? "\\f"
                                    : c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\t' ? "\\t" : nullptr;
            char code[8];
            if (shortEscape) json += shortEscape;
            else if (byte < 0x20) json.append(code, static_cast<std::size_t>(std::snprintf(code, sizeof code, "\\u%04x", byte)));
            else json += c;
        }
        return json + "\"";
    };
    const std::vector<std::string> pieces = {"a", "b", "c", "d", " ", "<p class=", "\"", "\\", "\n", "\r\n", "\t", "\b",
                                             "\f", std::string(1, '\0'), "\x01", "\x1f", "\x7f", "\xc3\xa9", "\xe5\x90\x8d",
                                             "\xf0\x9f\x98\x80", "\x80", "\xc3", "\xe5\x90", "\xed\xa0\x80", "\xf8",
                                             "0123456789abcdef"};
    std::mt19937 random(20261124);
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        const int count = static_cast<int>(random() % 40);
        const bool escapesOnly = round % 3 == 0;  // texts without high bytes take the block-wide path
        for (int k = 0; k < count; ++k) {
            const std::size_t pick = random() % (escapesOnly ? 17 : pieces.size());
            text += pieces[escapesOnly && pick > 12 ? pick % 13 : pick];
        }
        ASSERT_EQ(Value(text).toJsonText(), reference(text)) << testing::PrintToString(text);
    }
}

// The JSON library as an oracle: what it reads of our text it writes back
// byte for byte, over the dictionaries of every corpus message.
TEST(Value, CorpusDictionariesAreCanonicalJson) {
    QH_REQUIRE_CORPUS("msg");
    std::size_t compared = 0;
    for (const auto& path : qhtest::corpusOf("mail")) {
        const Bytes data = qhtest::readFileBytes(path);
        for (const ReadOptions& options : {ReadOptions::classic(), ReadOptions::classic(true), ReadOptions::complete()}) {
            const std::optional<Dict> message = MessageReader::read(data, options);
            if (!message) continue;
            const std::string text = Value(*message).toJsonText();
            const bool same = nlohmann::ordered_json::parse(text).dump() == text;  // megabytes: no EXPECT_EQ
            EXPECT_TRUE(same) << path;
            ++compared;
        }
    }
    EXPECT_GT(compared, 100u);
}

TEST(Dict, KeepsInsertionOrderAndReplacesInPlace) {
    Dict d;
    d.set("Subject", "one");
    d.set("From", Array{});
    d.set("subject", "lower");
    d.set("Subject", "two");
    EXPECT_EQ(d.keys(), (std::vector<std::string>{"Subject", "From", "subject"}));
    ASSERT_NE(d.findString("Subject"), nullptr);
    EXPECT_EQ(*d.findString("Subject"), "two");
    EXPECT_EQ(d.findString("From"), nullptr);
    EXPECT_NE(d.findArray("From"), nullptr);
    EXPECT_TRUE(d.erase("From"));
    EXPECT_FALSE(d.erase("From"));
    EXPECT_EQ(d.keys(), (std::vector<std::string>{"Subject", "subject"}));
    EXPECT_EQ(*d.findString("subject"), "lower");

    // The same across the size where lookups change from a scan to an index,
    // growing past it, copied, and shrinking back below it by erasing.
    Dict big;
    std::vector<std::string> order;
    for (int i = 0; i < 40; ++i) {
        const std::string key = "__substg1.0_" + std::to_string(1000 + i);  // longer than a short string
        big.set(key, i);
        order.push_back(key);
        for (int j = 0; j <= i; ++j) ASSERT_EQ(big.find(order[j])->integer(), j) << i << " " << j;
        EXPECT_EQ(big.find(key + "x"), nullptr);
    }
    big.set(order[3], "replaced");
    const Dict copy = big;
    EXPECT_EQ(copy.keys(), order);
    EXPECT_EQ(*copy.findString(order[3]), "replaced");
    for (int i = 39; i >= 5; --i) ASSERT_TRUE(big.erase(order[i]));
    order.resize(5);
    EXPECT_EQ(big.keys(), order);
    EXPECT_EQ(big.find(order[4])->integer(), 4);
    EXPECT_EQ(big.find("__substg1.0_1039"), nullptr);
    EXPECT_EQ(copy.find("__substg1.0_1039")->integer(), 39);
}

TEST(ByteCursor, ReadsThatDoNotFitGiveZerosStickAndSayWhere) {
    const Bytes data{0x78, 0x9F, 0x3E, 0x22, 0x03, 0x00, 0x00, 0x00, 'a', 'b', 'c', 0x84};
    using Step = std::function<std::uint64_t(ByteCursor&)>;
    const Step u16 = [](ByteCursor& c) { return c.u16le(); };
    const Step u32 = [](ByteCursor& c) { return c.u32le(); };
    const Step u64 = [](ByteCursor& c) { return c.u64le(); };
    const Step u8 = [](ByteCursor& c) { return c.u8(); };
    const Step prefixed = [](ByteCursor& c) { return c.lengthPrefixed32().size(); };
    const Step seek0 = [](ByteCursor& c) { c.seek(0); return c.position(); };
    struct Case {
        const char* name;
        std::size_t start;
        std::vector<Step> steps;
        std::vector<std::uint64_t> results;
        std::size_t failureOffset, endPosition;
    };
    constexpr std::size_t kNone = ByteCursor::kNoFailure;
    const Case cases[] = {
        {"loads in order", 0, {u32, u16, u16}, {0x223E9F78, 3, 0}, kNone, 8},
        {"eight bytes", 4, {u64}, {0x8463626100000003}, kNone, 12},
        {"length-prefixed value", 4, {prefixed, u8}, {3, 0x84}, kNone, 12},
        {"length runs past the end", 0, {prefixed}, {0}, 4, 12},
        {"short load gives zero", 10, {u32}, {0}, 10, 12},
        {"later reads give zero too", 10, {u32, u16}, {0, 0}, 10, 12},
        {"seeking back does not revive it", 10, {u32, seek0, u16}, {0, 12, 0}, 10, 12},
        {"start beyond the end", 20, {u16}, {0}, 20, 12},
    };
    for (const auto& c : cases) {
        ByteCursor cursor(data, c.start);
        for (std::size_t i = 0; i < c.steps.size(); ++i) EXPECT_EQ(c.steps[i](cursor), c.results[i]) << c.name << " " << i;
        EXPECT_EQ(cursor.failureOffset(), c.failureOffset) << c.name;
        EXPECT_EQ(cursor.isShort(), c.failureOffset != kNone) << c.name;
        EXPECT_EQ(cursor.position(), c.endPosition) << c.name;
    }
    ByteCursor tail(data, 10);
    EXPECT_EQ(tail.upTo(10).size(), 2u);  // what remains, and the flag
    EXPECT_TRUE(tail.isShort());
    EXPECT_TRUE(fits(0, 5, 5));
    EXPECT_FALSE(fits(1, 5, 5));
    EXPECT_FALSE(fits(~0ull, 2, 5));
}

TEST(Messages, UnknownKeyIsItsOwnText) {
    EXPECT_EQ(Messages::localizedString("no such key"), "no such key");
    EXPECT_FALSE(Messages::localizedString("unnamedName").empty());
}
