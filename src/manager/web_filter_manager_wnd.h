#pragma once

#include <windows.h>

#include <atomic>

#include "manager/web_filter_events_proxy.h"
#include "sentrel_h.h"

namespace sentrel {

// Hands a change event to the thread that created the window: wParam carries the WebFilterType
// (its low 32 bits), lParam is 0.
inline constexpr UINT WM_FILTERCONTENTCHANGED = 0x0464;
static_assert(WM_FILTERCONTENTCHANGED == WM_USER + 100);

// The hidden message-only window through which the events of an object created on a thread that
// processes messages reach that thread: the timer thread posts, the creating thread's message loop
// fires the events. The window is created and destroyed on that thread.
class CWebFilterManagerWnd {
  public:
    // manager: the events of the owning object; fixed for the window's life.
    explicit CWebFilterManagerWnd(CProxy_IWebFilterEvents& manager) noexcept : manager_(manager) {}
    CWebFilterManagerWnd(const CWebFilterManagerWnd&) = delete;
    CWebFilterManagerWnd& operator=(const CWebFilterManagerWnd&) = delete;
    ~CWebFilterManagerWnd() { Destroy(); }

    // Creates the window on the calling thread (class "CWebFilterManagerWnd", registered once per
    // process); false when no window results. Does nothing while a window exists.
    bool Create() noexcept;
    // Destroys the window. Called on another thread than the window's, it detaches the window
    // from this object and asks the window's own thread to destroy it.
    void Destroy() noexcept;

    // Whether this object still has a window; any thread may ask.
    bool IsWindow() const noexcept;
    // Posts WM_FILTERCONTENTCHANGED with type to the window, from any thread, without waiting;
    // false when there is no window or the post failed.
    bool PostFilterContentChanged(::WebFilterType type) const noexcept;

    HWND Handle() const noexcept { return window_.load(); }

  private:
    static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam,
                                            LPARAM lParam);

    CProxy_IWebFilterEvents& manager_;
    std::atomic<HWND> window_{nullptr};
};

}  // namespace sentrel
