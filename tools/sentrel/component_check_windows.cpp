// The check command's --com: the registered component decides, as every client of the installed
// DLL would see it: created by its ProgID, given the policy with SetFilterContent and asked with
// IsUrlAllowed.

#include <windows.h>

#include <objbase.h>

#include <cstdio>
#include <string>

#include "check_urls.h"
#include "com/bstr.h"
#include "com/com_ptr.h"
#include "loaded_policy.h"
#include "policy_file.h"
#include "sentrel_h.h"

namespace sentrel::cli {

namespace {

constexpr wchar_t kProgId[] = L"Sentrel.WebFilterManager";

std::string Hex(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08lX", static_cast<unsigned long>(result));
    return text;
}

// COM on this thread for the command's duration; a thread that already has it keeps its own.
class ComInitialization {
  public:
    ComInitialization() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ComInitialization(const ComInitialization&) = delete;
    ComInitialization& operator=(const ComInitialization&) = delete;
    ~ComInitialization() {
        if (SUCCEEDED(result_)) {
            CoUninitialize();
        }
    }
    bool Usable() const { return SUCCEEDED(result_) || result_ == RPC_E_CHANGED_MODE; }
    HRESULT Result() const { return result_; }

  private:
    HRESULT result_;
};

}  // namespace

int RunComponentCheck(const Arguments& arguments, CommandStreams& streams) {
    const std::optional<std::string> path = arguments.Value("--policy");
    if (!path) {
        return Fail(streams, "check", "--policy FILE is required");
    }
    const std::optional<WebFilterType> type = FilterTypeOf(arguments);
    if (!type) {
        return Fail(streams, "check", kFilterTypeError);
    }
    const PolicyFile file = ReadPolicyFile(*path);
    if (!file.error.empty()) {
        return Fail(streams, "check", file.error);
    }

    const ComInitialization com;
    if (!com.Usable()) {
        return Fail(streams, "check", "COM cannot be used: " + Hex(com.Result()));
    }
    CLSID classId{};
    if (const HRESULT result = CLSIDFromProgID(kProgId, &classId); FAILED(result)) {
        return Fail(streams, "check",
                    "the component is not registered (Sentrel.WebFilterManager): " + Hex(result));
    }
    ComPtr<IWebFilterManager> manager;
    if (const HRESULT result = CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER,
                                                IID_IWebFilterManager, manager.PutVoid());
        FAILED(result)) {
        return Fail(streams, "check", "cannot create the component: " + Hex(result));
    }
    const Bstr policy = Bstr::Copy(file.text);
    // E_FAIL only says that the policy could not be shared with other processes (another
    // process's manager shares its own at the moment); it is in force in this object all the same.
    const HRESULT set =
        manager->SetFilterContent(static_cast<::WebFilterType>(*type), policy.Get());
    if (set == E_INVALIDARG) {
        return Fail(streams, "check", "the component cannot read the policy in " + *path);
    }
    if (FAILED(set) && set != E_FAIL) {
        return Fail(streams, "check", "the component refused the policy: " + Hex(set));
    }
    // The component's object lock lets one call in at a time: more threads would only wait.
    return CheckUrls(arguments, streams, 1,
                     [&manager](std::u16string_view url) -> std::optional<bool> {
                         const Bstr text = Bstr::Copy(url);
                         long allowed = 0;
                         if (!text || FAILED(manager->IsUrlAllowed(text.Get(), &allowed))) {
                             return std::nullopt;
                         }
                         return allowed != 0;
                     });
}

}  // namespace sentrel::cli
