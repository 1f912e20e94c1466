// IsProcessConnectionAllowed and GetFilteredPorts answered from real registry keys under
// HKEY_LOCAL_MACHINE (the test prefix's registry), which each object reads when it is created.

#include <windows.h>

#include <gtest/gtest.h>

#include <objbase.h>

#include <algorithm>
#include <string>
#include <vector>

#include "com/wide_text.h"
#include "connection_rules_keys.h"
#include "manager_fixture.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel::test {
namespace {

using Rules = WebFilterConnectionRules;

struct Port {
    const wchar_t* name;
    DWORD value;
};

struct Process {
    const wchar_t* name;
    std::u16string process;
};

struct Connection {
    const char16_t* process;
    unsigned short port;
    long allowed;
};

// Both keys are removed before and after each test, the fixture's object made without them.
class RegistryTest : public ManagerTest {
  protected:
    void SetUp() override {
        RemoveKeys();
        ManagerTest::SetUp();
    }
    void TearDown() override {
        ManagerTest::TearDown();
        RemoveKeys();
    }

    static void RemoveKeys() { ASSERT_TRUE(RemoveConnectionRulesKeys()); }

    static void Write(const std::vector<Port>& ports, const std::vector<Process>& processes) {
        for (const Port& port : ports) {
            ASSERT_TRUE(SetMachineValue(Rules::kFilteredPortsKey, port.name, REG_DWORD, &port.value,
                                        sizeof(port.value)));
        }
        for (const Process& process : processes) {
            ASSERT_TRUE(SetMachineValue(Rules::kAllowedProcessesKey, process.name, REG_SZ,
                                        process.process.c_str(),
                                        (process.process.size() + 1) * sizeof(char16_t)));
        }
    }

    static long ConnectionAllowed(IWebFilterManager& manager, const char16_t* process,
                                  unsigned short port) {
        const BSTR name = process != nullptr ? SysAllocString(AsWide(process)) : nullptr;
        long allowed = -1;
        const HRESULT result = manager.IsProcessConnectionAllowed(name, port, &allowed);
        SysFreeString(name);
        return result == S_OK ? allowed : -1;
    }

    // The filtered ports in ascending order; the call's result in result.
    static std::vector<unsigned short> FilteredPorts(IWebFilterManager& manager, HRESULT& result) {
        unsigned short count = 77;
        unsigned short sentinel = 0;
        unsigned short* list = &sentinel;
        result = manager.GetFilteredPorts(&count, &list);
        EXPECT_NE(list, &sentinel);
        if (list == nullptr || list == &sentinel) {
            EXPECT_EQ(count, 0);
            return {};
        }
        std::vector<unsigned short> ports(list, list + count);
        CoTaskMemFree(list);
        std::sort(ports.begin(), ports.end());
        return ports;
    }
};

TEST_F(RegistryTest, WithoutKeysNoProcessMayConnectAndNoPortIsListed) {
    for (const char16_t* process : {u"browser.exe", u"", static_cast<const char16_t*>(nullptr)}) {
        for (const unsigned short port : std::initializer_list<unsigned short>{0, 80, 65535}) {
            EXPECT_EQ(ConnectionAllowed(Manager(), process, port), 0) << port;
        }
    }
    HRESULT result = E_UNEXPECTED;
    EXPECT_TRUE(FilteredPorts(Manager(), result).empty());
    EXPECT_EQ(result, S_OK);
}

struct RulesCase {
    const char* name;
    std::vector<Port> ports;
    std::vector<Process> processes;
    std::vector<unsigned short> listed;
    std::vector<Connection> connections;
};

class ConnectionRules : public RegistryTest, public testing::WithParamInterface<RulesCase> {};

TEST_P(ConnectionRules, DecideFromTheKeysReadAtCreation) {
    const RulesCase& test = GetParam();
    Write(test.ports, test.processes);
    const ComPtr<IWebFilterManager> manager = CreateManager();
    ASSERT_TRUE(manager);
    for (const Connection& connection : test.connections) {
        EXPECT_EQ(ConnectionAllowed(*manager.Get(), connection.process, connection.port),
                  connection.allowed)
            << AsciiOf(connection.process) << " on " << connection.port;
    }
    HRESULT result = E_UNEXPECTED;
    EXPECT_EQ(FilteredPorts(*manager.Get(), result), test.listed);
    EXPECT_EQ(result, S_OK);
    // The object made before the keys were written answers as without them.
    EXPECT_EQ(ConnectionAllowed(Manager(), u"other.exe", 80), 0);
    EXPECT_TRUE(FilteredPorts(Manager(), result).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Manager, ConnectionRules,
    testing::Values(
        RulesCase{"FilteredPortsWithoutProcesses",
                  {{L"http", 80}, {L"https", 443}},
                  {},
                  {80, 443},
                  {{u"other.exe", 8080, 1}, {u"other.exe", 80, 0}, {u"other.exe", 443, 0}}},
        RulesCase{"ListedProcessOnFilteredPorts",
                  {{L"http", 80}, {L"https", 443}},
                  {{L"browser", u"Browser.exe"}},
                  {80, 443},
                  {{u"browser.exe", 80, 1},
                   {u"BROWSER.EXE", 443, 1},
                   {u"C:\\Apps\\Browser.exe", 80, 0},
                   {u"other.exe", 80, 0},
                   {u"other.exe", 8080, 1}}},
        RulesCase{"ListedProcessWithoutPortsOnEveryPort",
                  {},
                  {{L"browser", u"Browser.exe"}},
                  {},
                  {{u"browser.EXE", 1, 1}, {u"other.exe", 80, 0}, {u"", 80, 0}}},
        RulesCase{"StarAllowsEveryProcess",
                  {{L"http", 80}},
                  {{L"all", u"*"}},
                  {80},
                  {{u"other.exe", 80, 1}, {u"", 80, 1}, {nullptr, 8080, 1}}},
        RulesCase{"HighBitsOfAPortValueAreIgnored",
                  {{L"http", 80 + 65536}, {L"again", 80}},
                  {},
                  {80},
                  {{u"other.exe", 80, 0}, {u"other.exe", 81, 1}}}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace sentrel::test
