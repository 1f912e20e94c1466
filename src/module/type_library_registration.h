#pragma once

#include <windows.h>

#include <string>

#include "module/registration_scope.h"

namespace sentrel {

// Registers the type library that the module at modulePath carries as its resource TYPELIB 1,
// with the module's folder as its help folder. For the current user the platform's per-user
// function is looked up at run time; where it does not exist, the machine-wide one is used.
HRESULT RegisterModuleTypeLibrary(const std::wstring& modulePath, RegistrationScope scope);

// Unregisters that type library by its own identity, version, locale and system kind, with the
// per-user function for the current user as above.
HRESULT UnregisterModuleTypeLibrary(const std::wstring& modulePath, RegistrationScope scope);

}  // namespace sentrel
