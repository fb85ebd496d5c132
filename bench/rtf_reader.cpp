// The RTF reader's throughput (MB/s of RTF in) over every RTF body of the
// corpus: the compressed streams of rtf/ and the compressed bodies of msg/;
// and the HTML of the bodies that carry HTML mail (\fromhtml1), through the
// one-pass extraction the reader uses and through the general converter.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchCorpus.h"

#include <quillhaven/Mole.h>
#include "richtext/RTFConverter.h"
#include "richtext/RTFEncapsulatedHTML.h"
#include "richtext/RTFReader.h"
#include "richtext/RTFWangers.h"

namespace {


void addDecoded(qh::ByteView compressed, std::vector<qh::Bytes>& documents) {
    if (!qh::RTFWangers::typeIsRTF(compressed)) return;
    if (auto rtf = qh::RTFWangers::getRTFForData(compressed)) {
        if (qh::asText(*rtf).starts_with("{\\rtf")) documents.push_back(std::move(*rtf));
    }
}

const std::vector<qh::Bytes>& corpusDocuments() {
    static const std::vector<qh::Bytes> documents = [] {
        std::vector<qh::Bytes> found;
        const std::filesystem::path root(QH_CORPUS_DIR);
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(root / "rtf", ec)) {
            const std::string name = entry.path().filename().string();
            if (name.find(".expected") == std::string::npos) addDecoded(qhbench::readWhole(entry.path()), found);
        }
        for (const auto& entry : std::filesystem::directory_iterator(root / "msg", ec)) {
            if (entry.path().extension() != ".msg") continue;
            qh::Bytes file = qhbench::readWhole(entry.path());
            auto mole = qh::Mole::initWithData(file);
            if (!mole) continue;
            if (auto stream = mole->getStream("__substg1.0_10090102")) addDecoded(stream->view(), found);
        }
        return found;
    }();
    return documents;
}

// The bodies that the one-pass extraction takes: HTML mail.
const std::vector<qh::Bytes>& encapsulatedDocuments() {
    static const std::vector<qh::Bytes> documents = [] {
        std::vector<qh::Bytes> found;
        for (const auto& document : corpusDocuments())
            if (qh::RTFEncapsulatedHTML::extract(document)) found.push_back(document);
        return found;
    }();
    return documents;
}

std::optional<std::string> converterHTML(qh::ByteView rtf) {
    return qh::RTFConverter(qh::RTFConverter::Output::HTML).convert(rtf);
}

template <std::optional<std::string> (*Convert)(qh::ByteView), const std::vector<qh::Bytes>& (*Documents)()>
void convertCorpus(benchmark::State& state) {
    const auto& documents = Documents();
    if (documents.empty()) {
        state.SkipWithError("no corpus RTF");
        return;
    }
    std::size_t bytes = 0;
    for (const auto& document : documents) bytes += document.size();
    for (auto _ : state) {
        for (const auto& document : documents) benchmark::DoNotOptimize(Convert(document));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["documents"] = static_cast<double>(documents.size());
    state.counters["corpusKB"] = static_cast<double>(bytes) / 1024.0;
}

BENCHMARK(convertCorpus<qh::RTFReader::stringFromRTFData, corpusDocuments>)->Name("RTFReader/stringFromRTFData/corpus");
BENCHMARK(convertCorpus<qh::RTFReader::htmlFromRTFData, corpusDocuments>)->Name("RTFReader/htmlFromRTFData/corpus");
BENCHMARK(convertCorpus<qh::RTFReader::rtfStringFromData, corpusDocuments>)->Name("RTFReader/rtfStringFromData/corpus");
BENCHMARK(convertCorpus<qh::RTFReader::htmlFromRTFData, encapsulatedDocuments>)->Name("RTFReader/htmlFromRTFData/fromhtml1");
BENCHMARK(convertCorpus<converterHTML, encapsulatedDocuments>)->Name("RTFConverter/HTML/fromhtml1");

}  // namespace
