// A client of the Sentrel web-filter manager, written as an application would use the installed
// component: it knows only the ProgID, the interfaces and the event interface from sentrel.idl
// (through the header that widl or MIDL makes of it), and talks to Sentrel64.dll through COM.
//
//   sentrel_client publish POLICY.xml [none|policy|all] [HOLD_SECONDS]
//       Sets the policy in a manager object, which shares it with the manager objects of every
//       other process, and keeps the object (and with it the shared policy) for HOLD_SECONDS
//       (default 3).
//
//   sentrel_client watch [--timeout SECONDS] URL...
//       Decides the URLs, waits for a policy change published by another process (default 20
//       seconds), then decides them again under the new policy. Prints "allow<TAB>URL" or
//       "deny<TAB>URL" for each.
//
// Exit status: 0 done, 1 no change arrived in time, 2 wrong arguments or a COM failure.

#include <windows.h>

#include <objbase.h>
#include <ocidl.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sentrel_h.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr wchar_t kProgId[] = L"Sentrel.WebFilterManager";

std::string Utf8(const std::wstring& text) {
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                        length, nullptr, nullptr);
    return bytes;
}

// Prints one line and flushes it at once, so that a process reading our output sees it when it
// happens.
void Say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

int Usage() {
    std::fputs(
        "usage: sentrel_client publish POLICY.xml [none|policy|all] [HOLD_SECONDS]\n"
        "       sentrel_client watch [--timeout SECONDS] URL...\n",
        stderr);
    return 2;
}

int Failed(const char* what, HRESULT result) {
    char line[160];
    std::snprintf(line, sizeof(line), "%s failed: 0x%08lX", what,
                  static_cast<unsigned long>(result));
    std::fputs((std::string(line) + "\n").c_str(), stderr);
    return 2;
}

// Owns a BSTR.
class Bstr {
  public:
    explicit Bstr(const std::wstring& text)
        : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size()))) {}
    Bstr() = default;
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    ~Bstr() { SysFreeString(text_); }
    BSTR Get() const { return text_; }
    BSTR* Put() { return &text_; }

  private:
    BSTR text_ = nullptr;
};

// COM for this thread, for as long as the object lives.
class ComApartment {
  public:
    explicit ComApartment(DWORD model) : result_(CoInitializeEx(nullptr, model)) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (SUCCEEDED(result_)) {
            CoUninitialize();
        }
    }
    HRESULT Result() const { return result_; }

  private:
    HRESULT result_;
};

// Creates the manager by its ProgID on a thread that has entered its apartment; says why when it
// cannot.
bool CreateManager(const ComApartment& apartment, ComPtr<IWebFilterManager>& manager) {
    if (FAILED(apartment.Result())) {
        Failed("CoInitializeEx", apartment.Result());
        return false;
    }
    CLSID classId{};
    HRESULT result = CLSIDFromProgID(kProgId, &classId);
    if (SUCCEEDED(result)) {
        result = CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&manager));
    }
    if (FAILED(result)) {
        Failed("creating Sentrel.WebFilterManager", result);
        return false;
    }
    return true;
}

// A policy file: UTF-16LE when it starts with the byte order mark FF FE, else UTF-8.
bool ReadPolicy(const wchar_t* path, std::wstring& text) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    if (!file) {
        return false;
    }
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE') {
        text.assign((bytes.size() - 2) / 2, L'\0');
        bytes.copy(reinterpret_cast<char*>(text.data()), text.size() * 2, 2);
        return true;
    }
    const std::size_t skip = bytes.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
    const int size = static_cast<int>(bytes.size() - skip);
    text.assign(static_cast<std::size_t>(
                    MultiByteToWideChar(CP_UTF8, 0, bytes.data() + skip, size, nullptr, 0)),
                L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes.data() + skip, size, text.data(),
                        static_cast<int>(text.size()));
    return true;
}

const wchar_t* TypeName(WebFilterType type) {
    switch (type) {
        case WebFilterBlockNone:
            return L"none";
        case WebFilterBlockPolicy:
            return L"policy";
        case WebFilterBlockAll:
            return L"all";
    }
    return L"unknown";
}

HRESULT Decide(IWebFilterManager* manager, const std::vector<std::wstring>& urls) {
    for (const std::wstring& url : urls) {
        long allowed = 0;
        const HRESULT result = manager->IsUrlAllowed(Bstr(url).Get(), &allowed);
        if (FAILED(result)) {
            return result;
        }
        Say((allowed ? "allow\t" : "deny\t") + Utf8(url));
    }
    return S_OK;
}

int Publish(const std::vector<std::wstring>& arguments) {
    if (arguments.empty() || arguments.size() > 3) {
        return Usage();
    }
    WebFilterType type = WebFilterBlockPolicy;
    if (arguments.size() >= 2) {
        if (arguments[1] == L"none") {
            type = WebFilterBlockNone;
        } else if (arguments[1] == L"all") {
            type = WebFilterBlockAll;
        } else if (arguments[1] != L"policy") {
            return Usage();
        }
    }
    const DWORD holdSeconds =
        arguments.size() == 3 ? static_cast<DWORD>(std::wcstoul(arguments[2].c_str(), nullptr, 10))
                              : 3;
    std::wstring policy;
    if (!ReadPolicy(arguments[0].c_str(), policy)) {
        return Failed("reading the policy file", HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    }

    const ComApartment apartment(COINIT_MULTITHREADED);
    ComPtr<IWebFilterManager> manager;
    if (!CreateManager(apartment, manager)) {
        return 2;
    }
    // E_INVALIDARG: the document is not a policy. E_FAIL: the policy is in force in this object
    // but could not be shared (another process's manager shares its policies at the moment).
    if (const HRESULT result = manager->SetFilterContent(type, Bstr(policy).Get());
        FAILED(result)) {
        return Failed("SetFilterContent", result);
    }
    Say("published " + Utf8(arguments[0]) + " as " + Utf8(TypeName(type)) + "; keeping it for " +
        std::to_string(holdSeconds) + " s");
    // The shared policy lives as long as the object that published it.
    Sleep(holdSeconds * 1000);
    return 0;
}

// Receives the manager's change events. They arrive on the thread that created the manager, from
// its message loop, because that thread is a single-threaded apartment.
class FilterEvents final : public IWebFilterEvents {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (iid == IID_IUnknown || iid == __uuidof(IWebFilterEvents)) {
            *object = static_cast<IWebFilterEvents*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        return static_cast<ULONG>(InterlockedIncrement(&references_));
    }
    ULONG STDMETHODCALLTYPE Release() override {
        const auto count = static_cast<ULONG>(InterlockedDecrement(&references_));
        if (count == 0) {
            delete this;
        }
        return count;
    }

    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(WebFilterType type) override {
        changed_ = true;
        Say("policy changed: " + Utf8(TypeName(type)));
        PostQuitMessage(0);
        return S_OK;
    }

    bool Changed() const { return changed_; }

  private:
    ~FilterEvents() = default;

    LONG references_ = 1;
    bool changed_ = false;
};

// Dispatches this thread's messages until the event handler posts WM_QUIT or time runs out.
void RunMessageLoop(DWORD timeoutMs) {
    const ULONGLONG deadline = GetTickCount64() + timeoutMs;
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) {
                return;
            }
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline) {
            return;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now),
                                  QS_ALLINPUT);
    }
}

int Watch(std::vector<std::wstring> arguments) {
    DWORD timeoutSeconds = 20;
    if (arguments.size() >= 2 && arguments[0] == L"--timeout") {
        timeoutSeconds = static_cast<DWORD>(std::wcstoul(arguments[1].c_str(), nullptr, 10));
        arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    if (arguments.empty()) {
        return Usage();
    }

    const ComApartment apartment(COINIT_APARTMENTTHREADED);
    ComPtr<IWebFilterManager> manager;
    if (!CreateManager(apartment, manager)) {
        return 2;
    }
    Say("before the change:");
    if (const HRESULT result = Decide(manager.Get(), arguments); FAILED(result)) {
        return Failed("IsUrlAllowed", result);
    }

    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    HRESULT result = manager.As(&container);
    if (SUCCEEDED(result)) {
        result = container->FindConnectionPoint(__uuidof(IWebFilterEvents), &point);
    }
    ComPtr<FilterEvents> events;
    events.Attach(new FilterEvents());
    DWORD cookie = 0;
    if (SUCCEEDED(result)) {
        result = point->Advise(events.Get(), &cookie);
    }
    if (FAILED(result)) {
        return Failed("advising the event sink", result);
    }
    // Look at the shared policy every 500 ms from now on.
    manager->EnableUpdate(TRUE);
    Say("waiting for a policy change");
    RunMessageLoop(timeoutSeconds * 1000);
    const bool changed = events->Changed();
    manager->EnableUpdate(FALSE);
    point->Unadvise(cookie);
    if (!changed) {
        Say("no policy change arrived");
        return 1;
    }

    WebFilterType type = WebFilterBlockNone;
    Bstr document;
    int refreshMode = 0;
    if (SUCCEEDED(manager->GetFilterContent(&type, document.Put(), &refreshMode))) {
        Say("now in force: " + Utf8(TypeName(type)) + ", refresh mode " +
            std::to_string(refreshMode) + ", " + std::to_string(SysStringLen(document.Get())) +
            " characters of policy");
    }
    Say("after the change:");
    if (const HRESULT decided = Decide(manager.Get(), arguments); FAILED(decided)) {
        return Failed("IsUrlAllowed", decided);
    }
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::vector<std::wstring> arguments(argv + std::min(argc, 2), argv + argc);
    const std::wstring command = argc >= 2 ? argv[1] : L"";
    if (command == L"publish") {
        return Publish(arguments);
    }
    if (command == L"watch") {
        return Watch(arguments);
    }
    return Usage();
}
