#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "com/unique_resource.h"
#include "shared/thread_base.h"
#include "thread_test_support.h"

namespace sentrel {
namespace {

using test::WaitUntil;

constexpr UINT kRecord = WM_APP + 1;
constexpr UINT kBlock = WM_APP + 2;

struct Message {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    bool operator==(const Message&) const = default;
};

// Records what happens to it, and on which thread.
class RecordingThread : public CThreadBase {
  public:
    explicit RecordingThread(bool loopStarts = true)
        : loopStarts_(loopStarts),
          unblock_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          quitPosted_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~RecordingThread() override { Join(); }

    using CThreadBase::ThreadId;

    bool PostToThread(UINT message, WPARAM wParam, LPARAM lParam, std::uint32_t tries) override {
        const bool posted = CThreadBase::PostToThread(message, wParam, lParam, tries);
        if (message == WM_QUIT) {
            SetEvent(quitPosted_.Get());
        }
        return posted;
    }

    std::vector<std::string> Events() {
        const std::lock_guard<std::mutex> guard(lock_);
        return events_;
    }
    std::vector<Message> Received() {
        const std::lock_guard<std::mutex> guard(lock_);
        return received_;
    }
    std::vector<Message> Refused() {
        const std::lock_guard<std::mutex> guard(lock_);
        return refused_;
    }
    bool AllOnWorker() const { return allOnWorker_; }
    int Priority() const { return priority_; }
    void Unblock() { SetEvent(unblock_.Get()); }
    bool WaitQuitPosted() { return WaitForSingleObject(quitPosted_.Get(), 10000) == 0; }
    bool QuitPosted() { return WaitForSingleObject(quitPosted_.Get(), 0) == 0; }
    std::atomic<bool> blocked{false};

  protected:
    void OnThreadStart() override {
        priority_ = GetThreadPriority(GetCurrentThread());
        Record("start");
    }
    void OnThreadEnd() override { Record("end"); }
    bool OnLoopStart() override {
        Record("loop start");
        return loopStarts_;
    }
    void OnLoopEnd() override { Record("loop end"); }
    void OnPostRefused(UINT message, WPARAM wParam, LPARAM lParam) override {
        const std::lock_guard<std::mutex> guard(lock_);
        refused_.push_back({message, wParam, lParam});
    }
    void OnThreadMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            received_.push_back({message, wParam, lParam});
        }
        if (message == kBlock) {
            blocked = true;
            WaitForSingleObject(unblock_.Get(), INFINITE);
            blocked = false;
        }
    }

  private:
    void Record(const char* event) {
        if (GetCurrentThreadId() != ThreadId() && std::string(event) != "end") {
            allOnWorker_ = false;  // the id is cleared just before the end hook
        }
        const std::lock_guard<std::mutex> guard(lock_);
        events_.emplace_back(event);
    }

    const bool loopStarts_;
    UniqueHandle unblock_;
    UniqueHandle quitPosted_;
    std::mutex lock_;
    std::vector<std::string> events_;
    std::vector<Message> received_;
    std::vector<Message> refused_;
    std::atomic<bool> allOnWorker_{true};
    std::atomic<int> priority_{THREAD_PRIORITY_ERROR_RETURN};
};

TEST(ThreadBase, MessagePostedRightAfterBeginIsDelivered) {
    for (int round = 0; round < 10; ++round) {
        RecordingThread thread;
        ASSERT_TRUE(thread.Begin(0, 0));
        ASSERT_TRUE(thread.PostToThread(kRecord, 7, 9, CThreadBase::kPostTries));
        ASSERT_TRUE(WaitUntil([&] { return !thread.Received().empty(); }));
        EXPECT_EQ(thread.Received(), (std::vector<Message>{{kRecord, 7, 9}}));
        EXPECT_TRUE(thread.End(10000));
    }
}

TEST(ThreadBase, HooksRunOnTheThreadInOrder) {
    RecordingThread thread;
    ASSERT_TRUE(thread.Begin(0, THREAD_PRIORITY_BELOW_NORMAL));
    ASSERT_TRUE(WaitUntil([&] { return thread.Events().size() == 2; }));
    EXPECT_TRUE(thread.End(10000));
    EXPECT_EQ(thread.Events(),
              (std::vector<std::string>{"start", "loop start", "loop end", "end"}));
    EXPECT_TRUE(thread.AllOnWorker());
    EXPECT_EQ(thread.Priority(), THREAD_PRIORITY_BELOW_NORMAL);
    EXPECT_EQ(thread.ThreadId(), 0u);
}

TEST(ThreadBase, LoopThatDoesNotStartEndsTheThread) {
    RecordingThread thread(false);
    ASSERT_TRUE(thread.Begin(0, 0));
    ASSERT_TRUE(WaitUntil([&] { return thread.Events().size() == 3; }));
    EXPECT_EQ(thread.Events(), (std::vector<std::string>{"start", "loop start", "end"}));
    EXPECT_EQ(thread.ThreadId(), 0u);
    // Nothing runs any more: a post is refused, and End still tidies up.
    EXPECT_FALSE(thread.PostToThread(kRecord, 1, 2, 3));
    EXPECT_EQ(thread.Refused(), (std::vector<Message>{{kRecord, 1, 2}}));
    EXPECT_TRUE(thread.End(10000));
}

TEST(ThreadBase, BeginTwiceStartsOneThread) {
    RecordingThread thread;
    ASSERT_TRUE(thread.Begin(0, 0));
    const DWORD first = thread.ThreadId();
    EXPECT_FALSE(thread.Begin(0, 0));
    EXPECT_EQ(thread.ThreadId(), first);
    EXPECT_TRUE(thread.End(10000));
    const auto events = thread.Events();
    EXPECT_EQ(std::count(events.begin(), events.end(), "start"), 1);
    // Once stopped it may start again.
    EXPECT_TRUE(thread.Begin(0, 0));
    EXPECT_TRUE(thread.End(10000));
}

TEST(ThreadBase, EndOnNeverStartedThreadPostsNothing) {
    RecordingThread thread;
    EXPECT_TRUE(thread.End(10000));
    EXPECT_FALSE(thread.QuitPosted());
    EXPECT_TRUE(thread.Events().empty());
    EXPECT_TRUE(thread.Refused().empty());
}

TEST(ThreadBase, PostWithoutThreadIsRefused) {
    RecordingThread thread;
    EXPECT_FALSE(thread.PostToThread(kRecord, 3, 4, CThreadBase::kPostTries));
    EXPECT_EQ(thread.Refused(), (std::vector<Message>{{kRecord, 3, 4}}));
}

TEST(ThreadBase, SecondEndDuringAStopReturnsFalse) {
    RecordingThread thread;
    ASSERT_TRUE(thread.Begin(0, 0));
    ASSERT_TRUE(thread.PostToThread(kBlock, 0, 0, CThreadBase::kPostTries));
    ASSERT_TRUE(WaitUntil([&] { return thread.blocked.load(); }));

    std::atomic<bool> firstEnd{false};
    std::thread stopper([&] { firstEnd = thread.End(INFINITE); });
    ASSERT_TRUE(thread.WaitQuitPosted());
    EXPECT_FALSE(thread.End(0));
    // While stopping, ordinary messages are refused.
    EXPECT_FALSE(thread.PostToThread(kRecord, 5, 6, 1));
    thread.Unblock();
    stopper.join();
    EXPECT_TRUE(firstEnd);
    EXPECT_EQ(thread.Refused(), (std::vector<Message>{{kRecord, 5, 6}}));
}

TEST(ThreadBase, SuspendedThreadRunsOnlyOnceEnded) {
    RecordingThread thread;
    ASSERT_TRUE(thread.Begin(CREATE_SUSPENDED, 0));
    Sleep(100);
    EXPECT_TRUE(thread.Events().empty());
    EXPECT_TRUE(thread.End(INFINITE));
    EXPECT_EQ(thread.Events().back(), "end");
}

TEST(ThreadBase, TimedOutEndLeavesTheThreadToTheDestructor) {
    auto thread = std::make_unique<RecordingThread>();
    ASSERT_TRUE(thread->Begin(0, 0));
    ASSERT_TRUE(thread->PostToThread(kBlock, 0, 0, CThreadBase::kPostTries));
    ASSERT_TRUE(WaitUntil([&] { return thread->blocked.load(); }));
    EXPECT_TRUE(thread->End(50));
    EXPECT_EQ(thread->ThreadId(), 0u);
    EXPECT_FALSE(thread->Begin(0, 0));  // the old thread still runs on this object

    std::atomic<bool> destroyed{false};
    RecordingThread* raw = thread.get();
    std::thread destroyer([&] {
        thread.reset();
        destroyed = true;
    });
    Sleep(200);
    EXPECT_FALSE(destroyed);
    raw->Unblock();
    destroyer.join();
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace sentrel
