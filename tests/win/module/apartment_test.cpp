// Calls and events across apartments, through the proxy/stub merged into Sentrel64.dll: a
// manager created in a single-threaded apartment called from the multi-threaded apartment, and
// events reaching sinks that live in another apartment than the manager.

#include <windows.h>

#include <gtest/gtest.h>
#include <objbase.h>
#include <ocidl.h>

#include <algorithm>
#include <string>
#include <vector>

#include "manager/bstr.h"
#include "manager/com_ptr.h"
#include "recording_sink.h"
#include "sentrel_h.h"
#include "sentrel_registration.h"
#include "sta_thread.h"

namespace sentrel::test {
namespace {

constexpr DWORD kEventWaitMs = 10000;

// A black list of one site, with the refresh mode given.
std::u16string Policy(int refreshMode) {
    return u"<WebFilters><WFVersion>2</WFVersion><WFRefreshMode>" +
           std::u16string(1, static_cast<char16_t>(u'0' + refreshMode)) +
           u"</WFRefreshMode><BlackList><BLId>{9B2E5C10-7A41-4E0B-8F3D-2C6A1B7E4D01}</BLId>"
           u"<BLName>Games</BLName><BLDenied><BLDEntry><BLDEntryName>Games</BLDEntryName>"
           u"<BLDEntryUrl>http://games.example</BLDEntryUrl></BLDEntry></BLDenied></BlackList>"
           u"</WebFilters>";
}

long IsUrlAllowed(IWebFilterManager* manager, const char16_t* url) {
    long allowed = -1;
    const Bstr text = url != nullptr ? Bstr::Copy(url) : Bstr();
    EXPECT_EQ(manager->IsUrlAllowed(text.Get(), &allowed), S_OK);
    return allowed;
}

HRESULT SetFilterContent(IWebFilterManager* manager, long type, const std::u16string& text) {
    const Bstr content = Bstr::Copy(text);
    return manager->SetFilterContent(static_cast<WebFilterType>(type), content.Get());
}

class ApartmentTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }

    // A manager created on the STA thread, and a proxy to it for this thread.
    void CreateInSta(ComPtr<IWebFilterManager>& object, ComPtr<IWebFilterManager>& proxy) {
        ComPtr<IStream> stream;
        sta_.Run([&] {
            ASSERT_EQ(CreateManager(object), S_OK);
            ASSERT_EQ(CoMarshalInterThreadInterfaceInStream(IID_IWebFilterManager, object.Get(),
                                                            stream.Put()),
                      S_OK);
        });
        ASSERT_TRUE(stream);
        ASSERT_EQ(
            CoGetInterfaceAndReleaseStream(stream.Detach(), IID_IWebFilterManager, proxy.PutVoid()),
            S_OK);
        // Another apartment holds a proxy, not the object.
        ASSERT_NE(proxy.Get(), object.Get());
    }

    void ReleaseInSta(ComPtr<IWebFilterManager>& object) {
        sta_.Run([&] { object.Reset(); });
    }

    StaThread sta_;
};

TEST_F(ApartmentTest, EveryMethodOfAnStaManagerWorksThroughTheProxy) {
    ComPtr<IWebFilterManager> object;
    ComPtr<IWebFilterManager> proxy;
    CreateInSta(object, proxy);
    ASSERT_TRUE(proxy);

    ASSERT_EQ(SetFilterContent(proxy.Get(), WebFilterBlockPolicy, Policy(3)), S_OK);
    EXPECT_EQ(IsUrlAllowed(proxy.Get(), u"http://games.example/play"), 0);
    EXPECT_EQ(IsUrlAllowed(proxy.Get(), u"http://learn.example/"), 1);
    // A null BSTR crosses as null: the empty text, which under a policy cannot be cracked.
    EXPECT_EQ(IsUrlAllowed(proxy.Get(), nullptr), 0);

    WebFilterType type = WebFilterBlockNone;
    Bstr document;
    int refreshMode = -1;
    ASSERT_EQ(proxy->GetFilterContent(&type, document.Put(), &refreshMode), S_OK);
    EXPECT_EQ(type, WebFilterBlockPolicy);
    EXPECT_EQ(refreshMode, 3);
    EXPECT_NE(document.View().find(u"<BLDEntryUrl>http://games.example</BLDEntryUrl>"),
              std::u16string_view::npos);
    EXPECT_EQ(document.View().substr(0, 1), u"\xFEFF");

    ASSERT_EQ(SetFilterContent(proxy.Get(), WebFilterBlockAll, u""), S_OK);
    ASSERT_EQ(proxy->GetFilterContent(&type, document.Put(), &refreshMode), S_OK);
    EXPECT_EQ(type, WebFilterBlockAll);
    EXPECT_EQ(refreshMode, 0);
    EXPECT_EQ(IsUrlAllowed(proxy.Get(), u"http://learn.example/"), 0);
    EXPECT_EQ(IsUrlAllowed(proxy.Get(), u"about:blank"), 1);

    EXPECT_EQ(proxy->EnableUpdate(1), S_OK);
    EXPECT_EQ(proxy->EnableUpdate(0), S_OK);

    struct ConnectionCase {
        const char16_t* process;
        unsigned short port;
        long allowed;
    };
    for (const ConnectionCase& test :
         {ConnectionCase{u"BROWSER.EXE", 80, 1}, ConnectionCase{u"other.exe", 443, 0},
          ConnectionCase{u"other.exe", 8080, 1}}) {
        long allowed = -1;
        EXPECT_EQ(
            proxy->IsProcessConnectionAllowed(Bstr::Copy(test.process).Get(), test.port, &allowed),
            S_OK);
        EXPECT_EQ(allowed, test.allowed) << test.port;
    }

    // The array comes back in memory of the task allocator, of the length given beside it.
    unsigned short count = 0;
    unsigned short* ports = nullptr;
    ASSERT_EQ(proxy->GetFilteredPorts(&count, &ports), S_OK);
    ASSERT_EQ(count, 2);
    ASSERT_NE(ports, nullptr);
    std::vector<unsigned short> received(ports, ports + count);
    CoTaskMemFree(ports);
    std::sort(received.begin(), received.end());
    EXPECT_EQ(received, (std::vector<unsigned short>{80, 443}));

    proxy.Reset();
    ReleaseInSta(object);
}

TEST_F(ApartmentTest, TheFilterTypeCrossesAsASixteenBitEnum) {
    ComPtr<IWebFilterManager> object;
    ComPtr<IWebFilterManager> proxy;
    CreateInSta(object, proxy);
    ASSERT_TRUE(proxy);
    // A value outside the three crosses as long as it fits the wire form; the manager puts it in
    // force and publishes nothing.
    EXPECT_EQ(SetFilterContent(proxy.Get(), 0x7FFF, u""), E_FAIL);
    WebFilterType type = WebFilterBlockNone;
    Bstr document;
    int refreshMode = -1;
    ASSERT_EQ(proxy->GetFilterContent(&type, document.Put(), &refreshMode), S_OK);
    EXPECT_EQ(static_cast<long>(type), 0x7FFF);
    // Beyond it the proxy refuses the call; the object never sees it.
    EXPECT_EQ(SetFilterContent(proxy.Get(), 0x8000, u""),
              HRESULT_FROM_WIN32(RPC_X_ENUM_VALUE_OUT_OF_RANGE));
    ASSERT_EQ(proxy->GetFilterContent(&type, document.Put(), &refreshMode), S_OK);
    EXPECT_EQ(static_cast<long>(type), 0x7FFF);
    // In the object's own apartment the type is a 32-bit value, taken as it is.
    sta_.Run([&] {
        EXPECT_EQ(SetFilterContent(object.Get(), 0x8000, u""), E_FAIL);
        WebFilterType local = WebFilterBlockNone;
        EXPECT_EQ(object->GetFilterContent(&local, nullptr, nullptr), S_OK);
        EXPECT_EQ(static_cast<long>(local), 0x8000);
    });
    proxy.Reset();
    ReleaseInSta(object);
}

// Advises sink with the manager (or its proxy) and gives the connection point and cookie.
void Advise(IWebFilterManager* manager, IUnknown* sink, ComPtr<IConnectionPoint>& point,
            DWORD& cookie) {
    ComPtr<IConnectionPointContainer> container;
    ASSERT_EQ(manager->QueryInterface(IID_IConnectionPointContainer, container.PutVoid()), S_OK);
    ASSERT_EQ(container->FindConnectionPoint(IID_IWebFilterEvents, point.Put()), S_OK);
    ASSERT_EQ(point->Advise(sink, &cookie), S_OK);
    ASSERT_NE(cookie, 0u);
}

TEST_F(ApartmentTest, EventsOfAnStaManagerReachASinkInTheMta) {
    ComPtr<IWebFilterManager> object;
    ComPtr<IWebFilterManager> proxy;
    CreateInSta(object, proxy);
    ASSERT_TRUE(proxy);
    const ComPtr<RecordingSink> sink = RecordingSink::Create();
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    Advise(proxy.Get(), sink.Get(), point, cookie);
    ASSERT_TRUE(point);

    // The manager finds its own publication at its next tick; under WebFilterBlockAll it always
    // announces it, from the STA thread's message loop, to the sink through its proxy.
    ASSERT_EQ(proxy->EnableUpdate(1), S_OK);
    ASSERT_EQ(SetFilterContent(proxy.Get(), WebFilterBlockAll, u""), S_OK);
    const std::vector<RecordingSink::Event> events = sink->WaitForEvents(1, kEventWaitMs);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, WebFilterBlockAll);
    EXPECT_NE(events[0].thread, sta_.ThreadId());

    EXPECT_EQ(point->Unadvise(cookie), S_OK);
    EXPECT_EQ(proxy->EnableUpdate(0), S_OK);
    point.Reset();
    proxy.Reset();
    ReleaseInSta(object);
}

TEST_F(ApartmentTest, EventsOfAnMtaManagerReachASinkInAnSta) {
    ComPtr<IWebFilterManager> manager;
    ASSERT_EQ(CreateManager(manager), S_OK);
    ComPtr<IStream> stream;
    ASSERT_EQ(
        CoMarshalInterThreadInterfaceInStream(IID_IWebFilterManager, manager.Get(), stream.Put()),
        S_OK);
    // The sink is created and advised on the STA thread, through that apartment's proxy.
    ComPtr<RecordingSink> sink;
    ComPtr<IWebFilterManager> staProxy;
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    sta_.Run([&] {
        ASSERT_EQ(CoGetInterfaceAndReleaseStream(stream.Detach(), IID_IWebFilterManager,
                                                 staProxy.PutVoid()),
                  S_OK);
        sink = RecordingSink::Create();
        Advise(staProxy.Get(), sink.Get(), point, cookie);
    });
    ASSERT_TRUE(point);

    // The manager of the multi-threaded apartment fires on its timer thread, into the sink's
    // proxy; the call runs on the STA thread.
    ASSERT_EQ(manager->EnableUpdate(1), S_OK);
    ASSERT_EQ(SetFilterContent(manager.Get(), WebFilterBlockPolicy, Policy(0)), S_OK);
    const std::vector<RecordingSink::Event> events = sink->WaitForEvents(1, kEventWaitMs);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, WebFilterBlockPolicy);
    EXPECT_EQ(events[0].thread, sta_.ThreadId());

    EXPECT_EQ(manager->EnableUpdate(0), S_OK);
    sta_.Run([&] {
        EXPECT_EQ(point->Unadvise(cookie), S_OK);
        point.Reset();
        staProxy.Reset();
        sink.Reset();
    });
    manager.Reset();
}

}  // namespace
}  // namespace sentrel::test
