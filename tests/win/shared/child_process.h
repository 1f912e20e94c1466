#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

#include "com/unique_resource.h"

namespace sentrel::test {

// Another process. Its output goes to a file that the test reads as it grows: a pipe would not
// end while a process it started (Wine's desktop) holds it. Killed if it outlives the object.
class ChildProcess {
  public:
    explicit ChildProcess(std::wstring commandLine);
    ~ChildProcess();

    // False when the output does not hold the text within the time.
    bool WaitForOutput(std::string_view text, DWORD timeoutMs) const;
    // Nothing when the process does not end within the time.
    std::optional<DWORD> WaitForExit(DWORD timeoutMs) const;
    std::string Output() const;

  private:
    UniqueHandle process_;
    UniqueHandle output_;
};

std::wstring Quote(const std::wstring& argument);

struct Completed {
    std::optional<DWORD> exitCode;
    std::string output;
};
Completed RunToEnd(const std::wstring& commandLine, DWORD timeoutMs = 60000);

}  // namespace sentrel::test
