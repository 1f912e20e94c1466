#include "helper_process.h"

#include <cstdint>

namespace sentrel::test {

namespace {

std::wstring HelperCommand(const wchar_t* program, const std::wstring& arguments) {
    wchar_t path[MAX_PATH];
    const std::wstring own(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    return Quote(own.substr(0, own.find_last_of(L"\\/") + 1) + program) + L" " + arguments;
}

}  // namespace

HoldingHelper::HoldingHelper(const wchar_t* program, const std::wstring& arguments)
    : name_(L"SentrelTest." + std::to_wstring(GetCurrentProcessId()) + L"." +
            std::to_wstring(reinterpret_cast<std::uintptr_t>(this)) + L"."),
      ready_(CreateEventW(nullptr, TRUE, FALSE, (name_ + L"r").c_str())),
      release_(CreateEventW(nullptr, TRUE, FALSE, (name_ + L"x").c_str())),
      process_(HelperCommand(program, arguments + L" " + name_ + L"r " + name_ + L"x")) {}

bool HoldingHelper::WaitReady(DWORD timeoutMs) const {
    return WaitForSingleObject(ready_.Get(), timeoutMs) == WAIT_OBJECT_0;
}

DWORD HoldingHelper::Release(DWORD timeoutMs) {
    SetEvent(release_.Get());
    return process_.WaitForExit(timeoutMs).value_or(0xFFFFFFFF);
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
