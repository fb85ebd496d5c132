// The command's own JSON writer must give exactly the bytes of
// qh::Value::toJsonText(): tricky strings, every byte-buffer length modulo 3,
// numbers, dates, nesting, and the dictionaries of every corpus message.
#include "../../cli/JsonWriter.cpp"

#include <gtest/gtest.h>

#include "readers/mime/ReadEML.h"
#include "readers/msg/ReadMSG.h"
#include "readers/tnef/ReadTNEF.h"
#include "support/Corpus.h"

namespace {

using qh::Value;
using qhcli::JsonWriter;

TEST(JsonWriter, StringsTable) {
    const std::string cases[] = {
        "",
        "plain ascii",
        "quote \" backslash \\ slash /",
        std::string("controls \b\f\n\r\t \x01\x1f \x7f end"),
        std::string("nul \0 inside", 12),
        "UTF-8: \xc3\xa9 \xe5\x90\x8d \xf0\x9f\x98\x80",
        "lone continuation \x80 here",
        "truncated \xe5\x90",
        "overlong \xc0\xaf slash",
        "surrogate \xed\xa0\x80 half",
        "beyond U+10FFFF \xf4\x90\x80\x80",
        "bad lead \xf8\x88\x80\x80\x80",
        "\xff",
        "ends in lead \xc3",
    };
    for (const auto& text : cases) EXPECT_EQ(JsonWriter::text(Value(text)), Value(text).toJsonText()) << text;
}

TEST(JsonWriter, ScalarsAndNestingTable) {
    std::vector<Value> cases = {
        Value(),
        Value(true),
        Value(false),
        Value(0),
        Value(std::int64_t(-9223372036854775807LL - 1)),
        Value(std::int64_t(9223372036854775807LL)),
        Value(2.5),
        Value(3.0),
        Value(-1e300),
        Value(qh::Date{1709632923}),
        Value(qh::Date{-1.5}),
        Value(qh::Array{}),
        Value(qh::Dict{}),
        Value(qh::Array{Value(1), Value("two"), Value(qh::Array{Value()})}),
        Value(qh::Dict{{"b", Value(1)}, {"a", Value(qh::Dict{{"k\"ey", Value("v")}})}, {"\xe9", Value(false)}}),
    };
    for (std::size_t n = 0; n < 8; ++n) {
        qh::Bytes bytes(n);
        for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<std::uint8_t>(0xF7 * (i + 1));
        cases.emplace_back(qh::Blob(bytes));
    }
    for (const auto& value : cases) EXPECT_EQ(JsonWriter::text(value), value.toJsonText());
}

TEST(JsonWriter, EveryCorpusDictionaryMatches) {
    QH_REQUIRE_CORPUS("msg");
    std::size_t compared = 0;
    auto check = [&](const std::filesystem::path& path, const qh::Dict* dictionary) {
        if (!dictionary) return;
        Value value(*dictionary);
        EXPECT_TRUE(JsonWriter::text(value) == value.toJsonText()) << path;  // megabytes: no EXPECT_EQ
        ++compared;
    };
    for (const auto& path : qhtest::corpusFiles("msg", ".msg")) {
        auto data = qhtest::readFileBytes(path);
        for (bool exact : {false, true})
            if (auto reader = qh::ReadMSG::initWithData(data, exact)) check(path, reader->returnFullDictionary());
    }
    for (const auto& path : qhtest::corpusFiles("eml", ".eml")) {
        auto data = qhtest::readFileBytes(path);
        if (auto reader = qh::ReadEML::initWithData(data)) check(path, reader->returnFullDictionary());
    }
    for (const char* suffix : {".tnef", ".dat"})
        for (const auto& path : qhtest::corpusFiles("tnef", suffix)) {
            auto data = qhtest::readFileBytes(path);
            if (auto reader = qh::ReadTNEF::initWithData(data)) check(path, reader->returnFullDictionary());
        }
    EXPECT_GT(compared, 100u);
}

}  // namespace
