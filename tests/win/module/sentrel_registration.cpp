#include "sentrel_registration.h"

#include <oleauto.h>

#include <array>

#include "module/app_id.h"
#include "module_test_paths.h"
#include "registry_tree.h"
#include "sentrel_h.h"

namespace sentrel::test {

std::wstring GuidText(REFGUID guid) {
    std::array<wchar_t, 39> text{};
    StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return text.data();
}

ClassesRoot MachineClasses() {
    return {HKEY_LOCAL_MACHINE, L"Software\\Classes\\"};
}

ClassesRoot UserClasses() {
    return {HKEY_CURRENT_USER, L"Software\\Classes\\"};
}

RegistryTrees SentrelScriptKeys() {
    const std::wstring appId = GuidText(kSentrelAppId);
    const std::wstring classId = GuidText(CLSID_WebFilterManager);
    return SortedTrees({
        // The AppID script.
        {L"AppID\\" + appId, {L"[]", L"[] =Sentrel"}},
        {L"AppID\\Sentrel.DLL", {L"[]", L"[] AppID=" + appId}},
        // The class script.
        {L"Sentrel.WebFilterManager.1",
         {L"[]", L"[] =WebFilterManager Class", L"[CLSID]", L"[CLSID] =" + classId}},
        {L"Sentrel.WebFilterManager",
         {L"[]", L"[] =WebFilterManager Class", L"[CLSID]", L"[CLSID] =" + classId, L"[CurVer]",
          L"[CurVer] =Sentrel.WebFilterManager.1"}},
        {L"CLSID\\" + classId,
         {L"[]", L"[] =WebFilterManager Class", L"[] AppID=" + appId, L"[ProgID]",
          L"[ProgID] =Sentrel.WebFilterManager.1", L"[VersionIndependentProgID]",
          L"[VersionIndependentProgID] =Sentrel.WebFilterManager", L"[InprocServer32]",
          L"[InprocServer32] =" + DllPath(), L"[InprocServer32] ThreadingModel=Both", L"[TypeLib]",
          L"[TypeLib] =" + GuidText(LIBID_SentrelLib)}},
    });
}

HRESULT CreateManager(ComPtr<IWebFilterManager>& manager) {
    return CoCreateInstance(CLSID_WebFilterManager, nullptr, CLSCTX_INPROC_SERVER,
                            IID_IWebFilterManager, manager.PutVoid());
}

void RemoveSentrelRegistration() {
    std::vector<std::wstring> keys{L"TypeLib\\" + GuidText(LIBID_SentrelLib)};
    for (const auto& key : SentrelScriptKeys()) {
        keys.push_back(key.first);
    }
    for (const IID* iid : {&IID_IWebFilterManager, &IID_IWebFilterEvents}) {
        const std::wstring interfaceKey = L"Interface\\" + GuidText(*iid);
        // The proxy/stub's class, when it is ours.
        const std::wstring proxyStub =
            RegistryString(MachineClasses().key,
                           MachineClasses().path + interfaceKey + L"\\ProxyStubClsid32", L"");
        const std::wstring server = L"CLSID\\" + proxyStub + L"\\InprocServer32";
        if (!proxyStub.empty() &&
            RegistryString(MachineClasses().key, MachineClasses().path + server, L"") ==
                DllPath()) {
            keys.push_back(L"CLSID\\" + proxyStub);
        }
        keys.push_back(interfaceKey);
    }
    for (const ClassesRoot& root : {MachineClasses(), UserClasses()}) {
        for (const std::wstring& key : keys) {
            RegDeleteTreeW(root.key, (root.path + key).c_str());
        }
    }
}

std::wstring RegisteredTypeLibraryPath(REFGUID library) {
    BSTR path = nullptr;
    if (FAILED(QueryPathOfRegTypeLib(library, 1, 0, 0, &path))) {
        return {};
    }
    std::wstring text(path, SysStringLen(path));
    SysFreeString(path);
    // Some versions count the terminator in the path's length.
    while (!text.empty() && text.back() == L'\0') {
        text.pop_back();
    }
    return text;
}

}  // namespace sentrel::test
