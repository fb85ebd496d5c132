// Opening compound documents and taking their whole entry dictionary, over
// every .msg file of the corpus (throughput in bytes of input per second).
#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include <quillhaven/Mole.h>
#include "core/Log.h"

namespace {

const std::vector<qh::Bytes>& corpus() {
    static const std::vector<qh::Bytes> files = [] {
        qh::Log::setSystemLogEnabled(false);
        return qhbench::readAll(qhbench::corpusPaths("msg", {".msg"}));
    }();
    return files;
}

std::size_t corpusBytes() {
    std::size_t total = 0;
    for (const auto& file : corpus()) total += file.size();
    return total;
}

// `borrow`: the facade reads the caller's bytes, as the readers have it
// (the walk then copies the file once and gives streams out as views of it).
void runOverCorpus(benchmark::State& state, bool exact, bool borrow = false) {
    if (corpus().empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    for (auto _ : state) {
        for (const auto& file : corpus()) {
            auto mole = borrow ? qh::Mole::initBorrowingData(file) : qh::Mole::initWithData(file);
            if (!mole) continue;
            qh::Dict dict = mole->getOLEDictionary(exact);
            benchmark::DoNotOptimize(dict.size());
            mole->deInitialize();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpusBytes()));
}

void BM_OpenAndDictionary(benchmark::State& state) { runOverCorpus(state, false); }
void BM_OpenAndExactDictionary(benchmark::State& state) { runOverCorpus(state, true); }
void BM_BorrowAndDictionary(benchmark::State& state) { runOverCorpus(state, false, true); }

// Shared bytes: no copy of the file, streams in one run are views of it.
void BM_ShareAndDictionary(benchmark::State& state) {
    if (corpus().empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    std::vector<std::shared_ptr<const qh::Bytes>> files;
    for (const auto& file : corpus()) files.push_back(std::make_shared<const qh::Bytes>(file));
    for (auto _ : state) {
        for (const auto& file : files) {
            auto mole = qh::Mole::initSharingData(file);
            if (!mole) continue;
            qh::Dict dict = mole->getOLEDictionary(false);
            benchmark::DoNotOptimize(dict.size());
            mole->deInitialize();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpusBytes()));
}

// What the preview does first: open, then one stream by path.
void BM_OpenAndOneStream(benchmark::State& state) {
    if (corpus().empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    for (auto _ : state) {
        for (const auto& file : corpus()) {
            auto mole = qh::Mole::initWithData(file);
            if (!mole) continue;
            auto stream = mole->getStream("__substg1.0_10090102");
            benchmark::DoNotOptimize(stream);
            mole->deInitialize();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * corpusBytes()));
}

}  // namespace

BENCHMARK(BM_OpenAndDictionary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndExactDictionary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BorrowAndDictionary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShareAndDictionary)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndOneStream)->Unit(benchmark::kMillisecond);
