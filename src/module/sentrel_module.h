#pragma once

#include <windows.h>

#include <span>
#include <string>

#include "com/class_factory.h"
#include "com/module_lock.h"
#include "module/registrar.h"
#include "module/registration_scope.h"
#include "module/registry_script.h"

namespace sentrel {

// One creatable class of the module: its class id, the REGISTRY resource of its class script,
// and its class object.
struct ObjectMapEntry {
    const CLSID* classId;
    UINT registryScript;
    ClassFactory* classObject;
};

// The entry points of the proxy/stub merged into the module.
struct ProxyStubEntryPoints {
    HRESULT(STDAPICALLTYPE* getClassObject)(REFCLSID classId, REFIID iid, void** object);
    HRESULT(STDAPICALLTYPE* canUnloadNow)();
    HRESULT(STDAPICALLTYPE* registerServer)();
    HRESULT(STDAPICALLTYPE* unregisterServer)();
};

struct ModuleDescription {
    GUID appId;
    UINT appIdScript;  // REGISTRY resource of the AppID script
    std::span<const ObjectMapEntry> objectMap;
    ProxyStubEntryPoints proxyStub;
};

// The in-process server module: its class objects, its registration (the AppID and class scripts
// from its resources, run with the replacements %APPID% and %MODULE%, and the type library of its
// resource TYPELIB 1), the proxy/stub it carries, and whether it may be unloaded. The exported
// entry points hand their calls to the one module object of the DLL.
class CSentrelModule {
  public:
    explicit CSentrelModule(const ModuleDescription& description,
                            ModuleLockCount& lockCount = TheModuleLockCount) noexcept
        : description_(description), lockCount_(lockCount) {}
    CSentrelModule(const CSentrelModule&) = delete;
    CSentrelModule& operator=(const CSentrelModule&) = delete;

    // The module whose resources and file registration uses; set when the DLL is loaded.
    void Attach(HMODULE module) noexcept { module_ = module; }

    // The proxy/stub's class object when it serves classId (the id of one of its interfaces),
    // else the class object of the object map.
    HRESULT GetClassObject(REFCLSID classId, REFIID iid, void** object) noexcept;
    // S_OK when the proxy/stub is idle and no object, server lock or class object reference
    // holds the module; else S_FALSE (or what the proxy/stub answered).
    HRESULT CanUnloadNow() noexcept;

    // The module, then the proxy/stub; the first failure is the result.
    HRESULT RegisterServer(RegistrationScope scope) noexcept;
    // The module; when that succeeded, the proxy/stub, which is registered first so that its
    // removal finds its own keys. The proxy/stub's removal is the result.
    HRESULT UnregisterServer(RegistrationScope scope) noexcept;
    // DllInstall: unregisters when install is false; otherwise registers, and after a failure
    // unregisters as far as it can and returns the registration's failure.
    HRESULT Install(bool install, const wchar_t* commandLine) noexcept;

  private:
    // Registers or unregisters the module: its scripts and its type library, with the thread
    // locale set to the system's meanwhile; running out of memory is E_OUTOFMEMORY, any other
    // failure raised E_FAIL.
    HRESULT UpdateRegistry(RegistrationScope scope, RegistrarMode mode) noexcept;
    HRESULT UpdateRegistryInLocale(RegistrationScope scope, RegistrarMode mode);
    HRESULT RunScript(UINT resource, RegistrarMode mode, HKEY classesRoot,
                      const RegistryReplacements& replacements) const;
    std::wstring ModulePath() const;

    ModuleDescription description_;
    ModuleLockCount& lockCount_;
    HMODULE module_ = nullptr;
};

}  // namespace sentrel
