// Client threads deciding and reading while another thread sets policies and the timers refresh,
// for a bounded time: every answer is that of one whole policy, nothing deadlocks, and a refresh
// never leaves an older publication in force after a newer one.

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "manager_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

constexpr std::chrono::seconds kRunTime{3};
constexpr std::chrono::seconds kFinishTime{60};

// Threads of the multi-threaded apartment that run until told to stop.
class ClientThreads {
  public:
    ~ClientThreads() { Stop(); }

    void Start(std::function<void()> body) {
        threads_.emplace_back([this, body = std::move(body)] {
            const ComInit com(COINIT_MULTITHREADED);
            while (!stop_) {
                body();
            }
            ++finished_;
        });
    }

    // A thread that does not finish in time is stuck: the run cannot go on without it.
    void Stop() {
        stop_ = true;
        if (!WaitUntil([&] { return finished_ == threads_.size(); }, kFinishTime)) {
            std::fprintf(stderr, "client threads still stuck after %lld s: deadlock\n",
                         static_cast<long long>(kFinishTime.count()));
            std::fflush(stderr);
            std::_Exit(EXIT_FAILURE);
        }
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

  private:
    std::atomic<bool> stop_{false};
    std::atomic<std::size_t> finished_{0};
    std::list<std::thread> threads_;
};

// Two policies told apart by their lists, with one host that both deny.
std::vector<std::u16string> Hosts(const char16_t* prefix, std::size_t count) {
    std::vector<std::u16string> urls;
    for (std::size_t i = 0; i < count; ++i) {
        urls.push_back(u"http://" + std::u16string(prefix) + u"-" +
                       std::u16string(1, static_cast<char16_t>(u'a' + i % 26)) +
                       std::u16string(1, static_cast<char16_t>(u'a' + i / 26 % 26)) + u".example/");
    }
    return urls;
}

struct Policy {
    std::u16string document;
    int refreshMode;
};

Policy MakePolicy(const char16_t* prefix, int refreshMode, bool commonFirst) {
    std::vector<std::u16string> urls = Hosts(prefix, 400);
    urls.insert(commonFirst ? urls.begin() : urls.end(), u"http://common.example/");
    return {ListDocument(static_cast<std::uint32_t>(refreshMode), ListKind::Black, urls),
            refreshMode};
}

using ConcurrencyTest = ManagerTest;

TEST_F(ConcurrencyTest, AnswersAreThoseOfAWholePolicyWhilePoliciesChange) {
    const Policy policies[2] = {MakePolicy(u"first", 0, true), MakePolicy(u"second", 4, false)};
    const auto isWhole = [&](const FilterContent& content) {
        for (const Policy& policy : policies) {
            if (content.text == kByteOrderMark + policy.document) {
                return content.result == S_OK && content.type == WebFilterBlockPolicy &&
                       content.refreshMode == policy.refreshMode;
            }
        }
        return false;
    };
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, policies[0].document), S_OK);
    ASSERT_EQ(Manager().EnableUpdate(1), S_OK);

    // A second object follows the publications: its ticks and a client's EnableUpdate refresh
    // at the same time, and its sink reads it from inside each event.
    TestSink sink;
    std::atomic<int> brokenInEvents{0};
    const ComPtr<IWebFilterManager> follower = CreateManager();
    ASSERT_TRUE(follower);
    sink.onEvent = [&](::WebFilterType) {
        brokenInEvents += isWhole(ContentOf(*follower.Get())) ? 0 : 1;
    };
    const ComPtr<IConnectionPoint> point = EventsPoint(*follower.Get());
    DWORD cookie = 0;
    ASSERT_EQ(point->Advise(static_cast<IUnknown*>(&sink), &cookie), S_OK);
    ASSERT_EQ(follower->EnableUpdate(1), S_OK);

    std::atomic<int> sets{0};
    std::atomic<int> failedSets{0};
    std::atomic<int> decisions{0};
    std::atomic<int> wrongDecisions{0};
    std::atomic<int> reads{0};
    std::atomic<int> brokenReads{0};
    {
        ClientThreads clients;
        clients.Start([&] {
            const Policy& next = policies[(sets + 1) % 2];
            failedSets +=
                SetContent(Manager(), WebFilterBlockPolicy, next.document) == S_OK ? 0 : 1;
            ++sets;
        });
        for (IWebFilterManager* object : {manager_.Get(), manager_.Get(), follower.Get()}) {
            clients.Start([&, object] {
                // Both whole policies deny it; an index caught half-built would not.
                wrongDecisions += Allowed(*object, u"http://common.example/") == 0 ? 0 : 1;
                Allowed(*object, u"http://first-aa.example/");
                decisions += 2;
                brokenReads += isWhole(ContentOf(*object)) ? 0 : 1;
                ++reads;
            });
        }
        clients.Start([&] { follower->EnableUpdate(1); });
        SleepFor(kRunTime);
    }
    EXPECT_GT(sets, 4);
    EXPECT_EQ(failedSets, 0);
    EXPECT_GT(decisions, 100);
    EXPECT_EQ(wrongDecisions, 0);
    EXPECT_GT(reads, 50);
    EXPECT_EQ(brokenReads, 0);
    EXPECT_EQ(brokenInEvents, 0);

    // Once the publications stop, both objects settle on the last one and stay there.
    const Policy& last = policies[sets % 2];
    const auto settled = [&] {
        return ContentOf(Manager()).text == kByteOrderMark + last.document &&
               ContentOf(*follower.Get()).text == kByteOrderMark + last.document;
    };
    EXPECT_TRUE(WaitUntil(settled));
    SleepFor(kSeveralTicks);
    EXPECT_TRUE(settled());
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(sink.References(), 0);
}

}  // namespace
}  // namespace sentrel::test
