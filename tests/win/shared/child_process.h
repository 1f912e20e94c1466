#pragma once

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "com/unique_resource.h"

namespace sentrel::test {

// Another process started from a command line, whose standard output and error the test reads
// as they come. A process still running when the object goes is killed: no test leaves one
// behind.
class ChildProcess {
  public:
    explicit ChildProcess(std::wstring commandLine);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool Started() const { return static_cast<bool>(process_); }
    // True once the output holds text; false when it did not within timeoutMs.
    bool WaitForOutput(std::string_view text, DWORD timeoutMs);
    // The exit code, or nothing when the process did not end within timeoutMs.
    std::optional<DWORD> WaitForExit(DWORD timeoutMs);
    // Everything written so far (all of it, once WaitForExit has returned a code).
    std::string Output() const;

  private:
    void ReadOutput();

    UniqueHandle process_;
    UniqueHandle output_;
    std::thread reader_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    bool ended_ = false;
};

// The quoted form of an argument for a command line.
std::wstring Quote(const std::wstring& argument);

// Runs a command line to its end (at most timeoutMs) and gives its exit code and output.
struct Completed {
    std::optional<DWORD> exitCode;
    std::string output;
};
Completed RunToEnd(const std::wstring& commandLine, DWORD timeoutMs = 60000);

}  // namespace sentrel::test
