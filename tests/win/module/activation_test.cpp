// Sentrel64.dll as clients and the COM runtime meet it: its file (exports, imports, resources),
// its class objects and unloading, and activation through the registration by class id and by
// either ProgID.

#include <windows.h>

#include <gtest/gtest.h>
#include <objbase.h>
#include <ocidl.h>

#include <string>
#include <utility>
#include <vector>

#include "child_process.h"
#include "manager/com_ptr.h"
#include "module_test_paths.h"
#include "recording_sink.h"
#include "sentrel_dll.h"
#include "sentrel_h.h"
#include "sentrel_registration.h"

namespace sentrel::test {
namespace {

// The image's parts are found through its headers; addresses are relative to its base.
template <class T>
const T* AtAddress(HMODULE module, DWORD relative) {
    return reinterpret_cast<const T*>(reinterpret_cast<const BYTE*>(module) + relative);
}

const IMAGE_DATA_DIRECTORY& Directory(HMODULE module, int entry) {
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    const auto* headers = AtAddress<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    return headers->OptionalHeader.DataDirectory[entry];
}

std::string ResourceText(HMODULE module, const wchar_t* type, WORD id) {
    const HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(id), type);
    if (found == nullptr) {
        return {};
    }
    const auto* bytes = static_cast<const char*>(LockResource(LoadResource(module, found)));
    return std::string(bytes, SizeofResource(module, found));
}

class DllFileTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(dll_.Loaded()); }
    SentrelDll dll_;
};

TEST_F(DllFileTest, ExportsTheFiveEntryPointsAndNothingElse) {
    const IMAGE_DATA_DIRECTORY& directory = Directory(dll_.Module(), IMAGE_DIRECTORY_ENTRY_EXPORT);
    ASSERT_NE(directory.VirtualAddress, 0u);
    const auto* exports =
        AtAddress<IMAGE_EXPORT_DIRECTORY>(dll_.Module(), directory.VirtualAddress);
    EXPECT_STREQ(AtAddress<char>(dll_.Module(), exports->Name), "Sentrel64.dll");
    const auto* names = AtAddress<DWORD>(dll_.Module(), exports->AddressOfNames);
    std::vector<std::string> exported;
    for (DWORD index = 0; index < exports->NumberOfNames; ++index) {
        exported.emplace_back(AtAddress<char>(dll_.Module(), names[index]));
    }
    EXPECT_EQ(exported,
              (std::vector<std::string>{"DllCanUnloadNow", "DllGetClassObject", "DllInstall",
                                        "DllRegisterServer", "DllUnregisterServer"}));
    EXPECT_EQ(exports->NumberOfFunctions, 5u);
}

TEST_F(DllFileTest, NeedsNoRuntimeLibraryBesideTheSystems) {
    const IMAGE_DATA_DIRECTORY& directory = Directory(dll_.Module(), IMAGE_DIRECTORY_ENTRY_IMPORT);
    std::vector<std::string> imported;
    for (const auto* import =
             AtAddress<IMAGE_IMPORT_DESCRIPTOR>(dll_.Module(), directory.VirtualAddress);
         import->Name != 0; ++import) {
        imported.emplace_back(AtAddress<char>(dll_.Module(), import->Name));
    }
    EXPECT_FALSE(imported.empty());
    for (const std::string& name : imported) {
        // The compiler's own runtime DLLs: libstdc++-6, libgcc_s_seh-1, libwinpthread-1.
        EXPECT_NE(_strnicmp(name.c_str(), "lib", 3), 0) << name;
    }
}

TEST_F(DllFileTest, CarriesTheScriptsTheTypeLibraryTheProjectNameAndTheManifest) {
    const HMODULE module = dll_.Module();
    EXPECT_NE(ResourceText(module, L"REGISTRY", 101).find("Sentrel.DLL"), std::string::npos);
    EXPECT_NE(ResourceText(module, L"REGISTRY", 102).find("InprocServer32"), std::string::npos);
    EXPECT_FALSE(ResourceText(module, L"TYPELIB", 1).empty());
    wchar_t name[64] = {};
    EXPECT_EQ(LoadStringW(module, 100, name, 64), 7);
    EXPECT_STREQ(name, L"Sentrel");
    const std::string manifest = ResourceText(module, MAKEINTRESOURCEW(24), 2);
    EXPECT_NE(manifest.find(R"(level="asInvoker")"), std::string::npos);
    EXPECT_NE(manifest.find(R"(uiAccess="false")"), std::string::npos);
    EXPECT_EQ(FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24)), nullptr);
}

std::wstring VersionString(const std::vector<BYTE>& info, const wchar_t* name) {
    void* value = nullptr;
    UINT length = 0;
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
    if (!VerQueryValueW(info.data(), path.c_str(), &value, &length) || length == 0) {
        return {};
    }
    return static_cast<const wchar_t*>(value);
}

TEST_F(DllFileTest, HasAVersionResourceWithTheProjectsVersion) {
    const std::wstring path = DllPath();
    DWORD handle = 0;
    std::vector<BYTE> info(GetFileVersionInfoSizeW(path.c_str(), &handle));
    ASSERT_FALSE(info.empty());
    ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(info.size()), info.data()));
    void* fixedInfo = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\", &fixedInfo, &length));
    const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(fixedInfo);
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
    const std::string version = std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." +
                                std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
                                std::to_string(HIWORD(fixed->dwFileVersionLS));
    EXPECT_EQ(version, ProjectVersion());
    const std::string text(ProjectVersion());
    EXPECT_EQ(VersionString(info, L"FileVersion"), std::wstring(text.begin(), text.end()));
    EXPECT_EQ(VersionString(info, L"OriginalFilename"), L"Sentrel64.dll");
    EXPECT_EQ(VersionString(info, L"ProductName"), L"Sentrel");
}

// COM on the test's thread, in the multi-threaded apartment.
class ComTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }
};

class ClassObjectTest : public ComTest {
  protected:
    void SetUp() override {
        ComTest::SetUp();
        ASSERT_TRUE(dll_.Loaded());
        ASSERT_EQ(dll_.DllCanUnloadNow(), S_OK);
    }
    SentrelDll dll_;
};

TEST_F(ClassObjectTest, TheClassIdGivesTheClassFactory) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()),
              S_OK);
    ComPtr<IWebFilterManager> manager;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IWebFilterManager, manager.PutVoid()), S_OK);
    long allowed = 0;
    EXPECT_EQ(manager->IsUrlAllowed(nullptr, &allowed), S_OK);
    EXPECT_EQ(allowed, 1);
}

TEST_F(ClassObjectTest, TheInterfaceIdsGiveTheProxyStubFactory) {
    // A server object of each interface for the stubs to call.
    ComPtr<IClassFactory> managerFactory;
    ASSERT_EQ(
        dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IClassFactory, managerFactory.PutVoid()),
        S_OK);
    ComPtr<IUnknown> manager;
    ASSERT_EQ(managerFactory->CreateInstance(nullptr, IID_IUnknown, manager.PutVoid()), S_OK);
    const ComPtr<RecordingSink> sink = RecordingSink::Create();
    const std::pair<const IID*, IUnknown*> servers[] = {
        {&IID_IWebFilterManager, manager.Get()},
        {&IID_IWebFilterEvents, sink.Get()},
    };
    for (const IID* iid : {&IID_IWebFilterManager, &IID_IWebFilterEvents}) {
        SCOPED_TRACE(testing::PrintToString(GuidText(*iid)));
        ComPtr<IPSFactoryBuffer> factory;
        ASSERT_EQ(dll_.DllGetClassObject(*iid, IID_IPSFactoryBuffer, factory.PutVoid()), S_OK);
        // It makes stubs of both interfaces.
        for (const auto& [stubbed, server] : servers) {
            ComPtr<IRpcStubBuffer> stub;
            EXPECT_EQ(factory->CreateStub(*stubbed, server, stub.Put()), S_OK);
            ASSERT_TRUE(stub);
            stub->Disconnect();
        }
    }
}

TEST_F(ClassObjectTest, AnyOtherClassIsNotAvailable) {
    for (const CLSID* classId : {&IID_IUnknown, &IID_IClassFactory, &LIBID_SentrelLib}) {
        void* object = &dll_;
        EXPECT_EQ(dll_.DllGetClassObject(*classId, IID_IClassFactory, &object),
                  CLASS_E_CLASSNOTAVAILABLE);
        EXPECT_EQ(object, nullptr);
    }
    void* object = &dll_;
    EXPECT_EQ(dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IDispatch, &object),
              E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IClassFactory, nullptr),
              E_POINTER);
}

TEST_F(ClassObjectTest, CannotUnloadWhileAnObjectOrAClassObjectOrAServerLockHoldsIt) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()),
              S_OK);
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_FALSE);
    ComPtr<IWebFilterManager> first;
    ComPtr<IWebFilterManager> second;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IWebFilterManager, first.PutVoid()), S_OK);
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IWebFilterManager, second.PutVoid()), S_OK);
    ASSERT_EQ(factory->LockServer(TRUE), S_OK);
    factory.Reset();
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_FALSE);
    first.Reset();
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_FALSE);
    second.Reset();
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_FALSE);
    ASSERT_EQ(dll_.DllGetClassObject(CLSID_WebFilterManager, IID_IClassFactory, factory.PutVoid()),
              S_OK);
    ASSERT_EQ(factory->LockServer(FALSE), S_OK);
    factory.Reset();
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_OK);
}

TEST_F(ClassObjectTest, CannotUnloadWhileTheProxyStubFactoryIsInUse) {
    ComPtr<IPSFactoryBuffer> factory;
    ASSERT_EQ(dll_.DllGetClassObject(IID_IWebFilterEvents, IID_IPSFactoryBuffer, factory.PutVoid()),
              S_OK);
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_FALSE);
    factory.Reset();
    EXPECT_EQ(dll_.DllCanUnloadNow(), S_OK);
}

// The component registered machine-wide by Wine's regsvr32; the test process does not load the
// module itself, so whatever loads it is the COM runtime following the registration.
class ActivationTest : public ComTest {
  protected:
    static void SetUpTestSuite() {
        RemoveSentrelRegistration();
        registered_ = RunToEnd(L"regsvr32.exe /s " + Quote(DllPath())).exitCode == 0u;
    }
    static void TearDownTestSuite() {
        RunToEnd(L"regsvr32.exe /s /u " + Quote(DllPath()));
        RemoveSentrelRegistration();
    }
    void SetUp() override {
        ASSERT_TRUE(registered_);
        ComTest::SetUp();
    }

    static inline bool registered_ = false;
};

TEST_F(ActivationTest, CoCreateInstanceLoadsTheRegisteredModuleAndCreatesAManager) {
    ComPtr<IWebFilterManager> manager;
    ASSERT_EQ(CreateManager(manager), S_OK);
    EXPECT_NE(GetModuleHandleW(DllPath().c_str()), nullptr);
    long allowed = 0;
    EXPECT_EQ(manager->IsUrlAllowed(nullptr, &allowed), S_OK);
    EXPECT_EQ(allowed, 1);
    ComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(manager.As(container), S_OK);
}

TEST_F(ActivationTest, BothProgIdsNameTheClassAndTheVersionedOneIsItsProgId) {
    for (const wchar_t* progId : {L"Sentrel.WebFilterManager", L"Sentrel.WebFilterManager.1"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(progId)));
        CLSID classId{};
        ASSERT_EQ(CLSIDFromProgID(progId, &classId), S_OK);
        EXPECT_TRUE(IsEqualCLSID(classId, CLSID_WebFilterManager));
        ComPtr<IWebFilterManager> manager;
        EXPECT_EQ(CoCreateInstance(classId, nullptr, CLSCTX_ALL, IID_IWebFilterManager,
                                   manager.PutVoid()),
                  S_OK);
    }
    LPOLESTR progId = nullptr;
    ASSERT_EQ(ProgIDFromCLSID(CLSID_WebFilterManager, &progId), S_OK);
    EXPECT_STREQ(progId, L"Sentrel.WebFilterManager.1");
    CoTaskMemFree(progId);
    CLSID unknown{};
    EXPECT_EQ(CLSIDFromProgID(L"Sentrel.WebFilterManager.2", &unknown), CO_E_CLASSSTRING);
}

TEST_F(ActivationTest, TheClassObjectComesThroughTheRegistration) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(CoGetClassObject(CLSID_WebFilterManager, CLSCTX_INPROC_SERVER, nullptr,
                               IID_IClassFactory, factory.PutVoid()),
              S_OK);
    ComPtr<IUnknown> object;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, object.PutVoid()), S_OK);
}

}  // namespace
}  // namespace sentrel::test
