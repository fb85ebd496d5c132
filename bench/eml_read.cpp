// ReadEML speed in input bytes per second: every .eml of the corpus (the files
// already in memory; and the part parser alone on them), one plain message of growing size, and two shapes built
// to make the part parser slow (a boundary on every line; deep nesting). If
// parsing is linear, the MB/s of each shape stays flat as the size grows.
#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/Log.h"
#include "readers/mime/MIMEReader.h"
#include "readers/mime/ReadEML.h"

namespace {

std::vector<qh::Bytes> corpusMessages() { return qhbench::readAll(qhbench::corpusPaths("eml", {".eml"})); }

void readAll(benchmark::State& state, const std::vector<qh::Bytes>& files) {
    qh::Log::setSystemLogEnabled(false);
    std::size_t input = 0;
    for (auto _ : state) {
        for (const auto& file : files) {
            auto reader = qh::ReadEML::initWithData(file);
            benchmark::DoNotOptimize(reader);
            input += file.size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(input));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * files.size()));
}

void BM_ReadEMLCorpus(benchmark::State& state) {
    static const std::vector<qh::Bytes> files = corpusMessages();
    if (files.empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    readAll(state, files);
}
BENCHMARK(BM_ReadEMLCorpus)->Unit(benchmark::kMillisecond);

// The part parser alone (no transfer decoding): where ReadEML's time is not.
void BM_MIMEReaderCorpus(benchmark::State& state) {
    static const std::vector<qh::Bytes> files = corpusMessages();
    if (files.empty()) {
        state.SkipWithError("no corpus");
        return;
    }
    std::size_t input = 0;
    for (auto _ : state) {
        for (const auto& file : files) {
            auto reader = qh::MIMEReader::initWithData(file);
            benchmark::DoNotOptimize(reader);
            input += file.size();
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(input));
}
BENCHMARK(BM_MIMEReaderCorpus)->Unit(benchmark::kMillisecond);

qh::Bytes plainMessage(std::size_t lines) {
    std::string text = "Received: by bench\nSubject: plain\nContent-Type: text/plain; charset=utf-8\n"
                       "Content-Transfer-Encoding: quoted-printable\n\n";
    for (std::size_t i = 0; i < lines; ++i) text += "A line of body text with caf=C3=A9 and http://example.com\n";
    return qh::Bytes(text.begin(), text.end());
}

qh::Bytes boundaryEveryLine(std::size_t lines) {
    std::string text = "Received: by bench\nContent-Type: multipart/mixed; boundary=b\n\n";
    for (std::size_t i = 0; i < lines; ++i) text += "--b\n";
    return qh::Bytes(text.begin(), text.end());
}

qh::Bytes deepNesting(std::size_t levels) {
    std::string text = "Received: by bench\nContent-Type: multipart/mixed; boundary=b0x\n\n";
    for (std::size_t i = 1; i <= levels; ++i) {
        text += "--b" + std::to_string(i - 1) + "x\nContent-Type: multipart/mixed; boundary=b" + std::to_string(i) +
                "x\n\n";
    }
    text += "--b" + std::to_string(levels) + "x\nContent-Type: text/plain\n\nleaf\n";
    return qh::Bytes(text.begin(), text.end());
}

void BM_ReadEMLPlain(benchmark::State& state) {
    readAll(state, {plainMessage(static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(BM_ReadEMLPlain)->Arg(1 << 12)->Arg(1 << 15)->Arg(1 << 18)->Unit(benchmark::kMillisecond);

void BM_ReadEMLBoundaryEveryLine(benchmark::State& state) {
    readAll(state, {boundaryEveryLine(static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(BM_ReadEMLBoundaryEveryLine)->Arg(1 << 12)->Arg(1 << 15)->Arg(1 << 18)->Unit(benchmark::kMillisecond);

void BM_ReadEMLDeepNesting(benchmark::State& state) {
    readAll(state, {deepNesting(static_cast<std::size_t>(state.range(0)))});
}
BENCHMARK(BM_ReadEMLDeepNesting)->Arg(1 << 8)->Arg(1 << 11)->Arg(1 << 14)->Unit(benchmark::kMillisecond);

}  // namespace
