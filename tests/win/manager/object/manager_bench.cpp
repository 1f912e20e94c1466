// Timing figures of IsUrlAllowed as a client calls it, through the interface pointer with BSTRs,
// with a policy of 100,000 generated list entries in force: from one thread, from two threads on
// one object, and from two threads on two objects (which share no object lock, so the difference
// between the last two is what the object lock costs). Prints one line per figure. With --quick
// (as ctest runs it) it uses a small policy and only makes sure every measured path works and
// decides right.

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <latch>
#include <string_view>
#include <thread>
#include <vector>

#include "manager_client.h"
#include "policy/web_filter_xml_processor.h"
#include "shared/wide_text.h"
#include "url_corpus.h"

namespace sentrel::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Settings {
    std::size_t entries;
    std::size_t urls;
    std::size_t callsPerThread;
    int rounds;
};

constexpr Settings kFull{100000, 8192, 1000000, 5};
constexpr Settings kQuick{1000, 256, 2000, 1};
constexpr std::uint64_t kSeed = 0x5E17E1;

// The URLs of the corpus as BSTRs, hits and misses taking turns, with the answer each should get.
class UrlSet {
  public:
    explicit UrlSet(const bench::UrlCorpus& corpus) {
        for (std::size_t i = 0; i < corpus.hits.size(); ++i) {
            Add(corpus.hits[i], 0);
            Add(corpus.misses[i], 1);
        }
    }
    ~UrlSet() {
        for (const BSTR url : urls_) {
            SysFreeString(url);
        }
    }
    UrlSet(const UrlSet&) = delete;
    UrlSet& operator=(const UrlSet&) = delete;

    const std::vector<BSTR>& Urls() const { return urls_; }
    // How many URLs the manager decides otherwise than the corpus says.
    std::size_t Mismatches(IWebFilterManager& manager) const {
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < urls_.size(); ++i) {
            wrong += Allowed(manager, urls_[i]) == expected_[i] ? 0u : 1u;
        }
        return wrong;
    }

  private:
    void Add(const std::u16string& url, long expected) {
        urls_.push_back(SysAllocString(AsWide(url.c_str())));
        expected_.push_back(expected);
    }

    std::vector<BSTR> urls_;
    std::vector<long> expected_;
};

// Calls IsUrlAllowed `calls` times, cycling through the URLs; the denied count keeps the calls
// from being optimised away.
std::size_t CallMany(IWebFilterManager& manager, const std::vector<BSTR>& urls, std::size_t calls) {
    std::size_t denied = 0;
    for (std::size_t i = 0; i < calls; ++i) {
        long allowed = 1;
        manager.IsUrlAllowed(urls[i % urls.size()], &allowed);
        denied += allowed == 0 ? 1 : 0;
    }
    return denied;
}

// Wall time per call of each thread, with one thread per manager given, all starting together.
double NanosecondsPerCall(const std::vector<IWebFilterManager*>& managers,
                          const std::vector<BSTR>& urls, std::size_t calls) {
    std::latch start(static_cast<std::ptrdiff_t>(managers.size() + 1));
    std::vector<std::thread> threads;
    for (IWebFilterManager* manager : managers) {
        threads.emplace_back([&, manager] {
            const ComInit com(COINIT_MULTITHREADED);
            start.arrive_and_wait();
            CallMany(*manager, urls, calls);
        });
    }
    start.arrive_and_wait();
    const auto begin = Clock::now();
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double, std::nano> elapsed = Clock::now() - begin;
    return elapsed.count() / static_cast<double>(calls);
}

void Report(const char* name, const std::vector<IWebFilterManager*>& managers,
            const std::vector<BSTR>& urls, const Settings& settings) {
    std::vector<double> rounds;
    for (int round = 0; round < settings.rounds; ++round) {
        rounds.push_back(NanosecondsPerCall(managers, urls, settings.callsPerThread));
    }
    std::sort(rounds.begin(), rounds.end());
    const double median = rounds[rounds.size() / 2];
    std::printf("%-44s %9.0f ns per call (fastest round %.0f), %.2f million calls/s in all\n", name,
                median, rounds.front(), static_cast<double>(managers.size()) * 1000.0 / median);
}

// A manager with the corpus's policy in force; publishing it may be refused (another object
// created the section), which leaves the policy in force all the same.
ComPtr<IWebFilterManager> ManagerWith(const std::u16string& document, double& setMs) {
    ComPtr<IWebFilterManager> manager = CreateManager();
    if (manager) {
        const auto begin = Clock::now();
        SetContent(*manager.Get(), WebFilterBlockPolicy, document);
        setMs = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
    }
    return manager;
}

int Run(const Settings& settings) {
    const ComInit com(COINIT_MULTITHREADED);
    const bench::UrlCorpus corpus =
        bench::MakeUrlCorpus(FilterListBlack, settings.entries, settings.urls / 2, kSeed);
    const std::u16string document = WebFilterXmlProcessor::SerializePolicy(corpus.policy);
    double publishMs = 0;
    double localMs = 0;
    const ComPtr<IWebFilterManager> first = ManagerWith(document, publishMs);
    const ComPtr<IWebFilterManager> second = ManagerWith(document, localMs);
    if (!first || !second) {
        std::printf("could not create the manager objects\n");
        return 1;
    }
    const UrlSet urls(corpus);
    for (IWebFilterManager* manager : {first.Get(), second.Get()}) {
        if (const std::size_t wrong = urls.Mismatches(*manager); wrong != 0) {
            std::printf("%zu of %zu URLs decided wrong\n", wrong, urls.Urls().size());
            return 1;
        }
    }
    std::printf(
        "policy: %zu black-list entries, a document of %zu characters; URLs: %zu, half "
        "of them denied\n",
        settings.entries, document.size(), urls.Urls().size());
    std::printf("SetFilterContent: %.0f ms when it publishes, %.0f ms when it may not\n", publishMs,
                localMs);
    Report("IsUrlAllowed, 1 thread", {first.Get()}, urls.Urls(), settings);
    Report("IsUrlAllowed, 2 threads on one object", {first.Get(), first.Get()}, urls.Urls(),
           settings);
    Report("IsUrlAllowed, 2 threads on two objects", {first.Get(), second.Get()}, urls.Urls(),
           settings);
    return 0;
}

}  // namespace
}  // namespace sentrel::test

int main(int count, char** arguments) {
    const bool quick = count > 1 && std::string_view(arguments[1]) == "--quick";
    return sentrel::test::Run(quick ? sentrel::test::kQuick : sentrel::test::kFull);
}
