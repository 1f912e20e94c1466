#pragma once

#include <windows.h>

#include <cstddef>

namespace sentrel::test {

// Writes a value under HKEY_LOCAL_MACHINE (the test prefix's registry), creating its key; false
// when either step failed.
bool SetMachineValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data,
                     std::size_t bytes);

// Removes both keys of the connection rules, and the keys on their way as long as nothing else
// lives in them; false when a rules key was there and could not be removed.
bool RemoveConnectionRulesKeys();

}  // namespace sentrel::test
