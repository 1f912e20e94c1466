#include "manager/web_filter_manager_wnd.h"

#include <cstdint>

namespace sentrel {

namespace {

constexpr wchar_t kWindowClassName[] = L"CWebFilterManagerWnd";

// The module holding this code: a window class belongs to the module that registers it.
HINSTANCE ThisModule() noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        kWindowClassName, &module);
    return module;
}

// The window class, registered on first use and unregistered when the module goes: the system
// does not unregister a DLL's classes when the DLL is unloaded.
class WindowClass {
  public:
    explicit WindowClass(WNDPROC procedure) noexcept : instance_(ThisModule()) {
        WNDCLASSEXW description{};
        description.cbSize = sizeof(description);
        description.style = CS_HREDRAW | CS_VREDRAW | CS_DBLCLKS;
        description.lpfnWndProc = procedure;
        description.hInstance = instance_;
        // IDC_ARROW is an integer resource id, the same in both character forms.
        description.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
        description.hbrBackground =
            reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
        description.lpszClassName = kWindowClassName;
        registered_ = RegisterClassExW(&description) != 0;
    }
    WindowClass(const WindowClass&) = delete;
    WindowClass& operator=(const WindowClass&) = delete;
    ~WindowClass() {
        if (registered_) {
            UnregisterClassW(kWindowClassName, instance_);
        }
    }

    bool Registered() const noexcept { return registered_; }
    HINSTANCE Instance() const noexcept { return instance_; }

  private:
    HINSTANCE instance_;
    bool registered_ = false;
};

::WebFilterType TypeFromMessage(WPARAM wParam) noexcept {
    return static_cast<::WebFilterType>(
        static_cast<std::int32_t>(static_cast<std::uint32_t>(wParam)));
}

CWebFilterManagerWnd* WindowObject(HWND window) noexcept {
    return reinterpret_cast<CWebFilterManagerWnd*>(GetWindowLongPtrW(window, GWLP_USERDATA));
}

}  // namespace

bool CWebFilterManagerWnd::Create() noexcept {
    if (IsWindow()) {
        return true;
    }
    static const WindowClass windowClass(&WindowProcedure);
    if (!windowClass.Registered()) {
        return false;
    }
    const HWND window = CreateWindowExW(0, kWindowClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE,
                                        nullptr, windowClass.Instance(), nullptr);
    if (window == nullptr) {
        return false;
    }
    // Attached once created: until then the window's messages go to DefWindowProcW.
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    window_.store(window);
    return true;
}

void CWebFilterManagerWnd::Destroy() noexcept {
    const HWND window = window_.exchange(nullptr);
    if (window == nullptr) {
        return;
    }
    if (GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId()) {
        DestroyWindow(window);
        return;
    }
    // Only the window's own thread may destroy it: detached, it no longer reaches this object,
    // and the default handling of WM_CLOSE destroys it there.
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
    PostMessageW(window, WM_CLOSE, 0, 0);
}

bool CWebFilterManagerWnd::IsWindow() const noexcept {
    const HWND window = window_.load();
    return window != nullptr && ::IsWindow(window);
}

bool CWebFilterManagerWnd::PostFilterContentChanged(::WebFilterType type) const noexcept {
    const HWND window = window_.load();
    return window != nullptr &&
           PostMessageW(window, WM_FILTERCONTENTCHANGED,
                        static_cast<WPARAM>(static_cast<std::uint32_t>(type)), 0);
}

LRESULT CALLBACK CWebFilterManagerWnd::WindowProcedure(HWND window, UINT message, WPARAM wParam,
                                                       LPARAM lParam) {
    CWebFilterManagerWnd* const self = WindowObject(window);
    if (self != nullptr && message == WM_FILTERCONTENTCHANGED) {
        self->manager_.Fire_OnFilterContentChanged(TypeFromMessage(wParam));
        return 0;
    }
    if (self != nullptr && message == WM_NCDESTROY) {
        // Destroyed by other means than Destroy (its thread ending, for one): forget the handle.
        HWND expected = window;
        self->window_.compare_exchange_strong(expected, nullptr);
        SetWindowLongPtrW(window, GWLP_USERDATA, 0);
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace sentrel
