// Sentrel64.dll's exports as registration tools and the COM runtime call them: what registering
// writes and leaves behind, the class objects, and when the module may unload.

#include <gtest/gtest.h>
#include <objbase.h>
#include <olectl.h>
#include <shlwapi.h>

#include <algorithm>
#include <array>
#include <vector>

#include "com/com_ptr.h"
#include "com/unique_resource.h"
#include "module/registry_script.h"
#include "sentrel_h.h"

namespace sentrel::test {
namespace {

// The DLL as Windows sees the build tree: through the drive Z: that maps the root.
const std::wstring kDll = L"" SENTREL_TEST_DLL;

// The address of an export of Sentrel64.dll, which is loaded once into the test process.
FARPROC SentrelExport(const char* name) {
    static const UniqueResource<HMODULE, &::FreeLibrary> module(LoadLibraryW(kDll.c_str()));
    return GetProcAddress(module.Get(), name);
}

// The export of that name, typed as the platform declares it.
#define SENTREL_EXPORT(name) \
    reinterpret_cast<decltype(&name)>(reinterpret_cast<void (*)()>(SentrelExport(#name)))

const std::wstring kClasses = L"Software\\Classes\\";
const std::wstring kAppId = L"{E2905BB3-4719-4440-8FC6-15C3424C9EC8}";
const std::wstring kClassId = L"{6F65A0E5-503D-496A-AB03-E7ADF0180E28}";
const std::wstring kLibraryId = L"{FB0527B5-F137-48FC-B3BC-948F7724B4FC}";

// Where registering writes among the machine's classes: the scripts' and the type library's keys.
const std::vector<std::wstring> kMachineKeys{
    L"AppID\\" + kAppId,         L"AppID\\Sentrel.DLL", L"Sentrel.WebFilterManager.1",
    L"Sentrel.WebFilterManager", L"CLSID\\" + kClassId, L"TypeLib\\" + kLibraryId};

void CreateClassesKey(HKEY root, const std::wstring& key, DWORD options = 0) {
    HKEY created = nullptr;
    ASSERT_EQ(RegCreateKeyExW(root, (kClasses + key).c_str(), 0, nullptr, options, KEY_READ,
                              nullptr, &created, nullptr),
              ERROR_SUCCESS);
    const UniqueKey closed(created);
}

// Everything under a classes key, one line per value ("LABEL PATH NAME=DATA", no NAME for the
// default value) and per key that holds nothing ("LABEL PATH").
void CollectTree(HKEY root, const std::wstring& label, const std::wstring& path,
                 std::vector<std::wstring>& lines) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(root, (kClasses + path).c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return;
    }
    const UniqueKey key(opened);
    std::array<wchar_t, 256> name{};
    std::array<wchar_t, 1024> data{};
    DWORD values = 0;
    DWORD subkeys = 0;
    for (DWORD length = name.size(), size = sizeof(data) - sizeof(wchar_t);
         RegEnumValueW(key.Get(), values, name.data(), &length, nullptr, nullptr,
                       reinterpret_cast<BYTE*>(data.data()), &size) == ERROR_SUCCESS;
         ++values, length = name.size(), size = sizeof(data) - sizeof(wchar_t)) {
        lines.push_back(label + path + L" " + name.data() + L"=" + data.data());
    }
    for (; RegEnumKeyW(key.Get(), subkeys, name.data(), name.size()) == ERROR_SUCCESS; ++subkeys) {
        CollectTree(root, label, (path.empty() ? L"" : path + L"\\") + name.data(), lines);
    }
    if (values + subkeys == 0) {
        lines.push_back(label + path);
    }
}

// What there is of the registration: all of the user's classes, which in the test prefix only
// registration writes, and Sentrel's keys among the machine's.
std::vector<std::wstring> Registration() {
    std::vector<std::wstring> lines;
    CollectTree(HKEY_CURRENT_USER, L"user ", L"", lines);
    for (const std::wstring& key : kMachineKeys) {
        CollectTree(HKEY_LOCAL_MACHINE, L"machine ", key, lines);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void RemoveRegistration() {
    RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Classes");
    for (const std::wstring& key : kMachineKeys) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, (kClasses + key).c_str());
    }
}

// The scripts' keys go to the classes of the scope, the type library's to the machine's (Wine
// registers it machine-wide even per user).
std::vector<std::wstring> ExpectedRegistration(const std::wstring& scope) {
    std::wstring dll = kDll;
    std::replace(dll.begin(), dll.end(), L'/', L'\\');
    const std::wstring classKey = scope + L"CLSID\\" + kClassId;
    const std::wstring progId = scope + L"Sentrel.WebFilterManager";
    const std::wstring library = L"machine TypeLib\\" + kLibraryId + L"\\1.0";
    std::vector<std::wstring> lines{
        scope + L"AppID\\" + kAppId + L" =Sentrel",
        scope + L"AppID\\Sentrel.DLL AppID=" + kAppId,
        progId + L".1 =WebFilterManager Class",
        progId + L".1\\CLSID =" + kClassId,
        progId + L" =WebFilterManager Class",
        progId + L"\\CLSID =" + kClassId,
        progId + L"\\CurVer =Sentrel.WebFilterManager.1",
        classKey + L" =WebFilterManager Class",
        classKey + L" AppID=" + kAppId,
        classKey + L"\\ProgID =Sentrel.WebFilterManager.1",
        classKey + L"\\VersionIndependentProgID =Sentrel.WebFilterManager",
        classKey + L"\\InprocServer32 =" + dll,
        classKey + L"\\InprocServer32 ThreadingModel=Both",
        classKey + L"\\TypeLib =" + kLibraryId,
        library + L" =Sentrel 1.0 Type Library",
        library + L"\\0\\win64 =" + dll,
        library + L"\\FLAGS =8",
        library + L"\\HELPDIR =" + dll.substr(0, dll.find_last_of(L'\\'))};
    std::sort(lines.begin(), lines.end());
    return lines;
}

struct InstallCase {
    const char* name;
    const wchar_t* commandLine;
    bool perUser;
    bool serverExports = false;  // DllRegisterServer and DllUnregisterServer instead
};

TEST(Registration, WritesEveryKeyInTheScopeTheCommandLineAsksForAndRemovesThem) {
    const std::vector<InstallCase> cases{
        {"user alone registers per user", L"user", true},
        {"in any case", L"USER", true},
        {"a longer word is machine-wide", L"users", false},
        {"no command line is machine-wide", nullptr, false},
        {"the server exports are machine-wide", nullptr, false, true},
    };
    // Registration runs in the system's locale and gives the caller's back.
    const LCID locale = GetThreadLocale();
    const LCID german = MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT);
    ASSERT_TRUE(SetThreadLocale(german));
    RemoveRegistration();
    for (const InstallCase& test : cases) {
        SCOPED_TRACE(test.name);
        const HKEY root = test.perUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
        const std::wstring scope = test.perUser ? L"user " : L"machine ";
        // A stale key in the class key goes with it; a key another program added to a ProgID
        // stays, and so do the roots that all classes share.
        const auto install = [&](bool on) {
            return !test.serverExports ? SENTREL_EXPORT(DllInstall)(on, test.commandLine)
                   : on                ? SENTREL_EXPORT(DllRegisterServer)()
                                       : SENTREL_EXPORT(DllUnregisterServer)();
        };
        CreateClassesKey(root, L"CLSID\\" + kClassId + L"\\Stale");
        ASSERT_EQ(install(true), S_OK);
        EXPECT_EQ(Registration(), ExpectedRegistration(scope));
        CreateClassesKey(root, L"Sentrel.WebFilterManager\\ShellNew");
        ASSERT_EQ(install(false), S_OK);
        std::vector<std::wstring> left{scope + L"Sentrel.WebFilterManager =WebFilterManager Class",
                                       scope + L"Sentrel.WebFilterManager\\ShellNew"};
        if (test.perUser) {
            left.insert(left.begin(), {L"user AppID", L"user CLSID"});
        }
        EXPECT_EQ(Registration(), left);
        RemoveRegistration();
    }
    EXPECT_EQ(GetThreadLocale(), german);
    SetThreadLocale(locale);
}

TEST(Registration, AFailedInstallIsUndoneAsFarAsUnregisteringGoes) {
    RemoveRegistration();
    // A volatile key where the class script writes takes no lasting subkey.
    CreateClassesKey(HKEY_CURRENT_USER, L"AppID");
    CreateClassesKey(HKEY_CURRENT_USER, L"Sentrel.WebFilterManager.1", REG_OPTION_VOLATILE);
    EXPECT_EQ(SENTREL_EXPORT(DllInstall)(TRUE, L"user"),
              HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
    // Unregistering stops where the type library is not registered, before the AppID's keys.
    EXPECT_EQ(Registration(), (std::vector<std::wstring>{L"user AppID\\Sentrel.DLL AppID=" + kAppId,
                                                         L"user AppID\\" + kAppId + L" =Sentrel"}));
    RemoveRegistration();
}

// What a script text gives: its first key's default value, or "(rejected)".
struct ScriptCase {
    const char* name;
    const wchar_t* text;
    const wchar_t* expected;
};

TEST(RegistryScript, ReadsQuotesAndReplacementsAndRejectsWhatIsNoScript) {
    const std::vector<ScriptCase> cases{
        {"a doubled quote is one", L"HKCR { K = s 'it''s' }", L"it's"},
        {"a doubled percent sign is one", L"HKCR { K = s '100%%' }", L"100%"},
        {"a replacement not given", L"HKCR { K = s '%APPID%' }", L"(rejected)"},
        {"a block not closed", L"HKCR { K = s 'x'", L"(rejected)"},
        {"a key name of two keys", L"HKCR { 'K\\L' = s 'x' }", L"(rejected)"},
    };
    for (const ScriptCase& test : cases) {
        SCOPED_TRACE(test.name);
        const auto script = ParseRegistryScript(test.text, {});
        EXPECT_EQ(script ? *script->classesKeys.at(0).defaultValue : L"(rejected)", test.expected);
    }
}

// What a client gets from DllGetClassObject for a class id, or else from the class's factory,
// which it holds while the module may not unload.
struct ObjectCase {
    const char* name;
    const GUID* classId;
    const IID* iid;
    bool aggregated;
    HRESULT expected;
};

TEST(ClassObjects, WhatTheyServeHoldsTheModule) {
    const std::vector<ObjectCase> cases{
        {"the class's factory", &CLSID_WebFilterManager, &IID_IClassFactory, false, S_OK},
        {"the proxy/stub's factory", &IID_IWebFilterEvents, &IID_IPSFactoryBuffer, false, S_OK},
        {"no other class", &LIBID_SentrelLib, &IID_IClassFactory, false, CLASS_E_CLASSNOTAVAILABLE},
        {"a manager", nullptr, &IID_IWebFilterManager, false, S_OK},
        {"an aggregated manager", nullptr, &IID_IUnknown, true, S_OK},
        {"an aggregate's interface", nullptr, &IID_IWebFilterManager, true, CLASS_E_NOAGGREGATION},
    };
    const auto classObject = SENTREL_EXPORT(DllGetClassObject);
    const auto canUnload = SENTREL_EXPORT(DllCanUnloadNow);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    ComPtr<IStream> outer;  // any object outside the module
    ASSERT_EQ(CreateStreamOnHGlobal(nullptr, TRUE, outer.Put()), S_OK);
    ComPtr<IClassFactory> factory;
    for (const ObjectCase& test : cases) {
        SCOPED_TRACE(test.name);
        ComPtr<IUnknown> object;
        ASSERT_EQ(classObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()), S_OK);
        EXPECT_EQ(test.classId != nullptr
                      ? classObject(*test.classId, *test.iid, object.PutVoid())
                      : factory->CreateInstance(test.aggregated ? outer.Get() : nullptr, *test.iid,
                                                object.PutVoid()),
                  test.expected);
        factory.Reset();
        EXPECT_EQ(canUnload(), object ? S_FALSE : S_OK);
        object.Reset();
        EXPECT_EQ(canUnload(), S_OK);
    }
    // So does a server lock.
    ASSERT_EQ(classObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()), S_OK);
    ASSERT_EQ(factory->LockServer(TRUE), S_OK);
    factory.Reset();
    EXPECT_EQ(canUnload(), S_FALSE);
    ASSERT_EQ(classObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    factory.Reset();
    EXPECT_EQ(canUnload(), S_OK);
    CoUninitialize();
}

}  // namespace
}  // namespace sentrel::test
