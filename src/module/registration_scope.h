#pragma once

#include <windows.h>

namespace sentrel {

// Where registration writes the classes: HKEY_CLASSES_ROOT for every user of the machine, or the
// current user's classes (HKEY_CURRENT_USER\Software\Classes), which need no administrator.
enum class RegistrationScope { Machine, User };

// The scope that DllInstall's command line asks for: the word "user" alone, in any case, asks for
// the current user's classes; anything else, null included, for the machine's.
RegistrationScope ScopeOfInstallCommandLine(const wchar_t* commandLine) noexcept;

}  // namespace sentrel
