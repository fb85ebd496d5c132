#include "support/TnefWriter.h"

namespace qhtest {

namespace {

constexpr std::uint32_t kSignature = 0x223E9F78;
constexpr std::uint16_t kMultiValueFlag = 0x1000;
constexpr std::uint8_t kLevelAttachment = 0x02;
constexpr std::uint32_t kAttAttachRendData = 0x00069002;
constexpr std::uint32_t kAttAttachTitle = 0x00018010;
constexpr std::uint32_t kAttAttachData = 0x0006800F;
constexpr std::uint32_t kAttAttachment = 0x00069005;

void pad4(qh::Bytes& out, std::size_t length) {
    out.insert(out.end(), (4 - length % 4) % 4, 0);
}

void appendVariable(qh::Bytes& out, qh::ByteView data) {
    appendU32(out, static_cast<std::uint32_t>(data.size()));
    out.insert(out.end(), data.begin(), data.end());
    pad4(out, data.size());
}

void appendFixed(qh::Bytes& out, qh::ByteView data) {
    out.insert(out.end(), data.begin(), data.end());
    pad4(out, data.size());
}

}  // namespace

void appendU16(qh::Bytes& out, std::uint16_t value) {
    out.push_back(std::uint8_t(value));
    out.push_back(std::uint8_t(value >> 8));
}

void appendU32(qh::Bytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(std::uint8_t(value >> (8 * i)));
}

void appendU64(qh::Bytes& out, std::uint64_t value) {
    for (int i = 0; i < 8; ++i) out.push_back(std::uint8_t(value >> (8 * i)));
}

qh::Bytes u32(std::uint32_t value) {
    qh::Bytes out;
    appendU32(out, value);
    return out;
}

qh::Bytes concat(std::initializer_list<qh::Bytes> parts) {
    qh::Bytes out;
    for (const qh::Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

qh::Bytes utf16le(std::u16string_view text) {
    qh::Bytes out;
    for (char16_t unit : text) appendU16(out, unit);
    return out;
}

bool MapiBlock::isVariableType(std::uint16_t type) {
    return type == 0x000D || type == 0x001E || type == 0x001F || type == 0x0102;
}

MapiBlock& MapiBlock::fixed(std::uint32_t tag, qh::ByteView value) {
    return add({tag, false, std::nullopt, std::nullopt, {qh::Bytes(value.begin(), value.end())}});
}

MapiBlock& MapiBlock::u32(std::uint32_t tag, std::uint32_t value) {
    qh::Bytes bytes;
    appendU32(bytes, value);
    return fixed(tag, bytes);
}

MapiBlock& MapiBlock::u64(std::uint32_t tag, std::uint64_t value) {
    qh::Bytes bytes;
    appendU64(bytes, value);
    return fixed(tag, bytes);
}

MapiBlock& MapiBlock::variable(std::uint32_t tag, qh::ByteView data) {
    return add({tag, false, std::nullopt, std::nullopt, {qh::Bytes(data.begin(), data.end())}});
}

MapiBlock& MapiBlock::string8(std::uint32_t tag, std::string_view text) {
    qh::Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return variable(tag, bytes);
}

MapiBlock& MapiBlock::unicode(std::uint32_t tag, std::u16string_view text) {
    qh::Bytes bytes = utf16le(text);
    appendU16(bytes, 0);
    return variable(tag, bytes);
}

MapiBlock& MapiBlock::multi(std::uint32_t tag, const std::vector<qh::Bytes>& values) {
    return add({tag, true, std::nullopt, std::nullopt, values});
}

MapiBlock& MapiBlock::add(Property property) {
    const std::uint16_t type = std::uint16_t(property.tag);
    appendU32(body_, property.multiValued ? (property.tag | kMultiValueFlag) : property.tag);
    if (property.namedNumber || property.namedString) {
        for (int i = 0; i < 16; ++i) body_.push_back(std::uint8_t(0xA0 + i));  // the GUID
        if (property.namedNumber) {
            appendU32(body_, 0);
            appendU32(body_, *property.namedNumber);
        } else {
            appendU32(body_, 1);
            qh::Bytes name = utf16le(*property.namedString);
            appendU16(name, 0);
            appendVariable(body_, name);
        }
    }
    if (property.multiValued) appendU32(body_, static_cast<std::uint32_t>(property.values.size()));
    for (const qh::Bytes& value : property.values) {
        if (isVariableType(type)) {
            if (!property.multiValued) appendU32(body_, 1);
            appendVariable(body_, value);
        } else {
            appendFixed(body_, value);
        }
    }
    ++added_;
    return *this;
}

MapiBlock& MapiBlock::raw(qh::ByteView bytes) {
    body_.insert(body_.end(), bytes.begin(), bytes.end());
    return *this;
}

MapiBlock& MapiBlock::claimCount(std::uint32_t count) {
    claimedCount_ = count;
    return *this;
}

qh::Bytes MapiBlock::bytes() const {
    qh::Bytes out;
    appendU32(out, claimedCount_.value_or(added_));
    out.insert(out.end(), body_.begin(), body_.end());
    return out;
}

TnefWriter::TnefWriter(std::uint16_t key) {
    appendU32(out_, kSignature);
    appendU16(out_, key);
}

TnefWriter& TnefWriter::attribute(std::uint8_t level, std::uint32_t id, qh::ByteView data) {
    return attributeWithChecksum(level, id, data, checksum(data));
}

TnefWriter& TnefWriter::attributeWithChecksum(std::uint8_t level, std::uint32_t id, qh::ByteView data,
                                              std::uint16_t sum) {
    header(level, id, static_cast<std::uint32_t>(data.size()));
    out_.insert(out_.end(), data.begin(), data.end());
    appendU16(out_, sum);
    return *this;
}

TnefWriter& TnefWriter::header(std::uint8_t level, std::uint32_t id, std::uint32_t size) {
    out_.push_back(level);
    appendU32(out_, id);
    appendU32(out_, size);
    return *this;
}

TnefWriter& TnefWriter::attachment(std::optional<std::string_view> title, std::optional<qh::ByteView> data,
                                   std::optional<qh::Bytes> properties) {
    // The rendering data: MS-OXTNEF's 14-byte block (type, position, size, flags).
    static const std::uint8_t kRendering[14] = {1, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0};
    attribute(kLevelAttachment, kAttAttachRendData, qh::ByteView(kRendering));
    if (title) {
        std::string zeroTerminated(*title);
        zeroTerminated.push_back('\0');
        attribute(kLevelAttachment, kAttAttachTitle, zeroTerminated);
    }
    if (data) attribute(kLevelAttachment, kAttAttachData, *data);
    if (properties) attribute(kLevelAttachment, kAttAttachment, *properties);
    return *this;
}

TnefWriter& TnefWriter::raw(qh::ByteView bytes) {
    out_.insert(out_.end(), bytes.begin(), bytes.end());
    return *this;
}

std::uint16_t TnefWriter::checksum(qh::ByteView data) {
    std::uint32_t sum = 0;
    for (std::uint8_t byte : data) sum += byte;
    return static_cast<std::uint16_t>(sum);
}

qh::Bytes TnefWriter::sender(std::string_view name, std::string_view typedAddress) {
    const std::size_t nameLength = name.size() + 1, addressLength = typedAddress.size() + 1;
    qh::Bytes out;
    for (std::size_t word : {std::size_t(4), 8 + nameLength + addressLength + 8, nameLength, addressLength}) {
        appendU16(out, static_cast<std::uint16_t>(word));
    }
    out.insert(out.end(), name.begin(), name.end());
    out.push_back(0);
    out.insert(out.end(), typedAddress.begin(), typedAddress.end());
    out.push_back(0);
    out.insert(out.end(), 8, 0);
    return out;
}

qh::Bytes TnefWriter::recipientTable(const std::vector<MapiBlock>& rows) {
    qh::Bytes out;
    appendU32(out, static_cast<std::uint32_t>(rows.size()));
    for (const MapiBlock& row : rows) {
        const qh::Bytes block = row.bytes();
        out.insert(out.end(), block.begin(), block.end());
    }
    return out;
}

qh::Bytes TnefWriter::date(std::uint16_t year, std::uint16_t month, std::uint16_t day, std::uint16_t hour,
                           std::uint16_t minute, std::uint16_t second, std::uint16_t dayOfWeek) {
    qh::Bytes out;
    for (std::uint16_t word : {year, month, day, hour, minute, second, dayOfWeek}) appendU16(out, word);
    return out;
}

}  // namespace qhtest
