#pragma once

#include <windows.h>

#include <cstdint>

namespace sentrel {

// A critical section with a condition to wait on while it is held. Construction throws
// HResultError when the platform cannot initialise the section.
class MonitoredSection {
  public:
    explicit MonitoredSection(std::uint32_t spinCount);
    ~MonitoredSection();
    MonitoredSection(const MonitoredSection&) = delete;
    MonitoredSection& operator=(const MonitoredSection&) = delete;

    void Enter() { EnterCriticalSection(&section_); }
    void Leave() { LeaveCriticalSection(&section_); }

    // Held only: leaves the section until WakeAll is called, then enters it again. Callers wait
    // in a loop over their own condition.
    void Wait() { SleepConditionVariableCS(&changed_, &section_, INFINITE); }
    void WakeAll() { WakeAllConditionVariable(&changed_); }

    // Holds the section for its lifetime.
    class Guard {
      public:
        explicit Guard(MonitoredSection& section) : section_(section) { section_.Enter(); }
        ~Guard() { section_.Leave(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

      private:
        MonitoredSection& section_;
    };

  private:
    CRITICAL_SECTION section_;
    CONDITION_VARIABLE changed_ = CONDITION_VARIABLE_INIT;
};

}  // namespace sentrel
