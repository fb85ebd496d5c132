#include "support/CompoundWriter.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "core/TextEncoding.h"

namespace qhtest {

namespace {

// The writer keeps its own copy of the format's numbers, so that a mistake in
// the reader's constants is not mirrored here.
constexpr std::uint32_t kFree = 0xFFFFFFFF;
constexpr std::uint32_t kEnd = 0xFFFFFFFE;
constexpr std::uint32_t kFatMark = 0xFFFFFFFD;
constexpr std::uint32_t kDifatMark = 0xFFFFFFFC;
constexpr std::uint32_t kNoEntry = 0xFFFFFFFF;
constexpr std::uint32_t kCutoff = 4096;
constexpr std::uint32_t kMini = 64;
constexpr std::size_t kEntrySize = 128;
constexpr std::size_t kHeaderSlots = 109;

void put16(qh::Bytes& out, std::size_t offset, std::uint16_t value) {
    out[offset] = value & 0xFF;
    out[offset + 1] = value >> 8;
}
void put32(qh::Bytes& out, std::size_t offset, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out[offset + i] = (value >> (8 * i)) & 0xFF;
}

std::size_t ceilDiv(std::size_t a, std::size_t b) { return (a + b - 1) / b; }

// The reader's order: fewer UTF-16 units first, then byte by byte.
bool nameBefore(const std::string& a, const std::string& b) {
    const std::size_t la = qh::TextEncoding::utf16Length(a), lb = qh::TextEncoding::utf16Length(b);
    if (la != lb) return la < lb;
    return a < b;
}

std::vector<std::string_view> components(std::string_view path) {
    std::vector<std::string_view> parts;
    std::size_t position = 0;
    while (position <= path.size()) {
        std::size_t slash = path.find('/', position);
        if (slash == std::string_view::npos) slash = path.size();
        if (slash > position) parts.push_back(path.substr(position, slash - position));
        position = slash + 1;
    }
    return parts;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
    return text;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

qh::Bytes parseContent(std::string_view content, std::string_view line) {
    auto fail = [&] { throw std::invalid_argument("bad compound description line: " + std::string(line)); };
    qh::Bytes out;
    if (content.size() >= 2 && content.front() == '"' && content.back() == '"') {
        content = content.substr(1, content.size() - 2);
        for (std::size_t i = 0; i < content.size(); ++i) {
            char c = content[i];
            if (c != '\\') {
                out.push_back(static_cast<std::uint8_t>(c));
                continue;
            }
            if (++i >= content.size()) fail();
            switch (content[i]) {
                case 'n': out.push_back('\n'); break;
                case 'r': out.push_back('\r'); break;
                case 't': out.push_back('\t'); break;
                case '\\': out.push_back('\\'); break;
                case '"': out.push_back('"'); break;
                case 'x': {
                    if (i + 2 >= content.size()) fail();
                    int hi = hexValue(content[i + 1]), lo = hexValue(content[i + 2]);
                    if (hi < 0 || lo < 0) fail();
                    out.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
                    i += 2;
                    break;
                }
                default: fail();
            }
        }
        return out;
    }
    if (auto star = content.find('*'); star != std::string_view::npos) {
        const std::string count(trim(content.substr(0, star)));
        const std::string_view byte = trim(content.substr(star + 1));
        if (count.empty() || byte.size() != 2 || hexValue(byte[0]) < 0 || hexValue(byte[1]) < 0) fail();
        out.assign(std::stoul(count), static_cast<std::uint8_t>(hexValue(byte[0]) * 16 + hexValue(byte[1])));
        return out;
    }
    fail();
    return out;
}

}  // namespace

qh::Bytes utf16(std::string_view text) {
    qh::Bytes out;
    for (char16_t unit : qh::TextEncoding::toUTF16(text)) {
        out.push_back(unit & 0xFF);
        out.push_back(unit >> 8);
    }
    return out;
}

// ---- CompoundFile

std::uint32_t CompoundFile::read32(std::size_t offset) const {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= std::uint32_t(bytes.at(offset + i)) << (8 * i);
    return value;
}
void CompoundFile::write32(std::size_t offset, std::uint32_t value) {
    if (offset + 4 > bytes.size()) throw std::out_of_range("write past the built file");
    put32(bytes, offset, value);
}

std::uint32_t CompoundFile::entryNumber(std::string_view path) const {
    std::string key;
    for (auto part : components(path)) key += (key.empty() ? "" : "/") + std::string(part);
    auto found = entries.find(key);
    if (found == entries.end()) throw std::out_of_range("no entry " + std::string(path));
    return found->second;
}

std::size_t CompoundFile::entryOffset(std::string_view path) const {
    const std::size_t perSector = sectorSize / kEntrySize;
    const std::uint32_t number = entryNumber(path);
    // The directory is written in consecutive sectors.
    return sectorOffset(directoryStart + number / perSector) + (number % perSector) * kEntrySize;
}

std::uint32_t CompoundFile::entryField(std::string_view path, std::size_t field) const {
    return read32(entryOffset(path) + field);
}

void CompoundFile::setFat(std::uint32_t sector, std::uint32_t next) {
    const std::size_t perSector = sectorSize / 4;
    write32(sectorOffset(fatSectors.at(sector / perSector)) + (sector % perSector) * 4, next);
}
void CompoundFile::setMiniFat(std::uint32_t sector, std::uint32_t next) {
    write32(sectorOffset(miniFatStart) + std::size_t(sector) * 4, next);
}
void CompoundFile::setEntryField(std::string_view path, std::size_t field, std::uint32_t value) {
    write32(entryOffset(path) + field, value);
}
void CompoundFile::setHeader16(std::size_t offset, std::uint16_t value) { put16(bytes, offset, value); }
void CompoundFile::setHeader32(std::size_t offset, std::uint32_t value) { put32(bytes, offset, value); }

// ---- CompoundWriter

CompoundWriter::CompoundWriter(std::uint16_t sectorShift) : sectorShift_(sectorShift) {
    nodes_.push_back(Node{"Root Entry", true, {}, {}});
}

std::size_t CompoundWriter::nodeFor(std::string_view path, bool storage) {
    auto parts = components(path);
    if (parts.empty()) throw std::invalid_argument("empty compound path");
    std::size_t current = 0;
    for (std::size_t k = 0; k < parts.size(); ++k) {
        const bool last = k + 1 == parts.size();
        std::size_t found = SIZE_MAX;
        for (std::size_t child : nodes_[current].children)
            if (nodes_[child].name == parts[k]) found = child;
        if (found == SIZE_MAX) {
            nodes_.push_back(Node{std::string(parts[k]), last ? storage : true, {}, {}});
            found = nodes_.size() - 1;
            nodes_[current].children.push_back(found);
        }
        current = found;
    }
    return current;
}

CompoundWriter& CompoundWriter::addStream(std::string_view path, qh::ByteView bytes) {
    std::size_t node = nodeFor(path, false);
    nodes_[node].data.assign(bytes.begin(), bytes.end());
    return *this;
}
CompoundWriter& CompoundWriter::addStream(std::string_view path, std::string_view text) {
    return addStream(path, qh::asBytes(text));
}
CompoundWriter& CompoundWriter::addStorage(std::string_view path) {
    nodeFor(path, true);
    return *this;
}
CompoundWriter& CompoundWriter::extraFatSectors(std::uint32_t count) {
    extraFat_ = count;
    return *this;
}

CompoundWriter CompoundWriter::fromDescription(std::string_view description) {
    CompoundWriter writer;
    std::size_t position = 0;
    while (position < description.size()) {
        std::size_t end = description.find('\n', position);
        if (end == std::string_view::npos) end = description.size();
        std::string_view line = trim(description.substr(position, end - position));
        position = end + 1;
        if (line.empty() || line.front() == '#') continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            if (line.back() != '/') throw std::invalid_argument("bad compound description line: " + std::string(line));
            writer.addStorage(line);
            continue;
        }
        writer.addStream(trim(line.substr(0, colon)), parseContent(trim(line.substr(colon + 1)), line));
    }
    return writer;
}

CompoundFile CompoundWriter::build() const {
    const std::uint32_t sectorSize = 1u << sectorShift_;
    const std::uint32_t wordsPerSector = sectorSize / 4;
    const std::size_t count = nodes_.size();

    // Small streams go to the mini stream, in entry order.
    std::vector<std::uint32_t> start(count, kEnd);
    std::uint32_t miniSectors = 0;
    std::size_t bigSectors = 0;
    for (std::size_t i = 1; i < count; ++i) {
        const Node& node = nodes_[i];
        if (node.storage || node.data.empty()) continue;
        if (node.data.size() < kCutoff) {
            start[i] = miniSectors;
            miniSectors += ceilDiv(node.data.size(), kMini);
        } else {
            bigSectors += ceilDiv(node.data.size(), sectorSize);
        }
    }
    const std::size_t directorySectors = ceilDiv(count * kEntrySize, sectorSize);
    const std::size_t miniFatSectors = ceilDiv(std::size_t(miniSectors) * 4, sectorSize);
    const std::size_t containerSectors = ceilDiv(std::size_t(miniSectors) * kMini, sectorSize);
    const std::size_t dataSectors = directorySectors + miniFatSectors + containerSectors + bigSectors;
    auto difatFor = [&](std::size_t fat) { return fat > kHeaderSlots ? ceilDiv(fat - kHeaderSlots, wordsPerSector - 1) : 0; };
    std::size_t fatCount = 1;
    while (fatCount * wordsPerSector < dataSectors + fatCount + difatFor(fatCount)) ++fatCount;
    fatCount += extraFat_;
    const std::size_t difatCount = difatFor(fatCount);
    const std::size_t totalSectors = fatCount + difatCount + dataSectors;

    CompoundFile file;
    file.sectorSize = sectorSize;
    file.bytes.assign((totalSectors + 1) * sectorSize, 0);
    qh::Bytes& out = file.bytes;

    std::vector<std::uint32_t> fat(fatCount * wordsPerSector, kFree);
    auto chain = [&](std::vector<std::uint32_t>& table, std::uint32_t first, std::size_t length) {
        for (std::size_t k = 0; k < length; ++k)
            table[first + k] = k + 1 < length ? static_cast<std::uint32_t>(first + k + 1) : kEnd;
    };
    std::uint32_t next = 0;
    for (std::size_t k = 0; k < fatCount; ++k) {
        file.fatSectors.push_back(next);
        fat[next++] = kFatMark;
    }
    for (std::size_t k = 0; k < difatCount; ++k) {
        file.difatSectors.push_back(next);
        fat[next++] = kDifatMark;
    }
    file.directoryStart = next;
    chain(fat, next, directorySectors);
    next += directorySectors;
    file.miniFatStart = miniFatSectors ? next : kEnd;
    chain(fat, next, miniFatSectors);
    next += miniFatSectors;
    const std::uint32_t containerStart = containerSectors ? next : kEnd;
    chain(fat, next, containerSectors);
    next += containerSectors;

    // Stream contents.
    std::vector<std::uint32_t> miniFat(miniFatSectors * wordsPerSector, kFree);
    for (std::size_t i = 1; i < count; ++i) {
        const Node& node = nodes_[i];
        if (node.storage || node.data.empty()) continue;
        if (node.data.size() < kCutoff) {
            chain(miniFat, start[i], ceilDiv(node.data.size(), kMini));
            const std::size_t offset = file.sectorOffset(containerStart) + std::size_t(start[i]) * kMini;
            std::memcpy(out.data() + offset, node.data.data(), node.data.size());
        } else {
            start[i] = next;
            const std::size_t length = ceilDiv(node.data.size(), sectorSize);
            chain(fat, next, length);
            std::memcpy(out.data() + file.sectorOffset(next), node.data.data(), node.data.size());
            next += length;
        }
    }
    for (std::size_t k = 0; k < fatCount; ++k)
        for (std::size_t w = 0; w < wordsPerSector; ++w)
            put32(out, file.sectorOffset(file.fatSectors[k]) + w * 4, fat[k * wordsPerSector + w]);
    for (std::size_t w = 0; w < miniFat.size(); ++w) put32(out, file.sectorOffset(file.miniFatStart) + w * 4, miniFat[w]);

    // Header and master sector chain.
    const std::uint8_t signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(out.data(), signature, 8);
    put16(out, 24, 0x003E);
    put16(out, 26, sectorShift_ == 12 ? 4 : 3);
    put16(out, 28, 0xFFFE);
    put16(out, 30, sectorShift_);
    put16(out, 32, 6);
    put32(out, 40, sectorShift_ == 12 ? static_cast<std::uint32_t>(directorySectors) : 0);
    put32(out, 44, static_cast<std::uint32_t>(fatCount));
    put32(out, 48, file.directoryStart);
    put32(out, 56, kCutoff);
    put32(out, 60, file.miniFatStart);
    put32(out, 64, static_cast<std::uint32_t>(miniFatSectors));
    put32(out, 68, difatCount ? file.difatSectors[0] : kEnd);
    put32(out, 72, static_cast<std::uint32_t>(difatCount));
    for (std::size_t k = 0; k < kHeaderSlots; ++k)
        put32(out, 76 + k * 4, k < fatCount ? file.fatSectors[k] : kFree);
    for (std::size_t d = 0; d < difatCount; ++d) {
        const std::size_t base = file.sectorOffset(file.difatSectors[d]);
        for (std::size_t w = 0; w + 1 < wordsPerSector; ++w) {
            const std::size_t k = kHeaderSlots + d * (wordsPerSector - 1) + w;
            put32(out, base + w * 4, k < fatCount ? file.fatSectors[k] : kFree);
        }
        put32(out, base + (wordsPerSector - 1) * 4, d + 1 < difatCount ? file.difatSectors[d + 1] : kEnd);
    }

    // Directory: one entry per node, balanced sibling trees.
    std::vector<std::uint32_t> left(count, kNoEntry), right(count, kNoEntry), child(count, kNoEntry);
    for (std::size_t i = 0; i < count; ++i) {
        std::vector<std::size_t> kids = nodes_[i].children;
        std::sort(kids.begin(), kids.end(), [&](std::size_t a, std::size_t b) { return nameBefore(nodes_[a].name, nodes_[b].name); });
        std::function<std::uint32_t(std::size_t, std::size_t)> balance = [&](std::size_t lo, std::size_t hi) -> std::uint32_t {
            if (lo >= hi) return kNoEntry;
            const std::size_t mid = lo + (hi - lo) / 2;
            left[kids[mid]] = balance(lo, mid);
            right[kids[mid]] = balance(mid + 1, hi);
            return static_cast<std::uint32_t>(kids[mid]);
        };
        child[i] = balance(0, kids.size());
    }
    const std::size_t perDirectorySector = sectorSize / kEntrySize;
    auto entryAt = [&](std::size_t number) {
        return file.sectorOffset(file.directoryStart + static_cast<std::uint32_t>(number / perDirectorySector)) +
               (number % perDirectorySector) * kEntrySize;
    };
    for (std::size_t number = 0; number < directorySectors * perDirectorySector; ++number) {
        const std::size_t base = entryAt(number);
        put32(out, base + 68, kNoEntry);
        put32(out, base + 72, kNoEntry);
        put32(out, base + 76, kNoEntry);
        if (number >= count) continue;
        const Node& node = nodes_[number];
        auto units = qh::TextEncoding::toUTF16(node.name);
        if (units.size() > 31) units.resize(31);
        for (std::size_t k = 0; k < units.size(); ++k) put16(out, base + k * 2, units[k]);
        put16(out, base + 64, static_cast<std::uint16_t>((units.size() + 1) * 2));
        out[base + 66] = number == 0 ? 5 : (node.storage ? 1 : 2);
        out[base + 67] = 1;
        put32(out, base + 68, left[number]);
        put32(out, base + 72, right[number]);
        put32(out, base + 76, child[number]);
        if (number == 0) {
            put32(out, base + 116, containerStart);
            put32(out, base + 120, miniSectors * kMini);
        } else if (!node.storage) {
            put32(out, base + 116, start[number]);
            put32(out, base + 120, static_cast<std::uint32_t>(node.data.size()));
        }
    }

    // Paths of the entries.
    std::function<void(std::size_t, const std::string&)> name = [&](std::size_t index, const std::string& path) {
        file.entries[path] = static_cast<std::uint32_t>(index);
        for (std::size_t kid : nodes_[index].children)
            name(kid, path.empty() ? nodes_[kid].name : path + "/" + nodes_[kid].name);
    };
    name(0, "");
    return file;
}

}  // namespace qhtest
