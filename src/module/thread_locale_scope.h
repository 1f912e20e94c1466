#pragma once

#include <windows.h>

namespace sentrel {

// Sets the calling thread's locale to the system default for the scope's lifetime and restores
// the one it found on every way out, so that what registration writes does not depend on the
// locale of the thread that happens to call it.
class ThreadLocaleScope {
  public:
    ThreadLocaleScope() noexcept : saved_(GetThreadLocale()) {
        SetThreadLocale(LOCALE_SYSTEM_DEFAULT);
    }
    ~ThreadLocaleScope() { SetThreadLocale(saved_); }
    ThreadLocaleScope(const ThreadLocaleScope&) = delete;
    ThreadLocaleScope& operator=(const ThreadLocaleScope&) = delete;

  private:
    LCID saved_;
};

}  // namespace sentrel
