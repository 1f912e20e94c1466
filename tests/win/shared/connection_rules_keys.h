#pragma once

#include <windows.h>

#include <cstddef>

namespace sentrel::test {

// Writes a value under HKEY_LOCAL_MACHINE (the test prefix's registry), creating its key.
inline bool SetMachineValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data,
                            std::size_t bytes) {
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, type, data, static_cast<DWORD>(bytes)) ==
           ERROR_SUCCESS;
}

// Removes both keys of the connection rules with the vendor's key that holds them.
inline bool RemoveConnectionRulesKeys() {
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Corvanta");
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

}  // namespace sentrel::test
