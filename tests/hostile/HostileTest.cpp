// Every named hostile input (HostileInputs.cpp) through every path the
// command has: in-process (the front door in both readings, the summary, the
// writers, the preview's extraction, the compound-document walk) and as the
// command itself (read, summary, convert, attachments, view, preview, ls,
// cat, rtf). Each must end cleanly: an exit status of 0 or 1, no sanitizer
// report, no header line injected into a written message, no file written
// outside its folder, and a peak resident memory of at most 8 times the
// input plus 64 MiB.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <quillhaven/Mole.h>
#include "core/Log.h"
#include "hostile/HostileInputs.h"
#include "plugin/MsgMetaData.h"
#include <quillhaven/MessageReader.h>
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"
#include "support/Corpus.h"
#include <quillhaven/MimeWriter.h>
#include <quillhaven/WriteEML.h>

namespace {

namespace fs = std::filesystem;
using qhtest::HostileInput;
using qhtest::HostileKind;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryIsMeasurable = false;  // the sanitizer's shadow memory and quarantine dominate
#else
constexpr bool kMemoryIsMeasurable = true;
#endif

// The bound every run of the command keeps: 8 times its input plus 64 MiB.
long memoryBoundKiB(std::size_t inputBytes) { return static_cast<long>((8 * inputBytes + (64u << 20)) / 1024); }

// The lines of a written message that start a header of the attacker's.
std::vector<std::string> injectedLines(std::string_view text) {
    std::vector<std::string> found;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of("\r\n", start);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (line.starts_with(qhtest::kInjectedHeader)) found.emplace_back(line);
        start = end + 1;
    }
    return found;
}

// The MIME writer's text, attached messages read and written again a few
// levels deep, the way convert does it.
std::string mimeText(const qh::Dict& message, int depth) {
    qh::MimeWriter::Options options;
    if (depth < 8) {
        options.attachedMessage = [depth](qh::ByteView bytes) -> std::optional<std::string> {
            std::optional<qh::Dict> attached = qh::MessageReader::read(bytes, qh::ReadOptions::complete());
            if (!attached) return std::nullopt;
            return mimeText(*attached, depth + 1);
        };
    }
    return qh::MimeWriter(message, std::move(options)).write();
}

// Everything in-process; returns nothing, fails through gtest.
void readInProcess(const qh::Bytes& bytes, HostileKind kind) {
    const qh::MessageKind messageKind = qh::MessageReader::detectKind(bytes);
    for (const qh::ReadOptions& options :
         {qh::ReadOptions::classic(), qh::ReadOptions::classic(true), qh::ReadOptions::complete()}) {
        SCOPED_TRACE(options.isComplete() ? "complete" : options.exactStreams ? "classic, exact" : "classic");
        const std::optional<qh::Dict> message = qh::MessageReader::read(bytes, messageKind, options);
        (void)qh::MessageReader::summary(bytes, messageKind, options);
        if (!message) continue;
        const qh::WriteEML writer(*message);
        EXPECT_EQ(injectedLines(writer.formatOutputFile()), std::vector<std::string>{});
        EXPECT_EQ(injectedLines(mimeText(*message, 0)), std::vector<std::string>{});
        const std::string* type = message->findString("MessageType");
        if (type && *type == "Contact") {
            EXPECT_EQ(injectedLines(writer.exportContacts()), std::vector<std::string>{});
        }
        if (type && *type == "Calendar") {
            EXPECT_EQ(injectedLines(writer.exportAppointment()), std::vector<std::string>{});
        }
    }
    (void)qh::msgMetaData(bytes);
    if (auto mole = qh::Mole::initWithData(bytes)) {
        for (const qh::Value& record : mole->getDirectory()) {
            const std::string* name = record.dict() ? record.dict()->findString("entryname") : nullptr;
            ASSERT_NE(name, nullptr);
            if (auto stream = mole->getStream(*name)) {
                EXPECT_LE(stream->size(), 64 * bytes.size() + (1u << 20));
            }
        }
    }
    if (kind == HostileKind::lzfu) {
        if (auto rtf = qh::RTFWangers::getRTFForData(bytes)) {
            (void)qh::RTFReader::stringFromRTFData(*rtf);
            (void)qh::RTFReader::htmlFromRTFData(*rtf);
        }
    }
}

// Every file under `dir`, as paths relative to it.
std::set<std::string> filesUnder(const fs::path& dir) {
    std::set<std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(dir)) out.insert(fs::relative(entry.path(), dir).string());
    return out;
}

}  // namespace

namespace qhtest {
// Test names and failure messages show the input's name.
void PrintTo(const HostileInput& input, std::ostream* out) { *out << input.name; }
}  // namespace qhtest

namespace {

class Hostile : public testing::TestWithParam<HostileInput> {
protected:
    void SetUp() override {
        qh::Log::setSystemLogEnabled(false);
        scratch_ = fs::temp_directory_path() / ("qh-hostile-" + std::to_string(::getpid()));
        fs::remove_all(scratch_);
        fs::create_directories(scratch_);
    }
    void TearDown() override { fs::remove_all(scratch_); }

    // Runs the command; checks what every run must keep. Returns its result.
    qhtest::CliResult run(const std::vector<std::string>& args, std::size_t inputBytes) {
        std::string line;
        for (const std::string& arg : args) line += " " + arg;
        SCOPED_TRACE("quillhaven" + line);
        qhtest::CliResult result = qhtest::runCliMeasured(args);
        EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << "exit " << result.exitCode << "\n" << result.err;
        EXPECT_EQ(result.err.find("Sanitizer"), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("runtime error"), std::string::npos) << result.err;
        if (kMemoryIsMeasurable && result.peakRssKiB >= 0) {
            EXPECT_LE(result.peakRssKiB, memoryBoundKiB(inputBytes)) << "peak resident KiB for " << inputBytes << " bytes";
        }
        return result;
    }

    fs::path scratch_;
};

TEST_P(Hostile, EveryPathEndsCleanly) {
    const HostileInput& input = GetParam();
    // (gtest refuses duplicate names; the suffix says the kind)
    EXPECT_EQ(input.name.ends_with(".lzfu"), input.kind == HostileKind::lzfu);
    const qh::Bytes bytes = input.make();
    ASSERT_FALSE(bytes.empty());
    readInProcess(bytes, input.kind);

    const fs::path file = scratch_ / input.name;
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const std::string path = file.string();
    const std::size_t size = bytes.size();
    // QH_HOSTILE_DUMP=DIR keeps a copy of each input (to look at, or to seed a fuzzer with).
    if (const char* dump = std::getenv("QH_HOSTILE_DUMP")) {
        fs::copy_file(file, fs::path(dump) / input.name, fs::copy_options::overwrite_existing);
    }

    // Whole sectors differ from the classic reading only for compound documents.
    const bool compound = bytes.size() >= 8 && bytes[0] == 0xD0 && bytes[1] == 0xCF;
    std::vector<const char*> readings{"", "--classic"};
    if (compound) readings.push_back("--whole-sectors");
    for (const char* command : {"read", "summary", "convert"}) {
        for (const char* reading : readings) {
            std::vector<std::string> args{command};
            if (*reading) args.push_back(reading);
            args.push_back(path);
            EXPECT_EQ(injectedLines(run(args, size).out), std::vector<std::string>{}) << command << " " << reading;
        }
    }

    // Attachments: only plain files directly inside the folder given, with
    // safe names; nothing anywhere else.
    const fs::path out = scratch_ / "out";
    const auto before = filesUnder(scratch_);
    for (const char* expand : {"", "--expand-tnef"}) {
        std::vector<std::string> args{"attachments", "-d", out.string()};
        if (*expand) args.push_back(expand);
        args.push_back(path);
        (void)run(args, size);
        if (!fs::exists(out)) continue;
        for (const auto& entry : fs::directory_iterator(out)) {
            const std::string name = entry.path().filename().string();
            EXPECT_TRUE(entry.is_regular_file() && !entry.is_symlink()) << name;
            EXPECT_EQ(name.find_first_of("/\\"), std::string::npos) << name;
            EXPECT_NE(name, "..");
            EXPECT_FALSE(name.starts_with(".")) << name;
            EXPECT_LE(name.size(), 255u);
        }
        fs::remove_all(out);
    }
    EXPECT_EQ(filesUnder(scratch_), before);
    EXPECT_FALSE(fs::exists("/tmp/qh-hostile-absolute"));
    EXPECT_FALSE(fs::exists("/tmp/qh-hostile-absolute-mime"));

    (void)run({"view", "-o", (scratch_ / "page.html").string(), path}, size);
    fs::remove(scratch_ / "page.html");
    (void)run({"preview", path}, size);
    (void)run({"preview", "--json", path}, size);

    // ls, then cat of the first streams it lists (the walk is the same for all).
    const auto listing = run({"ls", path}, size);
    std::istringstream lines(listing.out);
    std::size_t cats = 0;
    for (std::string line; std::getline(lines, line) && cats < 16;) {
        const std::size_t tab = line.rfind('\t');
        if (tab == std::string::npos || tab + 1 == line.size()) continue;
        (void)run({"cat", path, line.substr(0, tab)}, size);
        ++cats;
    }
    (void)run({"cat", path, "/no/such/stream"}, size);

    if (input.kind == HostileKind::lzfu) {
        for (const char* form : {"", "--text", "--html"}) {
            std::vector<std::string> args{"rtf"};
            if (*form) args.push_back(form);
            args.push_back(path);
            (void)run(args, size);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Inputs, Hostile, testing::ValuesIn(qhtest::hostileInputs()),
                         [](const testing::TestParamInfo<HostileInput>& info) {
                             std::string name;
                             for (char c : info.param.name) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

}  // namespace
