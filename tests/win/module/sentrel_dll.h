#pragma once

#include <windows.h>

#include <unknwn.h>

namespace sentrel::test {

// Sentrel64.dll as built, loaded into the test process, with its five exports.
class SentrelDll {
  public:
    SentrelDll();
    ~SentrelDll();
    SentrelDll(const SentrelDll&) = delete;
    SentrelDll& operator=(const SentrelDll&) = delete;

    HMODULE Module() const { return module_; }
    bool Loaded() const { return module_ != nullptr && getClassObject_ != nullptr; }

    HRESULT DllGetClassObject(REFCLSID classId, REFIID iid, void** object) const {
        return getClassObject_(classId, iid, object);
    }
    HRESULT DllCanUnloadNow() const { return canUnloadNow_(); }
    HRESULT DllRegisterServer() const { return registerServer_(); }
    HRESULT DllUnregisterServer() const { return unregisterServer_(); }
    HRESULT DllInstall(BOOL install, const wchar_t* commandLine) const {
        return install_(install, commandLine);
    }

  private:
    HMODULE module_;
    HRESULT(STDAPICALLTYPE* getClassObject_)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(STDAPICALLTYPE* canUnloadNow_)() = nullptr;
    HRESULT(STDAPICALLTYPE* registerServer_)() = nullptr;
    HRESULT(STDAPICALLTYPE* unregisterServer_)() = nullptr;
    HRESULT(STDAPICALLTYPE* install_)(BOOL, const wchar_t*) = nullptr;
};

}  // namespace sentrel::test
