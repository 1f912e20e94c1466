#pragma once

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <vector>

#include "manager/com_ptr.h"
#include "sentrel_h.h"

namespace sentrel::test {

// An event sink that lives in the apartment of the thread that creates it (it is no agile
// object, so other apartments reach it through the proxy/stub) and records each event with the
// thread it arrived on.
class RecordingSink final : public IWebFilterEvents {
  public:
    struct Event {
        WebFilterType type;
        DWORD thread;
    };

    static ComPtr<RecordingSink> Create();

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(WebFilterType type) override;

    // The events once there are at least count of them, or those there are after timeoutMs.
    std::vector<Event> WaitForEvents(std::size_t count, DWORD timeoutMs);

  private:
    RecordingSink() = default;
    ~RecordingSink() = default;

    LONG references_ = 1;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Event> events_;
};

}  // namespace sentrel::test
