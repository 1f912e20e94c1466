#include "module/registrar.h"

#include <string>

namespace sentrel {

namespace {

constexpr REGSAM kKeyAccess = KEY_READ | KEY_WRITE;

HRESULT ResultOf(LSTATUS status) {
    return HRESULT_FROM_WIN32(static_cast<unsigned long>(status));
}

// A key or value that is already gone needs no removing.
HRESULT ResultOfRemoval(LSTATUS status) {
    return status == ERROR_FILE_NOT_FOUND ? S_OK : ResultOf(status);
}

LSTATUS SetString(HKEY key, const wchar_t* name, const std::wstring& data) {
    const auto bytes = static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t));
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(data.c_str()), bytes);
}

HRESULT RegisterKey(const RegistryScriptKey& key, HKEY parent) {
    if (key.removal == RegistryScriptKey::Removal::ForceRemove) {
        if (const HRESULT result = ResultOfRemoval(RegDeleteTreeW(parent, key.name.c_str()));
            FAILED(result)) {
            return result;
        }
    }
    HKEY created = nullptr;
    const LSTATUS status =
        RegCreateKeyExW(parent, key.name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, kKeyAccess,
                        nullptr, &created, nullptr);
    if (status != ERROR_SUCCESS) {
        return ResultOf(status);
    }
    const UniqueKey opened(created);
    if (key.defaultValue) {
        if (const LSTATUS set = SetString(opened.Get(), nullptr, *key.defaultValue);
            set != ERROR_SUCCESS) {
            return ResultOf(set);
        }
    }
    for (const RegistryScriptValue& value : key.values) {
        if (const LSTATUS set = SetString(opened.Get(), value.name.c_str(), value.data);
            set != ERROR_SUCCESS) {
            return ResultOf(set);
        }
    }
    for (const RegistryScriptKey& subkey : key.subkeys) {
        if (const HRESULT result = RegisterKey(subkey, opened.Get()); FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

HRESULT UnregisterKey(const RegistryScriptKey& key, HKEY parent) {
    if (key.removal == RegistryScriptKey::Removal::ForceRemove) {
        return ResultOfRemoval(RegDeleteTreeW(parent, key.name.c_str()));
    }
    HKEY found = nullptr;
    const LSTATUS status = RegOpenKeyExW(parent, key.name.c_str(), 0, kKeyAccess, &found);
    if (status != ERROR_SUCCESS) {
        return ResultOfRemoval(status);
    }
    UniqueKey opened(found);
    for (const RegistryScriptKey& subkey : key.subkeys) {
        if (const HRESULT result = UnregisterKey(subkey, opened.Get()); FAILED(result)) {
            return result;
        }
    }
    for (const RegistryScriptValue& value : key.values) {
        if (const HRESULT result =
                ResultOfRemoval(RegDeleteValueW(opened.Get(), value.name.c_str()));
            FAILED(result)) {
            return result;
        }
    }
    if (key.removal == RegistryScriptKey::Removal::NoRemove) {
        return S_OK;
    }
    DWORD subkeys = 0;
    if (const LSTATUS queried =
            RegQueryInfoKeyW(opened.Get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, nullptr);
        queried != ERROR_SUCCESS) {
        return ResultOf(queried);
    }
    if (subkeys != 0) {
        return S_OK;
    }
    opened.Reset();
    return ResultOfRemoval(RegDeleteKeyW(parent, key.name.c_str()));
}

}  // namespace

LSTATUS OpenClassesRoot(RegistrationScope scope, UniqueKey& root) {
    HKEY opened = nullptr;
    const LSTATUS status =
        scope == RegistrationScope::User
            ? RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Classes", 0, nullptr,
                              REG_OPTION_NON_VOLATILE, kKeyAccess, nullptr, &opened, nullptr)
            : RegOpenKeyExW(HKEY_CLASSES_ROOT, nullptr, 0, kKeyAccess, &opened);
    if (status == ERROR_SUCCESS) {
        root.Reset(opened);
    }
    return status;
}

HRESULT RunRegistryScript(const RegistryScript& script, RegistrarMode mode, HKEY classesRoot) {
    for (const RegistryScriptKey& key : script.classesKeys) {
        const HRESULT result = mode == RegistrarMode::Register ? RegisterKey(key, classesRoot)
                                                               : UnregisterKey(key, classesRoot);
        if (FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

}  // namespace sentrel
