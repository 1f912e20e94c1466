#include "child_process.h"

#include "thread_test_support.h"

namespace sentrel::test {

ChildProcess::ChildProcess(std::wstring commandLine) {
    wchar_t path[MAX_PATH];
    GetTempPathW(MAX_PATH, path);
    GetTempFileNameW(path, L"out", 0, path);
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    // The file goes with the last handle to it, the child's included.
    const UniqueHandle written(CreateFileW(path, GENERIC_WRITE, share, &inheritable, CREATE_ALWAYS,
                                           FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    output_.Reset(CreateFileW(path, GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = written.Get();
    startup.hStdError = written.Get();
    PROCESS_INFORMATION info{};
    if (output_.Get() != INVALID_HANDLE_VALUE &&
        CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                       nullptr, nullptr, &startup, &info)) {
        CloseHandle(info.hThread);
        process_.Reset(info.hProcess);
    }
}

ChildProcess::~ChildProcess() {
    if (WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) {
        TerminateProcess(process_.Get(), 0xDEAD);
        WaitForSingleObject(process_.Get(), 10000);
    }
}

bool ChildProcess::WaitForOutput(std::string_view text, DWORD timeoutMs) const {
    return WaitUntil([&] { return Output().find(text) != std::string::npos; },
                     std::chrono::milliseconds(timeoutMs));
}

std::optional<DWORD> ChildProcess::WaitForExit(DWORD timeoutMs) const {
    DWORD code = 0;
    if (WaitForSingleObject(process_.Get(), timeoutMs) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process_.Get(), &code)) {
        return std::nullopt;
    }
    return code;
}

std::string ChildProcess::Output() const {
    std::string text;
    char buffer[4096];
    DWORD read = 0;
    SetFilePointerEx(output_.Get(), LARGE_INTEGER{}, nullptr, FILE_BEGIN);
    while (ReadFile(output_.Get(), buffer, sizeof(buffer), &read, nullptr) && read > 0) {
        text.append(buffer, read);
    }
    return text;
}

std::wstring Quote(const std::wstring& argument) {
    return L"\"" + argument + L"\"";
}

Completed RunToEnd(const std::wstring& commandLine, DWORD timeoutMs) {
    const ChildProcess child(commandLine);
    const std::optional<DWORD> exitCode = child.WaitForExit(timeoutMs);
    return Completed{exitCode, child.Output()};
}

}  // namespace sentrel::test
