#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "com/module_lock.h"
#include "manager_client.h"
#include "section_probe.h"
#include "thread_test_support.h"

namespace sentrel::test {

// The events a sink received: the type of each and the thread it arrived on.
using Events = std::vector<std::pair<::WebFilterType, DWORD>>;

// An IWebFilterEvents sink whose count only tells who holds it: it never deletes itself.
class TestSink final : public IWebFilterEvents {
  public:
    explicit TestSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK)
        : queryResult_(queryResult), eventResult_(eventResult) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const HRESULT result = InlineIsEqualGUID(iid, IID_IWebFilterEvents) ? queryResult_
                               : InlineIsEqualGUID(iid, IID_IUnknown)       ? S_OK
                                                                            : E_NOINTERFACE;
        TestSink* const given = tearOff && iid != IID_IUnknown ? tearOff : this;
        *object = SUCCEEDED(result) ? static_cast<IWebFilterEvents*>(given) : nullptr;
        given->references_ += SUCCEEDED(result) ? 1 : 0;
        return result;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references_); }

    // Recorded without a lock: tests read the events on the thread that received them, or once the
    // object that sent them has gone. Then onEvent runs.
    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(::WebFilterType type) override {
        events_.emplace_back(type, GetCurrentThreadId());
        if (onEvent) {
            onEvent();
        }
        return eventResult_;
    }

    long References() const { return references_.load(); }
    const Events& Received() const { return events_; }

    std::function<void()> onEvent;
    TestSink* tearOff = nullptr;  // what QueryInterface hands out for the events interface

  private:
    const HRESULT queryResult_;
    const HRESULT eventResult_;
    std::atomic<long> references_{0};
    Events events_;
};

inline constexpr ::WebFilterType kNone = ::WebFilterBlockNone, kPolicy = ::WebFilterBlockPolicy,
                                 kAll = ::WebFilterBlockAll;
inline const std::u16string kModeZero = Document(0, u"http://a.example/");
inline const std::u16string kModeTwo = Document(2, u"http://b.example/");

// GetFilterContent's result, type, refresh mode and text.
using Content = std::tuple<HRESULT, ::WebFilterType, int, std::u16string>;
inline Content ContentOf(IWebFilterManager& manager) {
    Content content{E_UNEXPECTED, kNone, -1, u""};
    Bstr text;
    std::get<0>(content) =
        manager.GetFilterContent(&std::get<1>(content), text.Put(), &std::get<2>(content));
    std::get<3>(content) = text.View();
    return content;
}
// What GetFilterContent hands back for a policy whose document is given in the writer's form.
inline Content Handed(::WebFilterType type, int refreshMode, const std::u16string& document) {
    return {S_OK, type, refreshMode, u"\uFEFF" + document};
}

// A tick of the object's timer, by hand on the calling thread (the manager is linked in).
inline void Tick(IWebFilterManager& object) {
    static_cast<CWebFilterManager&>(object).OnTimeElapsed();
}

inline ComPtr<IConnectionPoint> EventsPoint(IUnknown& object) {
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    object.QueryInterface(IID_IConnectionPointContainer, container.PutVoid());
    container->FindConnectionPoint(IID_IWebFilterEvents, point.Put());
    return point;
}
inline DWORD Advise(IUnknown& object, TestSink& sink) {
    DWORD cookie = 0;
    EventsPoint(object)->Advise(&sink, &cookie);
    return cookie;
}

// A test in the multi-threaded apartment with an object of its own. It starts with no shared
// section and ends with every object it made destroyed once, and every sink released.
class ManagerTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_FALSE(ProbeSection()) << "a section outlived the previous test";
        manager_ = CreateManager();
    }
    void TearDown() override {
        manager_.Reset();
        EXPECT_TRUE(WaitUntil([&] { return TheModuleLockCount.GetLockCount() == locks_; }));
        for (const TestSink& sink : sinks_) {
            EXPECT_EQ(sink.References(), 0);
        }
    }

    IWebFilterManager& Manager() { return *manager_.Get(); }
    // A sink that outlives every object of the test.
    TestSink& MakeSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK) {
        return sinks_.emplace_back(queryResult, eventResult);
    }

    const ComInit com_{COINIT_MULTITHREADED};
    const LONG locks_ = TheModuleLockCount.GetLockCount();
    std::deque<TestSink> sinks_;
    ComPtr<IWebFilterManager> manager_;
};

}  // namespace sentrel::test
