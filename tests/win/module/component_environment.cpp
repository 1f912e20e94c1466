// The component tests run against Sentrel64.dll registered machine-wide by Wine's regsvr32 (the
// classes COM finds under Wine: it does not read the user's classes), with connection rules in
// the registry: ports 80 and 443 filtered, browser.exe allowed on them.

#include <windows.h>

#include <gtest/gtest.h>

#include "child_process.h"
#include "module_test_paths.h"
#include "sentrel_registration.h"
#include "shared/unique_resource.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel::test {
namespace {

void RemoveConnectionRules() {
    for (const wchar_t* key : {WebFilterConnectionRules::kFilteredPortsKey,
                               WebFilterConnectionRules::kAllowedProcessesKey}) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
    }
    // The keys on the way, when nothing else is in them.
    for (const wchar_t* key : {L"Software\\Corvanta\\Lumetra\\WebFilter",
                               L"Software\\Corvanta\\Lumetra", L"Software\\Corvanta"}) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    }
}

bool WriteValue(const wchar_t* keyPath, const wchar_t* name, DWORD type, const void* data,
                DWORD size) {
    HKEY created = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        &created, nullptr) != ERROR_SUCCESS) {
        return false;
    }
    const UniqueKey key(created);
    return RegSetValueExW(key.Get(), name, 0, type, static_cast<const BYTE*>(data), size) ==
           ERROR_SUCCESS;
}

class ComponentEnvironment : public testing::Environment {
  public:
    void SetUp() override {
        RemoveSentrelRegistration();
        ASSERT_EQ(RunToEnd(L"regsvr32.exe /s " + Quote(DllPath())).exitCode, 0u);
        RemoveConnectionRules();
        for (const DWORD port : {80u, 443u}) {
            ASSERT_TRUE(WriteValue(WebFilterConnectionRules::kFilteredPortsKey,
                                   (L"Port" + std::to_wstring(port)).c_str(), REG_DWORD, &port,
                                   sizeof(port)));
        }
        const wchar_t browser[] = L"Browser.exe";
        ASSERT_TRUE(WriteValue(WebFilterConnectionRules::kAllowedProcessesKey, L"Browser", REG_SZ,
                               browser, sizeof(browser)));
    }
    void TearDown() override {
        RemoveConnectionRules();
        RunToEnd(L"regsvr32.exe /s /u " + Quote(DllPath()));
        RemoveSentrelRegistration();
    }
};

[[maybe_unused]] testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new ComponentEnvironment);

}  // namespace
}  // namespace sentrel::test
