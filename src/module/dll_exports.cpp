// Sentrel64.dll: the module object with its one class, DllMain and the five exported entry
// points, which hand their calls to the module object.

#include <windows.h>

#include <objbase.h>
#include <olectl.h>

#include "com/com_object.h"
#include "manager/web_filter_manager.h"
#include "module/app_id.h"
#include "module/proxy_stub.h"
#include "module/resource.h"
#include "module/sentrel_module.h"

namespace sentrel {

namespace {

ClassFactory webFilterManagerClassObject(&ComObject<CWebFilterManager>::CreateInstance);

const ObjectMapEntry kObjectMap[] = {
    {&CLSID_WebFilterManager, IDR_WEBFILTERMANAGER, &webFilterManagerClassObject},
};

CSentrelModule TheModule({kSentrelAppId,
                          IDR_SENTREL,
                          kObjectMap,
                          {&PrxDllGetClassObject, &PrxDllCanUnloadNow, &PrxDllRegisterServer,
                           &PrxDllUnregisterServer}});

}  // namespace

}  // namespace sentrel

STDAPI DllInstall(BOOL install, LPCWSTR commandLine);

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
    // The proxy/stub's hook comes first: it records the module handle that its registration
    // writes as the proxy/stub's server.
    if (!PrxDllMain(instance, reason, reserved)) {
        return FALSE;
    }
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
        sentrel::TheModule.Attach(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* object) {
    return sentrel::TheModule.GetClassObject(classId, iid, object);
}

STDAPI DllCanUnloadNow() {
    return sentrel::TheModule.CanUnloadNow();
}

STDAPI DllRegisterServer() {
    return sentrel::TheModule.RegisterServer(sentrel::RegistrationScope::Machine);
}

STDAPI DllUnregisterServer() {
    return sentrel::TheModule.UnregisterServer(sentrel::RegistrationScope::Machine);
}

STDAPI DllInstall(BOOL install, LPCWSTR commandLine) {
    return sentrel::TheModule.Install(install != FALSE, commandLine);
}
