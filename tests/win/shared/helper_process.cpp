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

HelperProcess::HelperProcess(const wchar_t* program, const std::wstring& arguments) {
    const std::wstring path = HelperPath(program);
    std::wstring commandLine = L"\"" + path + L"\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info{};
    if (CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                       nullptr, &startup, &info)) {
        CloseHandle(info.hThread);
        process_.Reset(info.hProcess);
    }
}

HelperProcess::~HelperProcess() {
    if (process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) {
        TerminateProcess(process_.Get(), kNoExit);
        WaitForSingleObject(process_.Get(), 10000);
    }
}

DWORD HelperProcess::WaitForExit(DWORD timeoutMs) {
    DWORD code = kNoExit;
    if (process_ && WaitForSingleObject(process_.Get(), timeoutMs) == WAIT_OBJECT_0) {
        GetExitCodeProcess(process_.Get(), &code);
    }
    return code;
}

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
