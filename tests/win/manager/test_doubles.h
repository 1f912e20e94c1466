#pragma once

// An IWebFilterEvents sink whose count only tells who holds it: it never deletes itself.

#include <windows.h>

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

#include "sentrel_h.h"

namespace sentrel::test {

// The events a sink received: the type of each and the thread it arrived on.
using Events = std::vector<std::pair<::WebFilterType, DWORD>>;

class TestSink final : public IWebFilterEvents {
  public:
    explicit TestSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK)
        : queryResult_(queryResult), eventResult_(eventResult) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const HRESULT result = InlineIsEqualGUID(iid, IID_IWebFilterEvents) ? queryResult_
                               : InlineIsEqualGUID(iid, IID_IUnknown)       ? S_OK
                                                                            : E_NOINTERFACE;
        *object = SUCCEEDED(result) ? static_cast<IWebFilterEvents*>(this) : nullptr;
        references_ += SUCCEEDED(result) ? 1 : 0;
        return result;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references_); }

    // Recorded without a lock: tests read the events on the thread that received them, or once the
    // object that sent them has gone. Then onEvent runs.
    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(::WebFilterType type) override {
        events_.emplace_back(type, GetCurrentThreadId());
        if (onEvent) {
            onEvent();
        }
        return eventResult_;
    }

    long References() const { return references_.load(); }
    const Events& Received() const { return events_; }

    std::function<void()> onEvent;

  private:
    const HRESULT queryResult_;
    const HRESULT eventResult_;
    std::atomic<long> references_{0};
    Events events_;
};

}  // namespace sentrel::test
