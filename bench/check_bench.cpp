#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "command.h"
#include "policy/web_filter_xml_processor.h"
#include "url_corpus.h"
#include "utf8.h"

namespace sentrel {
namespace {

constexpr std::size_t kEntryCount = 100000;
constexpr std::size_t kUrlCount = 1000000;

// `sentrel check` reading a million URLs, one per line, against a 100,000-entry white list
// written to a file as the component writes policies, loading included, on the given number of
// threads, with or without --summary.
void BM_CheckThroughput(benchmark::State& state) {
    const bench::UrlCorpus corpus =
        bench::MakeUrlCorpus(FilterListWhite, kEntryCount, kUrlCount / 2, 11);
    const std::string path = "sentrel-check-bench-policy.xml";
    {
        const std::u16string document = WebFilterXmlProcessor::SerializePolicy(corpus.policy);
        std::ofstream file(path, std::ios::binary);
        for (const char16_t unit : document) {
            file.put(static_cast<char>(unit & 0xFF));
            file.put(static_cast<char>(unit >> 8));
        }
    }
    std::string input;
    for (std::size_t i = 0; i < corpus.hits.size(); ++i) {
        input += cli::Utf16ToUtf8(corpus.hits[i]) + "\n";
        input += cli::Utf16ToUtf8(corpus.misses[i]) + "\n";
    }
    std::vector<std::string> args = {"check", "--policy", path, "--jobs",
                                     std::to_string(state.range(0))};
    if (state.range(1) != 0) {
        args.emplace_back("--summary");
    }
    std::size_t allowed = 0;
    for (auto _ : state) {
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        cli::CommandStreams streams{in, out, err};
        if (cli::RunSentrel(args, streams) != cli::kExitOk) {
            state.SkipWithError(err.str().c_str());
            break;
        }
        const std::string answers = out.str();
        allowed = 0;
        for (std::size_t at = 0; (at = answers.find("allow\t", at)) != std::string::npos; ++at) {
            ++allowed;
        }
    }
    std::remove(path.c_str());
    const auto urls = static_cast<double>(corpus.hits.size() + corpus.misses.size());
    state.counters["urls"] = urls;
    state.counters["allowed"] = static_cast<double>(allowed);
    state.counters["urls_per_s"] =
        benchmark::Counter(urls, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_CheckThroughput)
    ->ArgNames({"jobs", "summary"})
    ->ArgsProduct({{1, 2, 4}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace
}  // namespace sentrel
