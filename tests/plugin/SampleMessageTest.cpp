// samples/sample.msg, the message ./run.sh previews when given no file, is
// made here from the description below with the fixture writers: the test
// fails when the checked-in file no longer matches what the description
// builds. QH_REGENERATE_SAMPLES=1 writes it anew.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "plugin/MsgMetaData.h"
#include "support/CompoundWriter.h"
#include "support/Corpus.h"
#include "support/RtfCompressor.h"

namespace {

using qh::Bytes;
using qhtest::utf16;

const char kSubject[] = "Welcome to Quillhaven";
const char kSenderName[] = "Quillhaven Samples";
const char kSenderAddress[] = "samples@quillhaven.example";
const char kRecipientName[] = "Ada Reader";
const char kRecipientAddress[] = "ada@quillhaven.example";

const char kPlainBody[] =
    "Hello Ada,\r\n\r\n"
    "This message was made by Quillhaven's own fixture writers. Its body is stored as compressed RTF, "
    "so the preview shows it as rich text:\r\n\r\n"
    "  * bold and italic words\r\n"
    "  * a second paragraph\r\n\r\n"
    "Best regards,\r\nQuillhaven\r\n";

const char kRtfBody[] =
    "{\\rtf1\\ansi\\ansicpg1252\\deff0\\deflang1033"
    "{\\fonttbl{\\f0\\fswiss\\fcharset0 Helvetica;}{\\f1\\fmodern\\fcharset0 Courier New;}}\r\n"
    "{\\colortbl ;\\red31\\green78\\blue121;}\r\n"
    "\\viewkind4\\uc1\\pard\\sa120\\f0\\fs22 Hello Ada,\\par\r\n"
    "This message was made by Quillhaven's own fixture writers. Its body is stored as "
    "\\b compressed RTF\\b0 , so the preview shows it as rich text:\\par\r\n"
    "\\pard\\li360\\sa60\\bullet\\tab \\b bold\\b0  and \\i italic\\i0  words\\par\r\n"
    "\\bullet\\tab a second paragraph\\par\r\n"
    "\\pard\\sa120 Best regards,\\line\\cf1\\b Quillhaven\\cf0\\b0\\par\r\n"
    "}\r\n";

void put32(Bytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
void put64(Bytes& out, std::uint64_t value) {
    put32(out, static_cast<std::uint32_t>(value));
    put32(out, static_cast<std::uint32_t>(value >> 32));
}

// A property record: fixed values inline, variable ones by size.
void fixedProperty(Bytes& out, std::uint32_t tag, std::uint64_t value) {
    put32(out, tag);
    put32(out, 0x6);  // readable, writable
    put64(out, value);
}
void variableProperty(Bytes& out, std::uint32_t tag, std::uint32_t size) {
    put32(out, tag);
    put32(out, 0x6);
    put32(out, size);
    put32(out, 0);
}

qh::Bytes sampleMessage() {
    const std::uint64_t sentAt = 134129430000000000ull;  // 2026-01-15 09:30:00 UTC
    const Bytes rtf = qhtest::RtfCompressor::compress(kRtfBody);

    struct Text {
        std::uint32_t tag;
        std::string value;
    };
    const Text texts[] = {
        {0x001A001F, "IPM.Note"},          {0x0037001F, kSubject},       {0x0E1D001F, kSubject},
        {0x0C1A001F, kSenderName},         {0x0C1F001F, kSenderAddress}, {0x0C1E001F, "SMTP"},
        {0x0042001F, kSenderName},         {0x0065001F, kSenderAddress}, {0x0E04001F, kRecipientName},
        {0x1000001F, kPlainBody},
    };

    Bytes properties(32, 0);  // top-level header: reserved, next ids, counts
    properties[8] = 1;        // next recipient id
    properties[16] = 1;       // recipient count
    fixedProperty(properties, 0x00170003, 1);       // importance: normal
    fixedProperty(properties, 0x0E070003, 0x1);     // message flags: read
    fixedProperty(properties, 0x00390040, sentAt);  // submitted
    fixedProperty(properties, 0x0E060040, sentAt);  // delivered
    fixedProperty(properties, 0x3FDE0003, 1252);    // internet code page

    qhtest::CompoundWriter writer;
    for (const auto& text : texts) {
        char name[32];
        std::snprintf(name, sizeof name, "__substg1.0_%08X", text.tag);
        Bytes value = utf16(text.value);
        writer.addStream(name, value);
        variableProperty(properties, text.tag, static_cast<std::uint32_t>(value.size() + 2));
    }
    writer.addStream("__substg1.0_10090102", rtf);
    variableProperty(properties, 0x10090102, static_cast<std::uint32_t>(rtf.size()));
    writer.addStream("__properties_version1.0", properties);

    const std::string recipient = "__recip_version1.0_#00000000/";
    Bytes recipientProperties(8, 0);
    fixedProperty(recipientProperties, 0x0C150003, 1);  // To
    const Text recipientTexts[] = {
        {0x3001001F, kRecipientName}, {0x3002001F, "SMTP"}, {0x3003001F, kRecipientAddress},
        {0x39FE001F, kRecipientAddress},
    };
    for (const auto& text : recipientTexts) {
        char name[32];
        std::snprintf(name, sizeof name, "__substg1.0_%08X", text.tag);
        Bytes value = utf16(text.value);
        writer.addStream(recipient + name, value);
        variableProperty(recipientProperties, text.tag, static_cast<std::uint32_t>(value.size() + 2));
    }
    writer.addStream(recipient + "__properties_version1.0", recipientProperties);

    // No named properties, but the storage every message carries.
    writer.addStream("__nameid_version1.0/__substg1.0_00020102", Bytes{});
    writer.addStream("__nameid_version1.0/__substg1.0_00030102", Bytes{});
    writer.addStream("__nameid_version1.0/__substg1.0_00040102", Bytes{});
    return writer.bytes();
}

TEST(SampleMessageTest, CheckedInSampleMatchesItsDescription) {
    const std::filesystem::path path = std::filesystem::path(QH_SOURCE_DIR) / "samples" / "sample.msg";
    const Bytes built = sampleMessage();
    const char* regenerate = std::getenv("QH_REGENERATE_SAMPLES");
    if (regenerate && std::string(regenerate) == "1") {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(built.data()), static_cast<std::streamsize>(built.size()));
        ASSERT_TRUE(out.good()) << path;
    }
    ASSERT_TRUE(std::filesystem::exists(path)) << "run with QH_REGENERATE_SAMPLES=1 to make " << path;
    EXPECT_TRUE(qhtest::readFileBytes(path) == built) << path << " differs from what its description builds";

    // And it previews as the RTF it was made from.
    auto body = qh::msgMetaData(built);
    auto* rtf = std::get_if<Bytes>(&body);
    ASSERT_NE(rtf, nullptr);
    EXPECT_EQ(std::string(qh::asText(*rtf)), kRtfBody);
}

}  // namespace
