#pragma once

#include <windows.h>

#include "com/unique_resource.h"
#include "module/registration_scope.h"
#include "module/registry_script.h"

namespace sentrel {

enum class RegistrarMode { Register, Unregister };

// Opens the key under which the scope's classes live, for reading and writing (the current user's
// classes key is created when it is missing).
LSTATUS OpenClassesRoot(RegistrationScope scope, UniqueKey& root);

// Runs a script's keys under classesRoot.
//
// Registering writes every key with its default value and values, in script order; a ForceRemove
// key is first deleted whole when it exists. Unregistering removes what the script wrote: a
// ForceRemove key with everything in it; a NoRemove key stays, only the script's subkeys and
// values inside it go; any other key goes once its listed subkeys are gone and nothing else is
// left under it (a subkey that another program added keeps it). Keys or values already missing
// are no failure. Both stop at the first failure and return it; registering leaves what it wrote
// until then.
HRESULT RunRegistryScript(const RegistryScript& script, RegistrarMode mode, HKEY classesRoot);

}  // namespace sentrel
