// The entry points as the preview service calls them, through the host shim.
#include <gtest/gtest.h>

#include "PluginTestSupport.h"
#include "plugin/shim/ShimHost.h"
#include "support/CompoundWriter.h"
#include "support/RtfCompressor.h"

namespace {

using qh::Bytes;
using qh::shim::ShimHost;
using qhtest::TemporaryFile;

const std::string kRtf = "{\\rtf1 Hello}";

struct Preview {
    std::string contentType;  // "" when none was set
    std::string data;
    int representations = 0;
};

Preview preview(const std::string& path, const std::string& contentType) {
    long liveBefore = qh::shim::liveObjectCount();
    auto outcome = ShimHost::generatePreview(path, contentType);
    EXPECT_TRUE(outcome.loaded);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_FALSE(outcome.request.hadProperties);
    EXPECT_EQ(qh::shim::liveObjectCount(), liveBefore) << "objects leaked by " << path;
    Preview result;
    result.representations = outcome.request.representationCount;
    if (outcome.request.contentType) result.contentType = *outcome.request.contentType;
    if (outcome.request.data) result.data = std::string(qh::asText(*outcome.request.data));
    return result;
}

TEST(GeneratePreviewTest, WhatTheHostIsGiven) {
    TemporaryFile rtfMessage(qhtest::messageWith({{"__substg1.0_10090102", qhtest::RtfCompressor::compress(kRtf)}}));
    TemporaryFile textMessage(qhtest::messageWith({{"__substg1.0_1000001E", qh::toBytes(std::string(64, 'a'))}}));
    TemporaryFile emptyMessage(qhtest::messageWith({}));
    TemporaryFile notAMessage(qh::asBytes("From: someone\r\n\r\nhello\r\n"));
    TemporaryFile nonAscii(qhtest::messageWith({{"__substg1.0_1000001E", Bytes{0xE9}}}));
    const std::string missing = (std::filesystem::temp_directory_path() / "quillhaven-no-such-file.msg").string();

    struct Case {
        const char* name;
        std::string path;
        std::string contentType;
        Preview expected;
    };
    const Case cases[] = {
        {"RTF body", rtfMessage.path(), "com.quillhaven.msg", {"public.rtf", kRtf, 1}},
        {"the other edition's type", rtfMessage.path(), "com.quillhaven.lite.msg", {"public.rtf", kRtf, 1}},
        {"text body", textMessage.path(), "com.quillhaven.msg", {"public.plain-text", std::string(64, 'a'), 1}},
        {"no body gives an empty text preview", emptyMessage.path(), "com.quillhaven.msg", {"public.plain-text", "", 1}},
        {"other content type", rtfMessage.path(), "com.example.msg", {}},
        {"content types compare exactly", rtfMessage.path(), "COM.QUILLHAVEN.MSG", {}},
        {"not a compound document", notAMessage.path(), "com.quillhaven.msg", {}},
        {"missing file", missing, "com.quillhaven.msg", {}},
        {"a directory", std::filesystem::temp_directory_path().string(), "com.quillhaven.msg", {}},
        {"8-bit body that is not ASCII", nonAscii.path(), "com.quillhaven.msg", {}},
    };
    for (const auto& c : cases) {
        Preview got = preview(c.path, c.contentType);
        EXPECT_EQ(got.contentType, c.expected.contentType) << c.name;
        EXPECT_EQ(got.data, c.expected.data) << c.name;
        EXPECT_EQ(got.representations, c.expected.representations) << c.name;
    }
}

TEST(GeneratePreviewTest, NonASCIITextReachesTheHostAsUTF8) {
    const std::string text = "Ça coûte 5 € — 東京";
    Bytes body = qhtest::utf16(text);
    body.resize(64, 0);  // exactly one mini sector: no padding characters
    TemporaryFile message(qhtest::messageWith({{"__substg1.0_1000001F", body}}));
    Preview got = preview(message.path().string(), "com.quillhaven.msg");
    EXPECT_EQ(got.contentType, "public.plain-text");
    std::string expected = text;
    expected.resize(expected.size() + (64 - qhtest::utf16(text).size()) / 2, '\0');
    EXPECT_EQ(got.data, expected);
}

TEST(GeneratePreviewTest, ThumbnailsAreNeverDrawn) {
    TemporaryFile message(qhtest::messageWith({{"__substg1.0_10090102", qhtest::RtfCompressor::compress(kRtf)}}));
    for (const char* contentType : {"com.quillhaven.msg", "com.quillhaven.lite.msg", "public.data"}) {
        auto outcome = ShimHost::generateThumbnail(message.path().string(), contentType);
        EXPECT_TRUE(outcome.loaded);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.request.drawCount, 0);
    }
}

}  // namespace
