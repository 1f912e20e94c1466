#pragma once

#include <objidl.h>
#include <ocidl.h>
#include <windows.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "com/com_object_root.h"
#include "com/connection_point_container.h"
#include "manager/web_filter_events_proxy.h"
#include "manager/web_filter_manager_wnd.h"
#include "manager/web_filter_state.h"
#include "sentrel_h.h"
#include "shared/timer_subscriber.h"
#include "shared/timer_thread.h"
#include "shared/web_filter_connection_rules.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel {

// The object behind the class WebFilterManager: the filter in force with its URL index, its
// publication to every other manager object through the shared section, the refresh from that
// section on its own timer thread, the change events, and the connection rules of the registry.
//
// Locks: the object lock guards the filter state and the sink list; decisions and reads share
// it, and only putting a filter in force and changing the sink list hold it alone. The shared
// section's named mutex is never taken while the object lock is held. Sinks are called with no
// lock held.
class CWebFilterManager : public ComObjectRoot,
                          public ConnectionPointContainer,
                          public CProxy_IWebFilterEvents,
                          public ISupportErrorInfo,
                          public IWebFilterManager,
                          public ITimerSubscriber {
  public:
    static constexpr std::uint32_t kRefreshPeriodMs = 500;
    static constexpr std::uint32_t kTimerStopTimeoutMs = 1000;

    CWebFilterManager();
    ~CWebFilterManager() override;

    IUnknown* FindInterface(REFIID iid) noexcept;
    HRESULT FinalConstruct() noexcept;
    void FinalRelease() noexcept;
    // The last reference going on the object's own timer thread (a sink releasing it from inside
    // an event) cannot stop that thread from itself: the destruction then runs on another thread.
    bool DeferDestruction(void (*destroy)(void*), void* object) noexcept;

    // ISupportErrorInfo
    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override;

    // IWebFilterManager
    HRESULT STDMETHODCALLTYPE IsUrlAllowed(BSTR bstrUrl, long* pbAllowed) override;
    HRESULT STDMETHODCALLTYPE SetFilterContent(::WebFilterType FilterType, BSTR bstrXml) override;
    HRESULT STDMETHODCALLTYPE GetFilterContent(::WebFilterType* pFilterType, BSTR* pbstrXml,
                                               int* pnRefreshMode) override;
    HRESULT STDMETHODCALLTYPE EnableUpdate(long bEnable) override;
    HRESULT STDMETHODCALLTYPE IsProcessConnectionAllowed(BSTR bstrUrl, unsigned short nPort,
                                                         long* pbAllowed) override;
    HRESULT STDMETHODCALLTYPE GetFilteredPorts(unsigned short* pPortsNumber,
                                               unsigned short** ppPortsList) override;

    // ITimerSubscriber: at each tick, load a newly published filter and announce it.
    void OnTimeElapsed() override;

    // Loads the shared section's content when it changed since this object last looked; true
    // then, with type the published filter type and refreshMode that of the policy loaded.
    bool RefreshFromSharedContent(::WebFilterType& type, std::uint32_t& refreshMode);

    // The creating thread's COM thread type (THDTYPE_BLOCKMESSAGES when it cannot be told).
    static THDTYPE GetContextThreadType() noexcept;

  protected:
    ConnectionPoint* ConnectionPointAt(std::size_t index) noexcept override;

  private:
    // Fields in the order they are built; they go in the reverse order.
    WebFilterState filterState_;
    TimerThread timerThread_;
    WebFilterFileMapper fileMapper_;
    std::uint32_t lastStamp_ = 0;
    WebFilterConnectionRules connectionRules_;
    CWebFilterManagerWnd window_;
    bool useWindow_ = false;
    std::uint32_t publishedRefreshMode_ = 0;
    // Serialises whole refreshes (check and load), so that a refresh that found an older change
    // never puts it in force after one that found a newer change.
    std::mutex refreshGuard_;
    // The destruction handed to another thread by DeferDestruction.
    void (*deferredDestroy_)(void*) = nullptr;
    void* deferredObject_ = nullptr;
};

}  // namespace sentrel
