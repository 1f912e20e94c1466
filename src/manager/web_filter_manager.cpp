#include "manager/web_filter_manager.h"

#include <objbase.h>

#include <new>
#include <shared_mutex>
#include <vector>

#include "com/bstr.h"
#include "com/com_boundary.h"
#include "com/interface_table.h"
#include "com/unique_resource.h"
#include "com/wide_text.h"
#include "module/log/logger.h"
#include "policy/web_filter_xml_processor.h"

namespace sentrel {

namespace {

// A BSTR argument as text: null gives the empty text, otherwise the characters up to the first
// zero (the BSTR's stated length is not used).
std::u16string TextOf(BSTR text) {
    return std::u16string(U16View(text));
}

// What the shared section carries when a client sets a filter without a document.
std::u16string MinimalDocument(std::uint32_t refreshMode) {
    const std::u16string number = [&] {
        std::u16string digits;
        do {
            digits.insert(digits.begin(), static_cast<char16_t>(u'0' + refreshMode % 10));
            refreshMode /= 10;
        } while (refreshMode != 0);
        return digits;
    }();
    return u"<WebFilters><WFVersion>1</WFVersion><WFRefreshMode>" + number +
           u"</WFRefreshMode></WebFilters>";
}

}  // namespace

CWebFilterManager::CWebFilterManager()
    : CProxy_IWebFilterEvents(*this, *this), timerThread_(kRefreshPeriodMs), window_(*this) {
    timerThread_.Subscribe(this);
    timerThread_.Begin(0, 0);
}

CWebFilterManager::~CWebFilterManager() {
    timerThread_.Unsubscribe(this);
    timerThread_.End(kTimerStopTimeoutMs);
}

IUnknown* CWebFilterManager::FindInterface(REFIID iid) noexcept {
    return FindInterfaceIn<IWebFilterManager, IConnectionPointContainer, ISupportErrorInfo>(this,
                                                                                            iid);
}

ConnectionPoint* CWebFilterManager::ConnectionPointAt(std::size_t index) noexcept {
    return index == 0 ? &EventsConnectionPoint() : nullptr;
}

HRESULT CWebFilterManager::FinalConstruct() noexcept {
    useWindow_ = GetContextThreadType() == THDTYPE_PROCESSMESSAGES;
    if (useWindow_ && !window_.Create()) {
        return E_FAIL;
    }
    try {
        connectionRules_.LoadFromRegistry();
    } catch (const std::bad_alloc&) {
        // The lists stay as far as they were read: connections are then decided on less.
    }
    return S_OK;
}

void CWebFilterManager::FinalRelease() noexcept {
    window_.Destroy();
    connectionRules_.Clear();
}

bool CWebFilterManager::DeferDestruction(void (*destroy)(void*), void* object) noexcept {
    if (!timerThread_.RunsOnCurrentThread()) {
        return false;
    }
    // From here on no tick may reach the object: one that is due when this tick ends would
    // otherwise run, and fire, on an object that the pool thread is destroying. On the timer
    // thread this does not wait for the tick in progress, which is this one.
    timerThread_.Unsubscribe(this);
    deferredDestroy_ = destroy;
    deferredObject_ = object;
    // The destruction on the pool thread waits, in Unsubscribe, for the tick in progress here.
    const auto run = [](void* self) -> DWORD {
        const auto* manager = static_cast<CWebFilterManager*>(self);
        manager->deferredDestroy_(manager->deferredObject_);
        return 0;
    };
    if (QueueUserWorkItem(run, this, WT_EXECUTEDEFAULT)) {
        return true;
    }
    // Without a pool thread, a thread of its own; failing that too, the object is kept, and with
    // it the module's lock, rather than destroyed under the thread that is running it.
    const UniqueHandle thread(CreateThread(nullptr, 0, run, this, 0, nullptr));
    return true;
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::InterfaceSupportsErrorInfo(REFIID iid) {
    return InlineIsEqualGUID(iid, IID_IWebFilterManager) ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::IsUrlAllowed(BSTR bstrUrl, long* pbAllowed) {
    if (pbAllowed == nullptr) {
        return E_POINTER;
    }
    return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
        // Decisions only read the filter in force: they share the lock with one another.
        const std::shared_lock lock(GetLock());
        *pbAllowed = filterState_.IsUrlAllowed(U16View(bstrUrl)) ? 1 : 0;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::SetFilterContent(::WebFilterType FilterType,
                                                              BSTR bstrXml) {
    return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
        const auto type = static_cast<WebFilterType>(FilterType);
        std::u16string content = TextOf(bstrXml);
        WebFilterPolicy policy;
        if (type == WebFilterBlockPolicy &&
            !WebFilterXmlProcessor::DeserializePolicy(policy, content)) {
            TheLogger.Log(LogLevelError,
                          u"CWebFilterManager::SetFilterContent - Could not deserialize policy");
            return E_INVALIDARG;
        }
        const std::uint32_t policyRefreshMode = policy.refreshMode;
        std::uint32_t refreshMode = 0;
        {
            // Built before the lock is taken: decisions go on meanwhile from the filter in force.
            WebFilterState::Filter filter(type, std::move(policy));
            // Goes once the lock is released, before the content is published.
            WebFilterState::Filter replaced;
            const std::lock_guard lock(GetLock());
            replaced = filterState_.Exchange(std::move(filter));
            if (type == WebFilterBlockAll) {
                publishedRefreshMode_ = 0;
            } else if (type != WebFilterBlockNone) {
                publishedRefreshMode_ = policyRefreshMode;
            }
            refreshMode = publishedRefreshMode_;
        }
        if (content.empty()) {
            content = MinimalDocument(refreshMode);
        }
        if (!fileMapper_.WriteContent(static_cast<std::uint32_t>(type), content)) {
            TheLogger.Log(LogLevelError,
                          u"CWebFilterManager::SetFilterContent - Could not write "
                          u"content to file mapper");
            return E_FAIL;
        }
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::GetFilterContent(::WebFilterType* pFilterType,
                                                              BSTR* pbstrXml, int* pnRefreshMode) {
    if (pFilterType == nullptr) {
        return E_POINTER;
    }
    // Whatever failed (memory, or a policy text that XML cannot carry), the caller is told only
    // that the content could not be handed over.
    return ComBoundary(E_OUTOFMEMORY, [&] {
        WebFilterPolicy policy;
        {
            const std::shared_lock lock(GetLock());
            filterState_.GetFilter(*pFilterType, policy);
        }
        if (pnRefreshMode != nullptr) {
            *pnRefreshMode = static_cast<int>(policy.refreshMode);
        }
        if (pbstrXml != nullptr) {
            // Written from the copy, so decisions go on meanwhile.
            Bstr text = Bstr::Copy(WebFilterXmlProcessor::SerializePolicy(policy));
            if (!text) {
                return E_OUTOFMEMORY;
            }
            *pbstrXml = text.Detach();
        }
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::EnableUpdate(long bEnable) {
    // The refresh keeps its own failures: only the unforeseen reach here.
    return ComBoundary(E_FAIL, [&] {
        if (bEnable != 0) {
            ::WebFilterType type{};
            std::uint32_t refreshMode = 0;
            RefreshFromSharedContent(type, refreshMode);  // announces nothing
        }
        timerThread_.SetActive(bEnable != 0 ? 1 : 0);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::IsProcessConnectionAllowed(BSTR bstrUrl,
                                                                        unsigned short nPort,
                                                                        long* pbAllowed) {
    if (pbAllowed == nullptr) {
        return E_POINTER;
    }
    return ComBoundary(E_FAIL, [&] {
        *pbAllowed = connectionRules_.IsConnectionAllowed(U16View(bstrUrl), nPort) ? 1 : 0;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE CWebFilterManager::GetFilteredPorts(unsigned short* pPortsNumber,
                                                              unsigned short** ppPortsList) {
    if (pPortsNumber == nullptr || ppPortsList == nullptr) {
        return E_INVALIDARG;
    }
    *pPortsNumber = 0;
    *ppPortsList = nullptr;
    return ComBoundary(E_FAIL, [&] {
        const std::shared_lock lock(GetLock());
        std::vector<std::uint16_t> ports;
        connectionRules_.GetPorts(ports);
        if (ports.empty()) {
            return S_OK;
        }
        auto* list =
            static_cast<unsigned short*>(CoTaskMemAlloc(ports.size() * sizeof(unsigned short)));
        if (list == nullptr) {
            return E_FAIL;
        }
        std::copy(ports.begin(), ports.end(), list);
        *pPortsNumber = static_cast<unsigned short>(ports.size());
        *ppPortsList = list;
        return S_OK;
    });
}

}  // namespace sentrel
