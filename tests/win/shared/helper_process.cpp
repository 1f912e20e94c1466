#include "helper_process.h"

#include <vector>

namespace sentrel::test {

namespace {

std::wstring HelperPath(const wchar_t* program) {
    std::vector<wchar_t> path(MAX_PATH);
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            std::wstring own(path.data(), length);
            return own.substr(0, own.find_last_of(L"\\/") + 1) + program;
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace

HelperProcess::HelperProcess(const wchar_t* program, const std::wstring& arguments)
    : process_(std::make_unique<ChildProcess>(Quote(HelperPath(program)) + L" " + arguments)) {}

NamedEvent::NamedEvent(const wchar_t* purpose)
    : name_(std::wstring(L"SentrelTest.") + purpose + L"." +
            std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(GetTickCount64())),
      event_(CreateEventW(nullptr, TRUE, FALSE, name_.c_str())) {}

HoldingHelper::HoldingHelper(const wchar_t* program, const std::wstring& arguments)
    : ready_(L"ready"),
      release_(L"release"),
      process_(program, arguments + L" " + ready_.Name() + L" " + release_.Name()) {}

DWORD HoldingHelper::Release(DWORD timeoutMs) {
    release_.Set();
    return process_.WaitForExit(timeoutMs);
}

bool WaitForNamedEvent(const wchar_t* name, DWORD timeoutMs) {
    const UniqueHandle event(OpenEventW(SYNCHRONIZE, FALSE, name));
    return event && WaitForSingleObject(event.Get(), timeoutMs) == WAIT_OBJECT_0;
}

void SignalNamedEvent(const wchar_t* name) {
    const UniqueHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, name));
    SetEvent(event.Get());
}

}  // namespace sentrel::test
