// ReadTNEF over the TNEF files of the shared corpus: the whole reader, and
// its two readings on their own (the attribute decoder and the tag search).
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

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
        auto paths = qhbench::corpusPaths("tnef", [](const std::string& name) {
            return name.find(".expected") == std::string::npos;
        });
        c.files = qhbench::readAll(paths);
        for (const auto& file : c.files) c.totalBytes += static_cast<std::int64_t>(file.size());
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
