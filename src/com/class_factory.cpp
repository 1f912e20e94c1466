#include "com/class_factory.h"

#include "com/interface_table.h"
#include "com/module_lock.h"

namespace sentrel {

HRESULT STDMETHODCALLTYPE ClassFactory::QueryInterface(REFIID iid, void** object) {
    return AnswerQueryInterface(FindInterfaceIn<IClassFactory>(this, iid), object);
}

ULONG STDMETHODCALLTYPE ClassFactory::AddRef() {
    return static_cast<ULONG>(TheModuleLockCount.Lock());
}

ULONG STDMETHODCALLTYPE ClassFactory::Release() {
    return static_cast<ULONG>(TheModuleLockCount.Unlock());
}

HRESULT STDMETHODCALLTYPE ClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    // An aggregating outer object may only ask for the inner unknown (COM's aggregation rule).
    if (outer != nullptr && !IsEqualIID(iid, IID_IUnknown)) {
        return CLASS_E_NOAGGREGATION;
    }
    return create_(outer, iid, object);
}

HRESULT STDMETHODCALLTYPE ClassFactory::LockServer(BOOL lock) {
    if (lock) {
        TheModuleLockCount.Lock();
    } else {
        TheModuleLockCount.Unlock();
    }
    return S_OK;
}

}  // namespace sentrel
