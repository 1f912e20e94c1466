// Registering Sentrel64.dll as built: with Wine's regsvr32 and through DllInstall, machine-wide
// and for the current user; every key and value of both scripts, the type library and the
// proxy/stub, and all of it gone again after unregistering.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "child_process.h"
#include "module_test_paths.h"
#include "registry_tree.h"
#include "sentrel_dll.h"
#include "sentrel_h.h"
#include "sentrel_registration.h"

namespace sentrel::test {
namespace {

class RegistrationTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(dll_.Loaded());
        RemoveSentrelRegistration();
    }
    void TearDown() override { RemoveSentrelRegistration(); }

    static std::optional<DWORD> RegSvr32(const std::wstring& options) {
        return RunToEnd(L"regsvr32.exe /s " + options + L" " + Quote(DllPath())).exitCode;
    }

    static void ExpectScriptsUnder(const ClassesRoot& root, const ClassesRoot& other) {
        for (const auto& [key, expected] : SentrelScriptKeys()) {
            SCOPED_TRACE(testing::PrintToString(key));
            EXPECT_EQ(RegistryTree(root.key, root.path + key), expected);
            EXPECT_FALSE(RegistryKeyExists(other.key, other.path + key));
        }
    }

    // The type library: the module's own, with the module's folder for help; registered for the
    // user where the platform can, else machine-wide.
    static void ExpectTypeLibraryRegistered() {
        EXPECT_EQ(RegisteredTypeLibraryPath(LIBID_SentrelLib), DllPath());
        const std::wstring version = L"TypeLib\\" + GuidText(LIBID_SentrelLib) + L"\\1.0";
        const ClassesRoot user = UserClasses();
        const ClassesRoot root =
            RegistryKeyExists(user.key, user.path + version) ? user : MachineClasses();
        EXPECT_EQ(RegistryString(root.key, root.path + version, L""), L"Sentrel 1.0 Type Library");
        EXPECT_EQ(RegistryString(root.key, root.path + version + L"\\0\\win64", L""), DllPath());
        EXPECT_EQ(RegistryString(root.key, root.path + version + L"\\HELPDIR", L""), DllFolder());
    }

    // Both interfaces name a proxy/stub class that this module serves; it is registered
    // machine-wide whatever the scope.
    static void ExpectProxyStubRegistered() {
        const ClassesRoot machine = MachineClasses();
        for (const IID* iid : {&IID_IWebFilterManager, &IID_IWebFilterEvents}) {
            SCOPED_TRACE(testing::PrintToString(GuidText(*iid)));
            const std::wstring proxyStub = RegistryString(
                machine.key, machine.path + L"Interface\\" + GuidText(*iid) + L"\\ProxyStubClsid32",
                L"");
            ASSERT_FALSE(proxyStub.empty());
            EXPECT_EQ(
                RegistryString(machine.key,
                               machine.path + L"CLSID\\" + proxyStub + L"\\InprocServer32", L""),
                DllPath());
        }
    }

    static void ExpectNothingRegistered() {
        for (const ClassesRoot& root : {MachineClasses(), UserClasses()}) {
            for (const auto& entry : SentrelScriptKeys()) {
                EXPECT_FALSE(RegistryKeyExists(root.key, root.path + entry.first))
                    << testing::PrintToString(entry.first);
            }
            for (const IID* iid : {&IID_IWebFilterManager, &IID_IWebFilterEvents}) {
                EXPECT_FALSE(
                    RegistryKeyExists(root.key, root.path + L"Interface\\" + GuidText(*iid)));
            }
        }
        EXPECT_EQ(RegisteredTypeLibraryPath(LIBID_SentrelLib), L"");
        // The roots that every class shares stay.
        EXPECT_TRUE(RegistryKeyExists(MachineClasses().key, MachineClasses().path + L"AppID"));
        EXPECT_TRUE(RegistryKeyExists(MachineClasses().key, MachineClasses().path + L"CLSID"));
    }

    const SentrelDll dll_;
};

TEST_F(RegistrationTest, RegSvr32RegistersMachineWideAndUnregistersEverything) {
    ASSERT_EQ(RegSvr32(L""), 0u);
    ExpectScriptsUnder(MachineClasses(), UserClasses());
    ExpectTypeLibraryRegistered();
    ExpectProxyStubRegistered();
    ASSERT_EQ(RegSvr32(L"/u"), 0u);
    ExpectNothingRegistered();
}

TEST_F(RegistrationTest, RegSvr32InstallsForTheUserWithTheCommandLineUser) {
    ASSERT_EQ(RegSvr32(L"/n /i:user"), 0u);
    ExpectScriptsUnder(UserClasses(), MachineClasses());
    ExpectTypeLibraryRegistered();
    ExpectProxyStubRegistered();
    ASSERT_EQ(RegSvr32(L"/u /n /i:user"), 0u);
    ExpectNothingRegistered();
}

struct InstallCase {
    const wchar_t* commandLine;
    bool perUser;
};

TEST_F(RegistrationTest, DllInstallRegistersPerUserForTheWordUserAloneInAnyCase) {
    const std::vector<InstallCase> cases{
        {L"user", true}, {L"USER", true}, {L"users", false}, {L"", false}, {nullptr, false}};
    for (const InstallCase& test : cases) {
        SCOPED_TRACE(test.commandLine == nullptr
                         ? "(null)"
                         : testing::PrintToString(std::wstring(test.commandLine)));
        ASSERT_EQ(dll_.DllInstall(TRUE, test.commandLine), S_OK);
        if (test.perUser) {
            ExpectScriptsUnder(UserClasses(), MachineClasses());
        } else {
            ExpectScriptsUnder(MachineClasses(), UserClasses());
        }
        ExpectTypeLibraryRegistered();
        ExpectProxyStubRegistered();
        ASSERT_EQ(dll_.DllInstall(FALSE, test.commandLine), S_OK);
        ExpectNothingRegistered();
    }
}

TEST_F(RegistrationTest, RegisteringAgainReplacesTheClassKeyWhole) {
    ASSERT_EQ(dll_.DllRegisterServer(), S_OK);
    const ClassesRoot machine = MachineClasses();
    const std::wstring classKey = machine.path + L"CLSID\\" + GuidText(CLSID_WebFilterManager);
    ASSERT_TRUE(CreateRegistryKey(machine.key, classKey + L"\\InprocServer32\\Stray"));
    ASSERT_EQ(dll_.DllRegisterServer(), S_OK);
    ExpectScriptsUnder(machine, UserClasses());
    ASSERT_EQ(dll_.DllUnregisterServer(), S_OK);
    ExpectNothingRegistered();
}

TEST_F(RegistrationTest, UnregisteringKeepsAProgIdKeyThatAnotherProgramAddedTo) {
    ASSERT_EQ(dll_.DllRegisterServer(), S_OK);
    const ClassesRoot machine = MachineClasses();
    const std::wstring other = machine.path + L"Sentrel.WebFilterManager\\ShellNew";
    ASSERT_TRUE(CreateRegistryKey(machine.key, other));
    ASSERT_EQ(dll_.DllUnregisterServer(), S_OK);
    EXPECT_EQ(RegistryTree(machine.key, machine.path + L"Sentrel.WebFilterManager"),
              (std::vector<std::wstring>{L"[ShellNew]", L"[]", L"[] =WebFilterManager Class"}));
}

TEST_F(RegistrationTest, TheThreadLocaleIsRestoredAfterEveryRegistrationCall) {
    const LCID original = GetThreadLocale();
    const LCID german = MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT);
    ASSERT_TRUE(SetThreadLocale(german));
    EXPECT_EQ(dll_.DllRegisterServer(), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_EQ(dll_.DllUnregisterServer(), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    // Nothing left to unregister: the type library's removal fails.
    EXPECT_TRUE(FAILED(dll_.DllUnregisterServer()));
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_EQ(dll_.DllInstall(TRUE, L"user"), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    EXPECT_EQ(dll_.DllInstall(FALSE, L"user"), S_OK);
    EXPECT_EQ(GetThreadLocale(), german);
    SetThreadLocale(original);
}

TEST_F(RegistrationTest, TheToolSaysSoWhenTheComponentIsNotRegistered) {
    const Completed check =
        RunToEnd(Quote(ToolPath()) + L" check --com --policy " +
                 Quote(ExamplePolicyPath("school-whitelist.xml")) + L" http://a.example/");
    EXPECT_EQ(check.exitCode, 2u);
    EXPECT_NE(check.output.find("the component is not registered (Sentrel.WebFilterManager)"),
              std::string::npos)
        << check.output;
}

}  // namespace
}  // namespace sentrel::test
