#pragma once

#include <windows.h>

#include <string>

#include "manager/com_ptr.h"
#include "registry_tree.h"
#include "sentrel_h.h"

namespace sentrel::test {

std::wstring GuidText(REFGUID guid);

// Where classes are registered: the machine's (what HKEY_CLASSES_ROOT shows) or the user's.
struct ClassesRoot {
    HKEY key;
    std::wstring path;  // with a trailing backslash
};
ClassesRoot MachineClasses();
ClassesRoot UserClasses();

// The keys that Sentrel's AppID and class scripts write below the classes root, each with
// everything under it as RegistryTree shows it, for the module at DllPath().
RegistryTrees SentrelScriptKeys();

// Removes whatever registration of Sentrel64.dll there is, in both roots, whatever the module
// left: the scripts' keys, the type library and the proxy/stub.
void RemoveSentrelRegistration();

// A manager created through the registration, as a client creates it.
HRESULT CreateManager(ComPtr<IWebFilterManager>& manager);

// The path that the registration of the type library (version 1.0) names, empty when it is not
// registered.
std::wstring RegisteredTypeLibraryPath(REFGUID library);

}  // namespace sentrel::test
