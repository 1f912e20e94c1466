#include "module/sentrel_module.h"

#include <objbase.h>

#include <array>
#include <optional>

#include "com/com_boundary.h"
#include "module/registry_script.h"
#include "module/thread_locale_scope.h"
#include "module/type_library_registration.h"

namespace sentrel {

namespace {

// What a script resource that is not a well-formed script makes registration return.
const HRESULT kMalformedScript = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);

// The calling thread's last error as a failure, whatever the platform left there.
HRESULT LastError() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

// The REGISTRY resource's text; scripts are stored as UTF-8.
std::optional<std::wstring> ScriptText(HMODULE module, UINT resource, HRESULT& failure) {
    const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(resource), L"REGISTRY");
    const HGLOBAL loaded = found != nullptr ? LoadResource(module, found) : nullptr;
    const void* bytes = loaded != nullptr ? LockResource(loaded) : nullptr;
    if (bytes == nullptr) {
        failure = LastError();
        return std::nullopt;
    }
    const DWORD size = SizeofResource(module, found);
    std::wstring text;
    if (size == 0) {
        return text;
    }
    const auto* utf8 = static_cast<const char*>(bytes);
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8,
                                           static_cast<int>(size), nullptr, 0);
    if (length <= 0) {
        failure = kMalformedScript;
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(length));
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, static_cast<int>(size), text.data(),
                        length);
    return text;
}

}  // namespace

HRESULT CSentrelModule::GetClassObject(REFCLSID classId, REFIID iid, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (description_.proxyStub.getClassObject(classId, iid, object) == S_OK) {
        return S_OK;
    }
    for (const ObjectMapEntry& entry : description_.objectMap) {
        if (InlineIsEqualGUID(*entry.classId, classId)) {
            return entry.classObject->QueryInterface(iid, object);
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT CSentrelModule::CanUnloadNow() noexcept {
    if (const HRESULT proxyStub = description_.proxyStub.canUnloadNow(); proxyStub != S_OK) {
        return proxyStub;
    }
    return lockCount_.GetLockCount() == 0 ? S_OK : S_FALSE;
}

HRESULT CSentrelModule::RegisterServer(RegistrationScope scope) noexcept {
    HRESULT result = UpdateRegistry(scope, RegistrarMode::Register);
    if (SUCCEEDED(result)) {
        result = description_.proxyStub.registerServer();
    }
    return result;
}

HRESULT CSentrelModule::UnregisterServer(RegistrationScope scope) noexcept {
    HRESULT result = UpdateRegistry(scope, RegistrarMode::Unregister);
    if (FAILED(result)) {
        return result;
    }
    result = description_.proxyStub.registerServer();
    if (SUCCEEDED(result)) {
        result = description_.proxyStub.unregisterServer();
    }
    return result;
}

HRESULT CSentrelModule::Install(bool install, const wchar_t* commandLine) noexcept {
    const RegistrationScope scope = ScopeOfInstallCommandLine(commandLine);
    if (!install) {
        return UnregisterServer(scope);
    }
    const HRESULT result = RegisterServer(scope);
    if (FAILED(result)) {
        UnregisterServer(scope);
        return result;
    }
    return S_OK;
}

HRESULT CSentrelModule::UpdateRegistry(RegistrationScope scope, RegistrarMode mode) noexcept {
    return ComBoundary(E_OUTOFMEMORY, E_FAIL, [&] { return UpdateRegistryInLocale(scope, mode); });
}

HRESULT CSentrelModule::UpdateRegistryInLocale(RegistrationScope scope, RegistrarMode mode) {
    const ThreadLocaleScope locale;
    const std::wstring path = ModulePath();
    if (path.empty()) {
        return LastError();
    }
    UniqueKey root;
    if (const LSTATUS status = OpenClassesRoot(scope, root); status != ERROR_SUCCESS) {
        return HRESULT_FROM_WIN32(static_cast<unsigned long>(status));
    }
    std::array<wchar_t, 39> appId{};
    StringFromGUID2(description_.appId, appId.data(), static_cast<int>(appId.size()));
    const RegistryReplacements replacements{{L"APPID", appId.data()}, {L"MODULE", path}};
    const auto runScript = [&](UINT resource) {
        return RunScript(resource, mode, root.Get(), replacements);
    };
    // The AppID comes first and goes last: the classes refer to it.
    if (mode == RegistrarMode::Register) {
        if (const HRESULT result = runScript(description_.appIdScript); FAILED(result)) {
            return result;
        }
    }
    for (const ObjectMapEntry& entry : description_.objectMap) {
        if (const HRESULT result = runScript(entry.registryScript); FAILED(result)) {
            return result;
        }
    }
    const HRESULT typeLibrary = mode == RegistrarMode::Register
                                    ? RegisterModuleTypeLibrary(path, scope)
                                    : UnregisterModuleTypeLibrary(path, scope);
    if (FAILED(typeLibrary)) {
        return typeLibrary;
    }
    return mode == RegistrarMode::Unregister ? runScript(description_.appIdScript) : S_OK;
}

HRESULT CSentrelModule::RunScript(UINT resource, RegistrarMode mode, HKEY classesRoot,
                                  const RegistryReplacements& replacements) const {
    HRESULT failure = S_OK;
    const std::optional<std::wstring> text = ScriptText(module_, resource, failure);
    if (!text) {
        return failure;
    }
    const std::optional<RegistryScript> script = ParseRegistryScript(*text, replacements);
    if (!script) {
        return kMalformedScript;
    }
    return RunRegistryScript(*script, mode, classesRoot);
}

std::wstring CSentrelModule::ModulePath() const {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(module_, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return {};
        }
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace sentrel
