#include "manager/web_filter_manager_wnd.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "com/com_ptr.h"
#include "source_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

// A single-threaded apartment thread: runs start, then its message loop until Stop, then finish.
class StaThread {
  public:
    StaThread(std::function<void()> start, std::function<void()> finish) {
        std::promise<DWORD> started;
        std::future<DWORD> id = started.get_future();
        thread_ = std::thread([&started, start = std::move(start), finish = std::move(finish)] {
            CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
            MSG message{};
            // Makes the thread's message queue before anyone posts to it.
            PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
            start();
            started.set_value(GetCurrentThreadId());
            while (GetMessageW(&message, nullptr, 0, 0) > 0) {
                DispatchMessageW(&message);
            }
            finish();
            CoUninitialize();
        });
        id_ = id.get();
    }
    StaThread(const StaThread&) = delete;
    StaThread& operator=(const StaThread&) = delete;
    ~StaThread() { Stop(); }

    void Stop() {
        if (thread_.joinable()) {
            PostThreadMessageW(id_, WM_QUIT, 0, 0);
            thread_.join();
        }
    }
    DWORD Id() const { return id_; }

  private:
    std::thread thread_;
    DWORD id_ = 0;
};

// Waits, boundedly, until the sink has received count events.
bool WaitForEvents(const TestSink& sink, std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (sink.Events().size() < count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return sink.Events().size() >= count;
}

// Dispatches what the calling thread's queue holds.
void DispatchWaitingMessages() {
    MSG message{};
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
}

class WindowTest : public SourceTest {
  protected:
    void SetUp() override {
        SourceTest::SetUp();
        Advise(sink_);
    }

    TestSink& sink_ = MakeSink();
};

TEST_F(WindowTest, PostedEventsAreFiredInOrderOnTheThreadThatCreatedTheWindow) {
    CWebFilterManagerWnd window(Source());
    bool created = false;
    StaThread sta([&] { created = window.Create(); }, [&] { window.Destroy(); });
    ASSERT_TRUE(created);
    const std::array<WebFilterType, 3> types{WebFilterBlockAll, WebFilterBlockPolicy,
                                             WebFilterBlockNone};
    for (const WebFilterType type : types) {
        EXPECT_TRUE(window.PostFilterContentChanged(type));
    }
    ASSERT_TRUE(WaitForEvents(sink_, types.size()));
    const std::vector<TestSink::Event> events = sink_.Events();
    for (std::size_t index = 0; index < types.size(); ++index) {
        EXPECT_EQ(events[index].type, types[index]);
        EXPECT_EQ(events[index].thread, sta.Id());
    }
    sta.Stop();
    EXPECT_FALSE(window.IsWindow());
}

TEST_F(WindowTest, OnlyTheLow32BitsOfWParamCarryTheType) {
    CWebFilterManagerWnd window(Source());
    StaThread sta([&] { window.Create(); }, [&] { window.Destroy(); });
    ASSERT_TRUE(window.IsWindow());
    ASSERT_TRUE(PostMessageW(window.Handle(), WM_FILTERCONTENTCHANGED, 0xABCDEF0000000002ull, 0));
    ASSERT_TRUE(PostMessageW(window.Handle(), WM_FILTERCONTENTCHANGED, 0x100000001ull, 0));
    ASSERT_TRUE(WaitForEvents(sink_, 2));
    EXPECT_EQ(sink_.Types(), (std::vector<WebFilterType>{WebFilterBlockAll, WebFilterBlockPolicy}));
}

TEST_F(WindowTest, TheWindowIsAMessageOnlyWindowOfItsOwnClass) {
    CWebFilterManagerWnd window(Source());
    ASSERT_TRUE(window.Create());
    const HWND handle = window.Handle();
    std::array<wchar_t, 64> name{};
    ASSERT_GT(GetClassNameW(handle, name.data(), static_cast<int>(name.size())), 0);
    EXPECT_STREQ(name.data(), L"CWebFilterManagerWnd");
    EXPECT_EQ(GetClassLongPtrW(handle, GCL_STYLE), 0x000Bu);
    EXPECT_EQ(GetClassLongPtrW(handle, GCLP_HBRBACKGROUND),
              static_cast<ULONG_PTR>(COLOR_WINDOW + 1));
    EXPECT_EQ(GetWindowLongPtrW(handle, GWL_STYLE) & WS_VISIBLE, 0);
    EXPECT_EQ(GetWindowThreadProcessId(handle, nullptr), GetCurrentThreadId());
    // Message-only windows live below HWND_MESSAGE.
    EXPECT_EQ(FindWindowExW(HWND_MESSAGE, nullptr, L"CWebFilterManagerWnd", nullptr), handle);
}

TEST_F(WindowTest, EventsWaitUntilTheThreadDispatchesItsMessages) {
    CWebFilterManagerWnd window(Source());
    ASSERT_TRUE(window.Create());
    EXPECT_TRUE(window.PostFilterContentChanged(WebFilterBlockAll));
    EXPECT_TRUE(sink_.Events().empty());
    DispatchWaitingMessages();
    ASSERT_EQ(sink_.Events().size(), 1u);
    EXPECT_EQ(sink_.Events()[0].thread, GetCurrentThreadId());
    // Other messages go to the default handling and fire nothing.
    EXPECT_EQ(SendMessageW(window.Handle(), WM_USER + 101, 2, 0), 0);
    EXPECT_EQ(sink_.Events().size(), 1u);
}

TEST_F(WindowTest, AfterDestroyNothingIsPosted) {
    CWebFilterManagerWnd window(Source());
    ASSERT_TRUE(window.Create());
    const HWND handle = window.Handle();
    window.Destroy();
    EXPECT_FALSE(window.IsWindow());
    EXPECT_FALSE(::IsWindow(handle));
    EXPECT_FALSE(window.PostFilterContentChanged(WebFilterBlockAll));
    window.Destroy();
    DispatchWaitingMessages();
    EXPECT_TRUE(sink_.Events().empty());
}

TEST_F(WindowTest, DestroyFromAnotherThreadLeavesTheDestructionToTheWindowsThread) {
    CWebFilterManagerWnd window(Source());
    StaThread sta([&] { window.Create(); }, [] {});
    const HWND handle = window.Handle();
    ASSERT_TRUE(::IsWindow(handle));
    window.Destroy();
    EXPECT_FALSE(window.IsWindow());
    EXPECT_FALSE(window.PostFilterContentChanged(WebFilterBlockAll));
    // Detached at once: a message still reaching the window fires nothing.
    PostMessageW(handle, WM_FILTERCONTENTCHANGED, WebFilterBlockAll, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (::IsWindow(handle) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_FALSE(::IsWindow(handle));
    EXPECT_TRUE(sink_.Events().empty());
}

TEST_F(WindowTest, AWindowWhoseThreadEndedIsNoWindow) {
    CWebFilterManagerWnd window(Source());
    std::thread([&] { window.Create(); }).join();
    EXPECT_FALSE(window.IsWindow());
    EXPECT_FALSE(window.PostFilterContentChanged(WebFilterBlockAll));
}

TEST_F(WindowTest, WindowsOfSeveralObjectsLiveSideBySide) {
    SourceProbe otherProbe;
    ComPtr<IConnectionPointContainer> other;
    ASSERT_EQ(CreateSource(otherProbe, other.Put()), S_OK);
    CWebFilterManagerWnd first(Source());
    CWebFilterManagerWnd second(SourceOf(other.Get()));
    ASSERT_TRUE(first.Create());
    ASSERT_TRUE(second.Create());
    EXPECT_NE(first.Handle(), second.Handle());
    first.PostFilterContentChanged(WebFilterBlockPolicy);
    second.PostFilterContentChanged(WebFilterBlockAll);
    DispatchWaitingMessages();
    // Only the first object's sink is advised.
    EXPECT_EQ(sink_.Types(), std::vector<WebFilterType>{WebFilterBlockPolicy});
}

}  // namespace
}  // namespace sentrel::test
