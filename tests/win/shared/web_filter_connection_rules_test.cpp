#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "connection_rules_keys.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel {
namespace {

using Rules = WebFilterConnectionRules;

// Writes real values under HKEY_LOCAL_MACHINE (the test prefix's registry); both keys are removed
// before and after each test.
class ConnectionRulesTest : public ::testing::Test {
  protected:
    void SetUp() override { RemoveKeys(); }
    void TearDown() override { RemoveKeys(); }

    static void RemoveKeys() { ASSERT_TRUE(test::RemoveConnectionRulesKeys()); }

    static void SetValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data,
                         std::size_t bytes) {
        ASSERT_TRUE(test::SetMachineValue(key, name, type, data, bytes));
    }

    // Stores exactly these bytes as a string value. The registry adds a terminator that the
    // caller seems to have forgotten when one follows the data in memory, so the bytes are
    // stored from a buffer that has no zero character around them.
    static void SetExactText(const wchar_t* key, const wchar_t* name, DWORD type,
                             const std::string& bytes) {
        std::string guarded = "GG" + bytes + "GG";
        SetValue(key, name, type, guarded.data() + 2, bytes.size());
    }

    static void AddPort(const wchar_t* name, DWORD value) {
        SetValue(Rules::kFilteredPortsKey, name, REG_DWORD, &value, sizeof(value));
    }

    // With the terminator, as programs normally store a REG_SZ.
    static void AddProcess(const wchar_t* name, const std::u16string& process,
                           DWORD type = REG_SZ) {
        SetValue(Rules::kAllowedProcessesKey, name, type, process.c_str(),
                 (process.size() + 1) * sizeof(char16_t));
    }

    static Rules Loaded() {
        Rules rules;
        EXPECT_TRUE(rules.LoadFromRegistry());
        return rules;
    }

    static std::vector<std::uint16_t> Ports(const Rules& rules) {
        std::vector<std::uint16_t> ports;
        rules.GetPorts(ports);
        return ports;
    }
};

TEST_F(ConnectionRulesTest, WithoutKeysNothingIsAllowedAndNoPortListed) {
    const Rules rules = Loaded();
    EXPECT_TRUE(Ports(rules).empty());
    EXPECT_FALSE(rules.IsProcessAllowed(u"browser.exe"));
    EXPECT_FALSE(rules.IsConnectionAllowed(u"browser.exe", 80));
    EXPECT_FALSE(rules.IsConnectionAllowed(u"", 0));
}

TEST_F(ConnectionRulesTest, ListedProcessIsAllowedOnEveryPortWhenNoPortIsListed) {
    AddProcess(L"browser", u"Browser.exe");
    const Rules rules = Loaded();
    EXPECT_TRUE(rules.IsConnectionAllowed(u"browser.EXE", 80));
    EXPECT_TRUE(rules.IsConnectionAllowed(u"BROWSER.exe", 65535));
    EXPECT_FALSE(rules.IsConnectionAllowed(u"other.exe", 80));
    // The whole name must match: no path is stripped, no prefix or suffix counts.
    EXPECT_FALSE(rules.IsProcessAllowed(u"C:\\apps\\browser.exe"));
    EXPECT_FALSE(rules.IsProcessAllowed(u"browser.ex"));
    EXPECT_FALSE(rules.IsProcessAllowed(u"browser.exe "));
}

TEST_F(ConnectionRulesTest, OnlyFilteredPortsNeedAnAllowedProcess) {
    AddPort(L"http", 80);
    AddPort(L"https", 443);
    {
        const Rules rules = Loaded();
        EXPECT_TRUE(rules.IsConnectionAllowed(u"other.exe", 8080));
        EXPECT_FALSE(rules.IsConnectionAllowed(u"other.exe", 80));
        EXPECT_FALSE(rules.IsConnectionAllowed(u"other.exe", 443));
        EXPECT_EQ(Ports(rules), (std::vector<std::uint16_t>{80, 443}));
    }
    AddProcess(L"listed", u"Other.exe");
    {
        const Rules rules = Loaded();
        EXPECT_TRUE(rules.IsConnectionAllowed(u"other.exe", 80));
        EXPECT_FALSE(rules.IsConnectionAllowed(u"another.exe", 443));
    }
}

TEST_F(ConnectionRulesTest, StarAllowsEveryProcessOnEveryPort) {
    AddPort(L"http", 80);
    AddProcess(L"all", u"*");
    const Rules rules = Loaded();
    EXPECT_TRUE(rules.IsConnectionAllowed(u"anything.exe", 80));
    EXPECT_TRUE(rules.IsProcessAllowed(u""));
}

TEST_F(ConnectionRulesTest, StarOnlyCountsAsTheWholeEntry) {
    AddProcess(L"pattern", u"*.exe");
    AddProcess(L"padded", u" *");
    const Rules rules = Loaded();
    EXPECT_FALSE(rules.IsProcessAllowed(u"browser.exe"));
    EXPECT_TRUE(rules.IsProcessAllowed(u"*.EXE"));  // just a name that happens to hold a star
}

TEST_F(ConnectionRulesTest, PortIsTheLowSixteenBitsOfTheDword) {
    AddPort(L"high", 80 + 65536);
    AddPort(L"top", 0xFFFF0000u + 443);
    AddPort(L"zero", 0x12340000u);
    const Rules rules = Loaded();
    EXPECT_EQ(Ports(rules), (std::vector<std::uint16_t>{0, 80, 443}));
    EXPECT_FALSE(rules.IsConnectionAllowed(u"x.exe", 80));
    EXPECT_TRUE(rules.IsConnectionAllowed(u"x.exe", 81));
}

TEST_F(ConnectionRulesTest, DuplicatePortsAndNamesGiveOneEntry) {
    AddPort(L"a", 8080);
    AddPort(L"b", 8080);
    AddPort(L"c", 8080 + 0x10000);
    AddProcess(L"lower", u"tool.exe");
    AddProcess(L"upper", u"TOOL.EXE");
    const Rules rules = Loaded();
    EXPECT_EQ(Ports(rules), (std::vector<std::uint16_t>{8080}));
    EXPECT_TRUE(rules.IsConnectionAllowed(u"Tool.Exe", 8080));
}

TEST_F(ConnectionRulesTest, ValuesOfOtherTypesAreIgnored) {
    AddProcess(L"port as text", u"80");
    SetValue(Rules::kFilteredPortsKey, L"port as text", REG_SZ, u"80", sizeof(u"80"));
    const std::uint64_t wide = 443;
    SetValue(Rules::kFilteredPortsKey, L"qword", REG_QWORD, &wide, sizeof(wide));
    const unsigned char binary[] = {0x50, 0x00, 0x00, 0x00};
    SetValue(Rules::kFilteredPortsKey, L"binary", REG_BINARY, binary, sizeof(binary));
    AddProcess(L"expand", u"expand.exe", REG_EXPAND_SZ);
    SetValue(Rules::kAllowedProcessesKey, L"multi", REG_MULTI_SZ, u"multi.exe\0",
             sizeof(u"multi.exe\0"));
    SetValue(Rules::kAllowedProcessesKey, L"dword", REG_DWORD, &binary, sizeof(binary));
    const Rules rules = Loaded();
    EXPECT_TRUE(Ports(rules).empty());
    EXPECT_TRUE(rules.IsProcessAllowed(u"80"));
    EXPECT_FALSE(rules.IsProcessAllowed(u"expand.exe"));
    EXPECT_FALSE(rules.IsProcessAllowed(u"multi.exe"));
}

TEST_F(ConnectionRulesTest, NameStoredWithoutTerminatorLosesItsLastCharacter) {
    const std::u16string name = u"app.exe";
    SetExactText(Rules::kAllowedProcessesKey, L"bare", REG_SZ,
                 std::string(reinterpret_cast<const char*>(name.data()), name.size() * 2));
    const Rules rules = Loaded();
    EXPECT_TRUE(rules.IsProcessAllowed(u"app.ex"));
    EXPECT_FALSE(rules.IsProcessAllowed(u"app.exe"));
}

TEST_F(ConnectionRulesTest, ShortValuesAreNeverReadBeyondTheirData) {
    // A one-byte and an empty REG_DWORD hold no port; a REG_SZ of one byte holds no name, while
    // one of two bytes holds the empty name.
    const unsigned char one = 80;
    SetValue(Rules::kFilteredPortsKey, L"one byte", REG_DWORD, &one, 1);
    SetValue(Rules::kFilteredPortsKey, L"empty", REG_DWORD, &one, 0);
    SetExactText(Rules::kAllowedProcessesKey, L"one byte", REG_SZ, "x");
    {
        const Rules rules = Loaded();
        EXPECT_TRUE(Ports(rules).empty());
        EXPECT_FALSE(rules.IsProcessAllowed(u""));
    }
    SetExactText(Rules::kAllowedProcessesKey, L"terminator only", REG_SZ, std::string(2, '\0'));
    const unsigned short two = 8443;
    SetValue(Rules::kFilteredPortsKey, L"two bytes", REG_DWORD, &two, sizeof(two));
    const Rules rules = Loaded();
    EXPECT_EQ(Ports(rules), (std::vector<std::uint16_t>{8443}));
    EXPECT_TRUE(rules.IsProcessAllowed(u""));
}

TEST_F(ConnectionRulesTest, ManyValuesOfMixedLengthsAreAllRead) {
    std::vector<std::uint16_t> expected;
    for (DWORD port = 1000; port < 1300; port += 3) {
        AddPort((L"port" + std::to_wstring(port)).c_str(), port);
        expected.push_back(static_cast<std::uint16_t>(port));
    }
    const std::u16string longName(300, u'N');
    AddProcess(L"long", longName);
    AddProcess(L"short", u"a");
    const Rules rules = Loaded();
    EXPECT_EQ(Ports(rules), expected);
    EXPECT_TRUE(rules.IsProcessAllowed(std::u16string(300, u'n')));
    EXPECT_TRUE(rules.IsProcessAllowed(u"A"));
}

TEST_F(ConnectionRulesTest, ClearForgetsEverythingAndGetPortsAppends) {
    AddPort(L"http", 80);
    AddProcess(L"all", u"*");
    Rules rules = Loaded();
    std::vector<std::uint16_t> ports{7};
    rules.GetPorts(ports);
    EXPECT_EQ(ports, (std::vector<std::uint16_t>{7, 80}));

    rules.Clear();
    EXPECT_TRUE(Ports(rules).empty());
    EXPECT_FALSE(rules.IsProcessAllowed(u"anything.exe"));
    EXPECT_FALSE(rules.IsConnectionAllowed(u"anything.exe", 80));
}

TEST_F(ConnectionRulesTest, LaterRegistryChangesAreNotSeenUntilLoadedAgain) {
    AddProcess(L"first", u"first.exe");
    Rules rules = Loaded();
    AddProcess(L"second", u"second.exe");
    EXPECT_FALSE(rules.IsProcessAllowed(u"second.exe"));
    rules.Clear();
    rules.LoadFromRegistry();
    EXPECT_TRUE(rules.IsProcessAllowed(u"second.exe"));
}

}  // namespace
}  // namespace sentrel
