#pragma once

// Test doubles with hand-written reference counts, so that tests see exactly the references that
// the code under test holds, and a small event source built from the COM building blocks.

#include <windows.h>

#include <ocidl.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "manager/com_object.h"
#include "manager/com_object_root.h"
#include "manager/com_ptr.h"
#include "manager/connection_point_container.h"
#include "manager/web_filter_events_proxy.h"
#include "module/interface_table.h"
#include "sentrel_h.h"

namespace sentrel::test {

// An IWebFilterEvents sink owned by the test: its count only tells who holds it, it never deletes
// itself. It records each event with the thread it arrived on.
class TestSink final : public IWebFilterEvents {
  public:
    struct Event {
        WebFilterType type;
        DWORD thread;
    };

    // queryResult: what QueryInterface answers for IWebFilterEvents (E_NOINTERFACE makes a sink
    // that cannot connect); eventResult: what the event returns.
    explicit TestSink(HRESULT queryResult = S_OK, HRESULT eventResult = S_OK)
        : queryResult_(queryResult), eventResult_(eventResult) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        *object = nullptr;
        if (InlineIsEqualGUID(iid, IID_IUnknown)) {
            *object = static_cast<IUnknown*>(this);
        } else if (InlineIsEqualGUID(iid, IID_IWebFilterEvents)) {
            if (tearOff != nullptr) {
                return tearOff->QueryInterface(iid, object);
            }
            if (FAILED(queryResult_)) {
                return queryResult_;
            }
            *object = static_cast<IWebFilterEvents*>(this);
        } else {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
    ULONG STDMETHODCALLTYPE Release() override {
        const long left = --references_;
        if (onRelease) {
            onRelease();
        }
        return static_cast<ULONG>(left);
    }

    HRESULT STDMETHODCALLTYPE OnFilterContentChanged(WebFilterType type) override {
        {
            const std::lock_guard guard(mutex_);
            events_.push_back({type, GetCurrentThreadId()});
        }
        if (onEvent) {
            onEvent(type);
        }
        return eventResult_;
    }

    long References() const { return references_.load(); }
    std::vector<Event> Events() const {
        const std::lock_guard guard(mutex_);
        return events_;
    }
    std::vector<WebFilterType> Types() const {
        std::vector<WebFilterType> types;
        for (const Event& event : Events()) {
            types.push_back(event.type);
        }
        return types;
    }

    // Runs inside each event, after it was recorded.
    std::function<void(WebFilterType)> onEvent;
    // Runs inside each Release.
    std::function<void()> onRelease;
    // When set, the sink hands out this other sink as its IWebFilterEvents (a tear-off).
    TestSink* tearOff = nullptr;

  private:
    const HRESULT queryResult_;
    const HRESULT eventResult_;
    std::atomic<long> references_{0};
    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

// What happened to the TestSource objects that one test made.
struct SourceProbe {
    HRESULT finalConstructResult = S_OK;
    // FinalRelease hands the object out once more (an AddRef and Release pair).
    bool touchInFinalRelease = false;
    // Runs when the last reference has gone, before the destruction begins.
    std::function<void()> onEnd;
    std::atomic<int> ends{0};
    std::atomic<int> finalConstructs{0};
    std::atomic<int> finalReleases{0};
    std::atomic<int> destructions{0};
};

// A COM object built from the blocks: IPersist (whose GetClassID names the class), and the
// connection-point container with the IWebFilterEvents connection point.
class TestSource : public ComObjectRoot,
                   public IPersist,
                   public ConnectionPointContainer,
                   public CProxy_IWebFilterEvents {
  public:
    static constexpr CLSID kClassId = {
        0x5D1C0AE1, 0x1D5B, 0x4C0F, {0x9A, 0x51, 0x33, 0x0C, 0x7E, 0x2A, 0x61, 0x0B}};

    HRESULT STDMETHODCALLTYPE GetClassID(CLSID* classId) override {
        *classId = kClassId;
        return S_OK;
    }

    using CProxy_IWebFilterEvents::EventsConnectionPoint;

  protected:
    explicit TestSource(SourceProbe* probe) noexcept
        : CProxy_IWebFilterEvents(*this, *this), probe_(probe) {}
    ~TestSource() { ++probe_->destructions; }

    HRESULT FinalConstruct() noexcept {
        ++probe_->finalConstructs;
        return probe_->finalConstructResult;
    }
    // Runs where the count has reached 0 and the destruction has not begun. An end beyond the
    // first is only counted, so that the object is not destroyed twice.
    bool DeferDestruction(void (* /*destroy*/)(void*), void* /*object*/) noexcept {
        ++probe_->ends;
        if (std::exchange(ended_, true)) {
            return true;
        }
        if (probe_->onEnd) {
            probe_->onEnd();
        }
        return false;
    }
    void FinalRelease() noexcept {
        ++probe_->finalReleases;
        if (probe_->touchInFinalRelease) {
            ControllingUnknown()->AddRef();
            ControllingUnknown()->Release();
        }
    }

    IUnknown* FindInterface(REFIID iid) noexcept {
        return FindInterfaceIn<IPersist, IConnectionPointContainer>(this, iid);
    }

    ConnectionPoint* ConnectionPointAt(std::size_t index) noexcept override {
        return index == 0 ? &EventsConnectionPoint() : nullptr;
    }

  private:
    SourceProbe* const probe_;
    bool ended_ = false;
};

// The object behind a TestSource's container interface.
inline TestSource& SourceOf(IConnectionPointContainer* container) {
    return *static_cast<TestSource*>(static_cast<ConnectionPointContainer*>(container));
}

// Creates a plain TestSource and hands out its interface I.
template <class I>
HRESULT CreateSource(SourceProbe& probe, I** object, IUnknown* outer = nullptr) {
    return ComObject<TestSource>::Create(outer, __uuidof(I), reinterpret_cast<void**>(object),
                                         &probe);
}

// An outer object on the heap that aggregates an inner object: it answers IUnknown itself and
// one interface of the inner object through the inner object, and nothing else of it.
class TestOuter final : public IUnknown {
  public:
    // Makes the inner object with the outer one and hands out its inner unknown.
    using CreateInner = std::function<HRESULT(IUnknown* outer, IUnknown** inner)>;

    // Made with one reference, for the test to release; forwarded is the interface it hands out
    // of the inner object.
    static TestOuter* Make(REFIID forwarded, const CreateInner& create, HRESULT& created) {
        auto* outer = new TestOuter(forwarded);
        created = create(outer, outer->inner_.Put());
        return outer;
    }
    // Aggregating a TestSource, whose IPersist it hands out.
    static TestOuter* Make(SourceProbe& probe, HRESULT& created) {
        return Make(
            IID_IPersist,
            [&probe](IUnknown* outer, IUnknown** inner) {
                return CreateSource(probe, inner, outer);
            },
            created);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (InlineIsEqualGUID(iid, forwarded_)) {
            return inner_->QueryInterface(iid, object);
        }
        if (!InlineIsEqualGUID(iid, IID_IUnknown)) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<IUnknown*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references_); }
    ULONG STDMETHODCALLTYPE Release() override {
        const long left = --references_;
        if (left == 0) {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    IUnknown* Inner() const { return inner_.Get(); }
    long References() const { return references_.load(); }

  private:
    explicit TestOuter(REFIID forwarded) : forwarded_(forwarded) {}
    ~TestOuter() = default;

    const IID forwarded_;
    std::atomic<long> references_{1};
    ComPtr<IUnknown> inner_;
};

}  // namespace sentrel::test
