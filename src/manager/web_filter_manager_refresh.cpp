#include "manager/web_filter_manager.h"

#include <new>

#include "com/com_ptr.h"
#include "module/log/logger.h"
#include "policy/web_filter_xml_processor.h"

namespace sentrel {

bool CWebFilterManager::RefreshFromSharedContent(::WebFilterType& type,
                                                 std::uint32_t& refreshMode) {
    const std::lock_guard refresh(refreshGuard_);
    WebFilterType loadedType = WebFilterBlockNone;
    try {
        std::u16string text;
        std::uint32_t publishedType = 0;
        // The section's mutex is taken here, with the object lock not held. A copy of the text
        // that fails leaves the stamp where it was, so the next refresh tries again.
        if (!fileMapper_.CheckContentChanged(lastStamp_, publishedType, text)) {
            return false;
        }
        loadedType = static_cast<WebFilterType>(publishedType);
        WebFilterPolicy policy;
        if (!WebFilterXmlProcessor::DeserializePolicy(policy, text) &&
            loadedType == WebFilterBlockPolicy) {
            TheLogger.Log(LogLevelError,
                          u"CWebFilterManager::OnTimeElapsed - Could not deserialize policy");
        }
        refreshMode = policy.refreshMode;
        WebFilterState::Filter filter(loadedType, std::move(policy));
        WebFilterState::Filter replaced;
        const std::lock_guard lock(GetLock());
        replaced = filterState_.Exchange(std::move(filter));
    } catch (const std::bad_alloc&) {
        // The filter in force stays. Once the stamp has moved on, this content is not tried
        // again.
        return false;
    }
    type = static_cast<::WebFilterType>(loadedType);
    return true;
}

void CWebFilterManager::OnTimeElapsed() {
    ::WebFilterType type{};
    std::uint32_t refreshMode = 0;
    if (!RefreshFromSharedContent(type, refreshMode)) {
        return;
    }
    if (refreshMode != 0 && type != ::WebFilterBlockAll) {
        return;
    }
    if (useWindow_) {
        window_.PostFilterContentChanged(type);
    } else {
        Fire_OnFilterContentChanged(type);
    }
}

THDTYPE CWebFilterManager::GetContextThreadType() noexcept {
    THDTYPE result = THDTYPE_BLOCKMESSAGES;
    try {
        ComPtr<IComThreadingInfo> info;
        const HRESULT hr = CoGetObjectContext(IID_IComThreadingInfo, info.PutVoid());
        if (info) {
            info->GetCurrentThreadType(&result);
        } else {
            TheLogger.Log(LogLevelDiagnostic,
                          u"CWebFilterManager::GetContextThreadType() - CoGetObjectContext "
                          u"returned NULL object, hr = %p",
                          static_cast<std::uint32_t>(hr));
        }
    } catch (...) {
        TheLogger.Log(LogLevelDiagnostic,
                      u"CWebFilterManager::GetContextThreadType() - exception thrown");
        result = THDTYPE_BLOCKMESSAGES;
    }
    return result;
}

}  // namespace sentrel
