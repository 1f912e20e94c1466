#pragma once

// What a client of the manager object does, in the client's own terms: COM initialised on its
// thread, the object made through the class factory, BSTRs from SysAllocString, results freed with
// SysFreeString. Shared by the tests, the second process and the benchmark.

#include <windows.h>

#include <ocidl.h>
#include <olectl.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "com/com_ptr.h"
#include "sentrel_h.h"

namespace sentrel::test {

// COM initialised on the calling thread for this object's life.
class ComInit {
  public:
    explicit ComInit(DWORD model) : result_(CoInitializeEx(nullptr, model)) {}
    ~ComInit() {
        if (SUCCEEDED(result_)) {
            CoUninitialize();
        }
    }
    ComInit(const ComInit&) = delete;
    ComInit& operator=(const ComInit&) = delete;

    HRESULT Result() const { return result_; }

  private:
    HRESULT result_;
};

// IClassFactory::CreateInstance of the manager's class object: iid of a plain object, or the inner
// unknown of one aggregated by outer.
HRESULT CreateManagerInstance(IUnknown* outer, REFIID iid, void** object);
// A plain manager object, null when creation failed.
ComPtr<IWebFilterManager> CreateManager();

// SetFilterContent with a BSTR made by SysAllocString (null for a null text) and freed afterwards.
HRESULT SetContent(IWebFilterManager& manager, ::WebFilterType type, const char16_t* text);
inline HRESULT SetContent(IWebFilterManager& manager, ::WebFilterType type,
                          const std::u16string& text) {
    return SetContent(manager, type, text.c_str());
}

// IsUrlAllowed's answer (0 or 1 when the object keeps to its contract), or -1 when the call
// fails.
long Allowed(IWebFilterManager& manager, const char16_t* url);
long Allowed(IWebFilterManager& manager, BSTR url);

// A value that no call writes, to tell an out-parameter left alone.
inline const ::WebFilterType kNoType = std::bit_cast<::WebFilterType>(std::int32_t{-1});

// GetFilterContent with every out-parameter, the text freed after it was copied.
struct FilterContent {
    HRESULT result = E_UNEXPECTED;
    ::WebFilterType type = kNoType;
    int refreshMode = -1;
    std::u16string text;
    bool operator==(const FilterContent&) const = default;
};
// For test messages.
void PrintTo(const FilterContent& content, std::ostream* out);
// What a successful GetFilterContent hands back for a policy whose document (in the writer's own
// form, see below) is given.
FilterContent SucceededContent(::WebFilterType type, int refreshMode,
                               const std::u16string& document);
FilterContent ContentOf(IWebFilterManager& manager);

// The object's IWebFilterEvents connection point, null when it has none.
ComPtr<IConnectionPoint> EventsPoint(IUnknown& object);

// The message loop of a single-threaded apartment's thread: dispatches this thread's messages until
// the condition holds (true) or the time is up (false).
bool PumpMessagesUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

// Policy documents written in the writer's own form (no white space, no declaration), so that
// GetFilterContent hands back the byte order mark followed by exactly the same text.
enum class ListKind { White, Black };
struct ListSpec {
    ListKind kind;
    std::u16string id;  // braced upper-case GUID text
    std::vector<std::u16string> urls;
};
std::u16string PolicyDocument(std::uint32_t refreshMode, const std::vector<ListSpec>& lists);
// One list with an id of its own.
std::u16string ListDocument(std::uint32_t refreshMode, ListKind kind,
                            const std::vector<std::u16string>& urls);
// A document with no lists: what SetFilterContent publishes for an empty text, and (after the byte
// order mark) the text of a policy without lists.
std::u16string EmptyDocument(std::uint32_t refreshMode);
inline constexpr char16_t kByteOrderMark = u'\uFEFF';

// Text for test messages: characters beyond ASCII show as '?'.
std::string AsciiOf(std::u16string_view text);

}  // namespace sentrel::test
