#pragma once

#include <windows.h>

#include <unknwn.h>

// The entry points of the proxy/stub that widl makes from the interface definitions, compiled
// with the prefix Prx so that the module's own exports can call them.
extern "C" {
BOOL WINAPI PrxDllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
HRESULT STDAPICALLTYPE PrxDllGetClassObject(REFCLSID classId, REFIID iid, void** object);
HRESULT STDAPICALLTYPE PrxDllCanUnloadNow();
HRESULT STDAPICALLTYPE PrxDllRegisterServer();
HRESULT STDAPICALLTYPE PrxDllUnregisterServer();
}
