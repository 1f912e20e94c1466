#include "module/registrar.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <string>
#include <vector>

#include "registry_tree.h"

namespace sentrel {
namespace {

using test::CreateRegistryKey;
using test::RegistryKeyExists;
using test::RegistryTree;

// Scripts run under a key of this process's own instead of the classes root, so these tests
// touch nothing that other tests or programs use.
class RegistrarTest : public testing::Test {
  protected:
    void SetUp() override {
        HKEY created = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                                  nullptr, &created, nullptr),
                  ERROR_SUCCESS);
        root_.Reset(created);
    }
    void TearDown() override {
        root_.Reset();
        RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    }

    HRESULT Run(const wchar_t* text, RegistrarMode mode) {
        const std::optional<RegistryScript> script =
            ParseRegistryScript(text, {{L"MODULE", L"C:\\m.dll"}});
        EXPECT_TRUE(script);
        return script ? RunRegistryScript(*script, mode, root_.Get()) : E_FAIL;
    }

    std::vector<std::wstring> Tree(const std::wstring& key = L"") const {
        return RegistryTree(HKEY_CURRENT_USER, key.empty() ? path_ : path_ + L"\\" + key);
    }

    // A key (and the keys on its way) that the script did not write.
    void AddForeignKey(const std::wstring& key, const wchar_t* value = nullptr) {
        ASSERT_TRUE(CreateRegistryKey(root_.Get(), key));
        if (value != nullptr) {
            const wchar_t data[] = L"foreign";
            ASSERT_EQ(RegSetKeyValueW(root_.Get(), key.c_str(), value, REG_SZ, data, sizeof(data)),
                      ERROR_SUCCESS);
        }
    }

    const std::wstring path_ =
        L"Software\\SentrelRegistrarTests\\" + std::to_wstring(GetCurrentProcessId());
    UniqueKey root_;
};

constexpr const wchar_t* kScript =
    LR"(
    HKCR
    {
        Prog.Id = s 'Thing'
        {
            CLSID = s '{C}'
        }
        NoRemove CLSID
        {
            ForceRemove '{C}' = s 'Thing'
            {
                val AppID = s '{A}'
                InprocServer32 = s '%MODULE%'
                {
                    val ThreadingModel = s 'Both'
                }
            }
        }
    })";

TEST_F(RegistrarTest, RegisteringWritesEveryKeyDefaultValueAndValue) {
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    const std::vector<std::wstring> expected{L"[]",
                                             L"[CLSID\\{C}\\InprocServer32] =C:\\m.dll",
                                             L"[CLSID\\{C}\\InprocServer32] ThreadingModel=Both",
                                             L"[CLSID\\{C}\\InprocServer32]",
                                             L"[CLSID\\{C}] =Thing",
                                             L"[CLSID\\{C}] AppID={A}",
                                             L"[CLSID\\{C}]",
                                             L"[CLSID]",
                                             L"[Prog.Id\\CLSID] ={C}",
                                             L"[Prog.Id\\CLSID]",
                                             L"[Prog.Id] =Thing",
                                             L"[Prog.Id]"};
    std::vector<std::wstring> sorted = expected;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(Tree(), sorted);
}

TEST_F(RegistrarTest, RegisteringTwiceGivesTheSameKeys) {
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    const std::vector<std::wstring> once = Tree();
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    EXPECT_EQ(Tree(), once);
}

TEST_F(RegistrarTest, UnregisteringRemovesWhatWasWrittenAndKeepsNoRemoveKeys) {
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    ASSERT_EQ(Run(kScript, RegistrarMode::Unregister), S_OK);
    EXPECT_EQ(Tree(), (std::vector<std::wstring>{L"[CLSID]", L"[]"}));
}

TEST_F(RegistrarTest, UnregisteringWhatIsNotThereSucceeds) {
    EXPECT_EQ(Run(kScript, RegistrarMode::Unregister), S_OK);
    EXPECT_EQ(Tree(), std::vector<std::wstring>{L"[]"});
    AddForeignKey(L"CLSID");
    EXPECT_EQ(Run(kScript, RegistrarMode::Unregister), S_OK);
    EXPECT_EQ(Run(L"HKCR { NoRemove CLSID { val Missing = s 'x' } }", RegistrarMode::Unregister),
              S_OK);
}

TEST_F(RegistrarTest, ForceRemoveReplacesAnExistingKeyWhole) {
    AddForeignKey(L"CLSID\\{C}\\Stale\\Deep", L"Old");
    AddForeignKey(L"CLSID\\{C}", L"StaleValue");
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    const std::vector<std::wstring> tree = Tree(L"CLSID\\{C}");
    EXPECT_EQ(std::count_if(tree.begin(), tree.end(),
                            [](const std::wstring& line) {
                                return line.find(L"Stale") != std::wstring::npos;
                            }),
              0);
    EXPECT_EQ(tree.size(), 6u);
}

TEST_F(RegistrarTest, UnregisteringKeepsKeysThatOtherProgramsAddedTo) {
    ASSERT_EQ(Run(kScript, RegistrarMode::Register), S_OK);
    // Under a plain key a foreign subkey keeps the key; under a ForceRemove key it goes with it;
    // under a NoRemove key it stays, as does the key.
    AddForeignKey(L"Prog.Id\\Other", L"V");
    AddForeignKey(L"CLSID\\{C}\\Other");
    AddForeignKey(L"CLSID\\{Other}");
    ASSERT_EQ(Run(kScript, RegistrarMode::Unregister), S_OK);
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\Prog.Id\\Other"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\Prog.Id\\CLSID"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\CLSID\\{C}"));
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\CLSID\\{Other}"));
}

TEST_F(RegistrarTest, UnregisteringANoRemoveKeyRemovesTheValuesTheScriptNames) {
    AddForeignKey(L"Kept", L"Theirs");
    const wchar_t* script = L"HKCR { NoRemove Kept = s 'd' { val Ours = s 'x' } }";
    ASSERT_EQ(Run(script, RegistrarMode::Register), S_OK);
    ASSERT_EQ(Run(script, RegistrarMode::Unregister), S_OK);
    EXPECT_EQ(Tree(L"Kept"), (std::vector<std::wstring>{L"[]", L"[] =d", L"[] Theirs=foreign"}));
}

TEST_F(RegistrarTest, RegisteringStopsAtTheFirstFailureAndReturnsIt) {
    // A volatile key takes no lasting subkey: the registrar's first write under it fails.
    ASSERT_TRUE(CreateRegistryKey(root_.Get(), L"Volatile", REG_OPTION_VOLATILE));
    EXPECT_EQ(Run(L"HKCR { First Volatile { Child } Never }", RegistrarMode::Register),
              HRESULT_FROM_WIN32(ERROR_CHILD_MUST_BE_VOLATILE));
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\First"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\Volatile\\Child"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, path_ + L"\\Never"));
}

struct ScopeCase {
    RegistrationScope scope;
    HKEY writtenUnder;
    const wchar_t* writtenPath;
    HKEY notUnder;
    const wchar_t* notPath;
};

TEST(ClassesRoot, IsTheCurrentUsersClassesOrTheMachinesByScope) {
    const std::vector<ScopeCase> cases{
        {RegistrationScope::User, HKEY_CURRENT_USER, L"Software\\Classes\\", HKEY_LOCAL_MACHINE,
         L"Software\\Classes\\"},
        {RegistrationScope::Machine, HKEY_CLASSES_ROOT, L"", HKEY_CURRENT_USER,
         L"Software\\Classes\\"},
    };
    const std::wstring name = L"SentrelRegistrarTests." + std::to_wstring(GetCurrentProcessId());
    const std::optional<RegistryScript> script =
        ParseRegistryScript(L"HKCR { '" + name + L"' = s 'x' }", {});
    ASSERT_TRUE(script);
    for (const ScopeCase& test : cases) {
        SCOPED_TRACE(test.scope == RegistrationScope::User ? "user" : "machine");
        UniqueKey root;
        ASSERT_EQ(OpenClassesRoot(test.scope, root), ERROR_SUCCESS);
        ASSERT_EQ(RunRegistryScript(*script, RegistrarMode::Register, root.Get()), S_OK);
        EXPECT_TRUE(RegistryKeyExists(test.writtenUnder, test.writtenPath + name));
        EXPECT_FALSE(RegistryKeyExists(test.notUnder, test.notPath + name));
        ASSERT_EQ(RunRegistryScript(*script, RegistrarMode::Unregister, root.Get()), S_OK);
        EXPECT_FALSE(RegistryKeyExists(test.writtenUnder, test.writtenPath + name));
    }
}

}  // namespace
}  // namespace sentrel
