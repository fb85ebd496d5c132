// Message assembly from compound files built by the fixture writer, in both
// readings: message classes, bodies, subjects, sender, dates, recipients,
// attachments and embedded items.
#include <gtest/gtest.h>

#include "MsgFixture.h"
#include "core/Log.h"
#include "core/Messages.h"
#include "readers/msg/ReadMSG.h"
#include "support/RtfCompressor.h"

namespace {

using qh::Bytes;
using qh::Dict;
using qh::ReadMSG;
using qh::ReadOptions;
using qhtest::MsgFixture;

Dict read(const MsgFixture& fixture, const ReadOptions& options = ReadOptions::classic(true)) {
    auto reader = ReadMSG::initWithData(fixture.build(), options);
    EXPECT_TRUE(reader);
    return reader ? *reader->returnFullDictionary() : Dict();
}

std::string stringOf(const Dict& dict, std::string_view key) {
    const std::string* value = dict.findString(key);
    return value ? *value : "<absent>";
}

// "Name <address>; ..." of an address list, "<absent>" without one.
std::string addresses(const Dict& message, std::string_view key) {
    const qh::Array* list = message.findArray(key);
    if (!list) return "<absent>";
    std::string out;
    for (const auto& record : *list) {
        if (!out.empty()) out += "; ";
        out += stringOf(*record.dict(), "Name") + " <" + stringOf(*record.dict(), "Address") + ">";
    }
    return out;
}

const Dict& item(const Dict& message, std::size_t index) {
    static const Dict empty;
    const qh::Array* list = message.findArray("AttachmentList");
    if (!list || list->size() <= index) return empty;
    return *(*list)[index].dict();
}

// A key's value as text: dates in Unix seconds, address lists as above, bytes
// as text, numbers as JSON. "1.name" is the key of the second attachment item.
std::string describe(const Dict& message, std::string_view key) {
    if (key.size() > 2 && key[1] == '.') return describe(item(message, key[0] - '0'), key.substr(2));
    const qh::Value* value = message.find(key);
    if (value && value->date()) return std::to_string(static_cast<std::int64_t>(value->date()->unixSeconds));
    if (value && value->array()) return addresses(message, key);
    if (value && value->bytes()) return std::string(value->bytes()->text());
    if (value && !value->isString()) return value->toJsonText();
    return stringOf(message, key);
}

constexpr std::uint16_t kCodePageRecord = 0x3FFD;
constexpr std::uint16_t kInternetCodePageRecord = 0x3FDE;

MsgFixture note() { return std::move(MsgFixture().ansi("", 0x001A, "IPM.Note")); }
MsgFixture withCodePage(std::uint32_t codePage) {
    return std::move(note().properties("", MsgFixture::kTopHeader, {{0x0003, kCodePageRecord, codePage}}));
}

TEST(ReadMSG, NotACompoundDocumentGivesNoReader) {
    EXPECT_FALSE(ReadMSG::initWithData(qh::asBytes("From: someone\n\nHello")));
    auto summary = ReadMSG::getSummaryForMessage(qh::asBytes("junk"));
    ASSERT_TRUE(summary);
    EXPECT_EQ(stringOf(*summary, "Subject"), "-");
    EXPECT_EQ(stringOf(*summary, "Body"), "-");
}

TEST(ReadMSG, MessageClassesMostSpecificFirst) {
    struct Case {
        const char* messageClass;
        const char* expected;
        bool logsUnknown;
    } cases[] = {
        {"IPM.Note", "Email", false},
        {"IPM.Note.SMIME.MultipartSigned", "Email", false},
        {"IPM.Note.EnterpriseVault.Shortcut", "Vault", false},
        {"IPM.StickyNote", "Sticky", false},
        {"IPM.Contact", "Contact", false},
        {"IPM.Appointment", "Calendar", false},
        {"IPM.Schedule.Meeting.Request", "Email", true},
        {"", "<absent>", false},
    };
    for (const Case& c : cases) {
        MsgFixture fixture;
        if (*c.messageClass) fixture.ansi("", 0x001A, c.messageClass);
        fixture.unicode("", 0x0037, "s");
        qh::Log::Capture capture;
        Dict message = read(fixture);
        EXPECT_EQ(stringOf(message, "MessageType"), c.expected) << c.messageClass;
        EXPECT_EQ(capture.contains(std::string("Unknown Message Type: ") + c.messageClass), c.logsUnknown)
            << c.messageClass;
    }
}

MsgFixture embeddedMessage(const std::string& storage, const char* displayName, const char* messageClass) {
    std::string inner = storage + "/__substg1.0_3701000D";
    MsgFixture fixture;
    fixture.ansi("", 0x001A, "IPM.Note")
        .properties(storage, MsgFixture::kAttachmentHeader, {{0x0003, 0x3705, 5}})
        .unicode(storage, 0x3001, displayName)
        .ansi(inner, 0x001A, messageClass)
        .unicode(inner, 0x0037, "Inner subject")
        .unicode(inner, 0x1000, "Inner body")
        .unicode(inner, 0x3A06, "Given");
    return fixture;
}

// Classic: converted text (e-mail as .eml text, contact and appointment as
// vCard and iCalendar) under the display name plus ".msg"; complete: the
// name says what the bytes are.
TEST(ReadMSG, EmbeddedMessagesAreConvertedAndNamed) {
    std::string a = MsgFixture::attachment(0);
    struct Case {
        const char* displayName;
        const char* messageClass;
        std::string classicName, textStart, completeName, mimeType;
    } cases[] = {
        {"Meeting notes", "IPM.Note", "Meeting notes.msg", "Generated-By: ", "Meeting notes.eml", "message/rfc822"},
        // classic: the name is cut where a run of Latin text meets CJK
        {"Microsoft Outlook テスト メッセージ", "IPM.Note", "Microsoft Outlook.msg", "Generated-By: ",
         "Microsoft Outlook テスト メッセージ.eml", "message/rfc822"},
        {"notes.msg", "IPM.Note", "notes.msg", "Generated-By: ", "notes.eml", "message/rfc822"},
        {"notes.eml", "IPM.Note", "notes.eml", "Generated-By: ", "notes.eml", "message/rfc822"},
        {"", "IPM.Note", qh::Messages::localizedString("unnamedName") + ".msg", "Generated-By: ", "Inner subject.eml", "message/rfc822"},
        {"A person", "IPM.Contact", "A person.msg", "BEGIN:VCARD\r\n", "A person.vcf", "text/vcard"},
        {"A meeting", "IPM.Appointment", "A meeting.msg", "BEGIN:VCALENDAR\r\n", "A meeting.ics", "text/calendar"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.displayName);
        Dict message = read(embeddedMessage(a, c.displayName, c.messageClass));
        const Dict& attachment = item(message, 0);
        EXPECT_EQ(stringOf(attachment, "name"), c.classicName);
        const qh::Blob* data = attachment.findBytes("data");
        ASSERT_TRUE(data);
        EXPECT_TRUE(data->text().starts_with(c.textStart));
        EXPECT_EQ(attachment.find("size")->integer(), static_cast<std::int64_t>(data->size()));
        if (std::string(c.messageClass) == "IPM.Note") {
            EXPECT_NE(data->text().find("Subject: Inner subject\n"), std::string::npos);
            EXPECT_NE(data->text().find("Inner body"), std::string::npos);
        }
        Dict complete = read(embeddedMessage(a, c.displayName, c.messageClass), ReadOptions::complete());
        EXPECT_EQ(stringOf(item(complete, 0), "name"), c.completeName);
        EXPECT_EQ(stringOf(item(complete, 0), "mimeType"), c.mimeType);
    }
}

TEST(ReadMSG, EmbeddingDeeperThanTheLimitIsNotFollowed) {
    // 40 levels, each an attachment holding the next message.
    MsgFixture fixture;
    fixture.ansi("", 0x001A, "IPM.Note");
    std::string path;
    for (int level = 0; level < 40; ++level) {
        std::string storage = MsgFixture::join(path, MsgFixture::attachment(0));
        fixture.properties(storage, MsgFixture::kAttachmentHeader, {{0x0003, 0x3705, 5}});
        fixture.unicode(storage, 0x3001, "level");
        path = storage + "/__substg1.0_3701000D";
        fixture.ansi(path, 0x001A, "IPM.Note");
    }
    // Both readings stop at the same depth.
    for (const auto& [options, name] : {std::pair{qh::ReadOptions::classic(true), "level.msg"},
                                        std::pair{qh::ReadOptions::complete(), "level.eml"}}) {
        qh::Log::Capture capture;
        auto reader = ReadMSG::initWithData(fixture.build(), options);
        ASSERT_TRUE(reader);
        EXPECT_TRUE(capture.contains("Embedded message nested too deeply - not read"));
        EXPECT_EQ(stringOf(item(*reader->returnFullDictionary(), 0), "name"), name);
    }
}

// Each row: a message, the key looked at, what the classic and the complete
// readings make of it ("=" where they agree).
TEST(ReadMSG, KeysInBothReadings) {
    struct Case {
        const char* what;
        MsgFixture fixture;
        std::string key;
        std::string classic;
        std::string complete;
    };
    Bytes htmlRtf = qhtest::RtfCompressor::compress(
        "{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 {\\*\\htmltag64 <p>}Hi {\\*\\htmltag72 </p>}\\par}");
    Bytes plainRtf = qhtest::RtfCompressor::compress("{\\rtf1\\ansi\\ansicpg1251 Hello \\'e4\\'e0 RTF\\par}");
    const std::string header = "To: a@example.com\r\nSubject: =?UTF-8?Q?from_the_header?=\r\nX-Last: unfiled\r\n";
    std::vector<Case> cases;
    const std::pair<const char*, const char*> emptyMessage[] = {
        {"To", ""}, {"From", " <>"}, {"Header", ""}, {"Body", "<absent>"}, {"HTML", "<absent>"}, {"AttachmentList", "<absent>"}};
    for (auto [key, value] : emptyMessage)
        cases.push_back({"always-present keys of an empty message", note(), key, value, "="});
    // The header text is read like every string: trimmed.
    const std::pair<const char*, const char*> fromHeader[] = {
        {"Subject", "from the header"},
        {"Header", "To: a@example.com\r\nSubject: =?UTF-8?Q?from_the_header?=\r\nX-Last: unfiled"},
        {"TO", "a@example.com <a@example.com>"}};
    for (auto [key, value] : fromHeader)
        cases.push_back({"transport header", std::move(note().unicode("", 0x007D, header)), key, value, "="});
    cases.push_back({"subject property wins over the header, first line",
                     std::move(note().unicode("", 0x007D, header).unicode("", 0x0037, "first\r\nsecond")), "Subject",
                     "first", "first second"});
    cases.push_back({"delivery time", std::move(note().properties("", MsgFixture::kTopHeader, {{0x0040, 0x0E06, qhtest::filetime(1700000000)}})),
                     "TimeStamp", "1700000000", "="});
    for (auto [key, value] : {std::pair{"Date", "Tue, 2 Jan 2024 08:00:00 +0100"}, {"TimeStamp", "<absent>"}})
        cases.push_back({"header date without a delivery time",
                         std::move(note().unicode("", 0x007D, "Date: Tue, 2 Jan 2024 08:00:00 +0100\nX: y\n")), key, value, "="});
    for (auto [key, value] : {std::pair{"Body", "Hello there"}, {"HTML", "<absent>"}})
        cases.push_back({"plain body", std::move(note().unicode("", 0x1000, "Hello there")), key, value, "="});
    cases.push_back({"HTML body", std::move(note().binary("", 0x1013, qh::asBytes("<p>caf\xC3\xA9</p>"))), "HTML",
                     "<p>café</p>", "="});
    cases.push_back({"RTF body", std::move(note().binary("", 0x1009, qhtest::RtfCompressor::compress("{\\rtf1\\ansi Hello RTF\\par}"))),
                     "RTF", "{\\rtf1\\ansi Hello RTF\\par}", "="});
    // No plain or HTML body: the RTF's text is taken when it is an HTML document.
    cases.push_back({"HTML document in the RTF",
                     std::move(note().binary("", 0x1009, qhtest::RtfCompressor::compress("{\\rtf1\\ansi <html><body>x</body></html>\\par}"))),
                     "HTML", "<html><body>x</body></html>\n", "<absent>"});
    cases.push_back({"sender: the first valid candidate",
                     std::move(note().unicode("", 0x0C1A, "Ann Example").unicode("", 0x0042, "Someone Else")
                                   .unicode("", 0x0065, "/O=EXCHANGE/OU=FIRST/CN=ANN").unicode("", 0x0C1F, "not an address")
                                   .unicode("", 0x5D01, "ann@example.com")),
                     "From", "Ann Example <ann@example.com>", "="});
    for (auto [key, value] : {std::pair<const char*, std::string>{"Body", qh::Messages::localizedString("VoiceNote")},
                              {"0.name", "Windows CE VoiceNote.wav"}, {"0.size", "100"}})
        cases.push_back({"voice note", std::move(note().ansi("", 0x8000, "voice").binary("", 0x6803, Bytes(100, 0x52))), key,
                         value, "="});
    cases.push_back({"sticky note", std::move(MsgFixture().ansi("", 0x001A, "IPM.StickyNote").ansi("", 0x8000, "just text")),
                     "Body", "just text", "="});
    cases.push_back({"CJK subject", std::move(note().unicode("", 0x0037, "The subject having “畑㵲応イ” text.")),
                     "Subject", "The subject having “", "The subject having “畑㵲応イ” text."});
    cases.push_back({"percent escapes", std::move(note().unicode("", 0x1000, "http://x/?a%3Db")), "Body",
                     "http://x/?a=b", "http://x/?a%3Db"});
    cases.push_back({"control characters", std::move(note().unicode("", 0x1000, "a\x01" "b\tc\x7f")), "Body",
                     "a\x01" "b\tc\x7f", "ab\tc"});
    cases.push_back({"subject lines", std::move(note().unicode("", 0x0037, "first\r\n second")), "Subject", "first",
                     "first second"});
    cases.push_back({"contact fields in the message's code page",
                     std::move(MsgFixture().ansi("", 0x001A, "IPM.Contact")
                                   .properties("", MsgFixture::kTopHeader, {{0x0003, kCodePageRecord, 932}})
                                   .ansi("", 0x3A06, "\x93\xfa\x96\x7b")),
                     "Given Name", "“ú–{", "日本"});
    cases.push_back({"Windows-1251 subject", std::move(withCodePage(1251).ansi("", 0x0037, "\xe4\xe0")), "Subject",
                     "äà", "да"});
    cases.push_back({"no code page: the RTF's \\ansicpg",
                     std::move(note().ansi("", 0x0037, "\xe4\xe0").binary("", 0x1009, plainRtf)), "Subject", "äà",
                     "да"});
    cases.push_back({"RTF-only body", std::move(note().binary("", 0x1009, plainRtf)), "Body", "<absent>",
                     "Hello да RTF"});
    cases.push_back({"HTML in the internet code page",
                     std::move(note()
                                   .properties("", MsgFixture::kTopHeader, {{0x0003, kInternetCodePageRecord, 1251}})
                                   .binary("", 0x1013, qh::asBytes("<p>\xe4\xe0</p>"))),
                     "HTML", "<p>äà</p>", "<p>да</p>"});
    cases.push_back({"HTML encapsulated in the RTF", std::move(note().binary("", 0x1009, htmlRtf)), "HTML", "<absent>",
                     "<p>Hi </p>\r\n"});
    cases.push_back({"HTML document in the plain body stays plain",
                     std::move(note().unicode("", 0x1000, "<html><b>x</b></html>")), "HTML", "<html><b>x</b></html>",
                     "<absent>"});
    cases.push_back({"threading keys",
                     std::move(note().unicode("", 0x1035, "<id@host>").unicode("", 0x1042, "<up@host>").ansi("", 0x1039, "<a@h> <b@h>")),
                     "MessageID", "<absent>", "<id@host>"});
    cases.push_back({"references", std::move(note().ansi("", 0x1039, "<a@h> <b@h>")), "References", "<absent>",
                     "<a@h> <b@h>"});
    cases.push_back({"submit time without delivery time",
                     std::move(note().properties("", MsgFixture::kTopHeader, {{0x0040, 0x0039, qhtest::filetime(1700000000)}})),
                     "TimeStamp", "<absent>", "1700000000"});
    cases.push_back({"header's last field", std::move(note().unicode("", 0x007D, "Date: Tue, 2 Jan 2024\r\nSubject: Last")),
                     "Subject", "<absent>", "Last"});
    cases.push_back({"header's Reply-To",
                     std::move(note().unicode("", 0x007D, "Reply-To: List <list@example.com>\r\nSubject: x\r\n")),
                     "ReplyTo", "<absent>", "List <list@example.com>"});
    // Recipient storages in any case; the SMTP address first, else the address
    // when it is valid. Classic: the 8-bit name is not read, the address stands
    // in for it; complete: every name, an empty address where none is given.
    const std::string r0 = MsgFixture::recipient(0), r1 = MsgFixture::recipient(1);
    cases.push_back({"recipients",
                     std::move(note().unicode(r0, 0x3001, "Bob").unicode(r0, 0x3003, "/O=ORG/CN=BOB")
                                   .unicode(r0, 0x39FE, "bob@example.com").ansi(r1, 0x3001, "Eight Bit Only")
                                   .unicode(r1, 0x3003, "carl@example.com")
                                   .unicode("__RECIP_VERSION1.0_#00000002", 0x3001, "Capitals")),
                     "To", "Capitals <<absent>>; Bob <bob@example.com>; carl@example.com <carl@example.com>",
                     "Capitals <>; Bob <bob@example.com>; Eight Bit Only <carl@example.com>"});
    // Attachment items.
    const std::string a = MsgFixture::attachment(0), unnamed = qh::Messages::localizedString("unnamedName");
    const Bytes payload = qh::toBytes("payload");
    cases.push_back({"long name first",
                     std::move(note().unicode(a, 0x3001, "display").unicode(a, 0x3707, "long.txt")
                                   .unicode(a, 0x3704, "SHORT.TXT").binary(a, 0x3701, payload)),
                     "0.name", "long.txt", "="});
    // The short name is probed in the long name's type, 8-bit when the long name is missing.
    cases.push_back({"short name alone is probed in the wrong type",
                     std::move(note().unicode(a, 0x3001, "display").unicode(a, 0x3704, "SHORT.TXT").binary(a, 0x3701, payload)),
                     "0.name", "display", "SHORT.TXT"});
    cases.push_back({"short name read in UTF-16 when the 8-bit probe finds it",
                     std::move(note().ansi(a, 0x3704, "x").unicode(a, 0x3704, "SHORT.TXT").binary(a, 0x3701, payload)),
                     "0.name", "SHORT.TXT", "="});
    cases.push_back({"display name last", std::move(note().unicode(a, 0x3001, "display").binary(a, 0x3701, payload)),
                     "0.name", "display", "="});
    cases.push_back({"8-bit message never uses its short name",
                     std::move(note().ansi(a, 0x3001, "display").ansi(a, 0x3704, "SHORT.TXT").binary(a, 0x3701, payload)),
                     "0.name", "display", "SHORT.TXT"});
    cases.push_back({"nothing: the unnamed text", std::move(note().binary(a, 0x3701, payload)), "0.name", unnamed, "="});
    cases.push_back({"unnamed MIME data",
                     std::move(note().binary(a, 0x3701, qh::asBytes("MIME-Version: 1.0\r\nSubject: x\r\n\r\nbody"))),
                     "0.name", unnamed + ".eml", "="});
    // Complete: every text in its own string type, the content id without
    // brackets. Classic: texts in the message's type (8-bit here), so the
    // 8-bit MIME type is not found and the UTF-16 id stops at its first NUL.
    for (auto [key, classic, complete] : {std::tuple{"0.name", "ôàéë.txt", "файл.txt"},
                                          {"0.mimeType", "<absent>", "text/plain"}, {"0.AttachContentID", "<", "cid@example"}}) {
        cases.push_back({"8-bit texts in the message's code page",
                         std::move(withCodePage(1251).ansi(a, 0x3707, "\xf4\xe0\xe9\xeb.txt").ansi(a, 0x370E, "text/plain")
                                       .unicode(a, 0x3712, "<cid@example>").binary(a, 0x3701, payload)),
                         key, classic, complete});
    }
    // Without data the item keeps its name; an empty storage gets the unnamed text.
    const std::pair<const char*, std::string> keys[] = {
        {"0.mimeType", "image/png"}, {"0.attachDisposition", "inline"}, {"0.AttachContentID", "cid123@example"},
        {"0.attachmentMetaData", "meta"}, {"0.size", "3000"}, {"0.sizeString", "2.93 KB"},
        {"0.data", std::string(3000, '\xAB')}, {"1.name", "nodata.txt"}, {"1.data", "<absent>"}, {"2.name", unnamed},
    };
    for (const auto& [key, value] : keys) {
        cases.push_back({"attachment keys",
                         std::move(note().unicode(a, 0x3707, "image.png").unicode(a, 0x370E, "image/png")
                                       .unicode(a, 0x3716, "inline").unicode(a, 0x3712, "cid123@example")
                                       .binary(a, 0x370F, qh::asBytes("meta")).binary(a, 0x3701, Bytes(3000, 0xAB))
                                       .unicode(MsgFixture::attachment(1), 0x3707, "nodata.txt")
                                       .storage(MsgFixture::attachment(2))),
                         key, value, "="});
    }
    for (Case& c : cases) {
        SCOPED_TRACE(std::string(c.what) + ", " + c.key);
        EXPECT_EQ(describe(read(c.fixture), c.key), c.classic) << "classic";
        EXPECT_EQ(describe(read(c.fixture, ReadOptions::complete()), c.key), c.complete == "=" ? c.classic : c.complete)
            << "complete";
    }
}

TEST(ReadMSG, RecipientsByTypeAndTheSender) {
    struct Case {
        const char* what;
        MsgFixture fixture;
        std::string to, cc, bcc, from;
    };
    const std::string r0 = MsgFixture::recipient(0), r1 = MsgFixture::recipient(1), r2 = MsgFixture::recipient(2);
    auto typed = [](MsgFixture& f, const std::string& storage, std::uint64_t type) -> MsgFixture& {
        return f.properties(storage, MsgFixture::kAttachmentHeader, {{0x0003, 0x0C15, type}});
    };
    std::vector<Case> cases;
    {
        MsgFixture f = note();
        f.unicode(r0, 0x3001, "Ann").unicode(r0, 0x3002, "EX").unicode(r0, 0x3003, "/O=ORG/CN=ANN")
            .unicode(r0, 0x39FE, "ann@example.com");
        typed(f, r1, 2).ansi(r1, 0x3001, "Bob").ansi(r1, 0x3002, "SMTP").ansi(r1, 0x3003, "bob@example.com");
        typed(f, r2, 0x10000003).unicode(r2, 0x3001, "Carl").unicode(r2, 0x3002, "EX").unicode(r2, 0x3003, "/O=ORG/CN=CARL");
        cases.push_back({"types, 8-bit strings, SMTP first, never a DN", std::move(f), "Ann <ann@example.com>",
                         "Bob <bob@example.com>", "Carl <>", " <>"});
    }
    {
        MsgFixture f = withCodePage(1251);
        f.ansi(r0, 0x3001, "\xc8\xe2\xe0\xed").ansi(r0, 0x3003, "ivan@example.ru");
        f.ansi("", 0x0042, "\xc8\xe2\xe0\xed").ansi("", 0x0064, "SMTP").ansi("", 0x0065, "ivan@example.ru");
        cases.push_back({"8-bit names in the message's code page; sent-representing sender", std::move(f),
                         "Иван <ivan@example.ru>", "<absent>", "<absent>", "Иван <ivan@example.ru>"});
    }
    cases.push_back({"Exchange sender: the SMTP property",
                     std::move(note().unicode("", 0x0C1A, "Ann").unicode("", 0x0C1E, "EX")
                                   .unicode("", 0x0C1F, "/O=ORG/CN=ANN").unicode("", 0x5D01, "ann@example.com")),
                     "", "<absent>", "<absent>", "Ann <ann@example.com>"});
    cases.push_back({"sender from the transport header",
                     std::move(note().unicode("", 0x0C1A, "Ann").unicode("", 0x0C1E, "EX").unicode("", 0x0C1F, "/O=ORG/CN=ANN")
                                   .unicode("", 0x007D, "From: Ann <ann@example.com>\r\nX: y\r\n")),
                     "", "<absent>", "<absent>", "Ann <ann@example.com>"});
    cases.push_back({"no recipient storages: the display lists",
                     std::move(note().unicode("", 0x0E04, "Ann; Bob").unicode("", 0x0E03, "Carl")),
                     "Ann <>; Bob <>", "Carl <>", "<absent>", " <>"});
    for (Case& c : cases) {
        Dict message = read(c.fixture, ReadOptions::complete());
        EXPECT_EQ(addresses(message, "To"), c.to) << c.what;
        EXPECT_EQ(addresses(message, "CC"), c.cc) << c.what;
        EXPECT_EQ(addresses(message, "BCC"), c.bcc) << c.what;
        EXPECT_EQ(addresses(message, "From"), c.from) << c.what;
    }
}

TEST(ReadMSG, SummaryFollowsTheReading) {
    Bytes rtf = qhtest::RtfCompressor::compress("{\\rtf1\\ansi From RTF\\par}");
    Bytes exchange = note()
                         .unicode("", 0x0037, "Hello 你好 there")
                         .unicode("", 0x0C1E, "EX")
                         .unicode("", 0x0C1F, "/O=ORG/CN=ANN")
                         .unicode("", 0x5D01, "ann@example.com")
                         .binary("", 0x1009, rtf)
                         .build();
    Bytes named = MsgFixture()
                      .unicode("", 0x0037, "Hi\nthere")
                      .unicode("", 0x0C1A, "Ann Example")
                      .unicode("", 0x0065, "ann@example.com")
                      .build();
    struct Case {
        const Bytes& file;
        ReadOptions options;
        std::string subject, body, from;
    } cases[] = {
        {exchange, ReadOptions::classic(true), "Hello", "-", ""},
        {exchange, ReadOptions::complete(), "Hello 你好 there", "From RTF", "ann@example.com"},
        {named, ReadOptions::classic(true), "Hi", "-", "Ann Example"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.subject);
        auto summary = ReadMSG::getSummaryForMessage(c.file, c.options);
        ASSERT_TRUE(summary);
        EXPECT_EQ(stringOf(*summary, "Subject"), c.subject);
        EXPECT_EQ(stringOf(*summary, "Body"), c.body);
        EXPECT_EQ(stringOf(*summary, "From"), c.from);
    }
}

}  // namespace
