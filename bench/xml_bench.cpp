#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <string>

#include "allocation_counter.h"
#include "url_corpus.h"

#include "policy/web_filter_policy.h"
#include "policy/web_filter_xml_processor.h"
#include "search/web_filter_searcher.h"

namespace sentrel {
namespace {

constexpr std::size_t kSerializedEntries = 100000;
constexpr std::size_t kListCount = 8;

// The same document on every run for the same size: the generated entries spread over two white
// and six black lists, one entry in twenty of them an exception. Entries are named "Entry N", so
// that names and urls are as long as those of typical lists.
const std::u16string& Document(std::size_t entries) {
    static std::map<std::size_t, std::u16string> documents;
    std::u16string& document = documents[entries];
    if (document.empty()) {
        const bench::UrlCorpus corpus = bench::MakeUrlCorpus(FilterListBlack, entries, 0, 7);
        WebFilterPolicy policy;
        policy.version = 7;
        for (std::size_t list = 0; list < kListCount; ++list) {
            const std::string name = "List " + std::to_string(list);
            FilterList filterList(std::u16string(name.begin(), name.end()));
            filterList.type = list % 4 == 0 ? FilterListWhite : FilterListBlack;
            for (std::size_t i = list; i < corpus.entryUrls.size(); i += kListCount) {
                const std::string entryName = "Entry " + std::to_string(i);
                const FilterEntry entry(std::u16string(entryName.begin(), entryName.end()),
                                        corpus.entryUrls[i]);
                if ((i / kListCount) % 20 == 0) {
                    filterList.AddException(entry);
                } else {
                    filterList.AddEntry(entry);
                }
            }
            policy.AddList(std::move(filterList));
        }
        document = WebFilterXmlProcessor::SerializePolicy(policy);
    }
    return document;
}

void CountPerEntry(benchmark::State& state, std::size_t entries) {
    state.counters["entries"] = static_cast<double>(entries);
    // Seconds per entry, shown with its unit prefix (n for nanoseconds).
    state.counters["time_per_entry"] = benchmark::Counter(
        static_cast<double>(entries),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_SerializePolicy(benchmark::State& state) {
    WebFilterPolicy policy;
    WebFilterXmlProcessor::DeserializePolicy(policy, Document(kSerializedEntries));
    for (auto _ : state) {
        std::u16string document = WebFilterXmlProcessor::SerializePolicy(policy);
        benchmark::DoNotOptimize(document);
    }
    state.counters["chars"] = static_cast<double>(Document(kSerializedEntries).size());
}
BENCHMARK(BM_SerializePolicy)->Unit(benchmark::kMillisecond);

// Reading alone; model_bytes_per_entry is what the policy read holds on the heap.
void BM_DeserializePolicy(benchmark::State& state) {
    const auto entries = static_cast<std::size_t>(state.range(0));
    const std::u16string& document = Document(entries);
    double modelBytes = 0;
    for (auto _ : state) {
        const bench::HeapCounters before = bench::ReadHeapCounters();
        auto policy = std::make_unique<WebFilterPolicy>();
        WebFilterXmlProcessor::DeserializePolicy(*policy, document);
        // Freeing the policy is not part of reading it.
        state.PauseTiming();
        modelBytes = static_cast<double>(bench::ReadHeapCounters().liveBytes - before.liveBytes);
        policy.reset();
        state.ResumeTiming();
    }
    CountPerEntry(state, entries);
    state.counters["model_bytes_per_entry"] = modelBytes / static_cast<double>(entries);
}
BENCHMARK(BM_DeserializePolicy)
    ->ArgName("entries")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

// What a manager does with a new document: read it, then build the index from it.
void BM_DeserializeAndLoadPolicy(benchmark::State& state) {
    const auto entries = static_cast<std::size_t>(state.range(0));
    const std::u16string& document = Document(entries);
    for (auto _ : state) {
        auto policy = std::make_unique<WebFilterPolicy>();
        WebFilterXmlProcessor::DeserializePolicy(*policy, document);
        auto searcher = std::make_unique<WebFilterSearcher>();
        searcher->LoadPolicy(*policy);
        state.PauseTiming();
        searcher.reset();
        policy.reset();
        state.ResumeTiming();
    }
    CountPerEntry(state, entries);
}
BENCHMARK(BM_DeserializeAndLoadPolicy)
    ->ArgName("entries")
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace sentrel
