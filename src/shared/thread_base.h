#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace sentrel {

// A worker thread driven by thread messages. Begin starts it, End posts WM_QUIT and waits for it
// for a bounded time.
//
// A thread that outlives a timed-out End is not forgotten: the object keeps its handle, Begin
// refuses to start another one while it runs, and Join (called by the destructor, and by every
// derived destructor before its own members go) waits for it. So an object is never destroyed
// while its thread still runs, except when the destruction runs on that very thread, which
// cannot wait for itself: owners must not destroy the object from inside its own thread.
class CThreadBase {
  public:
    static constexpr std::uint32_t kPostTries = 50;

    CThreadBase() = default;
    virtual ~CThreadBase();
    CThreadBase(const CThreadBase&) = delete;
    CThreadBase& operator=(const CThreadBase&) = delete;

    // Starts the thread (suspended with creationFlags CREATE_SUSPENDED) at the given priority.
    // False when a thread is already held or being stopped, or cannot be created (logged).
    bool Begin(std::uint32_t creationFlags, std::int32_t priority);
    // Stops the thread, waiting at most timeoutMs (INFINITE: no limit). False only when another
    // stop is already in progress.
    bool End(std::uint32_t timeoutMs);

    virtual void OnThreadStart() {}
    virtual void OnThreadEnd() {}
    // Posts a thread message, retrying every 10 ms up to `tries` times: a thread that has just
    // started has no message queue until it first looks for messages. Refused (OnPostRefused)
    // when no thread runs or it is stopping, WM_QUIT excepted.
    virtual bool PostToThread(UINT message, WPARAM wParam, LPARAM lParam, std::uint32_t tries);

    // Whether the caller is this object's thread.
    bool RunsOnCurrentThread() const { return threadId_.load() == GetCurrentThreadId(); }

  protected:
    // The thread's body; its result is the thread's exit code. By default a message loop that
    // passes messages without a window to OnThreadMessage.
    virtual std::uint32_t Run();
    virtual void OnPostRefused(UINT /*message*/, WPARAM /*wParam*/, LPARAM /*lParam*/) {}
    virtual bool OnLoopStart() { return true; }
    virtual void OnLoopEnd() {}
    virtual void OnThreadMessage(UINT /*message*/, WPARAM /*wParam*/, LPARAM /*lParam*/) {}

    // Stops the thread without a time limit and waits for any thread of this object that is
    // still running; does not wait when called on that thread itself.
    void Join();

    std::uint32_t ThreadId() const { return threadId_.load(); }

  private:
    static unsigned __stdcall ThreadProcedure(void* self);
    void Settle(HANDLE thread, bool posted, std::uint32_t timeoutMs);

    std::atomic<DWORD> threadId_{0};
    std::atomic<HANDLE> threadHandle_{nullptr};
    std::atomic<LONG> stopMark_{0};
    // The handle of a thread that End stopped waiting for while it still ran.
    std::atomic<HANDLE> outliving_{nullptr};
};

}  // namespace sentrel
