#pragma once

// What a client of the manager object does: COM initialised, the object made, BSTRs made and freed.

#include <windows.h>

#include <string>
#include <string_view>

#include "com/bstr.h"
#include "com/class_factory.h"
#include "com/com_object.h"
#include "com/com_ptr.h"
#include "manager/web_filter_manager.h"

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

  private:
    HRESULT result_;
};

// The class object's CreateInstance, for a plain object or one that outer aggregates.
inline HRESULT CreateManagerInstance(IUnknown* outer, REFIID iid, void** object) {
    static ClassFactory factory(&ComObject<CWebFilterManager>::CreateInstance);
    return factory.CreateInstance(outer, iid, object);
}

inline ComPtr<IWebFilterManager> CreateManager() {
    ComPtr<IWebFilterManager> manager;
    CreateManagerInstance(nullptr, IID_IWebFilterManager, manager.PutVoid());
    return manager;
}

// The BSTRs hold the whole text, zeros inside it included.
inline HRESULT SetContent(IWebFilterManager& manager, ::WebFilterType type,
                          std::u16string_view text) {
    return manager.SetFilterContent(type, Bstr::Copy(text).Get());
}
// IsUrlAllowed's answer; -1 when the call failed.
inline long Allowed(IWebFilterManager& manager, std::u16string_view url) {
    long allowed = -1;
    return SUCCEEDED(manager.IsUrlAllowed(Bstr::Copy(url).Get(), &allowed)) ? allowed : -1;
}

// A policy document in the writer's own form with a one-digit refresh mode and a black list that
// denies url; without a url, the minimal document that SetFilterContent publishes for no text.
inline std::u16string Document(int refreshMode, const std::u16string& url = u"") {
    const std::u16string list =
        u"<BlackList><BLId>{0D6F3A52-91C4-4E0B-8A7D-2B5C1E9F4A36}</BLId><BLName>l</BLName>"
        u"<BLDenied><BLDEntry><BLDEntryName>e</BLDEntryName><BLDEntryUrl>" +
        url + u"</BLDEntryUrl></BLDEntry></BLDenied><BLExceptions></BLExceptions></BlackList>";
    return std::u16string(u"<WebFilters><WFVersion>1</WFVersion><WFRefreshMode>") +
           static_cast<char16_t>(u'0' + refreshMode) + u"</WFRefreshMode>" +
           (url.empty() ? u"" : list) + u"</WebFilters>";
}

}  // namespace sentrel::test
