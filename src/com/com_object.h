#pragma once

#include <windows.h>

#include <unknwn.h>

#include <utility>

#include "com/com_boundary.h"
#include "com/interface_table.h"
#include "com/module_lock.h"

namespace sentrel {

// Completes a class T into a COM object, plain or aggregated. T derives from ComObjectRoot and
// from its interfaces, and lists them in `IUnknown* FindInterface(REFIID)` (see
// FindInterfaceIn). Every interface's IUnknown methods end up here: a plain object answers them
// itself; an aggregated one delegates them to its outer unknown and answers its own lifetime
// through a separate, non-delegating inner unknown that only the outer object holds.
// Each live object holds one module lock, from before T is built until after T's destruction
// has finished (it is the first base), so the module never reads as unloadable while the
// object's code, or a thread that its destructor stops, still runs.
template <class T>
class ComObject final : private ModuleLock, public T {
  public:
    // The creation sequence: construct (raising the module's lock count), initialise the object
    // lock, FinalConstruct, then ask for iid. A failure at any step destroys the object and is
    // the result. With an outer unknown the object is aggregated, and iid should be IID_IUnknown
    // (the class factory sees to that), which gives the inner unknown.
    template <class... Args>
    static HRESULT Create(IUnknown* outer, REFIID iid, void** object, Args&&... args) noexcept {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        ComObject* created = nullptr;
        const HRESULT built = ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] {
            created = new ComObject(outer, std::forward<Args>(args)...);
            return S_OK;
        });
        if (FAILED(built)) {
            return built;
        }
        IUnknown* self = created->OwnUnknown();
        self->AddRef();
        HRESULT result = created->FinalConstruct();
        if (SUCCEEDED(result)) {
            result = self->QueryInterface(iid, object);
        }
        self->Release();
        return result;
    }

    // The signature of CreateInstanceFunction, for the class factory.
    static HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) noexcept {
        return Create(outer, iid, object);
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        return this->IsAggregated() ? this->ControllingUnknown()->QueryInterface(iid, object)
                                    : InternalQueryInterface(iid, object);
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        return this->IsAggregated() ? this->ControllingUnknown()->AddRef() : this->InternalAddRef();
    }
    ULONG STDMETHODCALLTYPE Release() override {
        return this->IsAggregated() ? this->ControllingUnknown()->Release() : ReleaseObject();
    }

  private:
    // The aggregated object's own IUnknown: identity and lifetime of the inner object.
    class InnerUnknown final : public IUnknown {
      public:
        explicit InnerUnknown(ComObject& object) noexcept : object_(object) {}

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
            return InlineIsEqualGUID(iid, IID_IUnknown)
                       ? AnswerQueryInterface(this, object)
                       : object_.InternalQueryInterface(iid, object);
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return object_.InternalAddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return object_.ReleaseObject(); }

      private:
        ComObject& object_;
    };

    template <class... Args>
    explicit ComObject(IUnknown* outer, Args&&... args)
        : T(std::forward<Args>(args)...), inner_(*this) {
        this->SetUnknowns(outer != nullptr ? &inner_ : this->FindInterface(IID_IUnknown), outer);
    }

    // FinalRelease, then T's own destruction, then the module lock goes.
    ~ComObject() {
        this->BeginDestruction();
        this->FinalRelease();
    }

    // Interfaces handed out are referenced through their own AddRef, so an aggregated object's
    // interfaces count on the outer object, as aggregation prescribes.
    HRESULT InternalQueryInterface(REFIID iid, void** object) noexcept {
        return AnswerQueryInterface(this->FindInterface(iid), object);
    }

    ULONG ReleaseObject() noexcept {
        const ULONG count = this->InternalRelease();
        if (count == 0 && !this->DeferDestruction(&ComObject::Destroy, this)) {
            delete this;
        }
        return count;
    }

    static void Destroy(void* object) noexcept { delete static_cast<ComObject*>(object); }

    InnerUnknown inner_;
};

}  // namespace sentrel
