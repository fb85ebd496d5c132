// ReadTNEF over the TNEF files of the shared corpus: the whole reader, and
// its two readings on their own (the attribute decoder and the tag search).
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/Log.h"
#include "readers/tnef/ReadTNEF.h"
#include "readers/tnef/TNEFDecoder.h"

namespace {

struct Corpus {
    std::vector<qh::Bytes> files;
    std::int64_t totalBytes = 0;
};

const Corpus& corpus() {
    static const Corpus loaded = [] {
        qh::Log::setSystemLogEnabled(false);
        Corpus c;
        const std::filesystem::path dir = std::filesystem::path(QH_CORPUS_DIR) / "tnef";
        std::error_code ec;
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
            if (entry.is_regular_file() && entry.path().filename().string().find(".expected") == std::string::npos) {
                paths.push_back(entry.path());
            }
        }
        std::sort(paths.begin(), paths.end());
        for (const auto& path : paths) {
            std::ifstream in(path, std::ios::binary);
            c.files.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
            c.totalBytes += static_cast<std::int64_t>(c.files.back().size());
        }
        return c;
    }();
    return loaded;
}

void BM_ReadTNEF(benchmark::State& state) {
    const Corpus& c = corpus();
    if (c.files.empty()) state.SkipWithError("no corpus");
    for (auto _ : state) {
        for (const qh::Bytes& file : c.files) {
            auto reader = qh::ReadTNEF::initWithData(file);
            benchmark::DoNotOptimize(reader->returnFullDictionary());
        }
    }
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}
BENCHMARK(BM_ReadTNEF)->Unit(benchmark::kMillisecond);

void BM_TNEFDecoder(benchmark::State& state) {
    const Corpus& c = corpus();
    for (auto _ : state) {
        for (const qh::Bytes& file : c.files) {
            qh::TNEFDecoder decoder;
            auto dictionary = decoder.processTNEF(file);
            benchmark::DoNotOptimize(dictionary);
        }
    }
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}
BENCHMARK(BM_TNEFDecoder)->Unit(benchmark::kMillisecond);

void BM_TNEFSearchPass(benchmark::State& state) {
    const Corpus& c = corpus();
    for (auto _ : state) {
        for (const qh::Bytes& file : c.files) {
            qh::Dict dictionary;
            qh::ReadTNEF::buildTNEFDictionary(dictionary, file, false);
            benchmark::DoNotOptimize(dictionary);
        }
    }
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}
BENCHMARK(BM_TNEFSearchPass)->Unit(benchmark::kMillisecond);

// A megabyte of empty "Attach Data" attributes and no title: every round of
// the attachment search finds a data id and misses the title id.
void BM_TNEFSearchManyDataIds(benchmark::State& state) {
    qh::Log::setSystemLogEnabled(false);
    qh::Bytes stream = {0x78, 0x9F, 0x3E, 0x22, 0x01, 0x00};
    const std::uint8_t attribute[11] = {0x02, 0x0F, 0x80, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    while (stream.size() < (1u << 20)) stream.insert(stream.end(), std::begin(attribute), std::end(attribute));
    for (auto _ : state) {
        qh::Array found = qh::ReadTNEF::retrieveAttachments(stream);
        benchmark::DoNotOptimize(found);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stream.size()));
}
BENCHMARK(BM_TNEFSearchManyDataIds)->Unit(benchmark::kMillisecond);

}  // namespace
