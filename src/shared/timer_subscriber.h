#pragma once

namespace sentrel {

// Called on a timer thread at each of its ticks.
class ITimerSubscriber {
  public:
    virtual ~ITimerSubscriber() = default;
    virtual void OnTimeElapsed() {}
};

}  // namespace sentrel
