// The module object over this test program's own resources (test_module.rc): its registration
// scripts and type library stand in for Sentrel's, and the test plays the proxy/stub.

#include "module/sentrel_module.h"

#include <gtest/gtest.h>
#include <oleauto.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "manager/com_ptr.h"
#include "registry_tree.h"
#include "sentrel_registration.h"
#include "test_module_h.h"
#include "test_module_resource.h"

namespace sentrel::test {
namespace {

// {401330B7-04DE-459A-9C88-316605B818FC}
constexpr GUID kTestAppId{
    0x401330B7, 0x04DE, 0x459A, {0x9C, 0x88, 0x31, 0x66, 0x05, 0xB8, 0x18, 0xFC}};

std::wstring OwnPath() {
    std::array<wchar_t, MAX_PATH> path{};
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), MAX_PATH);
    return std::wstring(path.data(), length);
}

const ClassesRoot kUserClasses = UserClasses();
const ClassesRoot kMachineClasses = MachineClasses();

// The proxy/stub, played by the test: it records its calls and answers as told.
struct FakeProxyStub {
    static inline std::vector<std::string> calls;
    static inline HRESULT classObjectResult = CLASS_E_CLASSNOTAVAILABLE;
    static inline IUnknown* classObject = nullptr;
    static inline HRESULT canUnloadResult = S_OK;
    static inline HRESULT registerResult = S_OK;
    static inline HRESULT unregisterResult = S_OK;
    // Whether the module's class keys were there when the proxy/stub was registered.
    static inline bool classRegisteredBefore = false;

    static void Reset() {
        calls.clear();
        classObjectResult = CLASS_E_CLASSNOTAVAILABLE;
        classObject = nullptr;
        canUnloadResult = S_OK;
        registerResult = S_OK;
        unregisterResult = S_OK;
        classRegisteredBefore = false;
    }

    static HRESULT STDAPICALLTYPE GetClassObject(REFCLSID, REFIID, void** object) {
        calls.push_back("GetClassObject");
        if (classObjectResult == S_OK) {
            classObject->AddRef();
            *object = classObject;
        }
        return classObjectResult;
    }
    static HRESULT STDAPICALLTYPE CanUnloadNow() {
        calls.push_back("CanUnloadNow");
        return canUnloadResult;
    }
    static HRESULT STDAPICALLTYPE Register() {
        calls.push_back("Register");
        classRegisteredBefore =
            RegistryKeyExists(kUserClasses.key,
                              kUserClasses.path + L"CLSID\\" + GuidText(CLSID_TestThing)) ||
            RegistryKeyExists(kMachineClasses.key,
                              kMachineClasses.path + L"CLSID\\" + GuidText(CLSID_TestThing));
        return registerResult;
    }
    static HRESULT STDAPICALLTYPE Unregister() {
        calls.push_back("Unregister");
        return unregisterResult;
    }
};

HRESULT NoInstance(IUnknown*, REFIID, void** object) {
    *object = nullptr;
    return E_NOTIMPL;
}

// What the test scripts write, key by key, as RegistryTree shows them.
RegistryTrees ExpectedKeys() {
    const std::wstring appId = GuidText(kTestAppId);
    const std::wstring classId = GuidText(CLSID_TestThing);
    return SortedTrees({
        {L"AppID\\" + appId, {L"[]", L"[] =SentrelModuleTest"}},
        {L"AppID\\SentrelModuleTest.DLL", {L"[]", L"[] AppID=" + appId}},
        {L"SentrelModuleTest.Thing",
         {L"[CLSID]", L"[CLSID] =" + classId, L"[]", L"[] =TestThing Class"}},
        {L"CLSID\\" + classId,
         {L"[InprocServer32]", L"[InprocServer32] =" + OwnPath(),
          L"[InprocServer32] ThreadingModel=Both", L"[]", L"[] =TestThing Class",
          L"[] AppID=" + appId}},
    });
}

std::wstring RegisteredTypeLibraryPath() {
    return test::RegisteredTypeLibraryPath(LIBID_SentrelModuleTestLib);
}

class SentrelModuleTest : public testing::Test {
  protected:
    void SetUp() override {
        FakeProxyStub::Reset();
        RemoveTestRegistration();
    }
    void TearDown() override { RemoveTestRegistration(); }

    // What the scripts and the type library registration write, removed in every root whatever
    // the module did.
    static void RemoveTestRegistration() {
        const std::vector<std::wstring> keys{L"AppID\\" + GuidText(kTestAppId),
                                             L"AppID\\SentrelModuleTest.DLL",
                                             L"SentrelModuleTest.Thing",
                                             L"SentrelModuleTest.Volatile",
                                             L"CLSID\\" + GuidText(CLSID_TestThing),
                                             L"TypeLib\\" + GuidText(LIBID_SentrelModuleTestLib)};
        for (const ClassesRoot& root : {kUserClasses, kMachineClasses}) {
            for (const std::wstring& key : keys) {
                RegDeleteTreeW(root.key, (root.path + key).c_str());
            }
        }
    }

    static void ExpectRegisteredUnder(const ClassesRoot& root, const ClassesRoot& other) {
        for (const auto& [key, expected] : ExpectedKeys()) {
            SCOPED_TRACE(testing::PrintToString(key));
            EXPECT_EQ(RegistryTree(root.key, root.path + key), expected);
            EXPECT_FALSE(RegistryKeyExists(other.key, other.path + key));
        }
        EXPECT_EQ(RegisteredTypeLibraryPath(), OwnPath());
    }

    static void ExpectNothingRegistered() {
        for (const ClassesRoot& root : {kUserClasses, kMachineClasses}) {
            for (const auto& entry : ExpectedKeys()) {
                EXPECT_FALSE(RegistryKeyExists(root.key, root.path + entry.first))
                    << testing::PrintToString(entry.first);
            }
        }
        EXPECT_EQ(RegisteredTypeLibraryPath(), L"");
    }

    // A volatile key where the volatile class script writes: no lasting key can go under it.
    static void BlockTheVolatileClass() {
        ASSERT_TRUE(CreateRegistryKey(HKEY_CURRENT_USER,
                                      L"Software\\Classes\\SentrelModuleTest.Volatile",
                                      REG_OPTION_VOLATILE));
    }

    // The module with the given class scripts (IDR_TEST_CLASS by default).
    CSentrelModule& Module(std::vector<UINT> classScripts = {IDR_TEST_CLASS},
                           UINT appIdScript = IDR_TEST_APPID) {
        objectMap_.clear();
        for (const UINT script : classScripts) {
            objectMap_.push_back({&CLSID_TestThing, script, &classObject_});
        }
        module_.emplace(
            ModuleDescription{kTestAppId,
                              appIdScript,
                              objectMap_,
                              {&FakeProxyStub::GetClassObject, &FakeProxyStub::CanUnloadNow,
                               &FakeProxyStub::Register, &FakeProxyStub::Unregister}},
            lockCount_);
        module_->Attach(GetModuleHandleW(nullptr));
        return *module_;
    }

    ClassFactory classObject_{&NoInstance};
    std::vector<ObjectMapEntry> objectMap_;
    ModuleLockCount lockCount_;
    std::optional<CSentrelModule> module_;
};

TEST_F(SentrelModuleTest, RegisteringForTheUserWritesBothScriptsTheTypeLibraryThenTheProxyStub) {
    ASSERT_EQ(Module().RegisterServer(RegistrationScope::User), S_OK);
    ExpectRegisteredUnder(kUserClasses, kMachineClasses);
    EXPECT_EQ(FakeProxyStub::calls, std::vector<std::string>{"Register"});
    EXPECT_TRUE(FakeProxyStub::classRegisteredBefore);
}

TEST_F(SentrelModuleTest, RegisteringForTheMachineWritesUnderTheClassesRoot) {
    ASSERT_EQ(Module().RegisterServer(RegistrationScope::Machine), S_OK);
    ExpectRegisteredUnder(kMachineClasses, kUserClasses);
    ASSERT_EQ(Module().UnregisterServer(RegistrationScope::Machine), S_OK);
    ExpectNothingRegistered();
}

TEST_F(SentrelModuleTest, UnregisteringRemovesTheModuleThenRegistersAndRemovesTheProxyStub) {
    ASSERT_EQ(Module().RegisterServer(RegistrationScope::User), S_OK);
    FakeProxyStub::calls.clear();
    FakeProxyStub::unregisterResult = S_FALSE;
    EXPECT_EQ(Module().UnregisterServer(RegistrationScope::User), S_FALSE);
    EXPECT_EQ(FakeProxyStub::calls, (std::vector<std::string>{"Register", "Unregister"}));
    EXPECT_FALSE(FakeProxyStub::classRegisteredBefore);
    ExpectNothingRegistered();
    // The roots that other classes share stay.
    EXPECT_TRUE(RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"AppID"));
    EXPECT_TRUE(RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"CLSID"));
}

TEST_F(SentrelModuleTest, TheProxyStubsRegistrationFailureIsTheResult) {
    FakeProxyStub::registerResult = E_ACCESSDENIED;
    EXPECT_EQ(Module().RegisterServer(RegistrationScope::User), E_ACCESSDENIED);
    ExpectRegisteredUnder(kUserClasses, kMachineClasses);
}

TEST_F(SentrelModuleTest, AFailingClassScriptStopsRegistrationBeforeTheTypeLibraryAndProxyStub) {
    BlockTheVolatileClass();
    EXPECT_EQ(
        Module({IDR_TEST_CLASS, IDR_TEST_VOLATILE_CLASS}).RegisterServer(RegistrationScope::User),
        HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
    EXPECT_TRUE(FakeProxyStub::calls.empty());
    EXPECT_EQ(RegisteredTypeLibraryPath(), L"");
    // The scripts before the failing one were run.
    EXPECT_TRUE(
        RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"SentrelModuleTest.Thing"));
}

TEST_F(SentrelModuleTest, MalformedOrMissingScriptsFailRegistrationWithoutWritingThem) {
    EXPECT_EQ(Module({IDR_TEST_MALFORMED}).RegisterServer(RegistrationScope::User),
              HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
    EXPECT_FALSE(
        RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"SentrelModuleTest.Malformed"));
    EXPECT_TRUE(
        FAILED(Module({IDR_TEST_CLASS}, IDR_TEST_MISSING).RegisterServer(RegistrationScope::User)));
    EXPECT_FALSE(
        RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"SentrelModuleTest.Thing"));
    EXPECT_TRUE(FakeProxyStub::calls.empty());
}

TEST_F(SentrelModuleTest, UnregisteringStopsAtTheFirstFailure) {
    // Nothing registered: the type library's removal fails, before the AppID and the proxy/stub.
    EXPECT_TRUE(FAILED(Module().UnregisterServer(RegistrationScope::User)));
    EXPECT_TRUE(FakeProxyStub::calls.empty());

    ASSERT_EQ(Module().RegisterServer(RegistrationScope::User), S_OK);
    FakeProxyStub::calls.clear();
    FakeProxyStub::registerResult = E_ACCESSDENIED;
    EXPECT_EQ(Module().UnregisterServer(RegistrationScope::User), E_ACCESSDENIED);
    EXPECT_EQ(FakeProxyStub::calls, std::vector<std::string>{"Register"});
    ExpectNothingRegistered();
}

TEST_F(SentrelModuleTest, AFailedInstallIsUndoneAndReturnsTheRegistrationsFailure) {
    FakeProxyStub::registerResult = E_ACCESSDENIED;
    EXPECT_EQ(Module().Install(true, L"user"), E_ACCESSDENIED);
    ExpectNothingRegistered();
}

TEST_F(SentrelModuleTest, AFailedInstallRemovesTheClassKeysItWrote) {
    BlockTheVolatileClass();
    EXPECT_EQ(Module({IDR_TEST_CLASS, IDR_TEST_VOLATILE_CLASS}).Install(true, L"user"),
              HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
    EXPECT_FALSE(
        RegistryKeyExists(kUserClasses.key, kUserClasses.path + L"SentrelModuleTest.Thing"));
    EXPECT_FALSE(RegistryKeyExists(kUserClasses.key,
                                   kUserClasses.path + L"CLSID\\" + GuidText(CLSID_TestThing)));
}

TEST_F(SentrelModuleTest, InstallTakesItsScopeFromTheCommandLineAndUninstalls) {
    ASSERT_EQ(Module().Install(true, L"USER"), S_OK);
    ExpectRegisteredUnder(kUserClasses, kMachineClasses);
    ASSERT_EQ(Module().Install(false, L"USER"), S_OK);
    ExpectNothingRegistered();
    ASSERT_EQ(Module().Install(true, L"users"), S_OK);
    ExpectRegisteredUnder(kMachineClasses, kUserClasses);
    ASSERT_EQ(Module().Install(false, nullptr), S_OK);
    ExpectNothingRegistered();
}

TEST_F(SentrelModuleTest, TheThreadLocaleIsRestoredOnEveryWayOut) {
    const LCID original = GetThreadLocale();
    const LCID german = MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT);
    ASSERT_TRUE(SetThreadLocale(german));
    EXPECT_EQ(Module().RegisterServer(RegistrationScope::User), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_EQ(Module().UnregisterServer(RegistrationScope::User), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_TRUE(FAILED(Module().UnregisterServer(RegistrationScope::User)));
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_TRUE(FAILED(Module({IDR_TEST_MALFORMED}).RegisterServer(RegistrationScope::User)));
    EXPECT_EQ(GetThreadLocale(), german);
    SetThreadLocale(original);
}

TEST_F(SentrelModuleTest, TheProxyStubIsAskedForAClassObjectFirst) {
    ClassFactory other(&NoInstance);
    FakeProxyStub::classObjectResult = S_OK;
    FakeProxyStub::classObject = &other;
    ComPtr<IUnknown> found;
    EXPECT_EQ(Module().GetClassObject(CLSID_TestThing, IID_IUnknown, found.PutVoid()), S_OK);
    EXPECT_EQ(found.Get(), static_cast<IUnknown*>(&other));
    EXPECT_EQ(FakeProxyStub::calls, std::vector<std::string>{"GetClassObject"});
}

TEST_F(SentrelModuleTest, TheObjectMapServesItsClassWhenTheProxyStubDoesNot) {
    for (const HRESULT proxyStub : {CLASS_E_CLASSNOTAVAILABLE, S_FALSE, E_FAIL}) {
        FakeProxyStub::classObjectResult = proxyStub;
        ComPtr<IClassFactory> factory;
        EXPECT_EQ(Module().GetClassObject(CLSID_TestThing, IID_IClassFactory, factory.PutVoid()),
                  S_OK);
        EXPECT_EQ(factory.Get(), static_cast<IClassFactory*>(&classObject_));
    }
    void* object = &classObject_;
    EXPECT_EQ(Module().GetClassObject(IID_IClassFactory, IID_IClassFactory, &object),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    object = &classObject_;
    EXPECT_EQ(Module().GetClassObject(CLSID_TestThing, IID_IDispatch, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    FakeProxyStub::calls.clear();
    EXPECT_EQ(Module().GetClassObject(CLSID_TestThing, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_TRUE(FakeProxyStub::calls.empty());
}

struct UnloadCase {
    HRESULT proxyStub;
    LONG locks;
    HRESULT expected;
};

TEST_F(SentrelModuleTest, MayUnloadOnlyWhenTheProxyStubIsIdleAndNothingHoldsTheModule) {
    const std::vector<UnloadCase> cases{
        {S_OK, 0, S_OK},       {S_OK, 1, S_FALSE},    {S_OK, 3, S_FALSE},
        {S_FALSE, 0, S_FALSE}, {S_FALSE, 2, S_FALSE}, {E_FAIL, 0, E_FAIL},
    };
    for (const UnloadCase& test : cases) {
        SCOPED_TRACE(testing::Message() << test.proxyStub << " " << test.locks);
        FakeProxyStub::canUnloadResult = test.proxyStub;
        for (LONG lock = 0; lock < test.locks; ++lock) {
            lockCount_.Lock();
        }
        EXPECT_EQ(Module().CanUnloadNow(), test.expected);
        for (LONG lock = 0; lock < test.locks; ++lock) {
            lockCount_.Unlock();
        }
    }
}

}  // namespace
}  // namespace sentrel::test
