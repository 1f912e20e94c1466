#include "shared/thread_base.h"

#include <process.h>

#include "com/unique_resource.h"
#include "module/log/logger.h"

namespace sentrel {

namespace {

constexpr DWORD kPostRetryMs = 10;

bool IsCurrentThread(HANDLE thread) {
    return GetThreadId(thread) == GetCurrentThreadId();
}

bool HasEnded(HANDLE thread) {
    return WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
}

}  // namespace

CThreadBase::~CThreadBase() {
    Join();
}

bool CThreadBase::Begin(std::uint32_t creationFlags, std::int32_t priority) {
    if (threadHandle_.load() != nullptr || stopMark_.load() != 0) {
        return false;
    }
    if (const HANDLE outliving = outliving_.load(); outliving != nullptr) {
        if (!HasEnded(outliving)) {
            return false;  // the thread of a timed-out End still runs on this object
        }
        UniqueHandle(outliving_.exchange(nullptr)).Reset();
    }
    unsigned threadId = 0;
    const HANDLE thread = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, &ThreadProcedure, this, CREATE_SUSPENDED, &threadId));
    if (thread == nullptr) {
        TheLogger.Log(LogLevelError, u"CThreadBase::Begin - Could not create thread");
        return false;
    }
    threadId_.store(threadId);
    threadHandle_.store(thread);
    SetThreadPriority(thread, priority);
    if (creationFlags != CREATE_SUSPENDED) {
        ResumeThread(thread);
    }
    return true;
}

unsigned __stdcall CThreadBase::ThreadProcedure(void* self) {
    auto& thread = *static_cast<CThreadBase*>(self);
    thread.OnThreadStart();
    const std::uint32_t exitCode = thread.Run();
    LONG stopping = 1;
    thread.stopMark_.compare_exchange_strong(stopping, 0);
    // Only our own id: after a timed-out End the object may know no thread at all.
    DWORD selfId = GetCurrentThreadId();
    thread.threadId_.compare_exchange_strong(selfId, 0);
    thread.OnThreadEnd();
    return exitCode;
}

bool CThreadBase::PostToThread(UINT message, WPARAM wParam, LPARAM lParam, std::uint32_t tries) {
    const DWORD threadId = threadId_.load();
    if ((threadId == 0 || stopMark_.load() != 0) && message != WM_QUIT) {
        OnPostRefused(message, wParam, lParam);
        return false;
    }
    if (threadId == 0) {
        return false;  // a quit for a thread that has already left its loop
    }
    for (std::uint32_t attempt = 0; attempt < tries; ++attempt) {
        if (PostThreadMessageW(threadId, message, wParam, lParam)) {
            return true;
        }
        if (attempt + 1 < tries) {
            Sleep(kPostRetryMs);
        }
    }
    return false;
}

bool CThreadBase::End(std::uint32_t timeoutMs) {
    LONG idle = 0;
    if (!stopMark_.compare_exchange_strong(idle, 1)) {
        return false;
    }
    // Claimed by this call alone: even an End that slips in once the thread has cleared the stop
    // mark on its way out finds no handle to close a second time.
    if (const HANDLE thread = threadHandle_.exchange(nullptr); thread != nullptr) {
        DWORD threadId = GetThreadId(thread);
        // A thread still suspended since Begin must run to see the quit.
        ResumeThread(thread);
        const bool posted = PostToThread(WM_QUIT, 0, 0, kPostTries);
        Settle(thread, posted, timeoutMs);
        threadId_.compare_exchange_strong(threadId, 0);
    }
    stopMark_.store(0);
    return true;
}

void CThreadBase::Settle(HANDLE thread, bool posted, std::uint32_t timeoutMs) {
    // A thread cannot wait for itself: asked to stop from inside, it leaves once it returns to
    // its loop.
    if (posted && !IsCurrentThread(thread)) {
        WaitForSingleObject(thread, timeoutMs);
    }
    if (HasEnded(thread)) {
        CloseHandle(thread);
        return;
    }
    UniqueHandle(outliving_.exchange(thread)).Reset();
}

void CThreadBase::Join() {
    End(INFINITE);
    const HANDLE outliving = outliving_.load();
    if (outliving != nullptr && !IsCurrentThread(outliving)) {
        WaitForSingleObject(outliving, INFINITE);
        UniqueHandle(outliving_.exchange(nullptr)).Reset();
    }
}

std::uint32_t CThreadBase::Run() {
    if (!OnLoopStart()) {
        return 0xFFFFFFFF;
    }
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.hwnd != nullptr) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        } else {
            OnThreadMessage(message.message, message.wParam, message.lParam);
        }
    }
    OnLoopEnd();
    return 0;
}

}  // namespace sentrel
