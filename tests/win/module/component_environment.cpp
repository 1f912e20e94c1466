// The component tests run against Sentrel64.dll registered machine-wide by Wine's regsvr32 (the
// classes COM finds under Wine: it does not read the user's classes), with connection rules in
// the registry: ports 80 and 443 filtered, browser.exe allowed on them.

#include <windows.h>

#include <gtest/gtest.h>

#include "child_process.h"
#include "connection_rules_keys.h"
#include "module_test_paths.h"
#include "sentrel_registration.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel::test {
namespace {

class ComponentEnvironment : public testing::Environment {
  public:
    void SetUp() override {
        RemoveSentrelRegistration();
        ASSERT_EQ(RunToEnd(L"regsvr32.exe /s " + Quote(DllPath())).exitCode, 0u);
        ASSERT_TRUE(RemoveConnectionRulesKeys());
        for (const DWORD port : {80u, 443u}) {
            ASSERT_TRUE(SetMachineValue(WebFilterConnectionRules::kFilteredPortsKey,
                                        (L"Port" + std::to_wstring(port)).c_str(), REG_DWORD, &port,
                                        sizeof(port)));
        }
        const wchar_t browser[] = L"Browser.exe";
        ASSERT_TRUE(SetMachineValue(WebFilterConnectionRules::kAllowedProcessesKey, L"Browser",
                                    REG_SZ, browser, sizeof(browser)));
    }
    void TearDown() override {
        RemoveConnectionRulesKeys();
        RunToEnd(L"regsvr32.exe /s /u " + Quote(DllPath()));
        RemoveSentrelRegistration();
    }
};

[[maybe_unused]] testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new ComponentEnvironment);

}  // namespace
}  // namespace sentrel::test
