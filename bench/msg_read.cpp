// ReadMSG over every corpus message, one benchmark per file, in MB/s of
// input; the exact-stream form the command uses and the whole-sector form.
#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/Log.h"
#include "readers/msg/ReadMSG.h"

namespace {

std::vector<std::filesystem::path> corpusMessages() { return qhbench::corpusPaths("msg", {".msg"}); }

void readMessage(benchmark::State& state, const std::vector<std::uint8_t>& bytes, bool exactStreams) {
    for (auto _ : state) {
        auto reader = qh::ReadMSG::initWithData(bytes, exactStreams);
        benchmark::DoNotOptimize(reader);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes.size()));
}

const bool registered = [] {
    qh::Log::setSystemLogEnabled(false);
    auto files = corpusMessages();
    static std::vector<std::vector<std::uint8_t>> contents;
    contents.reserve(files.size());
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        contents.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    // All files in one run first: the figure for the corpus as a whole.
    benchmark::RegisterBenchmark("ReadMSG/corpus", [](benchmark::State& state) {
        std::int64_t total = 0;
        for (auto _ : state) {
            for (const auto& bytes : contents) {
                auto reader = qh::ReadMSG::initWithData(bytes, true);
                benchmark::DoNotOptimize(reader);
                total += static_cast<std::int64_t>(bytes.size());
            }
        }
        state.SetBytesProcessed(total);
    });
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto& bytes = contents[i];
        std::string name = files[i].filename().string();
        benchmark::RegisterBenchmark(("ReadMSG/exact/" + name).c_str(),
                                     [&bytes](benchmark::State& state) { readMessage(state, bytes, true); });
        benchmark::RegisterBenchmark(("ReadMSG/wholeSectors/" + name).c_str(),
                                     [&bytes](benchmark::State& state) { readMessage(state, bytes, false); });
    }
    return true;
}();

}  // namespace
