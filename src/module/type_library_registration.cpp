#include "module/type_library_registration.h"

#include <oleauto.h>

#include "com/com_ptr.h"

namespace sentrel {

namespace {

// The per-user variant of a type library function when the platform has it (the per-user
// functions came later than the machine-wide ones and have the same parameters).
template <class Function>
Function ForScope(RegistrationScope scope, const char* perUserName, Function machineWide) {
    if (scope == RegistrationScope::User) {
        if (const HMODULE automation = GetModuleHandleW(L"OLEAUT32.DLL")) {
            if (const FARPROC found = GetProcAddress(automation, perUserName)) {
                return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
            }
        }
    }
    return machineWide;
}

HRESULT LoadModuleTypeLibrary(const std::wstring& modulePath, ComPtr<ITypeLib>& library) {
    return LoadTypeLibEx(modulePath.c_str(), REGKIND_NONE, library.Put());
}

}  // namespace

HRESULT RegisterModuleTypeLibrary(const std::wstring& modulePath, RegistrationScope scope) {
    ComPtr<ITypeLib> library;
    if (const HRESULT loaded = LoadModuleTypeLibrary(modulePath, library); FAILED(loaded)) {
        return loaded;
    }
    std::wstring path = modulePath;
    std::wstring folder = modulePath.substr(0, modulePath.find_last_of(L"\\/"));
    const auto registerLibrary = ForScope(scope, "RegisterTypeLibForUser", &RegisterTypeLib);
    return registerLibrary(library.Get(), path.data(), folder.data());
}

HRESULT UnregisterModuleTypeLibrary(const std::wstring& modulePath, RegistrationScope scope) {
    ComPtr<ITypeLib> library;
    if (const HRESULT loaded = LoadModuleTypeLibrary(modulePath, library); FAILED(loaded)) {
        return loaded;
    }
    TLIBATTR* attributes = nullptr;
    if (const HRESULT read = library->GetLibAttr(&attributes); FAILED(read)) {
        return read;
    }
    const TLIBATTR identity = *attributes;
    library->ReleaseTLibAttr(attributes);
    const auto unregisterLibrary = ForScope(scope, "UnRegisterTypeLibForUser", &UnRegisterTypeLib);
    return unregisterLibrary(identity.guid, identity.wMajorVerNum, identity.wMinorVerNum,
                             identity.lcid, identity.syskind);
}

}  // namespace sentrel
