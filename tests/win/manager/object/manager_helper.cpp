// The second process of the manager object's cross-process tests: a client with a manager object
// of its own, in the multi-threaded apartment. Each command reports through its exit code.
//
//   publish <type> <refresh mode> <host> <ready> <release>
//       sets a policy of that type whose black list holds http://<host>/, signals ready and keeps
//       the object (and so a section it created) until released; exit 0 when SetFilterContent
//       succeeded, 1 when it answered E_FAIL
//   listen <host> <ready> <release>
//       switches updating on, signals ready, waits to be released, then for one change event of
//       type WebFilterBlockPolicy after which http://<host>/ is denied; exit 0 when both came

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cwchar>
#include <string>
#include <string_view>

#include "com/wide_text.h"
#include "helper_process.h"
#include "manager_client.h"
#include "test_doubles.h"
#include "thread_test_support.h"

namespace sentrel::test {
namespace {

// This helper's own codes, besides those every helper gives.
constexpr int kNoEvent = 2;
constexpr int kWrongDecision = 4;

std::u16string UrlOf(const wchar_t* host) {
    return u"http://" + std::u16string(AsU16(host)) + u"/";
}

int Publish(const wchar_t* type, const wchar_t* refreshMode, const wchar_t* host,
            const wchar_t* ready, const wchar_t* release) {
    const ComPtr<IWebFilterManager> manager = CreateManager();
    if (!manager) {
        return kHelperUnexpected;
    }
    const HRESULT result =
        SetContent(*manager.Get(), static_cast<::WebFilterType>(std::wcstol(type, nullptr, 10)),
                   ListDocument(static_cast<std::uint32_t>(std::wcstoul(refreshMode, nullptr, 10)),
                                ListKind::Black, {UrlOf(host)}));
    SignalNamedEvent(ready);
    if (!WaitForNamedEvent(release, kHelperWaitMs)) {
        return kHelperUnexpected;
    }
    return result == S_OK ? kHelperOk : result == E_FAIL ? kHelperRefused : kHelperUnexpected;
}

int Listen(const wchar_t* host, const wchar_t* ready, const wchar_t* release) {
    TestSink sink;
    const ComPtr<IWebFilterManager> manager = CreateManager();
    if (!manager) {
        return kHelperUnexpected;
    }
    const ComPtr<IConnectionPoint> point = EventsPoint(*manager.Get());
    DWORD cookie = 0;
    if (!point || FAILED(point->Advise(static_cast<IUnknown*>(&sink), &cookie)) ||
        FAILED(manager->EnableUpdate(1))) {
        return kHelperUnexpected;
    }
    SignalNamedEvent(ready);
    if (!WaitForNamedEvent(release, kHelperWaitMs)) {
        return kHelperUnexpected;
    }
    const bool event =
        WaitUntil([&] { return !sink.Events().empty(); }, std::chrono::milliseconds(kHelperWaitMs));
    point->Unadvise(cookie);
    if (!event || sink.Types().front() != WebFilterBlockPolicy) {
        return kNoEvent;
    }
    return Allowed(*manager.Get(), UrlOf(host).c_str()) == 0 ? kHelperOk : kWrongDecision;
}

int Run(int count, wchar_t** arguments) {
    const std::wstring_view command = count > 1 ? arguments[1] : L"";
    if (command == L"publish" && count == 7) {
        return Publish(arguments[2], arguments[3], arguments[4], arguments[5], arguments[6]);
    }
    if (command == L"listen" && count == 5) {
        return Listen(arguments[2], arguments[3], arguments[4]);
    }
    return kHelperUsage;
}

}  // namespace
}  // namespace sentrel::test

int wmain(int count, wchar_t** arguments) {
    const sentrel::test::ComInit com(COINIT_MULTITHREADED);
    if (FAILED(com.Result())) {
        return sentrel::test::kHelperUnexpected;
    }
    return sentrel::test::Run(count, arguments);
}
