#include "sentrel_dll.h"

#include "module_test_paths.h"

namespace sentrel::test {

namespace {

template <class Function>
void Find(HMODULE module, const char* name, Function& function) {
    const FARPROC found = module != nullptr ? GetProcAddress(module, name) : nullptr;
    function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
}

}  // namespace

SentrelDll::SentrelDll() : module_(LoadLibraryW(DllPath().c_str())) {
    Find(module_, "DllGetClassObject", getClassObject_);
    Find(module_, "DllCanUnloadNow", canUnloadNow_);
    Find(module_, "DllRegisterServer", registerServer_);
    Find(module_, "DllUnregisterServer", unregisterServer_);
    Find(module_, "DllInstall", install_);
}

SentrelDll::~SentrelDll() {
    if (module_ != nullptr) {
        FreeLibrary(module_);
    }
}

}  // namespace sentrel::test
