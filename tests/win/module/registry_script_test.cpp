#include "module/registry_script.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sentrel {
namespace {

using Removal = RegistryScriptKey::Removal;

const RegistryReplacements kReplacements{{L"MODULE", L"C:\\Program Files\\O'Brien\\x.dll"},
                                         {L"APPID", L"{A}"}};

RegistryScriptKey Key(std::wstring name, Removal removal = Removal::Remove) {
    RegistryScriptKey key;
    key.name = std::move(name);
    key.removal = removal;
    return key;
}

TEST(RegistryScript, ReadsKeysDefaultValuesNamedValuesAndRemovalRules) {
    const std::wstring text =
        LR"(
        HKCR
        {
            Plain.Key = s 'Display name'
            {
                Sub = s 'x'
            }
            NoRemove CLSID
            {
                ForceRemove '{6F65A0E5-503D-496A-AB03-E7ADF0180E28}' = s 'Class'
                {
                    val AppID = s '%APPID%'
                    InprocServer32 = s '%MODULE%'
                    {
                        val ThreadingModel = s 'Both'
                    }
                }
            }
        }
        HKEY_CLASSES_ROOT { Second }
    )";
    RegistryScriptKey plain = Key(L"Plain.Key");
    plain.defaultValue = L"Display name";
    RegistryScriptKey sub = Key(L"Sub");
    sub.defaultValue = L"x";
    plain.subkeys.push_back(sub);
    RegistryScriptKey server = Key(L"InprocServer32");
    server.defaultValue = L"C:\\Program Files\\O'Brien\\x.dll";
    server.values.push_back({L"ThreadingModel", L"Both"});
    RegistryScriptKey classKey =
        Key(L"{6F65A0E5-503D-496A-AB03-E7ADF0180E28}", Removal::ForceRemove);
    classKey.defaultValue = L"Class";
    classKey.values.push_back({L"AppID", L"{A}"});
    classKey.subkeys.push_back(server);
    RegistryScriptKey clsid = Key(L"CLSID", Removal::NoRemove);
    clsid.subkeys.push_back(classKey);
    const RegistryScript expected{{plain, clsid, Key(L"Second")}};

    const std::optional<RegistryScript> script = ParseRegistryScript(text, kReplacements);
    ASSERT_TRUE(script);
    EXPECT_EQ(*script, expected);
}

TEST(RegistryScript, ReplacementsThatHoldQuotesOrBracesStayOneText) {
    // The replacement is made after the text is split into words, so the quote in the module's
    // path neither ends the quoted text nor needs escaping.
    const std::optional<RegistryScript> script =
        ParseRegistryScript(L"HKCR { K = s '%MODULE%' }", kReplacements);
    ASSERT_TRUE(script);
    ASSERT_EQ(script->classesKeys.size(), 1u);
    EXPECT_EQ(script->classesKeys[0].defaultValue, kReplacements.at(L"MODULE"));
}

struct TextCase {
    const wchar_t* script;
    const wchar_t* expected;  // the one key's default value
};

TEST(RegistryScript, QuotesPercentSignsAndKeywordsInTexts) {
    const std::vector<TextCase> cases{
        {L"HKCR { K = s 'it''s' }", L"it's"},
        {L"HKCR { K = s '''' }", L"'"},
        {L"HKCR { K = s '' }", L""},
        {L"HKCR { K = s '100%%' }", L"100%"},
        {L"HKCR { K = s '%%APPID%%' }", L"%APPID%"},
        {L"HKCR { K = s 'a %APPID% b' }", L"a {A} b"},
        {L"hkcr { K = S 'keywords ignore case' }", L"keywords ignore case"},
        {L"\xFEFFHKCR { K = s 'after a byte order mark' }", L"after a byte order mark"},
        {L"HKCR\r\n{\r\n\tK = s 'tabs and CR LF'\r\n}\r\n", L"tabs and CR LF"},
    };
    for (const TextCase& test : cases) {
        SCOPED_TRACE(testing::Message() << test.script);
        const std::optional<RegistryScript> script =
            ParseRegistryScript(test.script, kReplacements);
        ASSERT_TRUE(script);
        ASSERT_EQ(script->classesKeys.size(), 1u);
        EXPECT_EQ(script->classesKeys[0].defaultValue, std::wstring(test.expected));
    }
}

TEST(RegistryScript, KeywordsAreNamesWhenQuotedAndRemovalWordsIgnoreCase) {
    const std::optional<RegistryScript> script = ParseRegistryScript(
        L"HKCR { noremove A { 'val' 'NoRemove' FORCEREMOVE B s } }", kReplacements);
    ASSERT_TRUE(script);
    ASSERT_EQ(script->classesKeys.size(), 1u);
    const RegistryScriptKey& a = script->classesKeys[0];
    EXPECT_EQ(a.removal, Removal::NoRemove);
    ASSERT_EQ(a.subkeys.size(), 4u);
    EXPECT_EQ(a.subkeys[0].name, L"val");
    EXPECT_EQ(a.subkeys[1].name, L"NoRemove");
    EXPECT_EQ(a.subkeys[1].removal, Removal::Remove);
    EXPECT_EQ(a.subkeys[2].name, L"B");
    EXPECT_EQ(a.subkeys[2].removal, Removal::ForceRemove);
    EXPECT_EQ(a.subkeys[3].name, L"s");
}

TEST(RegistryScript, AnEmptyScriptHasNoKeys) {
    for (const wchar_t* text : {L"", L"  \r\n\t", L"HKCR { }"}) {
        const std::optional<RegistryScript> script = ParseRegistryScript(text, kReplacements);
        ASSERT_TRUE(script);
        EXPECT_TRUE(script->classesKeys.empty());
    }
}

TEST(RegistryScript, RejectsMalformedScripts) {
    const std::vector<const wchar_t*> malformed{
        L"HKCR",                             // no block
        L"HKCR {",                           // block not closed
        L"HKCR { K { }",                     // inner block closed, outer not
        L"HKCR { } }",                       // one brace too many
        L"{ K }",                            // no root
        L"HKLM { K }",                       // a root other than the classes
        L"HKCU { K }",                       //
        L"HKCR { val V = s 'x' }",           // a value with no key to hold it
        L"HKCR { K { val V } }",             // a value without data
        L"HKCR { K { val = s 'x' } }",       // a value without a name
        L"HKCR { K { val '' = s 'x' } }",    // an empty value name
        L"HKCR { K = d '1' }",               // a type other than a string
        L"HKCR { K = s x }",                 // data not quoted
        L"HKCR { K = s }",                   // no data
        L"HKCR { K = }",                     //
        L"HKCR { K = s 'unterminated }",     // quote not closed
        L"HKCR { 'unterminated }",           //
        L"HKCR { '' }",                      // an empty key name
        L"HKCR { 'a\\b' }",                  // a key name holding a path
        L"HKCR { NoRemove }",                // a removal word without a key
        L"HKCR { NoRemove ForceRemove K }",  // two removal words
        L"HKCR { K = s '%UNKNOWN%' }",       // a replacement that is not given
        L"HKCR { K = s '%APPID' }",          // a replacement not closed
        L"HKCR { %UNKNOWN% }",               //
        L"HKCR { = s 'x' }",                 // a value without a key
        L"HKCR { K } trailing",              // text after the last block
    };
    for (const wchar_t* text : malformed) {
        SCOPED_TRACE(testing::Message() << text);
        EXPECT_FALSE(ParseRegistryScript(text, kReplacements));
    }
}

std::wstring Nested(std::size_t depth) {
    std::wstring text = L"HKCR {";
    for (std::size_t level = 0; level < depth; ++level) {
        text += L" K {";
    }
    text += std::wstring(depth + 1, L'}');
    return text;
}

TEST(RegistryScript, NestingIsBoundedSoThatNoScriptExhaustsTheStack) {
    EXPECT_TRUE(ParseRegistryScript(Nested(kRegistryScriptMaxDepth), kReplacements));
    EXPECT_FALSE(ParseRegistryScript(Nested(kRegistryScriptMaxDepth + 1), kReplacements));
    EXPECT_FALSE(ParseRegistryScript(Nested(100000), kReplacements));
}

TEST(RegistryScript, EveryPrefixOfAValidScriptIsReadOrRejectedWithoutHarm) {
    const std::wstring text =
        L"HKCR { NoRemove CLSID { ForceRemove '{X}' = s 'it''s' { val A = s '%APPID%' } } }";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const std::optional<RegistryScript> script =
            ParseRegistryScript(std::wstring_view(text).substr(0, length), kReplacements);
        // Only the empty text and the whole script are complete scripts.
        EXPECT_EQ(script.has_value(), length == 0 || length == text.size()) << length;
    }
}

}  // namespace
}  // namespace sentrel
