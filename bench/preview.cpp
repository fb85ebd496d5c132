// The preview's extraction (msgMetaData) over every .msg of the corpus, the
// files already in memory: reports input bytes per second and files per second.
#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "core/Log.h"
#include "plugin/MsgMetaData.h"

namespace {

std::vector<qh::Bytes> corpusMessages() { return qhbench::readAll(qhbench::corpusPaths("msg", {".msg"})); }

void BM_MsgMetaDataCorpus(benchmark::State& state) {
    qh::Log::setSystemLogEnabled(false);
    static const std::vector<qh::Bytes> files = corpusMessages();
    if (files.empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    std::size_t input = 0;
    for (auto _ : state) {
        for (const auto& file : files) {
            qh::PreviewBody body = qh::msgMetaData(file);
            benchmark::DoNotOptimize(body);
            input += file.size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(input));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * files.size()));
}
BENCHMARK(BM_MsgMetaDataCorpus);

}  // namespace
