#include <quillhaven/MessageReader.h>

#include <algorithm>
#include <iterator>

#include "readers/mime/ReadEML.h"
#include "readers/msg/ReadMSG.h"
#include "readers/tnef/ReadTNEF.h"

namespace qh {

namespace {
constexpr std::uint8_t kCompoundMagic[] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr std::uint8_t kTnefMagic[] = {0x78, 0x9F, 0x3E, 0x22};

template <typename Reader>
std::optional<Dict> dictionaryOf(std::unique_ptr<Reader> reader) {
    if (!reader || reader->returnFullDictionary() == nullptr) return std::nullopt;
    return reader->takeFullDictionary();
}
}  // namespace

MessageKind MessageReader::detectKind(ByteView data) {
    auto startsWith = [&](const auto& magic) {
        return data.size() >= std::size(magic) && std::equal(std::begin(magic), std::end(magic), data.begin());
    };
    if (startsWith(kCompoundMagic)) return MessageKind::msg;
    if (startsWith(kTnefMagic)) return MessageKind::tnef;
    return MessageKind::eml;
}

std::optional<MessageKind> MessageReader::kindFromName(std::string_view name) {
    if (name == "msg") return MessageKind::msg;
    if (name == "eml") return MessageKind::eml;
    if (name == "tnef") return MessageKind::tnef;
    return std::nullopt;
}

std::string_view MessageReader::kindName(MessageKind kind) {
    switch (kind) {
        case MessageKind::msg: return "msg";
        case MessageKind::eml: return "eml";
        case MessageKind::tnef: return "tnef";
    }
    return "eml";
}

std::optional<Dict> MessageReader::read(ByteView data, MessageKind kind, const ReadOptions& options) {
    switch (kind) {
        case MessageKind::msg: return dictionaryOf(ReadMSG::initWithData(data, options));
        case MessageKind::eml: return dictionaryOf(ReadEML::initWithData(data, options));
        case MessageKind::tnef: return dictionaryOf(ReadTNEF::initWithData(data, options));
    }
    return std::nullopt;
}

std::optional<Dict> MessageReader::summary(ByteView data, MessageKind kind, const ReadOptions& options) {
    switch (kind) {
        case MessageKind::msg: return ReadMSG::getSummaryForMessage(data, options);
        case MessageKind::eml: return ReadEML::getSummaryForMessage(data, options);
        case MessageKind::tnef: return ReadTNEF::getSummaryForMessage(data, options);
    }
    return std::nullopt;
}

}  // namespace qh
