#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "url_corpus.h"

#include "policy/web_filter_policy.h"
#include "policy/web_filter_xml_processor.h"
#include "search/web_filter_searcher.h"

namespace sentrel {
namespace {

constexpr std::size_t kEntryCount = 100000;
constexpr std::size_t kListCount = 8;

// The same document on every run: the generated entries spread over two white and six black
// lists, one entry in twenty of them an exception.
const WebFilterPolicy& LargePolicy() {
    static const WebFilterPolicy policy = [] {
        const bench::UrlCorpus corpus = bench::MakeUrlCorpus(FilterListBlack, kEntryCount, 0, 7);
        WebFilterPolicy built;
        built.version = 7;
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
            built.AddList(filterList);
        }
        return built;
    }();
    return policy;
}

const std::u16string& LargeDocument() {
    static const std::u16string document = WebFilterXmlProcessor::SerializePolicy(LargePolicy());
    return document;
}

void BM_SerializePolicy(benchmark::State& state) {
    const WebFilterPolicy& policy = LargePolicy();
    for (auto _ : state) {
        std::u16string document = WebFilterXmlProcessor::SerializePolicy(policy);
        benchmark::DoNotOptimize(document);
    }
    state.counters["chars"] = static_cast<double>(LargeDocument().size());
}
BENCHMARK(BM_SerializePolicy)->Unit(benchmark::kMillisecond);

void BM_DeserializePolicy(benchmark::State& state) {
    const std::u16string& document = LargeDocument();
    for (auto _ : state) {
        auto policy = std::make_unique<WebFilterPolicy>();
        WebFilterXmlProcessor::DeserializePolicy(*policy, document);
        // Freeing the policy is not part of reading it.
        state.PauseTiming();
        policy.reset();
        state.ResumeTiming();
    }
    state.counters["entries"] = static_cast<double>(kEntryCount);
}
BENCHMARK(BM_DeserializePolicy)->Unit(benchmark::kMillisecond);

// What a manager does with a new document: read it, then build the index from it.
void BM_DeserializeAndLoadPolicy(benchmark::State& state) {
    const std::u16string& document = LargeDocument();
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
    state.counters["entries"] = static_cast<double>(kEntryCount);
}
BENCHMARK(BM_DeserializeAndLoadPolicy)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace sentrel
