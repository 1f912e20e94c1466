#include "shared/timer_thread.h"

namespace sentrel {

TimerThread::TimerThread(std::uint32_t periodMs) : period_(periodMs) {}

TimerThread::~TimerThread() {
    // The loop kills its own timer on the way out; a timer belongs to its thread.
    Join();
}

void TimerThread::SetActive(std::int32_t value) {
    if (active_.exchange(value) == value) {
        return;
    }
    PostToThread(WM_ENABLE_TIMER, static_cast<WPARAM>(value), 0, kPostTries);
}

std::uint32_t TimerThread::Run() {
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.hwnd != nullptr) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        } else if (message.message == WM_TIMER) {
            OnTimer();
        } else if (message.message == WM_ENABLE_TIMER) {
            if (message.wParam == 1) {
                // Reusing the current id replaces a running timer rather than adding one.
                timerId_ = SetTimer(nullptr, timerId_, period_, nullptr);
            } else if (timerId_ != 0) {
                KillTimer(nullptr, timerId_);
                timerId_ = 0;
            }
        }
    }
    if (active_.exchange(0) != 0 && timerId_ != 0) {
        KillTimer(nullptr, timerId_);
        timerId_ = 0;
    }
    return 0;
}

void TimerThread::OnTimer() {
    NotifySubscribers([](ITimerSubscriber& subscriber) { subscriber.OnTimeElapsed(); });
}

}  // namespace sentrel
