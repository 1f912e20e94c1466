#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "child_process.h"
#include "com/unique_resource.h"

namespace sentrel::test {

// What a helper's exit code says: the codes every helper gives. A helper may add codes of its own
// between them; a crash gives kCrashExitCode.
inline constexpr int kHelperOk = 0;
inline constexpr int kHelperRefused = 1;
inline constexpr int kHelperUnexpected = 3;
inline constexpr int kHelperUsage = 64;
// How long either side waits for the other: a helper for the test's events, a test for a helper.
inline constexpr DWORD kHelperWaitMs = 30000;

// The helper program of the shared-section tests.
inline constexpr wchar_t kSharedHelper[] = L"shared_helper.exe";

// A second process running a helper program that lies next to the test executable, its output
// kept for failure messages.
class HelperProcess {
  public:
    static constexpr DWORD kNoExit = 0xFFFFFFFF;

    // Starts the program, named by its file name, with the given arguments (already quoted where
    // needed).
    HelperProcess(const wchar_t* program, const std::wstring& arguments);

    bool Started() const { return process_->Started(); }
    // The exit code, or kNoExit when the process has not ended within timeoutMs.
    DWORD WaitForExit(DWORD timeoutMs) {
        return process_->WaitForExit(timeoutMs).value_or(kNoExit);
    }
    std::string Output() const { return process_->Output(); }

  private:
    std::unique_ptr<ChildProcess> process_;  // a pointer, so that helpers can be moved
};

// A named manual-reset event that helpers open by name; the name is unique to this process.
class NamedEvent {
  public:
    explicit NamedEvent(const wchar_t* purpose);
    const std::wstring& Name() const { return name_; }
    void Set() { SetEvent(event_.Get()); }
    bool WaitFor(DWORD timeoutMs) { return WaitForSingleObject(event_.Get(), timeoutMs) == 0; }

  private:
    std::wstring name_;
    UniqueHandle event_;
};

// A helper given a ready and a release event after its other arguments: it signals ready once it
// has done its part, then holds on until released.
class HoldingHelper {
  public:
    HoldingHelper(const wchar_t* program, const std::wstring& arguments);
    bool WaitReady(DWORD timeoutMs) { return process_.Started() && ready_.WaitFor(timeoutMs); }
    // Lets it go and returns its exit code (HelperProcess::kNoExit when it does not end in time).
    DWORD Release(DWORD timeoutMs);

  private:
    NamedEvent ready_;
    NamedEvent release_;
    HelperProcess process_;
};

// In a helper: waits at most timeoutMs for the named event the test made; false when it could not
// be opened or was not set in time.
bool WaitForNamedEvent(const wchar_t* name, DWORD timeoutMs);
// In a helper: sets the named event the test made.
void SignalNamedEvent(const wchar_t* name);

}  // namespace sentrel::test
