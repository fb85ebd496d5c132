#include "PluginTestSupport.h"

#include <atomic>
#include <fstream>

#include <unistd.h>

#include "support/CompoundWriter.h"

namespace qhtest {

qh::Bytes messageWith(const std::vector<std::pair<std::string, qh::Bytes>>& streams) {
    CompoundWriter writer;
    // Every message has one property that the preview never looks at.
    writer.addStream("__substg1.0_001A001F", utf16("IPM.Note"));
    for (const auto& [name, bytes] : streams) writer.addStream(name, bytes);
    return writer.bytes();
}

std::string describe(const qh::PreviewBody& body) {
    if (auto* rtf = std::get_if<qh::Bytes>(&body)) return "rtf:" + std::string(qh::asText(*rtf));
    if (auto* text = std::get_if<std::string>(&body)) return "text:" + *text;
    return "none";
}

TemporaryFile::TemporaryFile(qh::ByteView contents) {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("quillhaven-plugin-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + ".msg");
    std::ofstream out(path_, std::ios::binary);
    out.write(reinterpret_cast<const char*>(contents.data()), static_cast<std::streamsize>(contents.size()));
}

TemporaryFile::~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

}  // namespace qhtest
