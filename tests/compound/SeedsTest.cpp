// Writes the fuzz seeds of fuzz/corpus/compound from writer fixtures when
// QH_WRITE_COMPOUND_SEEDS names a folder; otherwise checks that every seed
// still opens or fails as it should.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <quillhaven/Mole.h>
#include "support/CompoundWriter.h"
#include "support/Corpus.h"

using qhtest::CompoundFile;
using qhtest::CompoundWriter;

namespace {

CompoundFile message() {
    return CompoundWriter::fromDescription(R"(
        __substg1.0_0037001F: "S\x00u\x00b\x00j\x00e\x00c\x00t\x00"
        __substg1.0_1000001F: "B\x00o\x00d\x00y\x00"
        __properties_version1.0: 32 * 00
        __recip_version1.0_#00000000/__substg1.0_3001001F: "N\x00"
        __attach_version1.0_#00000000/__substg1.0_37010102: 4200 * 41
        __attach_version1.0_#00000000/__substg1.0_3701000D/__substg1.0_0037001F: "I\x00"
        __nameid_version1.0/__substg1.0_00020102: 16 * 00
    )").build();
}

std::vector<std::pair<std::string, qh::Bytes>> seeds() {
    std::vector<std::pair<std::string, qh::Bytes>> out;
    out.emplace_back("one-small-stream.cfb", CompoundWriter().addStream("a", "abc").bytes());
    out.emplace_back("message.cfb", message().bytes);
    out.emplace_back("4096-byte-sectors.cfb", CompoundWriter(12).addStream("a", "x").addStream("b/c", qh::Bytes(5000, 1)).bytes());
    out.emplace_back("master-sector-chain.cfb", CompoundWriter().addStream("a", "x").extraFatSectors(110).bytes());
    CompoundFile cyclic = message();
    cyclic.setFat(cyclic.startSector("__attach_version1.0_#00000000/__substg1.0_37010102"),
                  cyclic.startSector("__attach_version1.0_#00000000/__substg1.0_37010102"));
    cyclic.setMiniFat(cyclic.startSector("__substg1.0_1000001F"), cyclic.startSector("__substg1.0_1000001F"));
    out.emplace_back("cyclic-chains.cfb", cyclic.bytes);
    CompoundFile siblings = message();
    siblings.setEntryField("__recip_version1.0_#00000000", 68, siblings.entryNumber("__recip_version1.0_#00000000"));
    siblings.setEntryField("__substg1.0_1000001F", 72, 0);
    siblings.setEntryField("__attach_version1.0_#00000000/__substg1.0_3701000D", 76,
                           siblings.entryNumber("__attach_version1.0_#00000000"));
    out.emplace_back("sibling-and-storage-cycles.cfb", siblings.bytes);
    CompoundFile truncated = message();
    truncated.truncate(truncated.bytes.size() - 1000);
    out.emplace_back("truncated.cfb", truncated.bytes);
    return out;
}

}  // namespace

TEST(Seeds, FuzzSeedsComeFromTheWriter) {
    const char* folder = std::getenv("QH_WRITE_COMPOUND_SEEDS");
    for (const auto& [name, bytes] : seeds()) {
        if (folder) {
            std::ofstream(std::filesystem::path(folder) / name, std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        }
        // Each seed opens (damage lies past the header checks) and walks.
        auto mole = qh::Mole::initWithData(bytes);
        ASSERT_TRUE(mole) << name;
        EXPECT_FALSE(mole->getOLEDictionary().empty()) << name;
    }
}
