// samples/sample.msg, the message ./run.sh previews when given no file, is
// made here from the description below with the fixture writers: the test
// fails when the checked-in file no longer matches what the description
// builds. QH_REGENERATE_SAMPLES=1 writes it anew.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "plugin/MsgMetaData.h"
#include "msg/MsgFixture.h"
#include "support/Corpus.h"
#include "support/RtfCompressor.h"

namespace {

using qh::Bytes;
using qhtest::MsgFixture;
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

// The streams of a storage and its property stream: fixed values inline,
// strings (UTF-16) by their size with the terminator.
struct Text {
    std::uint16_t id;
    std::string value;
};
void addTexts(MsgFixture& message, std::vector<MsgFixture::Record>& records, const std::string& storage,
              const std::vector<Text>& texts) {
    for (const Text& text : texts) {
        message.unicode(storage, text.id, text.value);
        records.push_back({0x001F, text.id, utf16(text.value).size() + 2});
    }
}

qh::Bytes sampleMessage() {
    const std::uint64_t sentAt = 134129430000000000ull;  // 2026-01-15 09:30:00 UTC
    const Bytes rtf = qhtest::RtfCompressor::compress(kRtfBody);
    MsgFixture message;
    std::vector<MsgFixture::Record> records = {
        {0x0003, 0x0017, 1},       // importance: normal
        {0x0003, 0x0E07, 0x1},     // message flags: read
        {0x0040, 0x0039, sentAt},  // submitted
        {0x0040, 0x0E06, sentAt},  // delivered
        {0x0003, 0x3FDE, 1252},    // internet code page
    };
    addTexts(message, records, "",
             {{0x001A, "IPM.Note"}, {0x0037, kSubject}, {0x0E1D, kSubject}, {0x0C1A, kSenderName},
              {0x0C1F, kSenderAddress}, {0x0C1E, "SMTP"}, {0x0042, kSenderName}, {0x0065, kSenderAddress},
              {0x0E04, kRecipientName}, {0x1000, kPlainBody}});
    message.binary("", 0x1009, rtf);
    records.push_back({0x0102, 0x1009, rtf.size()});
    Bytes properties = MsgFixture::records(MsgFixture::kTopHeader, records);
    properties[8] = 1;   // next recipient id
    properties[16] = 1;  // recipient count
    message.stream("__properties_version1.0", properties);

    const std::string recipient = MsgFixture::recipient(0);
    std::vector<MsgFixture::Record> recipientRecords = {{0x0003, 0x0C15, 1}};  // To
    addTexts(message, recipientRecords, recipient,
             {{0x3001, kRecipientName}, {0x3002, "SMTP"}, {0x3003, kRecipientAddress}, {0x39FE, kRecipientAddress}});
    message.stream(recipient + "/__properties_version1.0",
                   MsgFixture::records(MsgFixture::kAttachmentHeader, recipientRecords));

    // No named properties, but the storage every message carries.
    for (const char* name : {"00020102", "00030102", "00040102"})
        message.stream(std::string("__nameid_version1.0/__substg1.0_") + name, Bytes{});
    return message.build();
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
