// The reader: the attribute stream loop, the handler table and the MAPI
// property block decoder; the two readings combined, the tag search over the
// message property block, the attachment search and its exact log lines, the
// summary.
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/DateFormatting.h"
#include "core/Log.h"
#include "readers/tnef/Attributes.h"
#include "readers/tnef/ReadTNEF.h"
#include "readers/tnef/TNEFDecoder.h"
#include "readers/tnef/TNEFHandlers.h"
#include "support/RtfCompressor.h"
#include "support/TnefWriter.h"

namespace {

using namespace qh::tnef;
using qhtest::concat;
using qhtest::MapiBlock;
using qhtest::TnefWriter;
using qhtest::u32;

const std::string kTypeAborting = "** Decode error ** Bad size in TNEF property stream type. Aborting";
const std::string kCountAborting = "** Decode error ** Bad size in TNEF property stream count. Aborting";
const std::string kLengthAborting = "** Decode error ** Bad size in TNEF property stream length. Aborting";
const std::string kPropertyContinue = "** Decode error ** Bad size in TNEF property stream. Attempting to continue.";
const std::string kStreamTypeAborting = "** Decode error ** Bad size in TNEF datastream type. Aborting";
const std::string kStreamLengthAborting = "** Decode error ** Bad size in TNEF datastream length. Aborting";
const std::string kStreamContinue = "** Decode error ** Bad size in TNEF datastream. Attempting to continue.";
const std::string kDataLengthAborting = "** Decode error ** Bad size in TNEF data length. Aborting";
const std::string kDataContinue = "** Decode error ** Bad size in TNEF data. Attempting to continue.";

std::size_t countOf(const std::vector<std::string>& lines, const std::string& line) {
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

// Attachments written data first, title after, as some writers order them:
// rendering info, data, then the title "1.txt\0", "2.txt\0", ...
qh::Bytes dataBeforeTitles(std::initializer_list<const char*> contents) {
    TnefWriter writer;
    int number = 0;
    for (const char* data : contents) {
        writer.attribute(kLevelAttachment, kAttAttachRendData, "r")
            .attribute(kLevelAttachment, kAttAttachData, data)
            .attribute(kLevelAttachment, kAttAttachTitle, std::to_string(++number) + std::string(".txt\0", 5));
    }
    return writer.bytes();
}

qh::Bytes withProps(const MapiBlock& block) {
    return TnefWriter().attribute(kLevelMessage, kAttMsgProps, block.bytes()).bytes();
}

struct Searched {
    qh::Dict dictionary;
    std::vector<std::string> log;
};

Searched searchBlock(const qh::Bytes& block) {
    Searched result;
    qh::Log::Capture capture;
    EXPECT_TRUE(qh::ReadTNEF::decodePropertyStream(block.data(), block.size(), result.dictionary));
    result.log = capture.lines();
    return result;
}

TEST(ReadTNEFSearch, EachTagOfTheTableAndTheSenderRules) {
    const std::string rtf = "{\\rtf1 searched}";
    struct Case {
        const char* name;
        qh::Bytes block;
        const char* key;
        std::string expected;  // JSON text of the value, "" for none
    };
    const Case cases[] = {
        {"HTML", MapiBlock().variable(kTagHtml, qh::asBytes("<p>x</p>")).bytes(), "HTML", "\"<p>x</p>\""},
        // UTF-16LE decoded as UTF-8: the zero bytes stay.
        {"subject", MapiBlock().unicode(kTagSubjectUnicode, u"Hi").bytes(), "Subject", "\"H\\u0000i\\u0000\\u0000\\u0000\""},
        {"compressed RTF",
         MapiBlock().variable(kTagRtfCompressed, qhtest::RtfCompressor::compress(rtf)).bytes(), "RTF",
         qh::Value(qh::toBytes(rtf)).toJsonText()},
        {"an RTF value that is not compressed RTF", MapiBlock().variable(kTagRtfCompressed, qh::asBytes("plain")).bytes(),
         "RTF", ""},
        {"an empty HTML value", MapiBlock().variable(kTagHtml, {}).bytes(), "HTML", ""},
        {"a length beyond the block uses what remains",
         concat({u32(kTagHtml), u32(1), u32(1000), qh::toBytes("<i>cut</i>")}), "HTML", "\"<i>cut</i>\""},
        {"sender: first choices win",
         MapiBlock()
             .variable(kTagSenderName, qh::asBytes("Second"))
             .variable(kTagSentRepresentingName, qh::asBytes("First"))
             .variable(kTagNamedSenderEmail, qh::asBytes("third@x.org"))
             .variable(kTagSentRepresentingEmail, qh::asBytes("first@x.org"))
             .bytes(),
         "From", R"([{"Name":"First","Address":"first@x.org"}])"},
        {"sender: an empty first choice gives way",
         MapiBlock().variable(kTagSentRepresentingEmail, {}).variable(kTagSenderEmail, qh::asBytes("b@x.org")).bytes(),
         "From", R"([{"Name":"b@x.org","Address":"b@x.org"}])"},
        {"sender: name without address", MapiBlock().variable(kTagSenderName, qh::asBytes("Ann")).bytes(), "From", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const qh::Dict found = searchBlock(c.block).dictionary;
        EXPECT_EQ(found.contains(c.key) ? found.find(c.key)->toJsonText() : "", c.expected);
    }
}

TEST(ReadTNEFSearch, DateReadsTheEightBytesAfterTheLengthField) {
    // The search takes the value after tag, count and length words: for a
    // time property those are the time itself and what follows it.
    const std::uint64_t fileTime = 133541065230000000ull;  // 2024-03-05 10:02:03 UTC
    Searched searched = searchBlock(concat({u32(1), u32(kTagLastModificationTime), u32(0), u32(0xFFFFFFFF),
                                            u32(std::uint32_t(fileTime)), u32(std::uint32_t(fileTime >> 32))}));
    ASSERT_NE(searched.dictionary.findString("Date"), nullptr);
    EXPECT_NE(searched.dictionary.findString("Date")->find("2024"), std::string::npos);
    EXPECT_EQ(countOf(searched.log, kPropertyContinue), 1u);
}

TEST(ReadTNEFSearch, LogLinesOfThePropertyBlock) {
    struct Case {
        const char* name;
        qh::Bytes block;
        std::vector<std::pair<std::string, std::size_t>> lines;
    };
    const Case cases[] = {
        {"every absent tag logs once", u32(0), {{kTypeAborting, 9}}},
        {"one tag present", MapiBlock().variable(kTagHtml, qh::asBytes("<b>")).bytes(), {{kTypeAborting, 8}}},
        {"a tag at the very end", concat({u32(0), u32(kTagHtml)}), {{kTypeAborting, 8}, {kCountAborting, 1}}},
        {"a tag with its count only", concat({u32(kTagHtml), u32(1)}), {{kTypeAborting, 8}, {kLengthAborting, 1}}},
        {"a length beyond the block", concat({u32(kTagHtml), u32(1), u32(100), qh::toBytes("<")}),
         {{kTypeAborting, 8}, {kPropertyContinue, 1}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Searched searched = searchBlock(c.block);
        std::size_t total = 0;
        for (const auto& [line, count] : c.lines) {
            EXPECT_EQ(countOf(searched.log, line), count) << line;
            total += count;
        }
        EXPECT_EQ(searched.log.size(), total);
    }
}

TEST(ReadTNEFStream, LogLinesOfTheWholeStream) {
    struct Case {
        const char* name;
        qh::Bytes stream;
        std::string line;
    };
    const qh::Bytes props = MapiBlock().u32(0x0E070003, 1).bytes();
    const qh::Bytes shortProps = concat({TnefWriter().bytes(), {kLevelMessage}, u32(kAttMsgProps), u32(4000), props});
    const qh::Bytes cutHeader = concat({TnefWriter().bytes(), u32(kAttMsgProps), {1}});
    const Case cases[] = {
        {"no message properties", TnefWriter().attribute(kLevelMessage, kAttSubject, "s").bytes(), kStreamTypeAborting},
        {"no size after the id", cutHeader, kStreamLengthAborting},
        {"a size beyond the stream", shortProps, kStreamContinue},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qh::Log::Capture capture;
        qh::Dict dictionary;
        qh::ReadTNEF::buildTNEFDictionary(dictionary, c.stream, true);
        EXPECT_EQ(countOf(capture.lines(), c.line), 1u);
    }
}

TEST(ReadTNEFAttachments, SearchPairsTitlesWithTheDataThatFollows) {
    struct Case {
        const char* name;
        qh::Bytes stream;
        std::vector<std::pair<std::string, std::string>> found;  // name, data
    };
    const Case cases[] = {
        {"none", TnefWriter().bytes(), {}},
        {"title then data",
         TnefWriter().attachment("a.txt", qh::asBytes("AAA")).attachment("b.txt", qh::asBytes("BB")).bytes(),
         {{std::string("a.txt\0", 6), "AAA"}, {std::string("b.txt\0", 6), "BB"}}},
        // Each title pairs with the data of the next attachment.
        {"data then title", dataBeforeTitles({"one", "two"}), {{std::string("1.txt\0", 6), "two"}}},
        {"a title alone", TnefWriter().attachment("only.txt", std::nullopt).bytes(), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qh::Array found = qh::ReadTNEF::retrieveAttachments(c.stream);
        ASSERT_EQ(found.size(), c.found.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
            const qh::Dict* item = found[i].dict();
            ASSERT_NE(item, nullptr);
            EXPECT_EQ(item->keys(), (std::vector<std::string>{"data", "name"}));
            EXPECT_EQ(*item->findString("name"), c.found[i].first);
            EXPECT_EQ(item->findBytes("data")->text(), c.found[i].second);
        }
    }
}

TEST(ReadTNEFAttachments, LogLinesAndCutValues) {
    // The data id with a size beyond the stream: the value runs to the end.
    const qh::Bytes stream =
        concat({TnefWriter().attribute(kLevelAttachment, kAttAttachTitle, std::string("t\0", 2)).bytes(),
                u32(kAttAttachData), u32(50), qh::toBytes("xy")});
    qh::Log::Capture capture;
    qh::Array found = qh::ReadTNEF::retrieveAttachments(stream);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].dict()->findBytes("data")->text(), "xy");
    // Round 1 finds both; round 2 finds neither and ends.
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{kDataContinue, kStreamTypeAborting, kStreamTypeAborting}));

    capture.clear();
    const qh::Bytes cut = concat({TnefWriter().bytes(), u32(kAttAttachTitle), {1, 0}});
    EXPECT_TRUE(qh::ReadTNEF::retrieveAttachments(cut).empty());
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{kDataLengthAborting, kStreamTypeAborting}));
}

TEST(ReadTNEFReader, AttachmentListReplacedOnlyFromTwoPairs) {
    const qh::Bytes props = MapiBlock().u32(0x0E070003, 1).bytes();
    auto one = qh::ReadTNEF::initWithData(
        TnefWriter().attribute(kLevelMessage, kAttMsgProps, props).attachment("a.txt", qh::asBytes("AAA")).bytes());
    auto two = qh::ReadTNEF::initWithData(TnefWriter()
                                              .attribute(kLevelMessage, kAttMsgProps, props)
                                              .attachment("a.txt", qh::asBytes("AAA"))
                                              .attachment("b.txt", qh::asBytes("BB"))
                                              .bytes());
    const qh::Array* kept = one->returnFullDictionary()->findArray("AttachmentList");
    ASSERT_NE(kept, nullptr);
    ASSERT_EQ(kept->size(), 1u);
    EXPECT_TRUE((*kept)[0].dict()->contains("sizeString"));
    EXPECT_EQ(*(*kept)[0].dict()->findString("name"), "a.txt");

    const qh::Array* replaced = two->returnFullDictionary()->findArray("AttachmentList");
    ASSERT_NE(replaced, nullptr);
    ASSERT_EQ(replaced->size(), 2u);
    EXPECT_FALSE((*replaced)[0].dict()->contains("size"));
    EXPECT_EQ(*(*replaced)[1].dict()->findString("name"), std::string("b.txt\0", 6));
}

TEST(ReadTNEFReader, WhatTheReaderHolds) {
    struct Case {
        const char* name;
        qh::Bytes data;
        bool hasDictionary;
        std::vector<std::string> keys;
    };
    const std::string rtf = "{\\rtf1\\ansi Body text}";
    const qh::Bytes body = withProps(
        MapiBlock().string8(0x0037001E, "Subj").variable(kTagRtfCompressed, qhtest::RtfCompressor::compress(rtf)));
    const Case cases[] = {
        {"empty", {}, false, {}},
        {"not TNEF", qh::toBytes("From: a@b\r\n\r\nhi"), false, {}},
        {"signature only: the decoder fails, the reader still holds a dictionary", u32(kSignature), true, {}},
        {"subject and body", body, true, {"Subject", "RTF", "Body"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto reader = qh::ReadTNEF::initWithData(c.data);
        ASSERT_NE(reader, nullptr);
        const qh::Dict* dictionary = reader->returnFullDictionary();
        ASSERT_EQ(dictionary != nullptr, c.hasDictionary);
        if (dictionary == nullptr) {
            EXPECT_EQ(reader->getContent("Subject"), nullptr);
            continue;
        }
        EXPECT_EQ(dictionary->keys(), c.keys);
    }
    auto reader = qh::ReadTNEF::initWithData(body);
    reader->buildDictionary({});
    ASSERT_NE(reader->getContent("Body"), nullptr);
    EXPECT_EQ(reader->getContent("Body")->string()->find("Body text"), 0u);
}

TEST(ReadTNEFSummary, ThreeLines) {
    const std::string error = "** Error Reading Message **";
    const std::string rtf = "{\\rtf1\\ansi Summary body}";
    const qh::Bytes message =
        TnefWriter()
            .attribute(kLevelMessage, kAttSubject, std::string(" Subject \0", 10))
            .attribute(kLevelMessage, kAttMsgProps,
                       MapiBlock().variable(kTagRtfCompressed, qhtest::RtfCompressor::compress(rtf)).bytes())
            .bytes();
    const qh::Bytes sent = TnefWriter()
                               .attribute(kLevelMessage, kAttFrom, TnefWriter::sender("Ann", "SMTP:ann@x.org"))
                               .attribute(kLevelMessage, kAttBody, std::string("Plain body\0", 11))
                               .bytes();
    const std::string errorJson = R"({"From":")" + error + R"(","Subject":")" + error + R"(","Body":")" + error + "\"}";
    const std::string dashes = R"({"From":"-","Subject":"-","Body":"-"})";
    const std::string subjectAndBody = R"({"From":"-","Subject":"Subject","Body":"Summary body"})";
    struct Case {
        const char* name;
        qh::Bytes data;
        std::string classic, complete;  // "" for none
    } cases[] = {
        {"three bytes", qh::toBytes("abc"), "", ""},
        {"four bytes that are no TNEF", qh::toBytes("abcd"), errorJson, errorJson},
        {"a stream the decoder rejects", u32(kSignature), dashes, dashes},
        {"subject and RTF body", message, subjectAndBody, subjectAndBody},
        {"only the complete reading names the sender", sent, dashes,
         R"({"From":"Ann","Subject":"-","Body":"Plain body"})"},
    };
    auto shown = [](const std::optional<qh::Dict>& summary) {
        return summary ? qh::Value(*summary).toJsonText() : std::string();
    };
    for (const Case& c : cases) {
        EXPECT_EQ(shown(qh::ReadTNEF::getSummaryForMessage(c.data)), c.classic) << c.name;
        EXPECT_EQ(shown(qh::ReadTNEF::getSummaryForMessage(c.data, qh::ReadOptions::complete())), c.complete) << c.name;
    }
}

// ---- the attribute stream decoder ------------------------------------------

struct Parsed {
    int status = 0;
    qh::TNEFMessage message;
};

Parsed parse(const qh::Bytes& stream) {
    Parsed parsed;
    qh::TNEFDecoder decoder;
    parsed.status = decoder.parseMemory(stream, parsed.message);
    return parsed;
}

std::string text(const qh::TNEFBuffer& buffer) {
    return std::string(buffer.data.text());
}

// ---- the stream loop ------------------------------------------------------

TEST(TNEFStreamLoop, EndingsAndFailures) {
    qh::Bytes fragment{kLevelAttachment};  // a header cut after its id
    qhtest::appendU32(fragment, kAttAttachRendData);
    struct Case {
        const char* name;
        qh::Bytes stream;
        int status;
        const char* subject;  // what the Subject handler stored ("" for nothing)
        std::size_t attachments;
    } cases[] = {
        {"shorter than a signature", qh::Bytes{0x78, 0x9F, 0x3E}, -1, "", 0},
        {"wrong signature", qh::Bytes{0x78, 0x9F, 0x3E, 0x32, 1, 0}, -1, "", 0},
        {"signature without key", qh::Bytes{0x78, 0x9F, 0x3E, 0x22, 1}, -1, "", 0},
        {"signature and key only", TnefWriter().bytes(), 0, "", 0},
        {"one attribute", TnefWriter().attribute(kLevelMessage, kAttSubject, "Hi").bytes(), 0, "Hi", 0},
        {"a zero-size attribute ends the stream",
         TnefWriter()
             .attribute(kLevelMessage, kAttBody, "b")
             .attribute(kLevelMessage, kAttFrom, "")
             .attribute(kLevelMessage, kAttSubject, "late")
             .bytes(),
         0, "", 0},
        {"a checksum off by one stops before its handler",
         TnefWriter()
             .attribute(kLevelAttachment, kAttAttachRendData, "r")
             .attributeWithChecksum(kLevelMessage, kAttSubject, qh::asBytes("Hi"),
                                    TnefWriter::checksum(qh::asBytes("Hi")) + 1)
             .attribute(kLevelAttachment, kAttAttachRendData, "r")
             .bytes(),
         0, "", 1},
        {"the level does not steer", TnefWriter().attribute(0x7F, kAttSubject, "Lv").bytes(), 0, "Lv", 0},
        {"the type half of the id must match", TnefWriter().attribute(kLevelMessage, 0x00008004, "no").bytes(), 0, "",
         0},
        {"unknown attributes are skipped",
         TnefWriter()
             .attribute(kLevelMessage, kAttTnefVersion, "\x01\x00\x01\x00")
             .attribute(kLevelMessage, 0x00099999, "??")
             .attribute(kLevelMessage, kAttSubject, "after")
             .bytes(),
         0, "after", 0},
        {"data longer than the stream: the checksum is read from the data",
         TnefWriter()
             .attribute(kLevelMessage, kAttSubject, "S")
             .header(kLevelMessage, kAttBody, 100)
             .raw(qh::asBytes("0123456789"))
             .bytes(),
         0, "S", 0},
        {"a round that reads nothing ends even when the last checksum was 0",
         TnefWriter().attribute(kLevelAttachment, kAttAttachRendData, qh::Bytes(14, 0)).bytes(), 0, "", 1},
        {"a trailing header fragment is dispatched with stale size and checksum 0",
         TnefWriter().attribute(kLevelAttachment, kAttAttachRendData, qh::Bytes(4, 0)).raw(fragment).bytes(), 0, "", 2},
        {"a trailing fragment after a non-zero checksum is not dispatched",
         TnefWriter().attribute(kLevelAttachment, kAttAttachRendData, "rend").raw(fragment).bytes(), 0, "", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Parsed parsed = parse(c.stream);
        EXPECT_EQ(parsed.status, c.status);
        EXPECT_EQ(text(parsed.message.subject), c.subject);
        EXPECT_EQ(parsed.message.attachments.size(), c.attachments);
    }
}

TEST(TNEFStreamLoop, ProcessTNEFGivesNothingOnlyForUndecodableStreams) {
    qh::TNEFDecoder decoder;
    EXPECT_FALSE(decoder.processTNEF(qh::Bytes({0x78, 0x9F, 0x3E, 0x22})).has_value());
    auto empty = decoder.processTNEF(TnefWriter().bytes());
    ASSERT_TRUE(empty.has_value());
    EXPECT_TRUE(empty->empty());
}

// ---- the handler table ------------------------------------------------------

// One stream with an attribute for every handler, then where each value landed.
TEST(TNEFHandlers, Routing) {
    const Parsed parsed = parse(
        TnefWriter()
            .attribute(kLevelMessage, kAttFrom, "raw-from")
            .attribute(kLevelMessage, kAttBody, "plain body")
            .attribute(kLevelMessage, kAttMessageClass, std::string(60, 'C'))
            .attribute(kLevelMessage, kAttDateSent, TnefWriter::date(2024, 3, 5, 10, 2, 3, 2))
            .attribute(kLevelMessage, kAttDateStart, TnefWriter::date(2001, 1, 2, 3, 4, 5))
            .attribute(kLevelMessage, kAttDateEnd, TnefWriter::date(2002, 6, 7, 8, 9, 10))
            .attribute(kLevelMessage, kAttDateReceived, TnefWriter::date(2020, 1, 1, 0, 0, 0))
            .attribute(kLevelMessage, kAttMsgProps, MapiBlock().u32(0x0E080003, 7).u32(0x0E070003, 8).bytes())
            .attribute(kLevelAttachment, kAttAttachTitle, "early.txt")  // before the first display info
            .attribute(kLevelAttachment, kAttAttachData, "early data")
            .attachment("one.txt", qh::asBytes("1"))
            .attachment("two.txt", qh::asBytes("22"), MapiBlock().u32(0x0E200003, 1).bytes())
            .bytes());
    ASSERT_EQ(parsed.status, 0);
    const qh::TNEFMessage& m = parsed.message;
    EXPECT_EQ(text(m.from), "raw-from");
    EXPECT_EQ(text(m.body), "plain body");
    EXPECT_EQ(std::string(m.messageClass.begin(), m.messageClass.end()), std::string(50, 'C'));  // at most 50 bytes
    EXPECT_EQ(m.dateSent.year, 2024);
    EXPECT_EQ(m.dateSent.second, 3);
    EXPECT_EQ(m.dateSent.dayOfWeek, 2);
    EXPECT_EQ(m.dateStart.month, 1);
    EXPECT_EQ(m.dateEnd.minute, 9);
    EXPECT_EQ(m.dateReceived.year, 0);  // no row for it
    EXPECT_EQ(m.mapi.count, 2u);
    EXPECT_EQ(text(m.attachmentHead.title), "early.txt");
    EXPECT_EQ(text(m.attachmentHead.fileData), "early data");
    // Each display info opens an attachment.
    ASSERT_EQ(m.attachments.size(), 2u);
    EXPECT_EQ(text(m.attachments[0]->title), std::string("one.txt") + '\0');
    EXPECT_EQ(text(m.attachments[1]->fileData), "22");
    EXPECT_EQ(m.attachments[1]->mapi.count, 1u);

    // A short date reads zeros for the missing words.
    const Parsed shortDate =
        parse(TnefWriter().attribute(kLevelMessage, kAttDateSent, qh::Bytes{0xE8, 0x07, 0x02}).bytes());
    EXPECT_EQ(shortDate.message.dateSent.year, 2024);
    EXPECT_EQ(shortDate.message.dateSent.month, 0);
}

TEST(TNEFHandlers, DateHandlerRejectsRowsThatAreNoDates) {
    qh::TNEFMessage message;
    const qh::Bytes date = TnefWriter::date(2020, 1, 1, 0, 0, 0);
    EXPECT_EQ(qh::TNEFDateHandler(&message, 0, date), -1);  // the "From" row
    EXPECT_EQ(qh::TNEFDateHandler(&message, 99, date), -1);
    EXPECT_EQ(qh::TNEFDateHandler(&message, 2, date), 0);
}

// ---- the MAPI property block --------------------------------------------------

qh::TNEFPropertyList decodeBlock(const qh::Bytes& block) {
    qh::TNEFPropertyList list;
    qh::TNEFMessage message;
    EXPECT_EQ(qh::TNEFFillMapi(&message, block, &list), 0);
    return list;
}

constexpr std::uint32_t kSentinelTag = 0x66660003;
constexpr std::uint32_t kSentinelValue = 0x12345678;

struct ConsumptionCase {
    std::uint16_t type;
    qh::Bytes wire;  // the bytes after the tag that the decoder should consume
    std::uint32_t size;
    std::string data;
};

TEST(TNEFFillMapi, ConsumptionTable) {
    const ConsumptionCase cases[] = {
        {kTypeShort, qh::Bytes{0x34, 0x12, 0xEE, 0xEE}, 2, "\x34\x12"},
        {kTypeLong, qh::Bytes{1, 2, 3, 4}, 4, "\x01\x02\x03\x04"},
        {kTypeFloat, qh::Bytes{1, 2, 3, 4}, 4, "\x01\x02\x03\x04"},
        {kTypeCurrency, qh::Bytes{1, 2, 3, 4}, 4, "\x01\x02\x03\x04"},
        {kTypeAppTime, qh::Bytes{5, 6, 7, 8}, 4, "\x05\x06\x07\x08"},
        {kTypeError, qh::Bytes{1, 0, 0, 0}, 4, std::string("\x01\0\0\0", 4)},
        {kTypeBoolean, qh::Bytes{1, 0, 0, 0}, 4, std::string("\x01\0\0\0", 4)},
        {kTypeDouble, qh::Bytes{1, 2, 3, 4, 5, 6, 7, 8}, 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        {kTypeLongLong, qh::Bytes{1, 2, 3, 4, 5, 6, 7, 8}, 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        {kTypeSysTime, qh::Bytes{1, 2, 3, 4, 5, 6, 7, 8}, 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        // count, length 5, data, 3 bytes of padding
        {kTypeString8, concat({u32(1), u32(5), qh::toBytes(std::string("abcd\0", 5)), qh::Bytes{0, 0, 0}}), 5,
         std::string("abcd\0", 5)},
        {kTypeBinary, concat({u32(1), u32(3), qh::Bytes{7, 8, 9, 0}}), 3, "\x07\x08\x09"},
        {kTypeObject, concat({u32(1), u32(4), qh::Bytes{1, 2, 3, 4}}), 4, "\x01\x02\x03\x04"},
        // UTF-16LE "hi" and its zero: the stored size stays 6; the conversion
        // derives every character from the first byte ('h', 'h' + 2, 'h' + 4).
        {kTypeUnicode, concat({u32(1), u32(6), qhtest::utf16le(u"hi"), qh::Bytes{0, 0, 0, 0}}), 6, "hjl"},
        {kTypeClsid, {}, 0, ""},
        {0x00FE, {}, 0, ""},
    };
    for (const ConsumptionCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "type 0x" << std::hex << c.type);
        const qh::Bytes block =
            concat({u32(2), u32(propertyTag(c.type, 0x6600)), c.wire, u32(kSentinelTag), u32(kSentinelValue)});
        qh::TNEFPropertyList list = decodeBlock(block);
        ASSERT_EQ(list.count, 2u);
        const qh::TNEFProperty& first = list.properties[0];
        ASSERT_TRUE(first.firstValue.has_value());
        EXPECT_EQ(first.firstValue->size, c.size);
        EXPECT_EQ(std::string(first.firstValue->data.begin(), first.firstValue->data.end()), c.data);
        // The next property is read exactly where the table says this one ends.
        EXPECT_EQ(list.properties[1].tag, kSentinelTag);
        ASSERT_NE(GetProperty(&list, kSentinelTag), nullptr);
        EXPECT_EQ(GetProperty(&list, kSentinelTag)->data, u32(kSentinelValue));
    }
}

TEST(TNEFFillMapi, EightByteCurrencyShiftsTheRestOfTheBlock) {
    const qh::Bytes block = MapiBlock()
                                .u64(propertyTag(kTypeCurrency, 0x6601), 0x0000000500000004ull)
                                .u32(kSentinelTag, kSentinelValue)
                                .bytes();
    qh::TNEFPropertyList list = decodeBlock(block);
    ASSERT_EQ(list.count, 2u);
    // The second half of the currency is taken for the next tag.
    EXPECT_EQ(list.properties[1].tag, 5u);
    EXPECT_EQ(GetProperty(&list, kSentinelTag), nullptr);
}

TEST(TNEFFillMapi, NamedProperties) {
    MapiBlock::Property byNumber{propertyTag(kTypeString8, 0x8001), false, 0x3707, std::nullopt, {qh::toBytes("n.txt")}};
    const qh::Bytes numbered = MapiBlock().add(byNumber).bytes();
    qh::TNEFPropertyList list = decodeBlock(numbered);
    ASSERT_EQ(list.count, 1u);
    EXPECT_EQ(list.properties[0].custom, 1u);
    EXPECT_EQ(list.properties[0].tag, kTagAttachLongFilename);
    EXPECT_EQ(list.properties[0].guid[0], 0xA0);
    // A named property is never found by tag.
    EXPECT_EQ(GetProperty(&list, kTagAttachLongFilename), nullptr);

    // Named by a string: the name is counted but not consumed, so its length
    // field is read as the (long) value and the name bytes follow as the next tag.
    MapiBlock::Property byName{propertyTag(kTypeLong, 0x8002), false, std::nullopt, u"Nm", {u32(42)}};
    list = decodeBlock(MapiBlock().add(byName).claimCount(1).bytes());
    ASSERT_EQ(list.count, 1u);
    EXPECT_EQ(list.properties[0].nameCount, 1u);
    EXPECT_EQ(list.properties[0].tag, propertyTag(kTypeLong, 0x8002));
    EXPECT_EQ(list.properties[0].firstValue->data, u32(6));  // the name's byte length, "N m \0"
}

TEST(TNEFFillMapi, MultiValuedProperties) {
    const std::uint32_t longs = propertyTag(kTypeLong, 0x6602);
    struct Case {
        const char* name;
        qh::Bytes block;
        std::uint32_t count;       // properties decoded
        std::uint32_t valueCount;  // of the first
        qh::Bytes firstSlot;
    };
    const Case cases[] = {
        {"one value is decoded and finished",
         MapiBlock().multi(longs, {u32(11)}).u32(kSentinelTag, kSentinelValue).bytes(), 2, 1, u32(11)},
        {"further values land in the first slot, one per iteration",
         MapiBlock().multi(longs, {u32(11), u32(22), u32(33)}).u32(kSentinelTag, kSentinelValue).claimCount(2).bytes(),
         1, 3, u32(22)},
        {"an unfinished property reads the next tag as a value",
         MapiBlock().multi(longs, {u32(11), u32(22), u32(33)}).u32(kSentinelTag, kSentinelValue).claimCount(4).bytes(),
         1, 3, u32(kSentinelTag)},
        {"multi-valued strings carry no count of their own",
         MapiBlock().multi(propertyTag(kTypeString8, 0x6603), {qh::toBytes("ab")}).u32(kSentinelTag, 1).bytes(), 2, 1,
         qh::toBytes("ab")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qh::TNEFPropertyList list = decodeBlock(c.block);
        ASSERT_EQ(list.count, c.count);
        EXPECT_EQ(list.properties[0].valueCount, c.valueCount);
        EXPECT_EQ(list.properties[0].tag & kMultiValueFlag, 0u);
        ASSERT_TRUE(list.properties[0].firstValue.has_value());
        EXPECT_EQ(list.properties[0].firstValue->data, c.firstSlot);
    }
}

TEST(TNEFFillMapi, PropertyRecordsStayInProportionToTheInput) {
    // 120000 tags of a type that consumes nothing: a record per 4 bytes of
    // input unless bounded (at most one per 12 bytes, and 65536 more).
    qh::Bytes block;
    qhtest::appendU32(block, 120000);
    for (int i = 0; i < 120000; ++i) qhtest::appendU32(block, 0x12340049);
    const qh::Bytes stream = TnefWriter().attribute(kLevelMessage, kAttMsgProps, block).bytes();
    const Parsed parsed = parse(stream);
    EXPECT_EQ(parsed.status, 0);
    EXPECT_LE(parsed.message.mapi.count, stream.size() / 12 + 65536);
    EXPECT_GT(parsed.message.mapi.count, 65536u);
}

TEST(TNEFFillMapi, HostileCountsStayInsideTheBlock) {
    struct Case {
        const char* name;
        qh::Bytes block;
        std::uint32_t count;
    };
    const Case cases[] = {
        {"a property count far beyond the data", concat({u32(0xFFFFFFFF), u32(kSentinelTag), u32(1)}), 1},
        {"a length beyond the data ends the block",
         concat({u32(3), u32(kSentinelTag), u32(1), u32(0x0037001E), u32(1), u32(0x7FFFFFFF), qh::toBytes("abc")}), 1},
        {"a huge value count holds one slot",
         concat({u32(1), u32(propertyTag(kTypeLong | kMultiValueFlag, 0x6604)), u32(0xFFFFFFFF), u32(5)}), 1},
        {"an unfinished property of a type that reads nothing does not spin",
         concat({u32(0xFFFFFFFF), u32(propertyTag(kTypeClsid | kMultiValueFlag, 0x6605)), u32(9)}), 1},
        {"a value count of 0 keeps no slot",
         concat({u32(2), u32(propertyTag(kTypeLong | kMultiValueFlag, 0x6606)), u32(0), u32(5), u32(6)}), 1},
        {"a block shorter than its count", qh::Bytes{1, 0}, 0},
        {"a tag cut short", concat({u32(1), qh::Bytes{0x03, 0x00}}), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qh::TNEFPropertyList list = decodeBlock(c.block);
        EXPECT_EQ(list.count, c.count);
        EXPECT_EQ(list.properties.size(), c.count);
    }
    const qh::TNEFPropertyList empty = decodeBlock(cases[4].block);
    ASSERT_EQ(empty.count, 1u);
    EXPECT_FALSE(empty.properties[0].firstValue.has_value());
}

// ---- the result dictionary ------------------------------------------------------

qh::Dict decode(const qh::Bytes& stream) {
    qh::TNEFDecoder decoder;
    auto result = decoder.processTNEF(stream);
    EXPECT_TRUE(result.has_value());
    return result.value_or(qh::Dict{});
}

TEST(TNEFDictionary, SubjectAndBodies) {
    const std::string rtf = "{\\rtf1\\ansi Hello}", html = "<html><body>hi</body></html>";
    const qh::Bytes subjectBlock = MapiBlock().string8(0x0037001E, "from property").bytes();
    const qh::Bytes htmlOnly = withProps(MapiBlock().variable(kTagHtml, qh::asBytes(html)));
    struct Case {
        const char* name;
        qh::Bytes stream;
        const char* key;
        std::string expected;  // a string's text or a blob's bytes; "<absent>" for none
    } cases[] = {
        {"subject property", withProps(MapiBlock().string8(0x0037001E, "from property")), "Subject", "from property"},
        {"conversation topic", withProps(MapiBlock().string8(0x0070001E, "topic")), "Subject", "topic"},
        {"another known string id is no subject", withProps(MapiBlock().string8(0x0E1D001E, "norm")), "Subject",
         "<absent>"},
        {"the subject attribute wins",
         TnefWriter()
             .attribute(kLevelMessage, kAttSubject, std::string("attribute\0", 10))
             .attribute(kLevelMessage, kAttMsgProps, subjectBlock)
             .bytes(),
         "Subject", "attribute"},
        {"without message properties the subject attribute is not used",
         TnefWriter().attribute(kLevelMessage, kAttSubject, "lonely").bytes(), "Subject", "<absent>"},
        {"text that is not UTF-8 leaves the key out", withProps(MapiBlock().string8(0x0037001E, "caf\xE9")), "Subject",
         "<absent>"},
        {"compressed RTF", withProps(MapiBlock().variable(kTagRtfCompressed, qhtest::RtfCompressor::compress(rtf))),
         "RTF", rtf},
        {"HTML", htmlOnly, "HTML", html},
        {"HTML alone gives no RTF", htmlOnly, "RTF", "<absent>"},
    };
    for (const Case& c : cases) {
        qh::Dict dict = decode(c.stream);
        const qh::Value* value = dict.find(c.key);
        std::string shown = "<absent>";
        if (value && value->string()) shown = *value->string();
        if (value && value->bytes()) shown = value->bytes()->text();
        EXPECT_EQ(shown, c.expected) << c.name;
    }
}

// The display style itself is pinned in DateFormattingTest.
TEST(TNEFDictionary, DateSentInTheDisplayStyle) {
    const MapiBlock props = MapiBlock().u32(0x0E070003, 1);
    qh::Dict dict = decode(TnefWriter()
                               .attribute(kLevelMessage, kAttDateSent, TnefWriter::date(2024, 3, 5, 10, 2, 3))
                               .attribute(kLevelMessage, kAttMsgProps, props.bytes())
                               .bytes());
    ASSERT_NE(dict.findString("Date"), nullptr);
    EXPECT_EQ(*dict.findString("Date"), qh::DateFormatting::displayString(qh::Date{1709632923}));
    EXPECT_EQ(decode(withProps(props)).findString("Date"), nullptr);
}

TEST(TNEFDictionary, AttachmentList) {
    const std::string latin1Title = "caf\xE9.txt";
    qh::Dict dict = decode(
        TnefWriter()
            .attribute(kLevelAttachment, kAttAttachData, "head data is never reported")
            .attachment("LONGFI~1.TXT", qh::asBytes("first"),
                        MapiBlock()
                            .string8(kTagDisplayName, "display.txt")
                            .string8(kTagAttachLongFilename, "long file name.txt")
                            .bytes())
            .attachment("TITLE.TXT", qh::asBytes("second"), MapiBlock().string8(kTagDisplayName, "shown.txt").bytes())
            .attachment("nodata.txt", std::nullopt)
            .attachment("title.txt", qh::asBytes("third"))
            .attachment(latin1Title, qh::asBytes("fourth"))
            .attachment(std::string(300, 'n'), qh::asBytes("fifth"))
            .bytes());
    const qh::Array* list = dict.findArray("AttachmentList");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->size(), 5u);
    // The title that is no UTF-8 gives no name; names are cut at 255 bytes.
    const std::string names[] = {"long file name.txt", "shown.txt", "title.txt", "<absent>", std::string(255, 'n')};
    const char* contents[] = {"first", "second", "third", "fourth", "fifth"};
    for (std::size_t i = 0; i < list->size(); ++i) {
        SCOPED_TRACE(i);
        const qh::Dict* item = (*list)[i].dict();
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->findBytes("data")->text(), contents[i]);
        EXPECT_EQ(item->find("size")->integer(), std::int64_t(std::strlen(contents[i])));
        EXPECT_NE(item->findString("sizeString"), nullptr);
        EXPECT_EQ(item->findString("name") ? *item->findString("name") : "<absent>", names[i]);
    }
}

}  // namespace

// The complete reading, rule by rule: each fixture, the key it affects, and
// what each reading makes of it (JSON text of the value; "" for absent).
namespace complete {

qh::Bytes attachmentProperties(std::u16string_view longName, std::u16string_view mimeType, std::u16string_view contentId,
                               std::optional<qh::Bytes> data = std::nullopt, std::uint32_t method = 1) {
    MapiBlock block;
    block.unicode(0x3707001F, longName).unicode(0x370E001F, mimeType).unicode(0x3712001F, contentId);
    block.u32(0x37050003, method);
    if (data) block.variable(method == 5 ? 0x3701000D : 0x37010102, *data);
    return block.bytes();
}

// The JSON text of the value at `path` ("Key" or "Key/0/sub"); "" when absent.
std::string jsonAt(const qh::Dict* dictionary, const std::string& path) {
    const auto whole = nlohmann::ordered_json::parse(qh::Value(*dictionary).toJsonText());
    const nlohmann::ordered_json::json_pointer pointer("/" + path);
    return whole.contains(pointer) ? whole.at(pointer).dump() : "";
}

TEST(ReadTNEFComplete, RuleByRule) {
    qh::Log::setSystemLogEnabled(false);
    const qh::Bytes subject = qh::toBytes(std::string("Hello\0", 6));
    const qh::Bytes recipients = TnefWriter::recipientTable({
        MapiBlock().u32(0x0C150003, 1).unicode(0x3001001F, u"Ann").unicode(0x39FE001F, u"ann@x.org"),
        MapiBlock().u32(0x0C150003, 2).unicode(0x3001001F, u"Bob").unicode(0x39FE001F, u"bob@x.org"),
        MapiBlock().u32(0x0C150003, 3).unicode(0x3001001F, u"Cy").unicode(0x39FE001F, u"cy@x.org"),
    });
    const qh::Bytes inner = TnefWriter().attribute(kLevelMessage, kAttSubject, std::string("Inner\0", 6)).bytes();
    qh::Bytes object = qh::Bytes(16, 0x07);  // an interface id, then the attached stream
    object.insert(object.end(), inner.begin(), inner.end());
    const qh::Bytes cp1251 = concat({u32(1251), u32(0)});

    struct Case {
        const char* rule;
        qh::Bytes data;
        std::string path;
        std::string classic;
        std::string complete;
    };
    const Case cases[] = {
        {"a zero-size attribute is skipped, not the end",
         TnefWriter().attribute(kLevelMessage, kAttBody, "").attribute(kLevelMessage, kAttSubject, subject).bytes(),
         "Subject", "", "\"Hello\""},
        {"a bad checksum is tolerated",
         TnefWriter().attributeWithChecksum(kLevelMessage, kAttSubject, subject, 1).bytes(), "Subject", "",
         "\"Hello\""},
        {"trailing bytes end the stream quietly",
         TnefWriter().attribute(kLevelMessage, kAttSubject, subject).raw(qh::toBytes("garbage!!!!!")).bytes(),
         "Subject", "", "\"Hello\""},
        {"attribute ids without their type half",
         TnefWriter().raw(qh::Bytes{2, 0x02, 0x90, 0, 0, 0, 0, 0, 0, 0, 0}).attribute(kLevelAttachment, 0x800F, "abc").bytes(),
         "AttachmentList/0/data", "", "{\"$base64\":\"YWJj\"}"},
        {"data before its title pairs with it",
         dataBeforeTitles({"one", "two", "three"}),
         "AttachmentList/0", "{\"data\":{\"$base64\":\"dHdv\"},\"name\":\"1.txt\\u0000\"}",
         "{\"name\":\"1.txt\",\"data\":{\"$base64\":\"b25l\"},\"size\":3,\"sizeString\":\"3.00 bytes\"}"},
        {"data, name, type and content id from the attachment's property block",
         TnefWriter().attachment(std::nullopt, std::nullopt,
                                 attachmentProperties(u"r\u00E9sum\u00E9.pdf", u"application/pdf", u"<c1@x>", qh::toBytes("PDF")))
             .bytes(),
         "AttachmentList/0", "",
         "{\"name\":\"résumé.pdf\",\"data\":{\"$base64\":\"UERG\"},\"size\":3,\"sizeString\":\"3.00 bytes\","
         "\"mimeType\":\"application/pdf\",\"AttachContentID\":\"c1@x\"}"},
        {"an attached message becomes MIME text",
         TnefWriter().attachment(std::nullopt, std::nullopt, attachmentProperties(u"Fwd", u"", u"", object, 5)).bytes(),
         "AttachmentList/0/name", "", "\"Fwd.eml\""},
        {"sender from UTF-16 properties",
         withProps(MapiBlock().unicode(0x0042001F, u"J\u00F6rg").unicode(0x5D02001F, u"j@x.de")),
         "From", "", "[{\"Name\":\"Jörg\",\"Address\":\"j@x.de\"}]"},
        {"sender from the From attribute",
         TnefWriter().attribute(kLevelMessage, kAttFrom, TnefWriter::sender("Ann", "SMTP:ann@x.org")).bytes(), "From",
         "",
         "[{\"Name\":\"Ann\",\"Address\":\"ann@x.org\"}]"},
        {"recipients by type", TnefWriter().attribute(kLevelMessage, kAttRecipTable, recipients).bytes(), "BCC", "",
         "[{\"Name\":\"Cy\",\"Address\":\"cy@x.org\"}]"},
        {"8-bit strings in the OEM code page",
         TnefWriter().attribute(kLevelMessage, kAttOemCodepage, cp1251)
             .attribute(kLevelMessage, kAttSubject, std::string("\xCF\xF0\xE8\xE2\xE5\xF2\0", 7)).bytes(),
         "Subject", "", "\"Привет\""},
        {"threading from the message's properties",
         withProps(MapiBlock().string8(0x1042001E, "<a@b>")),
         "InReplyTo", "", "\"<a@b>\""},
        {"a zero submit time gives no 1601 date",
         withProps(MapiBlock().u64(0x00390040, 0)),
         "TimeStamp", "", ""},
        {"the date sent",
         TnefWriter().attribute(kLevelMessage, kAttDateSent, TnefWriter::date(2024, 3, 5, 10, 2, 3)).bytes(),
         "TimeStamp", "", "{\"$date\":\"2024-03-05T10:02:03Z\"}"},
        {"named properties named by strings are consumed whole",
         withProps(MapiBlock()
                       .add({0x8001001F, false, std::nullopt, std::u16string(u"x-name"), {qhtest::utf16le(u"v")}})
                       .unicode(0x0037001F, u"After")),
         "Subject", "\"A\\u0000f\\u0000t\\u0000e\\u0000r\\u0000\\u0000\\u0000\"", "\"After\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rule);
        auto classic = qh::ReadTNEF::initWithData(c.data, qh::ReadOptions::classic());
        auto complete = qh::ReadTNEF::initWithData(c.data, qh::ReadOptions::complete());
        EXPECT_EQ(jsonAt(classic->returnFullDictionary(), c.path), c.classic);
        EXPECT_EQ(jsonAt(complete->returnFullDictionary(), c.path), c.complete);
    }
}

TEST(ReadTNEFComplete, AttachedMessagesNestOnlyToTheEmbeddingLimit) {
    qh::Log::setSystemLogEnabled(false);
    // Each level attaches the one below; 40 levels, past the limit of 32.
    qh::Bytes stream = TnefWriter().attribute(kLevelMessage, kAttSubject, std::string("deepest\0", 8)).bytes();
    for (int level = 0; level < 40; ++level) {
        qh::Bytes object(16, 0x07);
        object.insert(object.end(), stream.begin(), stream.end());
        stream = TnefWriter().attachment(std::nullopt, std::nullopt, attachmentProperties(u"m", u"", u"", object, 5)).bytes();
    }
    qh::Log::Capture capture;
    auto reader = qh::ReadTNEF::initWithData(stream, qh::ReadOptions::complete());
    ASSERT_NE(reader->returnFullDictionary(), nullptr);
    EXPECT_EQ(jsonAt(reader->returnFullDictionary(), "AttachmentList/0/name"), "\"m.eml\"");
    EXPECT_EQ(countOf(capture.lines(), "Embedded message nested too deeply - not read"), 1u);
}

}  // namespace complete
