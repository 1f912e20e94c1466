#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "allocation_counter.h"
#include "search/cracked_url.h"
#include "search/web_filter_searcher.h"
#include "text/url_text.h"
#include "url_corpus.h"

namespace sentrel::bench {
namespace {

constexpr std::uint64_t kSeed = 0x5E17E1;
constexpr std::size_t kUrlCount = 8192;

enum UrlMix { MixHalfHits = 0, MixHits = 1, MixMisses = 2 };

// One corpus per size, made once: building 100,000 policy entries takes a while.
const UrlCorpus& Corpus(std::size_t entries) {
    static std::map<std::size_t, std::unique_ptr<UrlCorpus>> corpora;
    auto& corpus = corpora[entries];
    if (!corpus) {
        corpus = std::make_unique<UrlCorpus>(
            MakeUrlCorpus(FilterListBlack, entries, kUrlCount, kSeed + entries));
    }
    return *corpus;
}

std::vector<std::u16string> UrlsOf(const UrlCorpus& corpus, UrlMix mix) {
    if (mix == MixHits) {
        return corpus.hits;
    }
    if (mix == MixMisses) {
        return corpus.misses;
    }
    std::vector<std::u16string> urls(corpus.hits.begin(), corpus.hits.begin() + kUrlCount / 2);
    urls.insert(urls.end(), corpus.misses.begin(), corpus.misses.begin() + kUrlCount / 2);
    std::shuffle(urls.begin(), urls.end(), std::mt19937_64(kSeed));
    return urls;
}

// One decision per iteration, cycling through the URLs, so the time shown is per URL.
void BM_Decision(benchmark::State& state) {
    const UrlCorpus& corpus = Corpus(static_cast<std::size_t>(state.range(0)));
    const std::vector<std::u16string> urls = UrlsOf(corpus, static_cast<UrlMix>(state.range(1)));
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(corpus.policy);
    std::size_t denied = 0;
    for (const std::u16string& url : urls) {
        denied += searcher.IsUrlAllowed(url) ? 0u : 1u;
    }

    const HeapCounters before = ReadHeapCounters();
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(searcher.IsUrlAllowed(urls[next]));
        if (++next == urls.size()) {
            next = 0;
        }
    }
    const HeapCounters after = ReadHeapCounters();
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs_per_url"] = static_cast<double>(after.allocations - before.allocations) /
                                       static_cast<double>(state.iterations());
    // The black index denies exactly what it matches.
    state.counters["matched"] = static_cast<double>(denied) / static_cast<double>(urls.size());
}
BENCHMARK(BM_Decision)
    ->ArgNames({"entries", "mix"})
    ->Args({1000, MixHalfHits})
    ->Args({100000, MixHalfHits})
    ->Args({100000, MixHits})
    ->Args({100000, MixMisses})
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// Each decision timed on its own, for the distribution over URLs: p50_ns is the median URL's
// decision time, the clock's own cost taken off.
void BM_DecisionLatency(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const UrlCorpus& corpus = Corpus(static_cast<std::size_t>(state.range(0)));
    const std::vector<std::u16string> urls = UrlsOf(corpus, MixHalfHits);
    WebFilterSearcher searcher;
    searcher.filterType = WebFilterBlockPolicy;
    searcher.LoadPolicy(corpus.policy);

    std::vector<std::int64_t> clockCosts(1001);
    for (std::int64_t& cost : clockCosts) {
        const auto start = Clock::now();
        cost = (Clock::now() - start).count();
    }
    std::nth_element(clockCosts.begin(), clockCosts.begin() + 500, clockCosts.end());
    const std::int64_t clockCost = clockCosts[500];

    std::vector<std::int64_t> samples;
    samples.reserve(static_cast<std::size_t>(state.max_iterations) * urls.size());
    for (auto _ : state) {
        for (const std::u16string& url : urls) {
            const auto start = Clock::now();
            benchmark::DoNotOptimize(searcher.IsUrlAllowed(url));
            const auto stop = Clock::now();
            samples.push_back(
                std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count() -
                clockCost);
        }
    }
    std::sort(samples.begin(), samples.end());
    const auto percentile = [&samples](std::size_t percent) {
        return static_cast<double>(samples[(samples.size() - 1) * percent / 100]);
    };
    state.counters["p50_ns"] = percentile(50);
    state.counters["p90_ns"] = percentile(90);
    state.counters["p99_ns"] = percentile(99);
    state.counters["clock_ns"] = static_cast<double>(clockCost);
}
BENCHMARK(BM_DecisionLatency)->ArgName("entries")->Arg(1000)->Arg(100000)->Iterations(20);

// The parts of a decision before the index: normalising and cracking.
void BM_NormalizeAndCrack(benchmark::State& state) {
    const std::vector<std::u16string> urls = UrlsOf(Corpus(1000), MixHalfHits);
    CrackedUrl cracked;
    std::size_t next = 0;
    for (auto _ : state) {
        // As the decision does it: normalised into storage of its own, then cracked in place.
        const NormalizedUrlText normalized(urls[next]);
        benchmark::DoNotOptimize(CrackUrl(normalized, cracked));
        if (++next == urls.size()) {
            next = 0;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NormalizeAndCrack)->Repetitions(5)->ReportAggregatesOnly(true);

// A reload: the previous index is released and the new one built, as a policy change does.
void BM_LoadPolicy(benchmark::State& state) {
    const auto entries = static_cast<std::size_t>(state.range(0));
    const UrlCorpus& corpus = Corpus(entries);
    WebFilterSearcher searcher;
    const HeapCounters empty = ReadHeapCounters();
    searcher.LoadPolicy(corpus.policy);
    const HeapCounters loaded = ReadHeapCounters();
    for (auto _ : state) {
        searcher.LoadPolicy(corpus.policy);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(entries));
    // Time per entry, to compare loads of different sizes.
    state.counters["time_per_entry"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(entries),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["index_bytes_per_entry"] =
        static_cast<double>(loaded.liveBytes - empty.liveBytes) / static_cast<double>(entries);
    state.counters["allocs_per_entry"] =
        static_cast<double>(loaded.allocations - empty.allocations) / static_cast<double>(entries);
}
BENCHMARK(BM_LoadPolicy)
    ->ArgName("entries")
    ->Arg(1000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace
}  // namespace sentrel::bench
