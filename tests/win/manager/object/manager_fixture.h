#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <tuple>

#include "manager_client.h"
#include "module/module_lock.h"
#include "section_probe.h"
#include "test_doubles.h"
#include "thread_test_support.h"

namespace sentrel::test {

inline constexpr ::WebFilterType kNone = ::WebFilterBlockNone;
inline constexpr ::WebFilterType kPolicy = ::WebFilterBlockPolicy;
inline constexpr ::WebFilterType kAll = ::WebFilterBlockAll;
// Policies told apart by their refresh mode and the host they deny.
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

// The shared section's stamp, type and text; nothing when there is no section.
using Section = std::tuple<std::uint32_t, std::uint16_t, std::u16string>;
inline std::optional<Section> Published() {
    const std::optional<SectionContent> section = ProbeSection();
    return section ? std::optional(Section{section->stamp, section->type, section->text})
                   : std::nullopt;
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
