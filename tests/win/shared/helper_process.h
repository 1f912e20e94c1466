#pragma once

#include <windows.h>

#include <string>

#include "child_process.h"

namespace sentrel::test {

// The exit codes every helper program gives, and how long either side waits for the other.
inline constexpr int kHelperOk = 0;
inline constexpr int kHelperRefused = 1;
inline constexpr int kHelperUnexpected = 3;
inline constexpr int kHelperUsage = 64;
inline constexpr DWORD kHelperWaitMs = 30000;

// A helper given the names of a ready and a release event after its arguments: it signals ready
// once it has done its part (SignalNamedEvent), then holds on until released (WaitForNamedEvent).
class HoldingHelper {
  public:
    HoldingHelper(const wchar_t* program, const std::wstring& arguments);
    bool WaitReady(DWORD timeoutMs) const;
    // Lets it go; its exit code, or 0xFFFFFFFF when it does not end in time.
    DWORD Release(DWORD timeoutMs);

  private:
    const std::wstring name_;  // of both events, unique to this object, told apart by a last letter
    UniqueHandle ready_;
    UniqueHandle release_;
    ChildProcess process_;
};

bool WaitForNamedEvent(const wchar_t* name, DWORD timeoutMs);
void SignalNamedEvent(const wchar_t* name);

}  // namespace sentrel::test
