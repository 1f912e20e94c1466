// The calls a client makes: what they answer, put in force, publish and log.

#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <future>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "connection_rules_keys.h"
#include "log_capture.h"
#include "manager_fixture.h"
#include "module/log/logger.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel::test {
namespace {

using namespace std::literals;
constexpr auto kOutside = std::bit_cast<::WebFilterType>(0x10001);

// SetFilterContent calls on a new object, the last one judged: its result (E_FAIL logged), then
// what the object hands back, what the section holds and how a URL is decided.
struct SetCase {
    const char* name;
    std::vector<std::pair<::WebFilterType, std::u16string>> calls;
    HRESULT result;
    Content content;
    std::optional<SectionContent> published;  // nothing: no section
    std::u16string url;
    long allowed;
};
const SetCase kSetCases[] = {
    SetCase("APolicyIsReadAnewAndItsTextPublishedUpToAZero",
            {{kPolicy, u" " + kModeTwo + u"\0tail"s}}, S_OK, Handed(kPolicy, 2, kModeTwo),
            SectionContent{1, kPolicy, u" " + kModeTwo}, u"http://b.example\0.d/"s, 0),
    SetCase("BlockAllPublishesListsItDoesNotRead", {{kAll, kModeZero}}, S_OK,
            Handed(kAll, 0, Document(0)), SectionContent{1, kAll, kModeZero}, u"about:blank", 1),
    SetCase("BlockAllPublishesRefreshModeZero", {{kPolicy, kModeTwo}, {kAll, u""}}, S_OK,
            Handed(kAll, 0, Document(0)), SectionContent{2, kAll, Document(0)}, u"http://d/", 0),
    SetCase("BlockNonePublishesTheRefreshModePublishedLast", {{kPolicy, kModeTwo}, {kNone, u""}},
            S_OK, Handed(kNone, 0, Document(0)), SectionContent{2, kNone, Document(2)}, u"", 1),
    SetCase("APolicyWithoutTextPublishesRefreshModeZero",
            {{kPolicy, kModeTwo}, {kPolicy, u""}, {kNone, u""}}, S_OK,
            Handed(kNone, 0, Document(0)), SectionContent{3, kNone, Document(0)}, u"", 1),
    SetCase("ATypeOutsideTheEnumerationIsInForceUnreadAndNeverPublished",
            {{kPolicy, kModeTwo}, {kOutside, kModeZero}}, E_FAIL, Handed(kOutside, 0, Document(0)),
            SectionContent{1, kPolicy, kModeTwo}, u"", 0)};

TEST_F(ManagerTest, SetFilterContentPutsInForceHereAndPublishes) {
    for (const SetCase& test : kSetCases) {
        SCOPED_TRACE(test.name);
        const ComPtr<IWebFilterManager> object = CreateManager();
        const LogCapture log;
        HRESULT result = E_UNEXPECTED;
        for (const auto& [type, text] : test.calls) {
            result = SetContent(*object.Get(), type, text);
        }
        EXPECT_EQ(result, test.result);
        EXPECT_EQ(log.Count(LogLevelError,
                            u"CWebFilterManager::SetFilterContent - Could not "
                            u"write content to file mapper"),
                  test.result == E_FAIL ? 1u : 0u);
        EXPECT_EQ(ContentOf(*object.Get()), test.content);
        EXPECT_EQ(ProbeSection(), test.published);
        EXPECT_EQ(Allowed(*object.Get(), test.url), test.allowed);
    }
}

TEST_F(ManagerTest, NullOutPointersAreRefusedUntouchedSaveTheOptionalOnes) {
    EXPECT_EQ(Manager().IsUrlAllowed(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(Manager().IsProcessConnectionAllowed(nullptr, 80, nullptr), E_POINTER);
    int refreshMode = 7;
    EXPECT_EQ(Manager().GetFilterContent(nullptr, nullptr, &refreshMode), E_POINTER);
    unsigned short count = 9;
    unsigned short* ports = &count;
    EXPECT_EQ(Manager().GetFilteredPorts(nullptr, &ports), E_INVALIDARG);
    EXPECT_EQ(Manager().GetFilteredPorts(&count, nullptr), E_INVALIDARG);
    EXPECT_EQ(std::tuple(refreshMode, count, ports), std::tuple(7, 9, &count));
    ::WebFilterType type = kAll;
    EXPECT_EQ(Manager().GetFilterContent(&type, nullptr, nullptr), S_OK);
}

// Decisions share the object lock and wait for a writer; loads (an object loads its own
// publication back) and Unadvise hold it alone, so they wait for readers too.
TEST_F(ManagerTest, DecisionsShareTheObjectLockWhileLoadsAndUnadviseHoldItAlone) {
    ASSERT_EQ(SetContent(Manager(), kPolicy, kModeTwo), S_OK);  // loaded back at a tick, silently
    ObjectLock& objectLock = static_cast<CWebFilterManager&>(Manager()).GetLock();
    const auto decide = [&] {
        return std::async(std::launch::async, [&] { return Allowed(Manager(), u"h"); });
    };
    const auto waiting = std::future_status::timeout;
    std::unique_lock writing(objectLock);
    auto decided = decide();
    EXPECT_EQ(decided.wait_for(100ms), waiting);
    writing.unlock();
    std::shared_lock reading(objectLock);
    EXPECT_EQ(decide().get(), 0);  // beside a reader
    auto left = std::async(std::launch::async, [&] { return EventsPoint(Manager())->Unadvise(1); });
    auto loaded = std::async(std::launch::async, [&] { Tick(Manager()); });
    EXPECT_EQ(std::pair(left.wait_for(100ms), loaded.wait_for(1ms)), std::pair(waiting, waiting));
    reading.unlock();
    EXPECT_EQ(std::pair(decided.get(), left.get()), std::pair(0l, CONNECT_E_NOCONNECTION));
}

// Clients decide and read while policies are set and loaded back: every answer is that of one
// whole policy (both deny the URL; their documents differ in the refresh mode alone).
TEST_F(ManagerTest, AnswersAreThoseOfOneWholePolicyWhilePoliciesChange) {
    const std::u16string texts[] = {Document(0, u"http://c/"), Document(2, u"http://c/")};
    ASSERT_EQ(SetContent(Manager(), kPolicy, texts[1]), S_OK);
    std::atomic<int> changes{0}, broken{0};
    const auto client = [&] {
        while (changes < 200) {
            const Content content = ContentOf(Manager());
            const int mode = std::get<2>(content);
            broken += Allowed(Manager(), u"http://c/") != 0 ||
                      content != Handed(kPolicy, mode, texts[mode == 2]);
        }
    };
    std::thread first(client), second(client);
    for (; changes < 200; ++changes) {
        SetContent(Manager(), kPolicy, texts[changes % 2]);
        Tick(Manager());
    }
    first.join();
    second.join();
    EXPECT_EQ(broken, 0);
}

// Read by each object when it is made: port 80 filtered (two bytes carry it), Browser.exe allowed.
TEST_F(ManagerTest, ConnectionsAreDecidedFromTheKeysReadAtCreation) {
    const DWORD http = 80;
    ASSERT_TRUE(
        SetMachineValue(WebFilterConnectionRules::kFilteredPortsKey, L"http", REG_DWORD, &http, 2));
    ASSERT_TRUE(SetMachineValue(WebFilterConnectionRules::kAllowedProcessesKey, L"b", REG_SZ,
                                L"Browser.exe", sizeof(L"Browser.exe")));
    const ComPtr<IWebFilterManager> object = CreateManager();
    ASSERT_TRUE(RemoveConnectionRulesKeys());
    long browser = -1, other = -1;
    EXPECT_EQ(object->IsProcessConnectionAllowed(Bstr::Copy(u"BROWSER.EXE").Get(), 80, &browser),
              S_OK);
    EXPECT_EQ(object->IsProcessConnectionAllowed(Bstr::Copy(u"a.exe").Get(), 80, &other), S_OK);
    EXPECT_EQ(std::pair(browser, other), std::pair(1l, 0l));
    unsigned short count = 0;
    unsigned short* list = nullptr;
    EXPECT_EQ(object->GetFilteredPorts(&count, &list), S_OK);
    EXPECT_EQ(std::vector(list, list + count), std::vector<unsigned short>{80});
    CoTaskMemFree(list);
}

// Every allocation of at least this many bytes fails, on every thread (see operator new below).
constexpr std::size_t kNoFailure = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> failingFrom{kNoFailure};

TEST_F(ManagerTest, WhenMemoryRunsOutEachCallAnswersItsHResultAndLeavesTheRest) {
    // A document is staged in memory to be read: the one failure of reading; each reader logs it.
    ASSERT_EQ(SetContent(Manager(), kPolicy, kModeZero), S_OK);
    const ComPtr<IWebFilterManager> reader = CreateManager();
    const LogCapture log;
    failingFrom = 16 * 1024;
    const HRESULT staged = SetContent(Manager(), kPolicy, kModeTwo);
    reader->EnableUpdate(1);
    failingFrom = kNoFailure;
    const std::u16string failed = u" - Could not deserialize policy";
    EXPECT_EQ(std::pair(log.Count(LogLevelError, u"CWebFilterManager::SetFilterContent" + failed),
                        log.Count(LogLevelError, u"CWebFilterManager::OnTimeElapsed" + failed)),
              (std::pair<std::size_t, std::size_t>(1, 1)));

    constexpr std::size_t kLarge = 4 * 1024 * 1024;
    const std::u16string document = Document(0, u"http://c/" + std::u16string(kLarge, 'a'));
    ASSERT_EQ(SetContent(Manager(), kPolicy, document), S_OK);
    const Bstr large = Bstr::Copy(document);
    for (int sink = 0; sink < 4; ++sink) {
        Advise(Manager(), MakeSink());
    }
    TestSink& fifth = MakeSink();
    ::WebFilterType type = kNone;
    int refreshMode = -1;
    Bstr text;
    long allowed = 7;
    DWORD cookie = 7;
    failingFrom = kLarge;
    const HRESULT read = Manager().GetFilterContent(&type, text.Put(), &refreshMode);
    const HRESULT connected = Manager().IsProcessConnectionAllowed(large.Get(), 80, &allowed);
    failingFrom = 8 * sizeof(void*);  // the four slots of sinks would double into eight pointers
    const HRESULT advised = EventsPoint(Manager())->Advise(&fifth, &cookie);
    failingFrom = kNoFailure;
    EXPECT_EQ(std::tuple(staged, read, connected, advised),
              std::tuple(E_INVALIDARG, E_OUTOFMEMORY, E_FAIL, CONNECT_E_ADVISELIMIT));
    EXPECT_EQ(std::tuple(type, refreshMode, text.Get(), allowed, cookie, fifth.References()),
              std::tuple(kPolicy, -1, nullptr, 7l, 0ul, 0l));
    EXPECT_EQ(EventsPoint(Manager())->Unadvise(4), S_OK);  // the last slot's cookie
}

TEST_F(ManagerTest, AnAggregatedObjectLeavesItsIdentityAndCountToTheOuterObject) {
    TestSink outer;  // any object will do as the outer one
    ComPtr<IUnknown> inner;
    ComPtr<IWebFilterManager> manager;
    ComPtr<IUnknown> identity;
    ASSERT_EQ(CreateManagerInstance(&outer, IID_IUnknown, inner.PutVoid()), S_OK);
    ASSERT_EQ(inner->QueryInterface(IID_IWebFilterManager, manager.PutVoid()), S_OK);
    ASSERT_EQ(manager->QueryInterface(IID_IUnknown, identity.PutVoid()), S_OK);
    EXPECT_EQ(std::pair(identity.Get(), outer.References()),
              std::pair(static_cast<IUnknown*>(&outer), 2l));
}

}  // namespace
}  // namespace sentrel::test

// The program's allocation functions; the other forms come to these. Freeing what operator new
// allocated is right here, though the compiler, seeing both, takes it for a mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t bytes) {
    void* memory = bytes < sentrel::test::failingFrom ? std::malloc(bytes + 1) : nullptr;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
