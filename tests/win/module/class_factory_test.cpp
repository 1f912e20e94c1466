#include "module/class_factory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "manager/com_object.h"
#include "manager/com_object_root.h"
#include "manager/com_ptr.h"
#include "module/interface_table.h"
#include "module/module_lock.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

// What happened to the TestSource objects that one test made.
struct SourceProbe {
    HRESULT finalConstructResult = S_OK;
    std::atomic<int> finalConstructs{0};
    std::atomic<int> destructions{0};
};

// A COM object built from the blocks, for the tests of the class object: IPersist, whose
// GetClassID names the class.
class TestSource : public ComObjectRoot, public IPersist {
  public:
    static constexpr CLSID kClassId = {
        0x5D1C0AE1, 0x1D5B, 0x4C0F, {0x9A, 0x51, 0x33, 0x0C, 0x7E, 0x2A, 0x61, 0x0B}};

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* classId) override {
        *classId = kClassId;
        return S_OK;
    }

  protected:
    explicit TestSource(SourceProbe* probe) noexcept : probe_(probe) {}
    ~TestSource() { ++probe_->destructions; }

    HRESULT FinalConstruct() noexcept {
        ++probe_->finalConstructs;
        return probe_->finalConstructResult;
    }
    IUnknown* FindInterface(REFIID iid) noexcept { return FindInterfaceIn<IPersist>(this, iid); }

  private:
    SourceProbe* const probe_;
};

// The class factory's creator has no room for a probe: the fixture hands it this one.
SourceProbe* theProbe = nullptr;

HRESULT CreateTestSource(IUnknown* outer, REFIID iid, void** object) {
    return ComObject<TestSource>::Create(outer, iid, object, theProbe);
}

class ClassFactoryTest : public testing::Test {
  protected:
    void SetUp() override {
        theProbe = &probe_;
        before_ = TheModuleLockCount.GetLockCount();
    }
    void TearDown() override {
        EXPECT_EQ(TheModuleLockCount.GetLockCount(), before_);
        EXPECT_EQ(probe_.destructions, probe_.finalConstructs);
        theProbe = nullptr;
    }

    SourceProbe probe_;
    ClassFactory factory_{&CreateTestSource};
    LONG before_ = 0;
};

TEST_F(ClassFactoryTest, AnswersForIUnknownAndIClassFactoryOnly) {
    ComPtr<IUnknown> unknown;
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(factory_.QueryInterface(IID_IUnknown, unknown.PutVoid()), S_OK);
    ASSERT_EQ(factory_.QueryInterface(IID_IClassFactory, factory.PutVoid()), S_OK);
    EXPECT_EQ(unknown.Get(), static_cast<IUnknown*>(factory.Get()));
    void* other = &probe_;
    EXPECT_EQ(factory_.QueryInterface(IID_IDispatch, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(factory_.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(ClassFactoryTest, AClientsReferenceKeepsTheModuleLoaded) {
    EXPECT_EQ(factory_.AddRef(), static_cast<ULONG>(before_ + 1));
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before_ + 1);
    EXPECT_EQ(factory_.Release(), static_cast<ULONG>(before_));
}

TEST_F(ClassFactoryTest, LockServerCountsOnTheModuleLock) {
    EXPECT_EQ(factory_.LockServer(TRUE), S_OK);
    EXPECT_EQ(factory_.LockServer(TRUE), S_OK);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before_ + 2);
    EXPECT_EQ(factory_.LockServer(FALSE), S_OK);
    EXPECT_EQ(factory_.LockServer(FALSE), S_OK);
}

TEST_F(ClassFactoryTest, CreatesPlainInstancesThatHoldTheModule) {
    ComPtr<IPersist> persist;
    ASSERT_EQ(factory_.CreateInstance(nullptr, IID_IPersist, persist.PutVoid()), S_OK);
    CLSID classId{};
    EXPECT_EQ(persist->GetClassID(&classId), S_OK);
    EXPECT_TRUE(IsEqualCLSID(classId, TestSource::kClassId));
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), before_ + 1);
    persist.Reset();
    EXPECT_EQ(probe_.destructions, 1);
}

TEST_F(ClassFactoryTest, CreatesAggregatedInstancesForTheInnerUnknown) {
    TestSink outer;
    ComPtr<IUnknown> inner;
    ASSERT_EQ(
        factory_.CreateInstance(static_cast<IUnknown*>(&outer), IID_IUnknown, inner.PutVoid()),
        S_OK);
    EXPECT_EQ(outer.References(), 0);
    ComPtr<IPersist> persist;
    ASSERT_EQ(inner.As(persist), S_OK);
    // The interface's references and identity are the outer object's.
    EXPECT_EQ(outer.References(), 1);
    ComPtr<IUnknown> identity;
    ASSERT_EQ(persist.As(identity), S_OK);
    EXPECT_EQ(identity.Get(), static_cast<IUnknown*>(&outer));
    identity.Reset();
    persist.Reset();
    EXPECT_EQ(outer.References(), 0);
    inner.Reset();
    EXPECT_EQ(probe_.destructions, 1);
}

TEST_F(ClassFactoryTest, AnOuterObjectMayAskForNothingButIUnknown) {
    TestSink outer;
    for (const IID& iid : {IID_IPersist, IID_IConnectionPointContainer, IID_IDispatch}) {
        void* object = &probe_;
        EXPECT_EQ(factory_.CreateInstance(static_cast<IUnknown*>(&outer), iid, &object),
                  CLASS_E_NOAGGREGATION);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(probe_.finalConstructs, 0);
    EXPECT_EQ(outer.References(), 0);
}

TEST_F(ClassFactoryTest, FailuresAreTheResultAndLeaveNoObject) {
    EXPECT_EQ(factory_.CreateInstance(nullptr, IID_IPersist, nullptr), E_POINTER);
    EXPECT_EQ(probe_.finalConstructs, 0);
    void* object = &probe_;
    EXPECT_EQ(factory_.CreateInstance(nullptr, IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    probe_.finalConstructResult = E_OUTOFMEMORY;
    object = &probe_;
    EXPECT_EQ(factory_.CreateInstance(nullptr, IID_IPersist, &object), E_OUTOFMEMORY);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(probe_.destructions, 2);
}

TEST_F(ClassFactoryTest, ConcurrentCreationsEachMakeOneObject) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this] {
            for (int round = 0; round < 500; ++round) {
                ComPtr<IPersist> persist;
                EXPECT_EQ(factory_.CreateInstance(nullptr, IID_IPersist, persist.PutVoid()), S_OK);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(probe_.finalConstructs, 2000);
}

}  // namespace
}  // namespace sentrel::test
