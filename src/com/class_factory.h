#pragma once

#include <windows.h>

#include <unknwn.h>

namespace sentrel {

// Creates one instance of a class and hands out the interface iid names. With an outer unknown the
// instance is aggregated and the interface is its inner, non-delegating unknown.
using CreateInstanceFunction = HRESULT (*)(IUnknown* outer, REFIID iid, void** object);

// The class object of one creatable class. It lives as long as the module, so it counts no
// references of its own: each reference a client holds is a module lock instead, which keeps the
// module loaded while the client holds the class object.
class ClassFactory final : public IClassFactory {
  public:
    explicit ClassFactory(CreateInstanceFunction create) noexcept : create_(create) {}
    ClassFactory(const ClassFactory&) = delete;
    ClassFactory& operator=(const ClassFactory&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    // Both return the module's lock count after the change.
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

  private:
    CreateInstanceFunction create_;
};

}  // namespace sentrel
