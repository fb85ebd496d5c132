// The resumable id search gives, for every offset, what the shared byte search
// gives on the rest of the buffer, partial-match rules included.
#include <random>

#include <gtest/gtest.h>

#include "readers/tnef/Attributes.h"
#include "readers/tnef/TagScanner.h"
#include "util/DataWangers.h"

namespace {

std::uint64_t reference(const qh::Bytes& data, std::uint32_t tag, std::size_t from) {
    const std::uint8_t pattern[4] = {std::uint8_t(tag), std::uint8_t(tag >> 8), std::uint8_t(tag >> 16),
                                     std::uint8_t(tag >> 24)};
    return static_cast<std::uint64_t>(
        qh::DataWangers::searchForBytes(pattern, 4, qh::ByteView(data).subspan(from)).location);
}

TEST(TagScanner, AgreesWithTheByteSearchOnEveryRest) {
    // Buffers made mostly of the pattern's own bytes, so that partial matches,
    // broken matches, runs of first bytes and matches cut by the end abound.
    std::mt19937 random(20240305);
    for (std::uint32_t tag : {qh::tnef::kAttAttachTitle, qh::tnef::kAttAttachData, 0x41414141u, 0x42414241u}) {
        const std::uint8_t alphabet[6] = {std::uint8_t(tag), std::uint8_t(tag >> 8), std::uint8_t(tag >> 16),
                                          std::uint8_t(tag >> 24), 0x00, 0x5A};
        for (int round = 0; round < 300; ++round) {
            qh::Bytes data(random() % 64);
            for (auto& byte : data) byte = alphabet[random() % 6];
            qh::TagScanner scanner(data, tag);
            for (std::size_t from = 0; from <= data.size(); from += random() % 4) {
                ASSERT_EQ(scanner.find(from), reference(data, tag, from))
                    << "tag " << std::hex << tag << std::dec << " from " << from << " of " << data.size();
                if (random() % 3 == 0) ++from;
            }
        }
    }
}

TEST(TagScanner, NothingToSearch) {
    qh::TagScanner scanner({}, qh::tnef::kAttAttachData);
    EXPECT_EQ(scanner.find(0), qh::TagScanner::kNotFound);
}

}  // namespace
