#include "manager/connection_point.h"

#include <gtest/gtest.h>
#include <olectl.h>

#include <array>
#include <vector>

#include "manager/com_ptr.h"
#include "source_fixture.h"
#include "test_doubles.h"

namespace sentrel::test {
namespace {

class ConnectionPointTest : public SourceTest {
  protected:
    // The connections that a fresh enumerator hands out, each released again.
    std::vector<std::pair<IUnknown*, DWORD>> Connections() {
        ComPtr<IEnumConnections> connections;
        EXPECT_EQ(point_->EnumConnections(connections.Put()), S_OK);
        std::vector<std::pair<IUnknown*, DWORD>> found;
        CONNECTDATA data{};
        while (connections->Next(1, &data, nullptr) == S_OK) {
            found.emplace_back(data.pUnk, data.dwCookie);
            data.pUnk->Release();
        }
        return found;
    }
};

TEST_F(ConnectionPointTest, TheContainerFindsOnlyTheEventsConnectionPoint) {
    ComPtr<IConnectionPoint> other;
    EXPECT_EQ(container_->FindConnectionPoint(IID_IPropertyNotifySink, other.Put()),
              CONNECT_E_NOCONNECTION);
    EXPECT_FALSE(other);
    EXPECT_EQ(container_->FindConnectionPoint(IID_IWebFilterEvents, nullptr), E_POINTER);
    ComPtr<IConnectionPoint> again;
    ASSERT_EQ(container_->FindConnectionPoint(IID_IWebFilterEvents, again.Put()), S_OK);
    EXPECT_EQ(again, point_);
}

TEST_F(ConnectionPointTest, ThePointSharesTheObjectsReferenceCountAndContainer) {
    // The container and the point held here are two references on the object.
    EXPECT_EQ(point_->AddRef(), 3u);
    EXPECT_EQ(point_->Release(), 2u);
    IConnectionPointContainer* const original = container_.Get();
    container_.Reset();
    ASSERT_EQ(point_->GetConnectionPointContainer(container_.Put()), S_OK);
    EXPECT_EQ(container_.Get(), original);
    EXPECT_EQ(container_->AddRef(), 3u);
    EXPECT_EQ(container_->Release(), 2u);
    container_.Reset();
    EXPECT_EQ(probe_.destructions, 0);
    point_.Reset();
    EXPECT_EQ(probe_.destructions, 1);
}

TEST_F(ConnectionPointTest, ThePointAnswersForIUnknownAndIConnectionPointOnly) {
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(point_.As(unknown), S_OK);
    EXPECT_EQ(unknown.Get(), static_cast<IUnknown*>(point_.Get()));
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(unknown.As(point), S_OK);
    ComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(point_.As(container), E_NOINTERFACE);
    EXPECT_FALSE(container);
    EXPECT_EQ(point_->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(ConnectionPointTest, ItsConnectionInterfaceIsIWebFilterEvents) {
    IID iid{};
    ASSERT_EQ(point_->GetConnectionInterface(&iid), S_OK);
    EXPECT_TRUE(IsEqualIID(iid, IID_IWebFilterEvents));
    EXPECT_EQ(point_->GetConnectionInterface(nullptr), E_POINTER);
    EXPECT_EQ(point_->GetConnectionPointContainer(nullptr), E_POINTER);
}

TEST_F(ConnectionPointTest, AdviseRejectsNullPointersAndClearsTheCookieFirst) {
    TestSink& sink = MakeSink();
    DWORD cookie = 77;
    EXPECT_EQ(point_->Advise(nullptr, &cookie), E_POINTER);
    EXPECT_EQ(cookie, 0u);
    EXPECT_EQ(point_->Advise(static_cast<IUnknown*>(&sink), nullptr), E_POINTER);
    EXPECT_EQ(sink.References(), 0);
}

TEST_F(ConnectionPointTest, AdviseWithASinkThatLacksTheInterfaceCannotConnect) {
    struct Case {
        HRESULT query;
        HRESULT advise;
    };
    for (const Case& test : {Case{E_NOINTERFACE, CONNECT_E_CANNOTCONNECT},
                             Case{E_OUTOFMEMORY, E_OUTOFMEMORY}, Case{E_FAIL, E_FAIL}}) {
        TestSink& sink = MakeSink(test.query);
        DWORD cookie = 77;
        EXPECT_EQ(point_->Advise(static_cast<IUnknown*>(&sink), &cookie), test.advise);
        EXPECT_EQ(cookie, 0u);
        EXPECT_EQ(sink.References(), 0);
    }
    EXPECT_TRUE(Connections().empty());
}

TEST_F(ConnectionPointTest, CookiesNumberSlotsAndEmptiedSlotsAreReused) {
    TestSink& first = MakeSink();
    TestSink& second = MakeSink();
    TestSink& third = MakeSink();
    EXPECT_EQ(Advise(first), 1u);
    EXPECT_EQ(Advise(second), 2u);
    EXPECT_EQ(first.References(), 1);
    EXPECT_EQ(point_->Unadvise(1), S_OK);
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(Advise(third), 1u);
    const std::vector<std::pair<IUnknown*, DWORD>> expected{{static_cast<IUnknown*>(&third), 1},
                                                            {static_cast<IUnknown*>(&second), 2}};
    EXPECT_EQ(Connections(), expected);
}

TEST_F(ConnectionPointTest, TheSinkArrayGrowsBeyondFourSinks) {
    std::array<TestSink, 9> sinks;
    for (std::size_t index = 0; index < sinks.size(); ++index) {
        EXPECT_EQ(Advise(sinks[index]), index + 1);
    }
    EXPECT_EQ(Connections().size(), sinks.size());
    for (const TestSink& sink : sinks) {
        EXPECT_EQ(sink.References(), 1);
    }
    container_.Reset();
    point_.Reset();
    // The object releases every sink still advised when it goes.
    for (const TestSink& sink : sinks) {
        EXPECT_EQ(sink.References(), 0);
    }
}

TEST_F(ConnectionPointTest, UnadviseWithoutAConnectionGivesNoConnection) {
    TestSink& sink = MakeSink();
    EXPECT_EQ(point_->Unadvise(1), CONNECT_E_NOCONNECTION);
    ASSERT_EQ(Advise(sink), 1u);
    for (const DWORD cookie : {0ul, 2ul, 4ul, 5ul, 0xFFFFFFFFul}) {
        EXPECT_EQ(point_->Unadvise(cookie), CONNECT_E_NOCONNECTION) << cookie;
    }
    EXPECT_EQ(point_->Unadvise(1), S_OK);
    EXPECT_EQ(point_->Unadvise(1), CONNECT_E_NOCONNECTION);
}

TEST_F(ConnectionPointTest, UnadviseReleasesTheSinkWithNoLockHeld) {
    TestSink& sink = MakeSink();
    Advise(sink);
    bool lockFree = false;
    sink.onRelease = [&] { lockFree = LockFreeForOtherThreads(); };
    EXPECT_EQ(point_->Unadvise(1), S_OK);
    EXPECT_TRUE(lockFree);
}

TEST_F(ConnectionPointTest, EnumConnectionsWorksOnACopyWithReferencesOfItsOwn) {
    TestSink& first = MakeSink();
    TestSink& second = MakeSink();
    Advise(first);
    Advise(second);
    ComPtr<IEnumConnections> connections;
    ASSERT_EQ(point_->EnumConnections(connections.Put()), S_OK);
    EXPECT_EQ(first.References(), 2);
    ASSERT_EQ(point_->Unadvise(1), S_OK);
    std::array<CONNECTDATA, 3> data{};
    ULONG fetched = 0;
    EXPECT_EQ(connections->Next(3, data.data(), &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    EXPECT_EQ(data[0].pUnk, static_cast<IUnknown*>(&first));
    EXPECT_EQ(data[0].dwCookie, 1u);
    EXPECT_EQ(data[1].pUnk, static_cast<IUnknown*>(&second));
    EXPECT_EQ(data[1].dwCookie, 2u);
    EXPECT_EQ(first.References(), 2);
    data[0].pUnk->Release();
    data[1].pUnk->Release();
    connections.Reset();
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(second.References(), 1);
    EXPECT_EQ(point_->EnumConnections(nullptr), E_POINTER);
}

TEST_F(ConnectionPointTest, TheConnectionPointsEnumeratorKeepsTheObjectAlive) {
    ComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(container_->EnumConnectionPoints(points.Put()), S_OK);
    container_.Reset();
    point_.Reset();
    EXPECT_EQ(probe_.destructions, 0);
    points.Reset();
    EXPECT_EQ(probe_.destructions, 1);
}

TEST_F(ConnectionPointTest, EnumConnectionPointsHandsOutTheOnePoint) {
    ComPtr<IEnumConnectionPoints> points;
    ASSERT_EQ(container_->EnumConnectionPoints(points.Put()), S_OK);
    std::array<IConnectionPoint*, 2> found{};
    ULONG fetched = 0;
    EXPECT_EQ(points->Next(2, found.data(), &fetched), S_FALSE);
    ASSERT_EQ(fetched, 1u);
    EXPECT_EQ(found[0], point_.Get());
    found[0]->Release();
    EXPECT_EQ(container_->EnumConnectionPoints(nullptr), E_POINTER);
}

// The enumerator contract, on an enumerator over three connections.
class EnumeratorTest : public ConnectionPointTest {
  protected:
    void SetUp() override {
        ConnectionPointTest::SetUp();
        for (TestSink*& sink : advised_) {
            sink = &MakeSink();
            Advise(*sink);
        }
        ASSERT_EQ(point_->EnumConnections(connections_.Put()), S_OK);
    }
    void TearDown() override {
        connections_.Reset();
        for (const TestSink* sink : advised_) {
            EXPECT_EQ(sink->References(), 1) << "a reference handed out was not released";
        }
    }

    // Next(count) into a fresh array: the result, and the cookies fetched (references released).
    std::pair<HRESULT, std::vector<DWORD>> Next(IEnumConnections* connections, ULONG count) {
        std::vector<CONNECTDATA> data(count + 1);
        ULONG fetched = 99;
        const HRESULT result = connections->Next(count, data.data(), &fetched);
        std::vector<DWORD> cookies;
        for (ULONG index = 0; index < fetched; ++index) {
            cookies.push_back(data[index].dwCookie);
            data[index].pUnk->Release();
        }
        EXPECT_EQ(data[fetched].pUnk, nullptr) << "wrote beyond what it reported";
        return {result, cookies};
    }

    std::array<TestSink*, 3> advised_{};
    ComPtr<IEnumConnections> connections_;
};

TEST_F(EnumeratorTest, NextHandsOutUpToCountAndSaysWhenFewerWereLeft) {
    using Cookies = std::vector<DWORD>;
    EXPECT_EQ(Next(connections_.Get(), 0), std::make_pair(S_OK, Cookies{}));
    EXPECT_EQ(Next(connections_.Get(), 2), std::make_pair(S_OK, Cookies{1, 2}));
    EXPECT_EQ(Next(connections_.Get(), 2), std::make_pair(S_FALSE, Cookies{3}));
    EXPECT_EQ(Next(connections_.Get(), 1), std::make_pair(S_FALSE, Cookies{}));
}

TEST_F(EnumeratorTest, NextNeedsTheFetchedCountForMoreThanOneElement) {
    std::array<CONNECTDATA, 2> data{};
    EXPECT_EQ(connections_->Next(2, data.data(), nullptr), E_POINTER);
    EXPECT_EQ(data[0].pUnk, nullptr);
    ULONG fetched = 99;
    EXPECT_EQ(connections_->Next(1, nullptr, &fetched), E_POINTER);
    EXPECT_EQ(fetched, 0u);
    ASSERT_EQ(connections_->Next(1, data.data(), nullptr), S_OK);
    EXPECT_EQ(data[0].dwCookie, 1u);
    data[0].pUnk->Release();
}

TEST_F(EnumeratorTest, SkipMovesOnAndStopsAtTheEnd) {
    EXPECT_EQ(connections_->Skip(0), S_OK);
    EXPECT_EQ(connections_->Skip(2), S_OK);
    EXPECT_EQ(Next(connections_.Get(), 1).second, std::vector<DWORD>{3});
    EXPECT_EQ(connections_->Reset(), S_OK);
    EXPECT_EQ(connections_->Skip(5), S_FALSE);
    EXPECT_EQ(Next(connections_.Get(), 1).first, S_FALSE);
    EXPECT_EQ(connections_->Reset(), S_OK);
    EXPECT_EQ(Next(connections_.Get(), 3).second, (std::vector<DWORD>{1, 2, 3}));
}

TEST_F(EnumeratorTest, CloneStartsAtTheSamePlaceAndMovesOnItsOwn) {
    ASSERT_EQ(connections_->Skip(1), S_OK);
    ComPtr<IEnumConnections> clone;
    ASSERT_EQ(connections_->Clone(clone.Put()), S_OK);
    EXPECT_EQ(Next(clone.Get(), 3), std::make_pair(S_FALSE, std::vector<DWORD>{2, 3}));
    EXPECT_EQ(Next(connections_.Get(), 1).second, std::vector<DWORD>{2});
    // The clone outlives its original and still holds the connections.
    connections_.Reset();
    EXPECT_EQ(clone->Reset(), S_OK);
    EXPECT_EQ(Next(clone.Get(), 3).second, (std::vector<DWORD>{1, 2, 3}));
    EXPECT_EQ(connections_.Get(), nullptr);
    EXPECT_EQ(clone->Clone(nullptr), E_POINTER);
}

TEST_F(EnumeratorTest, AnswersForIUnknownAndItsOwnInterfaceOnly) {
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(connections_.As(unknown), S_OK);
    ComPtr<IEnumConnectionPoints> other;
    EXPECT_EQ(connections_.As(other), E_NOINTERFACE);
}

}  // namespace
}  // namespace sentrel::test
