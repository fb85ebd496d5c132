// The preview's extraction: which body wins, and how each is decoded.
#include <gtest/gtest.h>

#include <random>

#include "PluginTestSupport.h"
#include "plugin/MsgMetaData.h"
#include "support/CompoundWriter.h"
#include "support/RtfCompressor.h"

namespace {

using qh::Bytes;
using qhtest::describe;
using qhtest::RtfCompressor;
using qhtest::utf16;

const std::string kRtf = "{\\rtf1\\ansi\\deff0 {\\fonttbl{\\f0 Arial;}}\\f0 The body in rich text.\\par}";
const std::string kOtherRtf = "{\\rtf1 the 0x1008 body}";

Bytes bytesOf(std::string_view text) { return qh::toBytes(text); }

// The padding a stream of `size` bytes gets in the mini stream, as text.
std::string paddingAfter(std::size_t size, std::size_t unit) {
    std::size_t padded = (size + 63) / 64 * 64;
    return std::string((padded - size) / unit, '\0');
}

TEST(MsgMetaDataTest, FallbackOrder) {
    const std::string unicode = "Unicode body";
    const std::string ansi = "Eight-bit body";
    struct Case {
        const char* name;
        std::vector<std::pair<std::string, Bytes>> streams;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"compressed RTF wins over both text bodies",
         {{"__substg1.0_10090102", RtfCompressor::compress(kRtf)},
          {"__substg1.0_1000001F", utf16(unicode)},
          {"__substg1.0_1000001E", bytesOf(ansi)}},
         "rtf:" + kRtf},
        {"0x1008 is used when the RTF stream is missing",
         {{"__substg1.0_10080102", RtfCompressor::compress(kOtherRtf)}, {"__substg1.0_1000001F", utf16(unicode)}},
         "rtf:" + kOtherRtf},
        {"an RTF stream that is not compressed RTF hides a valid 0x1008",
         {{"__substg1.0_10090102", bytesOf("this is no compressed RTF header")},
          {"__substg1.0_10080102", RtfCompressor::compress(kOtherRtf)},
          {"__substg1.0_1000001F", utf16(unicode)}},
         "text:" + unicode + paddingAfter(unicode.size() * 2, 2)},
        {"an uncompressed (MELA) RTF body falls to the text bodies",
         {{"__substg1.0_10090102", RtfCompressor::uncompressed(kRtf)}, {"__substg1.0_1000001E", bytesOf(ansi)}},
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"an empty Unicode body falls to the 8-bit body",
         {{"__substg1.0_1000001F", {}}, {"__substg1.0_1000001E", bytesOf(ansi)}},
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"a Unicode body that is not UTF-16 falls to the 8-bit body",
         {{"__substg1.0_1000001F", Bytes{0x00, 0xD8, 0x41, 0x00}}, {"__substg1.0_1000001E", bytesOf(ansi)}},
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"no bodies at all give empty text", {}, "text:"},
        {"an 8-bit body that is not ASCII gives nothing", {{"__substg1.0_1000001E", Bytes{'c', 0xE9}}}, "none"},
        {"non-ASCII Unicode text comes out as UTF-8",
         {{"__substg1.0_1000001F", utf16("Grüße, 東京 🎉")}},
         "text:Grüße, 東京 🎉" + paddingAfter(utf16("Grüße, 東京 🎉").size(), 2)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(describe(qh::msgMetaData(qhtest::messageWith(c.streams))), c.expected) << c.name;
    }
}

TEST(MsgMetaDataTest, StreamsAreDecodedWithTheirSectorPadding) {
    // The decoder cuts the RTF to its raw size by itself, whatever the padding:
    // a small stream (64-byte units) and a big one (512-byte sectors).
    std::string longRtf = "{\\rtf1 ";
    std::mt19937 random(11);
    while (longRtf.size() < 20000) longRtf += "item " + std::to_string(random()) + "\\par ";
    longRtf += "}";
    for (const std::string& rtf : {kRtf, longRtf}) {
        Bytes stream = RtfCompressor::compress(rtf);
        auto body = qh::msgMetaData(qhtest::messageWith({{"__substg1.0_10090102", stream}}));
        EXPECT_EQ(describe(body), "rtf:" + rtf) << stream.size();
    }
    ASSERT_GE(RtfCompressor::compress(longRtf).size(), 4096u) << "the long body must live in big sectors";
}

TEST(MsgMetaDataTest, InputsThatAreNoMessage) {
    const Bytes inputs[] = {
        {},
        bytesOf("Subject: not a compound document\r\n\r\n"),
        Bytes{0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1},  // the signature alone
    };
    for (const auto& input : inputs) EXPECT_EQ(describe(qh::msgMetaData(input)), "none") << input.size();
}

}  // namespace
