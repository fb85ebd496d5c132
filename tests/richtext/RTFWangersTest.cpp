// Compressed RTF: the standard's examples, the decoder's kept behaviours
// (end marker, dropped tokens, padding, MELA), bounds on hostile headers, and
// round trips through the fixture encoder.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include "richtext/Format.h"
#include "richtext/RTFWangers.h"
#include "support/RtfCompressor.h"

using qh::Bytes;
using qh::RTFWangers;
using qhtest::RtfCompressor;

namespace {

// The token bytes of a whole stream (everything after the header).
Bytes tokensOf(const Bytes& stream) { return Bytes(stream.begin() + 16, stream.end()); }

Bytes withoutLastByte(Bytes bytes) {
    bytes.pop_back();
    return bytes;
}

std::string text(const Bytes& bytes) { return std::string(qh::asText(bytes)); }

Bytes concat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// MS-OXRTFCP's two worked examples: a simple document, and a run whose
// reference reads bytes it is itself writing.
const Bytes kSimpleExample{
    0x2d, 0x00, 0x00, 0x00, 0x2b, 0x00, 0x00, 0x00, 0x4c, 0x5a, 0x46, 0x75, 0xf1, 0xc5, 0xc7, 0xa7,
    0x03, 0x00, 0x0a, 0x00, 0x72, 0x63, 0x70, 0x67, 0x31, 0x32, 0x35, 0x42, 0x32, 0x0a, 0xf3, 0x20,
    0x68, 0x65, 0x6c, 0x09, 0x00, 0x20, 0x62, 0x77, 0x05, 0xb0, 0x6c, 0x64, 0x7d, 0x0a, 0x80, 0x0f,
    0xa0};
const std::string kSimpleExampleText = "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n";

const Bytes kCrossingExample{
    0x1a, 0x00, 0x00, 0x00, 0x1c, 0x00, 0x00, 0x00, 0x4c, 0x5a, 0x46, 0x75, 0xe2, 0xd4, 0x4b, 0x51,
    0x41, 0x00, 0x04, 0x20, 0x57, 0x58, 0x59, 0x5a, 0x0d, 0x6e, 0x7d, 0x01, 0x0e, 0xb0};
const std::string kCrossingExampleText = "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}";

TEST(RTFWangersTest, DecodesTheStandardsExamplesExactly) {
    auto simple = RTFWangers::getRTFForData(kSimpleExample);
    ASSERT_TRUE(simple);
    EXPECT_EQ(text(*simple), kSimpleExampleText);

    auto crossing = RTFWangers::getRTFForData(kCrossingExample);
    ASSERT_TRUE(crossing);
    EXPECT_EQ(text(*crossing), kCrossingExampleText);

    // The fixture encoder's CRC agrees with the one the standard's example carries.
    EXPECT_EQ(RtfCompressor::crc(qh::ByteView(kSimpleExample).subspan(16)), 0xa7c7c5f1u);
    EXPECT_EQ(RtfCompressor::crc(qh::ByteView(kCrossingExample).subspan(16)), 0x514bd4e2u);
}

TEST(RTFWangersTest, TypeIsRTF) {
    struct Case {
        const char* name;
        Bytes input;
        bool expected;
    };
    const Case cases[] = {
        {"LZFu", RtfCompressor::compress("x"), true},
        {"MELA", RtfCompressor::uncompressed("x"), true},
        {"twelve bytes are enough", Bytes(kSimpleExample.begin(), kSimpleExample.begin() + 12), true},
        {"eleven are not", Bytes(kSimpleExample.begin(), kSimpleExample.begin() + 11), false},
        {"empty", {}, false},
        {"other type", RtfCompressor::withHeader({}, 0, 0x75465A4D), false},
        {"type at the wrong offset", Bytes{0x4c, 0x5a, 0x46, 0x75, 0, 0, 0, 0, 0, 0, 0, 0}, false},
    };
    for (const auto& c : cases) EXPECT_EQ(RTFWangers::typeIsRTF(c.input), c.expected) << c.name;
}

// Streams built token by token: the behaviours a careless decoder gets wrong.
TEST(RTFWangersTest, DecodesHandMadeStreams) {
    using Tokens = RtfCompressor::Tokens;
    const std::uint16_t start = static_cast<std::uint16_t>(qh::rtfcp::kInitialDictionary.size());
    struct Case {
        const char* name;
        Bytes stream;
        std::string expected;
    };
    const Case cases[] = {
        {"literals then end marker", RtfCompressor::withHeader(Tokens().literals("abc").endMarker(start + 3).bytes(), 3),
         "abc"},
        {"the end marker only ends its group: tokens after it still decode",
         RtfCompressor::withHeader(Tokens().literals("ab").endMarker(start + 2).raw(Tokens().literals("cd").bytes()).bytes(), 4),
         "abcd"},
        {"a reference into the preset dictionary",
         RtfCompressor::withHeader(Tokens().reference(0, 6).bytes(), 6), "{\\rtf1"},
        {"a reference that reads what it writes repeats the run",
         RtfCompressor::withHeader(Tokens().literal('x').reference(start, 17).bytes(), 18), std::string(18, 'x')},
        {"a reference past the raw size is dropped whole, decoding goes on at the next byte",
         RtfCompressor::withHeader(Tokens().literals("ab").reference(0, 2).raw(Tokens().literal('c').bytes()).bytes(), 3),
         "abc"},
        {"a literal past the raw size is dropped",
         RtfCompressor::withHeader(Tokens().literals("abcdef").bytes(), 4), "abcd"},
        {"a short raw size cuts the text", RtfCompressor::withHeader(tokensOf(RtfCompressor::compress("hello world")), 5),
         "hello"},
        {"a long raw size zero-pads it", RtfCompressor::withHeader(Tokens().literals("hi").endMarker(start + 2).bytes(), 5),
         std::string("hi\0\0\0", 5)},
        {"a truncated reference leaves the tail zero",
         RtfCompressor::withHeader(withoutLastByte(Tokens().literals("ab").reference(0, 2).bytes()), 4),
         std::string("ab\0\0", 4)},
        {"a reference cut by the end of the input", RtfCompressor::withHeader(Bytes{0x01, 0x00}, 2), std::string(2, '\0')},
        {"raw size 0 gives an empty output whatever follows", RtfCompressor::withHeader(Tokens().literals("abc").bytes(), 0), ""},
        {"header only gives raw-size zeros", RtfCompressor::withHeader({}, 7), std::string(7, '\0')},
        {"zero padding after the end marker",
         concat(RtfCompressor::compress("hello"), Bytes(64, 0)), "hello"},
        {"0xFF padding after the end marker",
         concat(RtfCompressor::compress("hello"), Bytes(61, 0xFF)), "hello"},
    };
    for (const auto& c : cases) {
        auto decoded = RTFWangers::getRTFForData(c.stream);
        ASSERT_TRUE(decoded) << c.name;
        EXPECT_EQ(text(*decoded), c.expected) << c.name;
    }
}

TEST(RTFWangersTest, UncompressedBodies) {
    Bytes mela = RtfCompressor::uncompressed("{\\rtf1 plain}");
    // Through getRTFForData a MELA body gives none.
    EXPECT_FALSE(RTFWangers::getRTFForData(mela));

    // Without a buffer handed in, nothing is made; the raw size is reported.
    std::uint32_t rawSize = 0;
    std::optional<Bytes> none;
    RTFWangers::getRTFFromBuffer(mela, rawSize, none);
    EXPECT_EQ(rawSize, 13u);
    EXPECT_FALSE(none);

    // With one, the copy starts at the raw-size field, not after the header.
    std::optional<Bytes> held = Bytes{};
    RTFWangers::getRTFFromBuffer(mela, rawSize, held);
    ASSERT_TRUE(held);
    EXPECT_EQ(*held, Bytes(mela.begin() + 4, mela.begin() + 4 + 13));

    // A raw size beyond the buffer reads zeros there.
    Bytes tiny = RtfCompressor::withHeader(qh::asBytes("ab"), 20, qh::rtfcp::kTypeUncompressed);
    RTFWangers::getRTFFromBuffer(tiny, rawSize, held);
    ASSERT_TRUE(held);
    Bytes expected(tiny.begin() + 4, tiny.end());
    expected.resize(20, 0);
    EXPECT_EQ(*held, expected);
}

TEST(RTFWangersTest, ShortInputsStayInsideTheirBuffer) {
    // Every prefix of a real stream: none below 12 bytes, raw-size zeros from 12 to 16.
    // Heap copies so that a read past the end is a sanitizer report.
    for (std::size_t length = 0; length <= 16; ++length) {
        Bytes prefix(kSimpleExample.begin(), kSimpleExample.begin() + length);
        auto decoded = RTFWangers::getRTFForData(prefix);
        if (length < 12) {
            EXPECT_FALSE(decoded) << length;
        } else {
            ASSERT_TRUE(decoded) << length;
            EXPECT_EQ(*decoded, Bytes(0x2b, 0)) << length;
        }
    }
    auto empty = RTFWangers::decodeRTFSource({}, 0, 9);
    ASSERT_TRUE(empty);
    EXPECT_EQ(*empty, Bytes(9, 0));
    // A compressed size beyond the span is held to the span.
    const Bytes one{0x00};
    auto clipped = RTFWangers::decodeRTFSource(one, 1000, 4);
    ASSERT_TRUE(clipped);
    EXPECT_EQ(*clipped, Bytes(4, 0));
}

TEST(RTFWangersTest, HostileRawSizesAreBoundedByTheInput) {
    // A 20-byte stream claiming 4 GB: the output is held to what four bytes of
    // tokens can produce plus the allowance, and the text still decodes.
    Bytes stream = RtfCompressor::withHeader(RtfCompressor::Tokens().literals("ab").bytes(), 0xFFFFFFFF);
    ASSERT_EQ(stream.size(), 19u);
    auto decoded = RTFWangers::getRTFForData(stream);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->size(), RTFWangers::maximumRawSize(3));
    EXPECT_LT(decoded->size(), 70000u);
    EXPECT_EQ(text(Bytes(decoded->begin(), decoded->begin() + 2)), "ab");

    Bytes mela = RtfCompressor::withHeader(qh::asBytes("ab"), 0xFFFFFFFF, qh::rtfcp::kTypeUncompressed);
    std::uint32_t rawSize = 0;
    std::optional<Bytes> held = Bytes{};
    RTFWangers::getRTFFromBuffer(mela, rawSize, held);
    EXPECT_EQ(rawSize, 0xFFFFFFFFu);
    ASSERT_TRUE(held);
    EXPECT_LT(held->size(), 70000u);

    // The clamp never cuts what the tokens can write: 17 bytes per reference.
    RtfCompressor::Tokens many;
    many.literal('z');
    std::size_t writePosition = 208;
    for (int i = 0; i < 7000; ++i) {
        many.reference(static_cast<std::uint16_t>((writePosition - 1) & 4095), 17);
        writePosition = (writePosition + 17) & 4095;
    }
    auto full = RTFWangers::decodeRTFSource(many.bytes(), many.bytes().size(), 0xFFFFFFFF);
    ASSERT_TRUE(full);
    const std::size_t written = 1 + 7000 * 17;
    ASSERT_GE(full->size(), written);
    EXPECT_EQ(std::count(full->begin(), full->begin() + written, 'z'), std::ptrdiff_t(written));
}

TEST(RTFWangersTest, RoundTripsThroughTheEncoder) {
    std::mt19937 random(7);
    std::string noise(3000, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    std::string document = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0 Arial;}}\r\n";
    for (int i = 0; i < 400; ++i) document += "\\par Line " + std::to_string(i) + " of the message body, with some text.\r\n";
    document += "}";

    const std::string inputs[] = {
        "",
        "a",
        std::string(qh::rtfcp::kInitialDictionary),
        kSimpleExampleText,
        std::string(10000, 'q'),
        noise,
        document,  // longer than the ring: references across its wrap
    };
    for (const auto& input : inputs) {
        Bytes stream = RtfCompressor::compress(input);
        auto decoded = RTFWangers::getRTFForData(stream);
        ASSERT_TRUE(decoded) << input.size();
        EXPECT_EQ(text(*decoded), input) << input.size();
        // Sector padding after the stream changes nothing.
        decoded = RTFWangers::getRTFForData(concat(stream, Bytes(512 - stream.size() % 512, 0)));
        ASSERT_TRUE(decoded);
        EXPECT_EQ(text(*decoded), input) << "padded " << input.size();
    }
    EXPECT_LT(RtfCompressor::compress(document).size(), document.size() / 3);
}

TEST(RTFWangersTest, AllocationHelpers) {
    auto array = RTFWangers::initializeArrayWithEntryCount(3, 4);
    ASSERT_TRUE(array);
    EXPECT_EQ(*array, Bytes(12, 0));
    EXPECT_FALSE(RTFWangers::initializeArrayWithEntryCount(SIZE_MAX / 2, 3));

    void* block = initializeArray(3, 4);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(static_cast<std::uint8_t*>(block), static_cast<std::uint8_t*>(block) + 12), Bytes(12, 0));
    std::free(block);
    EXPECT_EQ(initializeArray(SIZE_MAX / 2, 3), nullptr);

    const Bytes value{0x4c, 0x5a, 0x46, 0x75, 0x99};
    EXPECT_EQ(RTFWangers::convertToLongLong(value), 0x75465A4Cu);
    EXPECT_EQ(RTFWangers::convertToLongLong(qh::ByteView(value).first(3)), 0u);
    EXPECT_EQ(convertToLongLong(value.data(), value.size()), 0x75465A4Cull);
    EXPECT_EQ(convertToLongLong(value.data(), 3), 0ull);
    EXPECT_EQ(convertToLongLong(nullptr, 4), 0ull);
}

}  // namespace
