// `quillhaven preview`: the plug-in path from the command line, on fixtures
// and on every message of the shared corpus.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include <nlohmann/json.hpp>

#include "PluginTestSupport.h"
#include "support/Corpus.h"
#include "support/RtfCompressor.h"

namespace {

using qhtest::runCli;
using qhtest::TemporaryFile;

const std::string kRtf = "{\\rtf1\\ansi Hello from the command}";

std::string decodeBase64(const std::string& text) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned value = 0;
    int bits = 0;
    for (char c : text) {
        auto at = alphabet.find(c);
        if (at == std::string::npos) continue;  // padding
        value = (value << 6) | static_cast<unsigned>(at);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((value >> bits) & 0xFF));
        }
    }
    return out;
}

TEST(PreviewCommandTest, OutputForms) {
    TemporaryFile message(qhtest::messageWith({{"__substg1.0_10090102", qhtest::RtfCompressor::compress(kRtf)}}));
    const std::string path = message.path().string();

    auto raw = runCli({"preview", path});
    EXPECT_EQ(raw.exitCode, 0);
    EXPECT_EQ(raw.out, kRtf);

    auto json = runCli({"preview", "--json", path});
    EXPECT_EQ(json.exitCode, 0);
    ASSERT_FALSE(json.out.empty());
    EXPECT_EQ(json.out.back(), '\n');
    auto document = nlohmann::ordered_json::parse(json.out);
    EXPECT_EQ(document.begin().key(), "contentType");
    EXPECT_EQ(document["contentType"], "public.rtf");
    EXPECT_EQ(decodeBase64(document["data"]["$base64"].get<std::string>()), kRtf);

    auto lite = runCli({"preview", "--content-type", "com.quillhaven.lite.msg", path});
    EXPECT_EQ(lite.out, kRtf);

    auto other = runCli({"preview", "--json", "--content-type", "public.data", path});
    EXPECT_EQ(other.exitCode, 0);
    EXPECT_EQ(other.out, "{\"contentType\":null,\"data\":null}\n");
    auto otherRaw = runCli({"preview", "--content-type", "public.data", path});
    EXPECT_EQ(otherRaw.exitCode, 0);
    EXPECT_EQ(otherRaw.out, "");

    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto fromStdin = runCli({"preview", "-"}, bytes);
    EXPECT_EQ(fromStdin.exitCode, 0);
    EXPECT_EQ(fromStdin.out, kRtf);

    EXPECT_EQ(runCli({"preview"}).exitCode, 2);
    auto missing = runCli({"preview", "--json", path + ".missing"});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_EQ(missing.out, "{\"contentType\":null,\"data\":null}\n");
}

// Which messages carry a compressed-RTF body, as the corpus notes record it
// (read off the files with an independent compound-file reader).
std::map<std::string, bool> corpusRtfBodies() {
    std::map<std::string, bool> bodies;
    std::ifstream notes(qhtest::corpusDir() / "SOURCES.md");
    for (std::string line; std::getline(notes, line);) {
        if (line.rfind("| msg/", 0) != 0) continue;
        auto nameEnd = line.find(' ', 6);
        auto at = line.find("bodies=");
        if (nameEnd == std::string::npos || at == std::string::npos) continue;
        std::string name = line.substr(6, nameEnd - 6);
        std::string list = line.substr(at + 7, line.find(';', at) - at - 7);
        bodies[name] = list.find("rtf") != std::string::npos;
    }
    return bodies;
}

TEST(PreviewCommandTest, EveryCorpusMessage) {
    QH_REQUIRE_CORPUS("msg");
    auto bodies = corpusRtfBodies();
    auto files = qhtest::corpusFiles("msg", ".msg");
    ASSERT_FALSE(files.empty());
    int rtf = 0;
    for (const auto& path : files) {
        auto result = runCli({"preview", "--json", path.string()});
        EXPECT_EQ(result.exitCode, 0) << path;
        auto document = nlohmann::json::parse(result.out, nullptr, false);
        ASSERT_FALSE(document.is_discarded()) << path;
        auto known = bodies.find(path.filename().string());
        ASSERT_NE(known, bodies.end()) << "no corpus note for " << path;
        if (known->second) {
            ASSERT_EQ(document["contentType"], "public.rtf") << path;
            EXPECT_EQ(decodeBase64(document["data"]["$base64"].get<std::string>()).rfind("{\\rtf", 0), 0u) << path;
            ++rtf;
        } else {
            // Text, or nothing where the 8-bit body is not ASCII.
            EXPECT_TRUE(document["contentType"] == "public.plain-text" || document["contentType"].is_null()) << path;
        }
    }
    EXPECT_GT(rtf, 0);
}

}  // namespace
