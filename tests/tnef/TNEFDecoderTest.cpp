// The attribute stream loop, the handler table and the MAPI property block
// decoder, on streams made by the fixture writer.
#include <string>

#include <gtest/gtest.h>

#include "readers/tnef/Attributes.h"
#include "readers/tnef/TNEFDecoder.h"
#include "readers/tnef/TNEFHandlers.h"
#include "support/EnvironmentGuard.h"
#include "support/RtfCompressor.h"
#include "support/TnefWriter.h"

namespace {

using namespace qh::tnef;
using qhtest::MapiBlock;
using qhtest::TnefWriter;

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

qh::Bytes withProps(const MapiBlock& block) {
    return TnefWriter().attribute(kLevelMessage, kAttMsgProps, block.bytes()).bytes();
}

std::string text(const qh::TNEFBuffer& buffer) {
    return std::string(buffer.data.text());
}

qh::Bytes bytesOf(std::initializer_list<int> values) {
    qh::Bytes out;
    for (int v : values) out.push_back(static_cast<std::uint8_t>(v));
    return out;
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
        {"shorter than a signature", bytesOf({0x78, 0x9F, 0x3E}), -1, "", 0},
        {"wrong signature", bytesOf({0x78, 0x9F, 0x3E, 0x32, 1, 0}), -1, "", 0},
        {"signature without key", bytesOf({0x78, 0x9F, 0x3E, 0x22, 1}), -1, "", 0},
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
    EXPECT_FALSE(decoder.processTNEF(bytesOf({0x78, 0x9F, 0x3E, 0x22})).has_value());
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

qh::Bytes concat(std::initializer_list<qh::Bytes> parts) {
    qh::Bytes out;
    for (const qh::Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

qh::Bytes u32(std::uint32_t value) {
    qh::Bytes out;
    qhtest::appendU32(out, value);
    return out;
}

TEST(TNEFFillMapi, ConsumptionTable) {
    const ConsumptionCase cases[] = {
        {kTypeShort, bytesOf({0x34, 0x12, 0xEE, 0xEE}), 2, "\x34\x12"},
        {kTypeLong, bytesOf({1, 2, 3, 4}), 4, "\x01\x02\x03\x04"},
        {kTypeFloat, bytesOf({1, 2, 3, 4}), 4, "\x01\x02\x03\x04"},
        {kTypeCurrency, bytesOf({1, 2, 3, 4}), 4, "\x01\x02\x03\x04"},
        {kTypeAppTime, bytesOf({5, 6, 7, 8}), 4, "\x05\x06\x07\x08"},
        {kTypeError, bytesOf({1, 0, 0, 0}), 4, std::string("\x01\0\0\0", 4)},
        {kTypeBoolean, bytesOf({1, 0, 0, 0}), 4, std::string("\x01\0\0\0", 4)},
        {kTypeDouble, bytesOf({1, 2, 3, 4, 5, 6, 7, 8}), 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        {kTypeLongLong, bytesOf({1, 2, 3, 4, 5, 6, 7, 8}), 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        {kTypeSysTime, bytesOf({1, 2, 3, 4, 5, 6, 7, 8}), 8, "\x01\x02\x03\x04\x05\x06\x07\x08"},
        // count, length 5, data, 3 bytes of padding
        {kTypeString8, concat({u32(1), u32(5), qh::toBytes(std::string("abcd\0", 5)), bytesOf({0, 0, 0})}), 5,
         std::string("abcd\0", 5)},
        {kTypeBinary, concat({u32(1), u32(3), bytesOf({7, 8, 9, 0})}), 3, "\x07\x08\x09"},
        {kTypeObject, concat({u32(1), u32(4), bytesOf({1, 2, 3, 4})}), 4, "\x01\x02\x03\x04"},
        // UTF-16LE "hi" and its zero: the stored size stays 6; the conversion
        // derives every character from the first byte ('h', 'h' + 2, 'h' + 4).
        {kTypeUnicode, concat({u32(1), u32(6), qhtest::utf16le(u"hi"), bytesOf({0, 0, 0, 0})}), 6, "hjl"},
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
        {"a block shorter than its count", bytesOf({1, 0}), 0},
        {"a tag cut short", concat({u32(1), bytesOf({0x03, 0x00})}), 0},
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

TEST(TNEFDictionary, DateSentInTheDisplayStyle) {
    qhtest::EnvironmentGuard environment;
    environment.locale("en_US.UTF-8", "UTC");
    const MapiBlock props = MapiBlock().u32(0x0E070003, 1);
    qh::Dict dict = decode(TnefWriter()
                               .attribute(kLevelMessage, kAttDateSent, TnefWriter::date(2024, 3, 5, 10, 2, 3))
                               .attribute(kLevelMessage, kAttMsgProps, props.bytes())
                               .bytes());
    ASSERT_NE(dict.findString("Date"), nullptr);
    std::string shown = *dict.findString("Date");
    // ICU puts a narrow no-break space before the day period.
    if (auto at = shown.find("\xE2\x80\xAF"); at != std::string::npos) shown.replace(at, 3, " ");
    EXPECT_EQ(shown, "Mar 5, 2024, 10:02 AM");
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
