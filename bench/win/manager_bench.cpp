// Timing figures of IsUrlAllowed as a client calls it, through the interface pointer with BSTRs,
// with a policy of 100,000 generated list entries in force: from one thread, from two threads on
// one object, and from two threads on two objects (which share no object lock, so the difference
// between the last two is what the object lock costs). Prints one line per figure. With --quick
// (as ctest runs it) it uses a small policy and only makes sure every measured path works and
// decides right.

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <thread>
#include <vector>

#include "com/unique_resource.h"
#include "com/wide_text.h"
#include "manager_client.h"
#include "policy/web_filter_xml_processor.h"
#include "search/web_filter_searcher.h"
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

// The URLs of the corpus as BSTRs, hits and misses taking turns, each with the answer that the
// searcher gives for it on its own with the corpus's policy (the corpus's hits and misses are
// only nearly always denied and allowed).
class UrlSet {
  public:
    explicit UrlSet(const bench::UrlCorpus& corpus) {
        WebFilterSearcher searcher;
        searcher.filterType = sentrel::WebFilterBlockPolicy;
        searcher.LoadPolicy(corpus.policy);
        for (std::size_t i = 0; i < corpus.hits.size(); ++i) {
            for (const std::u16string* url : {&corpus.hits[i], &corpus.misses[i]}) {
                urls_.push_back(SysAllocString(AsWide(url->c_str())));
                expected_.push_back(searcher.IsUrlAllowed(*url) ? 1 : 0);
                denied_ += expected_.back() == 0 ? 1u : 0u;
            }
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
    std::size_t Denied() const { return denied_; }
    // How many URLs the manager decides otherwise than the searcher on its own.
    std::size_t Mismatches(IWebFilterManager& manager) const {
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < urls_.size(); ++i) {
            long allowed = -1;
            manager.IsUrlAllowed(urls_[i], &allowed);
            wrong += allowed == expected_[i] ? 0u : 1u;
        }
        return wrong;
    }

  private:
    std::vector<BSTR> urls_;
    std::vector<long> expected_;
    std::size_t denied_ = 0;
};

// The calling thread's processor time so far (user and kernel), in nanoseconds.
double ThreadNanoseconds() {
    FILETIME created;
    FILETIME exited;
    FILETIME kernel;
    FILETIME user;
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    const auto ticks = [](const FILETIME& time) {
        return static_cast<double>((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
    };
    return (ticks(kernel) + ticks(user)) * 100.0;
}

// Calls IsUrlAllowed `calls` times, cycling through the URLs; the denied count keeps the calls
// from being optimised away. Returns the thread's processor time per call.
double CallMany(IWebFilterManager& manager, const std::vector<BSTR>& urls, std::size_t calls,
                std::size_t& denied) {
    const double begin = ThreadNanoseconds();
    for (std::size_t i = 0; i < calls; ++i) {
        long allowed = 1;
        manager.IsUrlAllowed(urls[i % urls.size()], &allowed);
        denied += allowed == 0 ? 1u : 0u;
    }
    return (ThreadNanoseconds() - begin) / static_cast<double>(calls);
}

// Per call of each thread: the wall time, and the processor time the threads spent (their mean).
struct Round {
    double wall;
    double processor;
};

// One thread per manager given, all starting together. (The start is a plain event: the
// toolchain's std::latch can miss its wake-up and hang.)
Round MeasureRound(const std::vector<IWebFilterManager*>& managers, const std::vector<BSTR>& urls,
                   std::size_t calls) {
    const UniqueHandle start(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<std::size_t> ready{0};
    std::vector<double> processor(managers.size());
    std::vector<std::size_t> denied(managers.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < managers.size(); ++i) {
        threads.emplace_back([&, i] {
            const ComInit com(COINIT_MULTITHREADED);
            ++ready;
            WaitForSingleObject(start.Get(), INFINITE);
            processor[i] = CallMany(*managers[i], urls, calls, denied[i]);
        });
    }
    while (ready < managers.size()) {
        std::this_thread::yield();
    }
    const auto begin = Clock::now();
    SetEvent(start.Get());
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double, std::nano> elapsed = Clock::now() - begin;
    double processorSum = 0;
    for (const double each : processor) {
        processorSum += each;
    }
    return {elapsed.count() / static_cast<double>(calls),
            processorSum / static_cast<double>(managers.size())};
}

void Report(const char* name, const std::vector<IWebFilterManager*>& managers,
            const std::vector<BSTR>& urls, const Settings& settings) {
    std::vector<Round> rounds;
    for (int round = 0; round < settings.rounds; ++round) {
        rounds.push_back(MeasureRound(managers, urls, settings.callsPerThread));
    }
    std::sort(rounds.begin(), rounds.end(),
              [](const Round& a, const Round& b) { return a.wall < b.wall; });
    const Round& median = rounds[rounds.size() / 2];
    std::printf(
        "%-40s %6.0f ns per call (fastest round %.0f), processor %5.0f ns per call, %.2f "
        "million calls/s in all\n",
        name, median.wall, rounds.front().wall, median.processor,
        static_cast<double>(managers.size()) * 1000.0 / median.wall);
}

// A manager with the corpus's policy in force; publishing it may be refused (another object
// created the section), which leaves the policy in force all the same.
ComPtr<IWebFilterManager> ManagerWith(const std::u16string& document, double& setMs) {
    ComPtr<IWebFilterManager> manager = CreateManager();
    if (manager) {
        const auto begin = Clock::now();
        SetContent(*manager.Get(), ::WebFilterBlockPolicy, document);
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
        "policy: %zu black-list entries, a document of %zu characters; URLs: %zu, %zu of them "
        "denied\n",
        settings.entries, document.size(), urls.Urls().size(), urls.Denied());
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
