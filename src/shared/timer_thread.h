#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "shared/monitored_section.h"
#include "shared/subscribable.h"
#include "shared/thread_base.h"
#include "shared/timer_subscriber.h"

namespace sentrel {

// Switched thread message: wParam 1 starts (or restarts) the timer, any other value stops it.
inline constexpr UINT WM_ENABLE_TIMER = WM_USER + 101;

// A thread that, while switched on, calls every subscriber's OnTimeElapsed once per period, on
// itself, one subscriber after another. Subscribers may come and go from any thread at any time
// (see ISubscribable for what Unsubscribe guarantees). A WM_TIMER posted to the thread is a tick
// like the timer's own, so a tick can be given by hand without waiting for a period.
class TimerThread : public CThreadBase, public ISubscribable<ITimerSubscriber, MonitoredSection> {
  public:
    explicit TimerThread(std::uint32_t periodMs);
    // Waits for the thread, also one that outlived a timed-out End, before anything it uses goes.
    ~TimerThread() override;

    // 1 switches the ticks on, any other value off; a value equal to the last one does nothing.
    void SetActive(std::int32_t value);

  protected:
    std::uint32_t Run() override;
    virtual void OnTimer();

  private:
    const std::uint32_t period_;
    std::atomic<std::int32_t> active_{0};
    UINT_PTR timerId_ = 0;  // touched only by the thread
};

}  // namespace sentrel
