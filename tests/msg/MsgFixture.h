#pragma once
// Message files for tests, written the way Outlook lays them out: string
// properties as UTF-16 or 8-bit "__substg1.0_" streams, fixed-length ones as
// 16-byte records of "__properties_version1.0" behind the storage's header.
//
//   Bytes file = MsgFixture()
//       .unicode("", 0x0037, "Subject")
//       .ansi("", 0x001A, "IPM.Note")
//       .properties("", MsgFixture::kTopHeader, {{0x0040, 0x0E06, filetime}})
//       .build();
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "support/CompoundWriter.h"

namespace qhtest {

class MsgFixture {
public:
    struct Record {
        std::uint16_t type;
        std::uint16_t id;
        std::uint64_t value;
    };
    static constexpr std::size_t kTopHeader = 32;
    static constexpr std::size_t kEmbeddedHeader = 24;
    static constexpr std::size_t kAttachmentHeader = 8;

    static std::string streamName(std::uint32_t id, std::uint32_t type) {
        char text[40];
        std::snprintf(text, sizeof text, "__substg1.0_%04X%04X", id, type);
        return text;
    }
    static std::string join(std::string_view storage, std::string_view name) {
        return storage.empty() ? std::string(name) : std::string(storage) + "/" + std::string(name);
    }
    // 16-byte records after a zeroed header of `headerSize` bytes.
    static qh::Bytes records(std::size_t headerSize, const std::vector<Record>& list) {
        qh::Bytes out(headerSize, 0);
        for (const Record& r : list) {
            std::uint8_t record[16] = {};
            record[0] = r.type & 0xFF;
            record[1] = r.type >> 8;
            record[2] = r.id & 0xFF;
            record[3] = r.id >> 8;
            record[4] = 6;  // readable and writable
            for (int i = 0; i < 8; ++i) record[8 + i] = static_cast<std::uint8_t>(r.value >> (8 * i));
            out.insert(out.end(), record, record + 16);
        }
        return out;
    }

    MsgFixture& unicode(std::string_view storage, std::uint32_t id, std::string_view text) {
        writer_.addStream(join(storage, streamName(id, 0x001F)), utf16(text));
        return *this;
    }
    MsgFixture& ansi(std::string_view storage, std::uint32_t id, std::string_view bytes) {
        writer_.addStream(join(storage, streamName(id, 0x001E)), qh::asBytes(bytes));
        return *this;
    }
    MsgFixture& binary(std::string_view storage, std::uint32_t id, qh::ByteView bytes) {
        writer_.addStream(join(storage, streamName(id, 0x0102)), bytes);
        return *this;
    }
    MsgFixture& stream(std::string_view path, qh::ByteView bytes) {
        writer_.addStream(path, bytes);
        return *this;
    }
    MsgFixture& storage(std::string_view path) {
        writer_.addStorage(path);
        return *this;
    }
    // The storage's property stream; the last record is followed by a
    // padding record, since the reader's scan never examines the last one.
    MsgFixture& properties(std::string_view storage, std::size_t headerSize, std::vector<Record> list) {
        list.push_back({0, 0, 0});
        writer_.addStream(join(storage, "__properties_version1.0"), records(headerSize, list));
        return *this;
    }
    qh::Bytes build() const { return writer_.bytes(); }

    static std::string attachment(int n) {
        char text[40];
        std::snprintf(text, sizeof text, "__attach_version1.0_#%08X", n);
        return text;
    }
    static std::string recipient(int n) {
        char text[40];
        std::snprintf(text, sizeof text, "__recip_version1.0_#%08X", n);
        return text;
    }

private:
    CompoundWriter writer_;
};

// Windows FILETIME of a Unix time.
constexpr std::uint64_t filetime(std::int64_t unixSeconds) {
    return static_cast<std::uint64_t>(unixSeconds + 11644473600LL) * 10000000ULL;
}

}  // namespace qhtest
