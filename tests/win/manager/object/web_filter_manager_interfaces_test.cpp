// The object's COM surface: the interfaces it answers for, its error-information support, its
// connection-point container, and aggregation by an outer object.

#include <windows.h>

#include <gtest/gtest.h>

#include <ocidl.h>

#include <atomic>
#include <string>

#include "manager_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

using InterfacesTest = ManagerTest;

struct InterfaceCase {
    const char* name;
    IID iid;
    HRESULT answer;
};

class QueryInterfaceAnswers : public ManagerTest,
                              public testing::WithParamInterface<InterfaceCase> {};

TEST_P(QueryInterfaceAnswers, ForItsOwnInterfacesOnly) {
    int sentinel = 0;
    void* object = &sentinel;
    EXPECT_EQ(Manager().QueryInterface(GetParam().iid, &object), GetParam().answer);
    if (GetParam().answer != S_OK) {
        EXPECT_EQ(object, nullptr);
        return;
    }
    ASSERT_NE(object, nullptr);
    // Every interface leads back to the same identity.
    auto* unknown = static_cast<IUnknown*>(object);
    ComPtr<IUnknown> identity;
    ComPtr<IUnknown> expected;
    EXPECT_EQ(unknown->QueryInterface(IID_IUnknown, identity.PutVoid()), S_OK);
    EXPECT_EQ(Manager().QueryInterface(IID_IUnknown, expected.PutVoid()), S_OK);
    EXPECT_EQ(identity, expected);
    unknown->Release();
}

INSTANTIATE_TEST_SUITE_P(
    Manager, QueryInterfaceAnswers,
    testing::Values(InterfaceCase{"IUnknown", IID_IUnknown, S_OK},
                    InterfaceCase{"IWebFilterManager", IID_IWebFilterManager, S_OK},
                    InterfaceCase{"ISupportErrorInfo", IID_ISupportErrorInfo, S_OK},
                    InterfaceCase{"IConnectionPointContainer", IID_IConnectionPointContainer, S_OK},
                    InterfaceCase{"IConnectionPoint", IID_IConnectionPoint, E_NOINTERFACE},
                    InterfaceCase{"IWebFilterEvents", IID_IWebFilterEvents, E_NOINTERFACE},
                    InterfaceCase{"IDispatch", IID_IDispatch, E_NOINTERFACE},
                    InterfaceCase{"IMarshal", IID_IMarshal, E_NOINTERFACE},
                    InterfaceCase{"IClassFactory", IID_IClassFactory, E_NOINTERFACE}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(InterfacesTest, ErrorInformationIsSupportedForTheManagerInterfaceOnly) {
    ComPtr<ISupportErrorInfo> support;
    ASSERT_EQ(Manager().QueryInterface(IID_ISupportErrorInfo, support.PutVoid()), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(IID_IWebFilterManager), S_OK);
    for (const IID& other : {IID_IUnknown, IID_IWebFilterEvents, IID_IConnectionPointContainer,
                             IID_ISupportErrorInfo, IID_IDispatch}) {
        EXPECT_EQ(support->InterfaceSupportsErrorInfo(other), S_FALSE);
    }
}

TEST_F(InterfacesTest, TheContainerServesTheEventsConnectionPointAlone) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(Manager().QueryInterface(IID_IConnectionPointContainer, container.PutVoid()), S_OK);
    EXPECT_EQ(container->FindConnectionPoint(IID_IWebFilterEvents, nullptr), E_POINTER);
    int sentinel = 0;
    auto* none = reinterpret_cast<IConnectionPoint*>(&sentinel);
    EXPECT_EQ(container->FindConnectionPoint(IID_IWebFilterManager, &none), CONNECT_E_NOCONNECTION);
    EXPECT_EQ(none, nullptr);

    ComPtr<IConnectionPoint> point;
    ASSERT_EQ(container->FindConnectionPoint(IID_IWebFilterEvents, point.Put()), S_OK);
    IID iid{};
    EXPECT_EQ(point->GetConnectionInterface(&iid), S_OK);
    EXPECT_TRUE(IsEqualIID(iid, IID_IWebFilterEvents));
    EXPECT_EQ(point->GetConnectionInterface(nullptr), E_POINTER);
    ComPtr<IConnectionPointContainer> back;
    ASSERT_EQ(point->GetConnectionPointContainer(back.Put()), S_OK);
    EXPECT_EQ(back, container);
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(point->QueryInterface(IID_IUnknown, unknown.PutVoid()), S_OK);
    ComPtr<IWebFilterManager> notThere;
    EXPECT_EQ(point->QueryInterface(IID_IWebFilterManager, notThere.PutVoid()), E_NOINTERFACE);

    ComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(container->EnumConnectionPoints(points.Put()), S_OK);
    IConnectionPoint* listed[2] = {};
    ULONG fetched = 0;
    EXPECT_EQ(points->Next(2, listed, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 1u);
    EXPECT_EQ(listed[0], point.Get());
    listed[0]->Release();
    EXPECT_EQ(container->EnumConnectionPoints(nullptr), E_POINTER);
}

// An outer object that aggregates a manager and hands out its IWebFilterManager.
TestOuter* Aggregator(HRESULT& created) {
    return TestOuter::Make(
        IID_IWebFilterManager,
        [](IUnknown* outer, IUnknown** inner) {
            return CreateManagerInstance(outer, IID_IUnknown, reinterpret_cast<void**>(inner));
        },
        created);
}

TEST_F(InterfacesTest, AnAggregatedManagerServesThroughItsOuterObject) {
    HRESULT created = E_UNEXPECTED;
    TestOuter* outer = Aggregator(created);
    ASSERT_EQ(created, S_OK);
    ASSERT_NE(outer->Inner(), nullptr);
    {
        ComPtr<IWebFilterManager> manager;
        ASSERT_EQ(outer->QueryInterface(IID_IWebFilterManager, manager.PutVoid()), S_OK);
        // Its references count on the outer object.
        EXPECT_EQ(outer->References(), 2);
        EXPECT_EQ(SetContent(*manager.Get(), WebFilterBlockAll, u""), S_OK);
        EXPECT_EQ(Allowed(*manager.Get(), u"http://h/"), 0);
        EXPECT_EQ(ContentOf(*manager.Get()).type, WebFilterBlockAll);

        // Its QueryInterface is the outer object's: the identity is the outer one, and what the
        // outer object does not hand out is not there.
        ComPtr<IUnknown> identity;
        ASSERT_EQ(manager->QueryInterface(IID_IUnknown, identity.PutVoid()), S_OK);
        EXPECT_EQ(identity.Get(), static_cast<IUnknown*>(outer));
        ComPtr<ISupportErrorInfo> support;
        EXPECT_EQ(manager->QueryInterface(IID_ISupportErrorInfo, support.PutVoid()), E_NOINTERFACE);
        // The inner unknown still reaches every interface of the manager.
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(
            outer->Inner()->QueryInterface(IID_IConnectionPointContainer, container.PutVoid()),
            S_OK);
        EXPECT_EQ(outer->References(), 4);
    }
    EXPECT_EQ(outer->References(), 1);
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), startLocks_ + 2);
    outer->Release();
    EXPECT_EQ(TheModuleLockCount.GetLockCount(), startLocks_ + 1);
}

TEST_F(InterfacesTest, AnAggregatingCreatorMayAskForTheInnerUnknownOnly) {
    HRESULT created = E_UNEXPECTED;
    TestOuter* outer = Aggregator(created);
    ASSERT_EQ(created, S_OK);
    int sentinel = 0;
    void* object = &sentinel;
    EXPECT_EQ(CreateManagerInstance(outer, IID_IWebFilterManager, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    outer->Release();
}

}  // namespace
}  // namespace sentrel::test
