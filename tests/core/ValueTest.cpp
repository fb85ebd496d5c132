#include "core/Value.h"

#include <gtest/gtest.h>

#include "core/ByteCursor.h"
#include "core/Log.h"
#include "core/Messages.h"

using namespace qh;

TEST(Value, JsonEncodingFollowsTheCommandContract) {
    struct Case {
        Value value;
        std::string json;
    };
    const Case cases[] = {
        {Value(), "null"},
        {Value("a\"b"), R"("a\"b")"},
        {Value(42), "42"},
        {Value(3.0), "3"},
        {Value(2.5), "2.5"},
        {Value(true), "true"},
        {Value(Bytes{'a', 'b', 'c', 'd'}), R"({"$base64":"YWJjZA=="})"},
        {Value(Bytes{}), R"({"$base64":""})"},
        {Value(Date{1709632923}), R"({"$date":"2024-03-05T10:02:03Z"})"},
        {Value(Date{-1}), R"({"$date":"1969-12-31T23:59:59Z"})"},
        {Value(Array{Value(1), Value("x")}), R"([1,"x"])"},
        {Value(Dict{{"b", 1}, {"a", 2}}), R"({"b":1,"a":2})"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.value.toJsonText(), c.json);
}

TEST(Value, InvalidUtf8IsReplacedNotThrown) {
    EXPECT_EQ(Value(std::string("a\xff")).toJsonText(), "\"a\xEF\xBF\xBD\"");
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
}

TEST(Blob, CopiesShareBytes) {
    Blob a(Bytes{1, 2, 3});
    Blob b = a;
    EXPECT_EQ(a.data(), b.data());
    EXPECT_EQ(a, Blob(Bytes{1, 2, 3}));
    EXPECT_TRUE(Blob().empty());
}

TEST(ByteCursor, ShortReadsYieldZerosAndStick) {
    const Bytes data{0x78, 0x9F, 0x3E, 0x22, 0x01};
    ByteCursor c(data);
    EXPECT_EQ(c.u32le(), 0x223E9F78u);
    EXPECT_FALSE(c.isShort());
    EXPECT_EQ(c.u16le(), 0u);
    EXPECT_TRUE(c.isShort());
    EXPECT_TRUE(c.atEnd());
    EXPECT_TRUE(c.bytes(1).empty());

    ByteCursor d(data, 3);
    EXPECT_EQ(d.upTo(10).size(), 2u);
    EXPECT_TRUE(d.isShort());
    EXPECT_TRUE(fits(0, 5, 5));
    EXPECT_FALSE(fits(1, 5, 5));
    EXPECT_FALSE(fits(~0ull, 2, 5));
}

TEST(Log, CaptureRecordsExactLines) {
    Log::Capture capture;
    Log::line("MOLE Reader - Error opening NSData");
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"MOLE Reader - Error opening NSData"});
}

TEST(Messages, UnknownKeyIsItsOwnText) {
    EXPECT_EQ(Messages::localizedString("no such key"), "no such key");
    EXPECT_FALSE(Messages::localizedString("unnamedName").empty());
}
