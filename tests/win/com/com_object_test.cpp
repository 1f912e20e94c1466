#include "com/com_object.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "com/com_ptr.h"
#include "com/module_lock.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

TEST(ComObject, CountsReferencesAndIsDestroyedOnceAtZero) {
    SourceProbe probe;
    IPersist* object = nullptr;
    ASSERT_EQ(CreateSource(probe, &object), S_OK);
    EXPECT_EQ(probe.finalConstructs, 1);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(probe.destructions, 0);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(probe.finalReleases, 1);
    EXPECT_EQ(probe.destructions, 1);
}

TEST(ComObject, EveryInterfaceGivesTheSameIdentity) {
    SourceProbe probe;
    ComPtr<IPersist> persist;
    ASSERT_EQ(CreateSource(probe, persist.Put()), S_OK);
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(persist.As(container), S_OK);
    ComPtr<IUnknown> fromPersist;
    ComPtr<IUnknown> fromContainer;
    ASSERT_EQ(persist.As(fromPersist), S_OK);
    ASSERT_EQ(container.As(fromContainer), S_OK);
    EXPECT_EQ(fromPersist, fromContainer);
    ComPtr<IPersist> back;
    ASSERT_EQ(fromContainer.As(back), S_OK);
    EXPECT_EQ(back, persist);
}

TEST(ComObject, AnInterfaceItLacksGivesNoInterfaceAndNull) {
    SourceProbe probe;
    ComPtr<IPersist> persist;
    ASSERT_EQ(CreateSource(probe, persist.Put()), S_OK);
    void* other = &probe;
    EXPECT_EQ(persist->QueryInterface(IID_IDispatch, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    // The connection point is a part of the object, not one of its interfaces.
    EXPECT_EQ(persist->QueryInterface(IID_IConnectionPoint, &other), E_NOINTERFACE);
    EXPECT_EQ(persist->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST(ComObject, EachLiveObjectHoldsOneModuleLock) {
    const LONG before = TheModuleLockCount.GetLockCount();
    SourceProbe probe;
    ComPtr<IPersist> first;
    ComPtr<IPersist> second;
    ASSERT_EQ(CreateSource(probe, first.Put()), S_OK);
    ASSERT_EQ(CreateSource(probe, second.Put()), S_OK);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before + 2);
    first.Reset();
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before + 1);
    second.Reset();
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before);
}

class FailedFinalConstruct : public testing::TestWithParam<HRESULT> {};

TEST_P(FailedFinalConstruct, IsTheResultAndDestroysTheObject) {
    const LONG before = TheModuleLockCount.GetLockCount();
    SourceProbe probe;
    probe.finalConstructResult = GetParam();
    IPersist* object = reinterpret_cast<IPersist*>(&probe);
    EXPECT_EQ(CreateSource(probe, &object), GetParam());
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(probe.finalReleases, 1);
    EXPECT_EQ(probe.destructions, 1);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before);
}

INSTANTIATE_TEST_SUITE_P(Results, FailedFinalConstruct,
                         testing::Values(E_FAIL, E_OUTOFMEMORY, E_ACCESSDENIED));

TEST(ComObject, CreationForAnInterfaceItLacksDestroysTheObject) {
    const LONG before = TheModuleLockCount.GetLockCount();
    SourceProbe probe;
    IDispatch* object = reinterpret_cast<IDispatch*>(&probe);
    EXPECT_EQ(CreateSource(probe, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(probe.finalConstructs, 1);
    EXPECT_EQ(probe.destructions, 1);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before);
}

TEST(ComObject, CreationWithoutAnOutParameterMakesNoObject) {
    SourceProbe probe;
    EXPECT_EQ(ComObject<TestSource>::Create(nullptr, IID_IUnknown, nullptr, &probe), E_POINTER);
    EXPECT_EQ(probe.finalConstructs, 0);
    EXPECT_EQ(probe.destructions, 0);
}

TEST(ComObject, FinalReleaseMayHandTheObjectOutWithoutASecondDestruction) {
    SourceProbe probe;
    probe.touchInFinalRelease = true;
    IPersist* object = nullptr;
    ASSERT_EQ(CreateSource(probe, &object), S_OK);
    object->Release();
    EXPECT_EQ(probe.finalReleases, 1);
    EXPECT_EQ(probe.destructions, 1);
}

TEST(ComObject, ConcurrentAddRefAndReleaseKeepTheCountExact) {
    SourceProbe probe;
    IPersist* object = nullptr;
    ASSERT_EQ(CreateSource(probe, &object), S_OK);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([object] {
            for (int round = 0; round < 20000; ++round) {
                object->AddRef();
                object->Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(probe.destructions, 0);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(probe.destructions, 1);
}

// An outer object aggregating a TestSource; each test holds the outer object's one reference.
class AggregationTest : public testing::Test {
  protected:
    void SetUp() override {
        HRESULT created = E_FAIL;
        outer_ = TestOuter::Make(probe_, created);
        ASSERT_EQ(created, S_OK);
    }
    void TearDown() override {
        if (outer_ != nullptr) {
            outer_->Release();
        }
    }

    SourceProbe probe_;
    TestOuter* outer_ = nullptr;
};

TEST_F(AggregationTest, TheOuterObjectGetsTheInnerUnknownAndIsNotHeldByIt) {
    IUnknown* inner = outer_->Inner();
    ASSERT_NE(inner, nullptr);
    EXPECT_NE(inner, static_cast<IUnknown*>(outer_));
    // The inner object must not hold its outer object, or the two would keep each other alive.
    EXPECT_EQ(outer_->References(), 1);
    // The inner unknown answers IUnknown with itself, counting on its own count.
    IUnknown* again = nullptr;
    ASSERT_EQ(inner->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&again)), S_OK);
    EXPECT_EQ(again, inner);
    EXPECT_EQ(outer_->References(), 1);
    EXPECT_EQ(again->Release(), 1u);
}

TEST_F(AggregationTest, TheOuterObjectReachesTheInnerInterfaceThroughItsOwnQueryInterface) {
    ComPtr<IPersist> persist;
    ASSERT_EQ(outer_->QueryInterface(IID_IPersist, persist.PutVoid()), S_OK);
    CLSID classId{};
    ASSERT_EQ(persist->GetClassID(&classId), S_OK);
    EXPECT_TRUE(IsEqualCLSID(classId, TestSource::kClassId));
    // References on the inner interface are the outer object's.
    EXPECT_EQ(outer_->References(), 2);
    // Its identity is the outer object's, and it offers only what the outer object offers.
    ComPtr<IUnknown> identity;
    ASSERT_EQ(persist.As(identity), S_OK);
    EXPECT_EQ(identity.Get(), static_cast<IUnknown*>(outer_));
    ComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(persist.As(container), E_NOINTERFACE);
    identity.Reset();
    persist.Reset();
    EXPECT_EQ(outer_->References(), 1);
}

TEST_F(AggregationTest, TheInnerUnknownHandsOutItsInterfacesCountedOnTheOuterObject) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(outer_->Inner()->QueryInterface(IID_IConnectionPointContainer, container.PutVoid()),
              S_OK);
    EXPECT_EQ(outer_->References(), 2);
    container.Reset();
    EXPECT_EQ(outer_->References(), 1);
}

TEST_F(AggregationTest, ReleasingTheOuterObjectDestroysTheInnerOne) {
    const LONG held = TheModuleLockCount.GetLockCount();
    std::exchange(outer_, nullptr)->Release();
    EXPECT_EQ(probe_.finalReleases, 1);
    EXPECT_EQ(probe_.destructions, 1);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), held - 1);
}

TEST(Aggregation, AFailedCreationLeavesTheOuterObjectWithoutInnerObject) {
    SourceProbe probe;
    probe.finalConstructResult = E_FAIL;
    HRESULT created = S_OK;
    TestOuter* outer = TestOuter::Make(probe, created);
    EXPECT_EQ(created, E_FAIL);
    EXPECT_EQ(outer->Inner(), nullptr);
    EXPECT_EQ(outer->References(), 1);
    EXPECT_EQ(probe.destructions, 1);
    outer->Release();
}

}  // namespace
}  // namespace sentrel::test
