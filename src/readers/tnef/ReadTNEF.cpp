#include "readers/tnef/ReadTNEF.h"

#include <array>

#include "core/ByteCursor.h"
#include "core/Log.h"
#include <quillhaven/MessageKeys.h>
#include "core/TextEncoding.h"
#include "readers/tnef/Attributes.h"
#include "readers/tnef/TagScanner.h"
#include "readers/tnef/TNEFDecoder.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"
#include "util/AddressLists.h"
#include "util/ByteLoads.h"
#include "util/DataWangers.h"
#include "util/StringWangers.h"
#include "util/TimeWangers.h"

namespace qh {

using namespace tnef;

namespace {

constexpr std::array<std::uint32_t, 9> kPropertySearchTags = {
    kTagHtml,          kTagSubjectUnicode, kTagSentRepresentingName,
    kTagSenderName,    kTagSentRepresentingEmail, kTagSenderEmail,
    kTagNamedSenderEmail, kTagLastModificationTime, kTagRtfCompressed,
};

constexpr char kErrorReading[] = "** Error Reading Message **";

// Converted attached messages may together take this much beside the input,
// as for messages embedded in a .msg.
constexpr std::size_t kConvertedFloor = 1u << 20;
constexpr std::size_t kConvertedPerInputByte = 8;

// Offset of the first match of the tag's four little-endian bytes, as the
// shared byte search reports it; the not-found marker fails every bounds test.
std::uint64_t searchTag(ByteView source, std::uint32_t tag) {
    const std::uint8_t pattern[4] = {std::uint8_t(tag), std::uint8_t(tag >> 8), std::uint8_t(tag >> 16),
                                     std::uint8_t(tag >> 24)};
    return static_cast<std::uint64_t>(DataWangers::searchForBytes(pattern, sizeof pattern, source).location);
}

std::optional<std::string> utf8(ByteView bytes) {
    return TextEncoding::decode(bytes, StringEncoding::UTF8);
}

// The value after a search match: 4-byte fields (the tag first, the value's
// length last), then the value. A field that runs past the end logs its line
// and gives none; a value that runs past the end logs `cutLine` and is cut to
// what remains. `end` receives the offset after the value.
std::optional<ByteView> valueAt(ByteView block, std::uint64_t match, std::initializer_list<const char*> fieldLines,
                                const char* cutLine, std::size_t* end = nullptr) {
    ByteCursor cursor(block);
    cursor.seek(static_cast<std::size_t>(match));  // the not-found marker lies past every end
    std::uint32_t length = 0;
    std::size_t field = 0;
    for (const char* line : fieldLines) {
        if (++field == fieldLines.size()) {
            length = cursor.u32le();
        } else {
            cursor.skip(4);
        }
        if (cursor.isShort()) {
            Log::line(line);
            return std::nullopt;
        }
    }
    const ByteView value = cursor.upTo(length);
    if (cursor.isShort()) Log::line(cutLine);
    if (end != nullptr) *end = cursor.position();
    return value;
}

bool hasSignature(ByteView data) {
    return data.size() >= 4 && byteReplaceDWord(data, 0) == kSignature;
}

}  // namespace

std::unique_ptr<ReadTNEF> ReadTNEF::initWithData(ByteView data) {
    return initWithData(data, ReadOptions::classic());
}

std::unique_ptr<ReadTNEF> ReadTNEF::initWithData(ByteView data, const ReadOptions& options) {
    auto reader = std::make_unique<ReadTNEF>();
    MsgReadBudget budget;
    budget.convertedLimit = kConvertedFloor + kConvertedPerInputByte * data.size();
    TnefReadContext context{&TnefRules::of(options.reading), options, &budget};
    reader->mailContent = readAttachedMessage(data, context);
    return reader;
}

std::optional<Dict> ReadTNEF::readAttachedMessage(ByteView data, TnefReadContext& context) {
    if (!hasSignature(data)) return std::nullopt;
    TNEFDecoder decoder;
    Dict content = decoder.processTNEF(data, context).value_or(Dict{});
    // The plain text of the RTF body where the stream has no plain body (the
    // classic dictionary never has one at this point).
    if (!content.empty() && !content.contains(keys::kBody)) {
        if (const Blob* rtf = content.findBytes(keys::kRTF)) {
            if (auto text = RTFReader::stringFromRTFData(rtf->view())) content.set(std::string(keys::kBody), std::move(*text));
        }
    }
    if (context.rules->searchPass) buildTNEFDictionary(content, data, false);
    return content;
}

const Dict* ReadTNEF::returnFullDictionary() const {
    return mailContent ? &*mailContent : nullptr;
}

const Value* ReadTNEF::getContent(std::string_view key) const {
    return mailContent ? mailContent->find(key) : nullptr;
}

void ReadTNEF::buildDictionary(ByteView) {}

void ReadTNEF::buildTNEFDictionary(Dict& dictionary, ByteView data, bool ignoreAttachments) {
    if (auto block = valueAt(data, searchTag(data, kAttMsgProps),
                             {"** Decode error ** Bad size in TNEF datastream type. Aborting",
                              "** Decode error ** Bad size in TNEF datastream length. Aborting"},
                             "** Decode error ** Bad size in TNEF datastream. Attempting to continue.")) {
        decodePropertyStream(block->data(), block->size(), dictionary);
    }

    if (ignoreAttachments) return;
    Array found = retrieveAttachments(data);
    // classic: a single pair is left alone on purpose (the plug-in host's stored dictionaries have it): the decoder's list (with sizes)
    // stands then; from two pairs on, the search pass's list replaces it.
    if (found.size() >= 2) dictionary.set(std::string(keys::kAttachmentList), Value(std::move(found)));
}

bool ReadTNEF::decodePropertyStream(const std::uint8_t* bytes, std::size_t length, Dict& dictionary) {
    const ByteView block(bytes, length);
    std::optional<std::string> senderName;
    std::optional<std::string> senderAddress;
    for (std::size_t row = 0; row < kPropertySearchTags.size(); ++row) {
        const std::optional<ByteView> found =
            valueAt(block, searchTag(block, kPropertySearchTags[row]),
                    {"** Decode error ** Bad size in TNEF property stream type. Aborting",
                     "** Decode error ** Bad size in TNEF property stream count. Aborting",
                     "** Decode error ** Bad size in TNEF property stream length. Aborting"},
                    "** Decode error ** Bad size in TNEF property stream. Attempting to continue.");
        if (!found) continue;
        // classic: the first occurrence of the four bytes wins, wherever it stands.
        const ByteView value = *found;
        switch (row) {
            case 0:
                if (auto html = utf8(value); html && !html->empty()) dictionary.set(std::string(keys::kHTML), std::move(*html));
                break;
            case 1:
                // classic: stored as UTF-16LE, decoded as UTF-8 all the same: the
                // dictionaries built so far carry the subject in that form.
                if (auto subject = utf8(value); subject && !subject->empty()) {
                    dictionary.set(std::string(keys::kSubject), std::move(*subject));
                }
                break;
            case 2:
            case 3:
                if (!senderName || senderName->empty()) senderName = utf8(value);
                break;
            case 4:
            case 5:
            case 6:
                if (!senderAddress || senderAddress->empty()) senderAddress = utf8(value);
                break;
            case 7: {
                const std::uint64_t fileTime = byteReplaceDDWord(value, 0);
                const Date date{double(TimeWangers::unixTimeFromWindows(static_cast<std::int64_t>(fileTime)))};
                std::string text = TimeWangers::displayString(date);
                if (!text.empty()) dictionary.set(std::string(keys::kDate), std::move(text));
                break;
            }
            case 8:
                if (RTFWangers::typeIsRTF(value)) {
                    if (auto rtf = RTFWangers::getRTFForData(value); rtf && !rtf->empty()) {
                        dictionary.set(std::string(keys::kRTF), Value(std::move(*rtf)));
                    }
                }
                break;
        }
    }
    if (!senderName || senderName->empty()) senderName = senderAddress;
    if (!senderAddress) return true;
    if (senderName && !senderName->empty() && !senderAddress->empty()) {
        dictionary.set(std::string(keys::kFrom), Array{Value(buildAddressFromTags(*senderName, *senderAddress))});
    }
    return true;
}

Array ReadTNEF::retrieveAttachments(ByteView data) {
    // The search resumes after each value found: an offset into the stream
    // stands for "what follows the value".
    Array attachments;
    TagScanner titles(data, kAttAttachTitle);
    TagScanner contents(data, kAttAttachData);
    std::size_t offset = 0;
    bool found = true;
    while (found) {
        found = false;
        std::optional<std::string> name;
        std::optional<ByteView> content;
        for (TagScanner* scanner : {&titles, &contents}) {
            const ByteView rest = data.subspan(offset);
            std::size_t end = 0;
            const std::optional<ByteView> located =
                valueAt(rest, scanner->find(offset),
                        {"** Decode error ** Bad size in TNEF datastream type. Aborting",
                         "** Decode error ** Bad size in TNEF data length. Aborting"},
                        "** Decode error ** Bad size in TNEF data. Attempting to continue.", &end);
            if (!located) continue;
            const ByteView value = *located;
            // classic: the title keeps its terminating zero; the checksum after each
            // value is neither read nor checked.
            if (scanner == &titles) {
                name = utf8(value);
            } else {
                content = value;
            }
            found = true;
            offset += end;
        }
        if (name && content) {
            attachments.push_back(Value(Dict{{std::string(keys::kAttachData), Value(Blob(*content))}, {std::string(keys::kAttachName), Value(std::move(*name))}}));
        }
    }
    return attachments;
}

std::optional<Dict> ReadTNEF::getSummaryForMessage(ByteView data) {
    return getSummaryForMessage(data, ReadOptions::classic());
}

std::optional<Dict> ReadTNEF::getSummaryForMessage(ByteView data, const ReadOptions& options) {
    if (data.size() < 4) return std::nullopt;
    if (!hasSignature(data)) {
        return Dict{{std::string(keys::kFrom), kErrorReading}, {std::string(keys::kSubject), kErrorReading}, {std::string(keys::kBody), kErrorReading}};
    }
    // Attached messages are not read for a summary.
    TnefReadContext context{&TnefRules::of(options.reading), options, nullptr};
    TNEFDecoder decoder;
    const Dict content = decoder.processTNEF(data, context).value_or(Dict{});

    auto cleaned = [](const std::string* text) -> std::string {
        if (text == nullptr || text->empty()) return "-";
        return StringWangers::zapGremlins(*text).value_or("-");
    };
    // The sender's name, else its address (the classic decoder gives no sender).
    const std::string* from = content.findString(keys::kFrom);
    if (const Array* senders = content.findArray(keys::kFrom); senders && !senders->empty() && senders->front().dict()) {
        const Dict& sender = *senders->front().dict();
        from = sender.findString(keys::kName);
        if (from == nullptr || from->empty()) from = sender.findString(keys::kAddress);
    }
    // The plain body, else the text of the RTF body (the classic decoder gives no plain body).
    std::optional<std::string> body;
    if (const std::string* plain = content.findString(keys::kBody)) body = *plain;
    if (!body) {
        if (const Blob* rtf = content.findBytes(keys::kRTF)) body = RTFReader::stringFromRTFData(rtf->view());
    }
    return Dict{
        {std::string(keys::kFrom), cleaned(from)},
        {std::string(keys::kSubject), cleaned(content.findString(keys::kSubject))},
        {std::string(keys::kBody), cleaned(body ? &*body : nullptr)},
    };
}

}  // namespace qh
