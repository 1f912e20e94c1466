// Sentrel64.dll registered, with managers in other apartments and processes.

#include <gtest/gtest.h>
#include <objbase.h>
#include <ocidl.h>

#include <thread>

#include "child_process.h"
#include "com/com_ptr.h"
#include "com/unique_resource.h"
#include "sentrel_h.h"

namespace sentrel::test {
namespace {

constexpr DWORD kWaitMs = 30000;
const std::wstring kDll = Quote(L"" SENTREL_TEST_DLL);

HRESULT CreateManager(ComPtr<IWebFilterManager>& manager) {
    return CoCreateInstance(CLSID_WebFilterManager, nullptr, CLSCTX_INPROC_SERVER,
                            IID_IWebFilterManager, manager.PutVoid());
}

// An event sink that lives on the test's stack: it counts no references.
class EventSink final : public IWebFilterEvents {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == IID_IUnknown || iid == IID_IWebFilterEvents;
        *object = known ? this : nullptr;
        return known ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(WebFilterType) override {
        SetEvent(arrived.Get());
        return S_OK;
    }

    const UniqueHandle arrived{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

// Sentrel64.dll registered machine-wide (Wine's COM does not read the user's classes).
class ComponentTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { ASSERT_EQ(RunToEnd(L"regsvr32 /s " + kDll).exitCode, 0u); }
    static void TearDownTestSuite() { RunToEnd(L"regsvr32 /s /u " + kDll); }
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }
};

// In a single-threaded apartment: advises a sink of its own with a manager of the multi-threaded
// apartment through its proxy, publishes through it, and waits for the sink's call.
void AdviseAndPublishFromSta(IStream* stream, EventSink& sink) {
    ComPtr<IWebFilterManager> proxy;
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    ASSERT_EQ(CoGetInterfaceAndReleaseStream(stream, IID_IWebFilterManager, proxy.PutVoid()), S_OK);
    ASSERT_EQ(proxy.As(container), S_OK);
    ASSERT_EQ(container->FindConnectionPoint(IID_IWebFilterEvents, point.Put()), S_OK);
    ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
    // The manager finds its own publication at its next tick and announces it.
    ASSERT_EQ(proxy->EnableUpdate(1), S_OK);
    ASSERT_EQ(proxy->SetFilterContent(WebFilterBlockAll, nullptr), S_OK);
    HANDLE arrived = sink.arrived.Get();
    DWORD signalled = 0;
    EXPECT_EQ(CoWaitForMultipleHandles(0, kWaitMs, 1, &arrived, &signalled), S_OK);
    EXPECT_EQ(point->Unadvise(cookie), S_OK);
}

TEST_F(ComponentTest, AnStaCallsAnMtaManagerAndHearsFromIt) {
    ComPtr<IWebFilterManager> manager;
    ComPtr<IStream> stream;
    ASSERT_EQ(CreateManager(manager), S_OK);
    ASSERT_EQ(
        CoMarshalInterThreadInterfaceInStream(IID_IWebFilterManager, manager.Get(), stream.Put()),
        S_OK);
    std::thread([&] {
        EventSink sink;  // outlives its apartment, which holds its stub
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        AdviseAndPublishFromSta(stream.Detach(), sink);
        CoUninitialize();
    }).join();
}

TEST_F(ComponentTest, AClientInAnotherProcessTakesAPolicyThatThisOnePublishes) {
    ChildProcess watcher(Quote(L"" SENTREL_TEST_CLIENT) +
                         L" watch --timeout 30 http://games.example/");
    ASSERT_TRUE(watcher.WaitForOutput("waiting for a policy change", kWaitMs)) << watcher.Output();
    ComPtr<IWebFilterManager> publisher;
    ASSERT_EQ(CreateManager(publisher), S_OK);
    ASSERT_EQ(publisher->SetFilterContent(WebFilterBlockAll, nullptr), S_OK);
    ASSERT_EQ(watcher.WaitForExit(kWaitMs), 0u) << watcher.Output();
    const std::string output = watcher.Output();
    EXPECT_NE(output.find("deny\thttp://games.example/", output.find("after the change:")),
              std::string::npos)
        << output;
}

TEST_F(ComponentTest, TheToolAnswersThroughTheComponentAsThroughItsLibrary) {
    const std::wstring check = Quote(L"" SENTREL_TEST_TOOL) + L" check --policy " +
                               Quote(L"" SENTREL_TEST_EXAMPLES "/policies/school-whitelist.xml") +
                               L" http://learn.example.org/maths/x http://games.example/";
    const std::string library = RunToEnd(check).output;
    EXPECT_EQ(RunToEnd(check + L" --com").output, library);
    // A policy the component cannot share (the section's lock is held here) is in force all the
    // same.
    const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, L"WebFilterFileAccessMutex"));
    ASSERT_EQ(WaitForSingleObject(mutex.Get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(RunToEnd(check + L" --com").output, library);
    ReleaseMutex(mutex.Get());
}

}  // namespace
}  // namespace sentrel::test
