#include "child_process.h"

#include <algorithm>
#include <chrono>

namespace sentrel::test {

namespace {

// How long the reader waits for the child between looks at an empty pipe.
constexpr DWORD kPollMs = 10;

}  // namespace

ChildProcess::ChildProcess(std::wstring commandLine) {
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inheritable, 0)) {
        return;
    }
    output_.Reset(readEnd);
    // Our copy of the write end closes when the constructor returns: only the child writes.
    const UniqueHandle childEnd(writeEnd);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                        nullptr, nullptr, &startup, &info)) {
        output_.Reset();
        return;
    }
    CloseHandle(info.hThread);
    process_.Reset(info.hProcess);
    reader_ = std::thread(&ChildProcess::ReadOutput, this);
}

ChildProcess::~ChildProcess() {
    if (process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) {
        TerminateProcess(process_.Get(), 0xDEAD);
        WaitForSingleObject(process_.Get(), 10000);
    }
    if (reader_.joinable()) {
        reader_.join();
    }
}

// Reads what is in the pipe without ever blocking on it: a process the child started (Wine's
// desktop process, for one) may hold a copy of the write end long after the child has gone, so
// the end of the output is the child's exit, not the pipe's end.
void ChildProcess::ReadOutput() {
    char buffer[4096];
    for (;;) {
        const bool exited = WaitForSingleObject(process_.Get(), 0) != WAIT_TIMEOUT;
        DWORD available = 0;
        if (!PeekNamedPipe(output_.Get(), nullptr, 0, nullptr, &available, nullptr)) {
            break;
        }
        if (available == 0) {
            if (exited) {
                break;
            }
            WaitForSingleObject(process_.Get(), kPollMs);
            continue;
        }
        DWORD read = 0;
        if (!ReadFile(output_.Get(), buffer, std::min<DWORD>(available, sizeof(buffer)), &read,
                      nullptr)) {
            break;
        }
        const std::lock_guard lock(mutex_);
        text_.append(buffer, read);
        changed_.notify_all();
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

bool ChildProcess::WaitForOutput(std::string_view text, DWORD timeoutMs) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return text_.find(text) != std::string::npos || ended_;
    }) && text_.find(text) != std::string::npos;
}

std::optional<DWORD> ChildProcess::WaitForExit(DWORD timeoutMs) {
    if (!process_ || WaitForSingleObject(process_.Get(), timeoutMs) != WAIT_OBJECT_0) {
        return std::nullopt;
    }
    DWORD code = 0;
    GetExitCodeProcess(process_.Get(), &code);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ended_; });
    return code;
}

std::string ChildProcess::Output() const {
    const std::lock_guard lock(mutex_);
    return text_;
}

std::wstring Quote(const std::wstring& argument) {
    return L"\"" + argument + L"\"";
}

Completed RunToEnd(const std::wstring& commandLine, DWORD timeoutMs) {
    ChildProcess child(commandLine);
    Completed completed;
    completed.exitCode = child.WaitForExit(timeoutMs);
    completed.output = child.Output();
    return completed;
}

}  // namespace sentrel::test
