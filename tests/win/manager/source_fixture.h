#pragma once

#include <windows.h>

#include <ocidl.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "manager/com_ptr.h"
#include "test_doubles.h"

namespace sentrel::test {

// A TestSource and its IWebFilterEvents connection point, as a client finds them.
class SourceTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(CreateSource(probe_, container_.Put()), S_OK);
        ASSERT_EQ(container_->FindConnectionPoint(IID_IWebFilterEvents, point_.Put()), S_OK);
    }

    DWORD Advise(TestSink& sink) {
        DWORD cookie = 0;
        EXPECT_EQ(point_->Advise(static_cast<IUnknown*>(&sink), &cookie), S_OK);
        return cookie;
    }

    TestSource& Source() { return SourceOf(container_.Get()); }

    // Whether another thread takes the object lock within 10 s: a lock held here fails the test
    // rather than hanging it.
    bool LockFreeForOtherThreads() {
        auto taken = std::make_shared<std::promise<void>>();
        std::future<void> done = taken->get_future();
        std::thread([&lock = Source().GetLock(), taken] {
            const std::lock_guard guard(lock);
            taken->set_value();
        }).detach();
        return done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }

    // A sink that outlives the object, which releases the sinks still advised when it goes.
    TestSink& MakeSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK) {
        return sinks_.emplace_back(queryResult, eventResult);
    }

    SourceProbe probe_;
    std::list<TestSink> sinks_;
    ComPtr<IConnectionPointContainer> container_;
    ComPtr<IConnectionPoint> point_;
};

}  // namespace sentrel::test
