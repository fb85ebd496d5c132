// Compressed-RTF decoding speed, in bytes of decoded output per second:
// every compressed-RTF stream of the corpus, and two synthetic extremes of
// 1 MB of output (all literals; all longest references).
#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "richtext/RTFWangers.h"

namespace {

std::vector<qh::Bytes> corpusStreams() { return qhbench::readAll(qhbench::corpusPaths("rtf", {".lzfu", ".bin"})); }

void putU32(qh::Bytes& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// A stream of `rawSize` bytes: groups of eight literals, or of eight 17-byte
// references to the byte just written (a run).
qh::Bytes syntheticStream(std::uint32_t rawSize, bool references) {
    qh::Bytes tokens;
    std::size_t produced = 0, writePosition = 207;
    while (produced < rawSize) {
        tokens.push_back(references ? 0xFF : 0x00);
        for (int bit = 0; bit < 8; ++bit) {
            if (references) {
                std::size_t offset = (writePosition + 4095) & 4095;
                tokens.push_back(static_cast<std::uint8_t>(offset >> 4));
                tokens.push_back(static_cast<std::uint8_t>(((offset & 15) << 4) | 15));
                produced += 17;
                writePosition = (writePosition + 17) & 4095;
            } else {
                tokens.push_back(static_cast<std::uint8_t>('a' + produced % 26));
                produced += 1;
                writePosition = (writePosition + 1) & 4095;
            }
        }
    }
    qh::Bytes stream;
    putU32(stream, static_cast<std::uint32_t>(tokens.size() + 12));
    putU32(stream, rawSize);
    putU32(stream, 0x75465A4C);
    putU32(stream, 0);
    stream.insert(stream.end(), tokens.begin(), tokens.end());
    return stream;
}

void decodeAll(benchmark::State& state, const std::vector<qh::Bytes>& streams) {
    std::size_t output = 0;
    for (auto _ : state) {
        for (const auto& stream : streams) {
            auto rtf = qh::RTFWangers::getRTFForData(stream);
            benchmark::DoNotOptimize(rtf);
            if (rtf) output += rtf->size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(output));
}

void BM_CorpusStreams(benchmark::State& state) {
    static const std::vector<qh::Bytes> streams = corpusStreams();
    if (streams.empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    decodeAll(state, streams);
}
BENCHMARK(BM_CorpusStreams);

void BM_Literals(benchmark::State& state) {
    static const std::vector<qh::Bytes> streams = {syntheticStream(1 << 20, false)};
    decodeAll(state, streams);
}
BENCHMARK(BM_Literals);

void BM_LongestReferences(benchmark::State& state) {
    static const std::vector<qh::Bytes> streams = {syntheticStream(1 << 20, true)};
    decodeAll(state, streams);
}
BENCHMARK(BM_LongestReferences);

}  // namespace
