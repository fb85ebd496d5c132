// The preview's body on fixtures: the extraction's choice, what the entry
// points give the preview service (host shim) for each kind of body, the
// forms of `quillhaven preview`, and every corpus message through it.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <random>

#include <nlohmann/json.hpp>

#include "plugin/MsgMetaData.h"
#include "plugin/shim/ShimHost.h"
#include "support/CompoundWriter.h"
#include "support/Corpus.h"
#include "support/RtfCompressor.h"
#include "util/Base64Codec.h"

namespace {

using qh::Bytes;
using qh::shim::ShimHost;
using qhtest::RtfCompressor;
using qhtest::runCli;
using qhtest::TemporaryFile;
using qhtest::utf16;

const std::string kRtf = "{\\rtf1\\ansi\\deff0 {\\fonttbl{\\f0 Arial;}}\\f0 The body in rich text.\\par}";
const std::string kOtherRtf = "{\\rtf1 the 0x1008 body}";
const char* kType = "com.quillhaven.msg";

// A .msg with the given top-level streams and one property the preview never looks at.
Bytes messageWith(const std::vector<std::pair<std::string, Bytes>>& streams) {
    qhtest::CompoundWriter writer;
    writer.addStream("__substg1.0_001A001F", utf16("IPM.Note"));
    for (const auto& [name, bytes] : streams) writer.addStream(name, bytes);
    return writer.bytes();
}

// The padding a stream of `size` bytes gets in the mini stream, as text.
std::string paddingAfter(std::size_t size, std::size_t unit) {
    return std::string(((size + 63) / 64 * 64 - size) / unit, '\0');
}

// What the host is given: "" for no content type.
struct Preview {
    std::string contentType, data;
    int representations = 0;
};

Preview hostPreview(const std::string& path, const std::string& contentType) {
    const long liveBefore = qh::shim::liveObjectCount();
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

TEST(Preview, BodyChoice) {
    const std::string unicode = "Unicode body", ansi = "Eight-bit body", wide = "Grüße, 東京 🎉";
    std::string longRtf = "{\\rtf1 ";
    std::mt19937 random(11);
    while (longRtf.size() < 20000) longRtf += "item " + std::to_string(random()) + "\\par ";
    longRtf += "}";
    ASSERT_GE(RtfCompressor::compress(longRtf).size(), 4096u) << "the long body must live in big sectors";
    struct Case {
        const char* name;
        Bytes file;
        std::string expected;  // "rtf:<bytes>", "text:<text>" or "none"
    };
    const Case cases[] = {
        {"compressed RTF wins over both text bodies",
         messageWith({{"__substg1.0_10090102", RtfCompressor::compress(kRtf)},
                      {"__substg1.0_1000001F", utf16(unicode)},
                      {"__substg1.0_1000001E", qh::toBytes(ansi)}}),
         "rtf:" + kRtf},
        {"a big-sector RTF stream is cut to its raw size",
         messageWith({{"__substg1.0_10090102", RtfCompressor::compress(longRtf)}}), "rtf:" + longRtf},
        {"0x1008 is used when the RTF stream is missing",
         messageWith({{"__substg1.0_10080102", RtfCompressor::compress(kOtherRtf)}, {"__substg1.0_1000001F", utf16(unicode)}}),
         "rtf:" + kOtherRtf},
        {"an RTF stream that is not compressed RTF hides a valid 0x1008",
         messageWith({{"__substg1.0_10090102", qh::toBytes("this is no compressed RTF header")},
                      {"__substg1.0_10080102", RtfCompressor::compress(kOtherRtf)},
                      {"__substg1.0_1000001F", utf16(unicode)}}),
         "text:" + unicode + paddingAfter(unicode.size() * 2, 2)},
        {"an uncompressed (MELA) RTF body falls to the text bodies",
         messageWith({{"__substg1.0_10090102", RtfCompressor::uncompressed(kRtf)}, {"__substg1.0_1000001E", qh::toBytes(ansi)}}),
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"an empty Unicode body falls to the 8-bit body",
         messageWith({{"__substg1.0_1000001F", {}}, {"__substg1.0_1000001E", qh::toBytes(ansi)}}),
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"a Unicode body that is not UTF-16 falls to the 8-bit body",
         messageWith({{"__substg1.0_1000001F", Bytes{0x00, 0xD8, 0x41, 0x00}}, {"__substg1.0_1000001E", qh::toBytes(ansi)}}),
         "text:" + ansi + paddingAfter(ansi.size(), 1)},
        {"non-ASCII Unicode text comes out as UTF-8", messageWith({{"__substg1.0_1000001F", utf16(wide)}}),
         "text:" + wide + paddingAfter(utf16(wide).size(), 2)},
        {"no bodies at all give empty text", messageWith({}), "text:"},
        {"an 8-bit body that is not ASCII gives nothing", messageWith({{"__substg1.0_1000001E", Bytes{'c', 0xE9}}}), "none"},
        {"no compound document", qh::toBytes("Subject: not a compound document\r\n\r\n"), "none"},
        {"the signature alone", Bytes{0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1}, "none"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qh::PreviewBody body = qh::msgMetaData(c.file);
        std::string got = "none";
        if (auto* rtf = std::get_if<Bytes>(&body)) got = "rtf:" + std::string(qh::asText(*rtf));
        if (auto* text = std::get_if<std::string>(&body)) got = "text:" + *text;
        EXPECT_EQ(got, c.expected);
    }
}

// What the host is given for each kind of body, content type and file.
TEST(Preview, ContentTypesFilesAndThumbnails) {
    const std::string rtf = "{\\rtf1 Hello}";
    TemporaryFile message(messageWith({{"__substg1.0_10090102", RtfCompressor::compress(rtf)}}), "message.msg");
    TemporaryFile plain(messageWith({{"__substg1.0_1000001E", qh::toBytes("Hi")}}), "plain.msg");
    TemporaryFile none(messageWith({{"__substg1.0_1000001E", Bytes{'c', 0xE9}}}), "none.msg");
    struct Case {
        const char* name;
        std::string path, contentType;
        std::string shownType, shownData;  // "" for no preview
    };
    const Case cases[] = {
        {"ours", message.string(), kType, "public.rtf", rtf},
        {"a text body", plain.string(), kType, "public.plain-text", "Hi" + paddingAfter(2, 1)},
        {"no body to show", none.string(), kType, "", ""},
        {"the other edition's type", message.string(), "com.quillhaven.lite.msg", "public.rtf", rtf},
        {"other content type", message.string(), "com.example.msg", "", ""},
        {"content types compare exactly", message.string(), "COM.QUILLHAVEN.MSG", "", ""},
        {"missing file", message.string() + ".missing", kType, "", ""},
        {"a directory", std::filesystem::temp_directory_path().string(), kType, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Preview got = hostPreview(c.path, c.contentType);
        EXPECT_EQ(got.contentType, c.shownType);
        EXPECT_EQ(got.data, c.shownData);
        EXPECT_EQ(got.representations, c.shownType.empty() ? 0 : 1);
    }
    for (const char* contentType : {kType, "com.quillhaven.lite.msg", "public.data"}) {
        auto outcome = ShimHost::generateThumbnail(message.string(), contentType);
        EXPECT_TRUE(outcome.loaded);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.request.drawCount, 0) << "thumbnails are never drawn";
    }
}

TEST(PreviewCommand, OutputForms) {
    const std::string rtf = "{\\rtf1\\ansi Hello from the command}";
    const Bytes bytes = messageWith({{"__substg1.0_10090102", RtfCompressor::compress(rtf)}});
    TemporaryFile message(bytes, "message.msg");
    const std::string path = message.string(), nothing = "{\"contentType\":null,\"data\":null}\n";
    struct Case {
        std::vector<std::string> args;
        std::string input;
        int exitCode;
        std::string out;
    } cases[] = {
        {{"preview", "-"}, std::string(bytes.begin(), bytes.end()), 0, rtf},
        {{"preview", "--content-type", "public.data", path}, "", 0, ""},
        {{"preview", "--json", "--content-type", "public.data", path}, "", 0, nothing},
        {{"preview", "--json", path + ".missing"}, "", 0, nothing},
        {{"preview"}, "", 2, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.back());
        auto run = runCli(c.args, c.input);
        EXPECT_EQ(run.exitCode, c.exitCode);
        if (c.exitCode == 0) {
            EXPECT_EQ(run.out, c.out);
        }
    }
    auto json = runCli({"preview", "--json", path});
    EXPECT_EQ(json.exitCode, 0);
    ASSERT_TRUE(json.out.ends_with("}\n"));
    auto document = nlohmann::ordered_json::parse(json.out);
    EXPECT_EQ(document.begin().key(), "contentType");
    EXPECT_EQ(document["contentType"], "public.rtf");
    EXPECT_EQ(qh::asText(qh::dataFromBase64String(document["data"]["$base64"].get<std::string>())), rtf);
}

// Which messages carry a compressed-RTF body, as the corpus notes record it
// (read off the files with an independent compound-file reader).
std::map<std::string, bool> corpusRtfBodies() {
    std::map<std::string, bool> bodies;
    std::ifstream notes(qhtest::corpusDir() / "SOURCES.md");
    for (std::string line; std::getline(notes, line);) {
        auto nameEnd = line.find(' ', 6);
        auto at = line.find("bodies=");
        if (line.rfind("| msg/", 0) != 0 || nameEnd == std::string::npos || at == std::string::npos) continue;
        bodies[line.substr(6, nameEnd - 6)] = line.substr(at + 7, line.find(';', at) - at - 7).find("rtf") != std::string::npos;
    }
    return bodies;
}

TEST(PreviewCommand, EveryCorpusMessage) {
    QH_REQUIRE_CORPUS("msg");
    auto bodies = corpusRtfBodies();
    auto files = qhtest::corpusFiles("msg", ".msg");
    ASSERT_FALSE(files.empty());
    int rtf = 0;
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename().string());
        auto result = runCli({"preview", "--json", path.string()});
        EXPECT_EQ(result.exitCode, 0);
        auto document = nlohmann::json::parse(result.out, nullptr, false);
        ASSERT_FALSE(document.is_discarded());
        auto known = bodies.find(path.filename().string());
        ASSERT_NE(known, bodies.end()) << "no corpus note";
        if (known->second) {
            ASSERT_EQ(document["contentType"], "public.rtf");
            EXPECT_TRUE(qh::asText(qh::dataFromBase64String(document["data"]["$base64"].get<std::string>())).starts_with("{\\rtf"));
            ++rtf;
        } else {
            // Text, or nothing where the 8-bit body is not ASCII.
            EXPECT_TRUE(document["contentType"] == "public.plain-text" || document["contentType"].is_null());
        }
    }
    EXPECT_GT(rtf, 0);
}

}  // namespace
