#pragma once

#include <windows.h>

#include <ocidl.h>

#include <gtest/gtest.h>

#include <list>

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
