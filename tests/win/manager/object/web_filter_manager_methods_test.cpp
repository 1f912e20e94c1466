// The six methods of IWebFilterManager as a client calls them: results, out-parameters and the
// decisions that follow from each kind of filter.

#include <windows.h>

#include <gtest/gtest.h>

#include <oleauto.h>

#include <bit>
#include <string>
#include <vector>

#include "manager_fixture.h"

namespace sentrel::test {
namespace {

constexpr ::WebFilterType kOutsideTypes = static_cast<::WebFilterType>(3);

using MethodsTest = ManagerTest;

TEST_F(MethodsTest, NewObjectAllowsEveryTextAndHoldsTheDefaultPolicy) {
    for (const char16_t* url : {u"", u"http://h/", u"not a url", u"ftp://x.example:21/a"}) {
        EXPECT_EQ(Allowed(Manager(), url), 1) << AsciiOf(url);
    }
    EXPECT_EQ(Allowed(Manager(), BSTR{nullptr}), 1);
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(WebFilterBlockNone, 0, EmptyDocument(0)));
}

TEST_F(MethodsTest, GetFilterContentHandsBackThePolicySerialisedAnew) {
    const std::u16string document =
        ListDocument(3, ListKind::Black, {u"http://blocked.example/", u"https://x.example/a"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, document), S_OK);
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(WebFilterBlockPolicy, 3, document));

    // The text is the policy in force, not the text that was set.
    const std::u16string spaced = u"  " + ListDocument(3, ListKind::Black, {u"http://b.example/"});
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, spaced), S_OK);
    EXPECT_EQ(ContentOf(Manager()).text, kByteOrderMark + spaced.substr(2));
}

TEST_F(MethodsTest, GetFilterContentSkipsTheOutParametersThatAreNull) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(4, ListKind::White, {u"http://a.example/"})),
              S_OK);
    auto type = kNoType;
    EXPECT_EQ(Manager().GetFilterContent(&type, nullptr, nullptr), S_OK);
    EXPECT_EQ(type, WebFilterBlockPolicy);
    int refreshMode = -1;
    type = kNoType;
    EXPECT_EQ(Manager().GetFilterContent(&type, nullptr, &refreshMode), S_OK);
    EXPECT_EQ(type, WebFilterBlockPolicy);
    EXPECT_EQ(refreshMode, 4);
    BSTR text = nullptr;
    EXPECT_EQ(Manager().GetFilterContent(&type, &text, nullptr), S_OK);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text[0], kByteOrderMark);
    SysFreeString(text);
}

TEST_F(MethodsTest, NullOutPointersAreRefusedWithoutSideEffects) {
    const BSTR url = SysAllocString(L"http://h/");
    EXPECT_EQ(Manager().IsUrlAllowed(url, nullptr), E_POINTER);
    EXPECT_EQ(Manager().IsProcessConnectionAllowed(url, 80, nullptr), E_POINTER);
    SysFreeString(url);

    const BSTR untouchedText = reinterpret_cast<BSTR>(0x1234);
    BSTR text = untouchedText;
    int refreshMode = 77;
    EXPECT_EQ(Manager().GetFilterContent(nullptr, &text, &refreshMode), E_POINTER);
    EXPECT_EQ(text, untouchedText);
    EXPECT_EQ(refreshMode, 77);

    unsigned short count = 9;
    unsigned short* ports = &count;
    EXPECT_EQ(Manager().GetFilteredPorts(nullptr, &ports), E_INVALIDARG);
    EXPECT_EQ(ports, &count);
    EXPECT_EQ(Manager().GetFilteredPorts(&count, nullptr), E_INVALIDARG);
    EXPECT_EQ(count, 9);

    EXPECT_EQ(Manager().QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}

TEST_F(MethodsTest, BstrTextEndsAtItsFirstZeroCharacter) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy,
                         ListDocument(0, ListKind::Black, {u"http://blocked.example/"})),
              S_OK);
    // Read by its stated length the URL would name another host, one that is not listed.
    static constexpr wchar_t kUrl[] = L"http://blocked.example\0.other.net/";
    const BSTR url = SysAllocStringLen(kUrl, static_cast<UINT>(std::size(kUrl) - 1));
    EXPECT_EQ(Allowed(Manager(), url), 0);
    SysFreeString(url);
}

// What one SetFilterContent on a new object returns, and how the object decides afterwards.
struct SetCase {
    const char* name;
    ::WebFilterType type;
    std::u16string text;
    bool nullText;
    HRESULT result;
    std::vector<std::pair<std::u16string, long>> decisions;
};

class SetFilterContentDecides : public ManagerTest, public testing::WithParamInterface<SetCase> {};

TEST_P(SetFilterContentDecides, AsItsTypeAndPolicySay) {
    const SetCase& test = GetParam();
    EXPECT_EQ(SetContent(Manager(), test.type, test.nullText ? nullptr : test.text.c_str()),
              test.result);
    for (const auto& [url, allowed] : test.decisions) {
        EXPECT_EQ(Allowed(Manager(), url.c_str()), allowed) << AsciiOf(url.c_str());
    }
    EXPECT_EQ(ContentOf(Manager()).type, test.type);
}

const std::u16string kBlackDocument =
    ListDocument(0, ListKind::Black, {u"http://blocked.example/", u"https://secure.example/x"});
const std::u16string kWhiteDocument = ListDocument(0, ListKind::White, {u"http://good.example/"});

INSTANTIATE_TEST_SUITE_P(
    Manager, SetFilterContentDecides,
    testing::Values(SetCase{"BlackList",
                            WebFilterBlockPolicy,
                            kBlackDocument,
                            false,
                            S_OK,
                            {{u"http://blocked.example/page", 0},
                             {u"http://www.blocked.example/", 0},
                             {u"https://secure.example/x/y", 0},
                             {u"https://secure.example/y", 1},
                             {u"http://other.example/", 1},
                             {u"about:blank", 1},
                             {u"", 0}}},
                    SetCase{"WhiteList",
                            WebFilterBlockPolicy,
                            kWhiteDocument,
                            false,
                            S_OK,
                            {{u"http://good.example/a", 1},
                             {u"http://other.example/", 0},
                             {u"file:///c:/page.html", 1},
                             {u"", 0}}},
                    SetCase{"PolicyWithEmptyText",
                            WebFilterBlockPolicy,
                            u"",
                            false,
                            S_OK,
                            {{u"http://blocked.example/", 1}, {u"", 1}}},
                    SetCase{"PolicyWithNullText",
                            WebFilterBlockPolicy,
                            u"",
                            true,
                            S_OK,
                            {{u"http://blocked.example/", 1}, {u"", 1}}},
                    SetCase{"BlockAllWithEmptyText",
                            WebFilterBlockAll,
                            u"",
                            false,
                            S_OK,
                            {{u"http://h/", 0}, {u"about:blank", 1}, {u"", 0}}},
                    // Lists given with another type are published but not read here.
                    SetCase{"BlockAllWithLists",
                            WebFilterBlockAll,
                            kWhiteDocument,
                            false,
                            S_OK,
                            {{u"http://good.example/", 0}, {u"about:blank", 1}}},
                    // Nothing published before: there is nothing to lift.
                    SetCase{"NoneOnANewObject",
                            WebFilterBlockNone,
                            u"",
                            false,
                            E_FAIL,
                            {{u"http://h/", 1}, {u"", 1}}},
                    SetCase{"NoneWithLists",
                            WebFilterBlockNone,
                            kBlackDocument,
                            false,
                            E_FAIL,
                            {{u"http://blocked.example/", 1}}},
                    // Accepted here, never published; the lists are not read, and an empty text is
                    // one that cannot be cracked.
                    SetCase{"TypeOutsideTheEnumeration",
                            kOutsideTypes,
                            kBlackDocument,
                            false,
                            E_FAIL,
                            {{u"http://blocked.example/", 1}, {u"about:blank", 1}, {u"", 0}}},
                    // Judged at 32 bits: its low 16 bits would read as WebFilterBlockPolicy.
                    SetCase{"TypeBeyondSixteenBits",
                            std::bit_cast<::WebFilterType>(0x10001),
                            kBlackDocument,
                            false,
                            E_FAIL,
                            {{u"http://blocked.example/", 1}}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(MethodsTest, MalformedDocumentKeepsTheListsReadBeforeTheFault) {
    const std::u16string whole = ListDocument(2, ListKind::Black, {u"http://first.example/"});
    const std::u16string broken =
        whole.substr(0, whole.size() - std::u16string(u"</WebFilters>").size()) +
        u"<BlackList><BLId>{5A8E2C44-7F1B-4D39-9E60-1C3B7A2F8D15}</BLId><BLDenied><BLDEntry>"
        u"<BLDEntryUrl>http://second.example/</BLDEntryUrl></BLDEntry></BLDenied></WhiteList>"
        u"</WebFilters>";
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, broken), S_OK);
    EXPECT_EQ(Allowed(Manager(), u"http://first.example/"), 0);
    EXPECT_EQ(Allowed(Manager(), u"http://second.example/"), 1);
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(WebFilterBlockPolicy, 2, whole));
}

TEST_F(MethodsTest, TypeOutsideTheEnumerationIsReportedBack) {
    EXPECT_EQ(SetContent(Manager(), kOutsideTypes, kBlackDocument), E_FAIL);
    EXPECT_EQ(ContentOf(Manager()), SucceededContent(kOutsideTypes, 0, EmptyDocument(0)));
}

TEST_F(MethodsTest, NoMethodSetsErrorInformation) {
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(SetContent(Manager(), WebFilterBlockNone, u""), E_FAIL);
    EXPECT_EQ(Manager().IsUrlAllowed(nullptr, nullptr), E_POINTER);
    IErrorInfo* info = nullptr;
    EXPECT_EQ(GetErrorInfo(0, &info), S_FALSE);
    EXPECT_EQ(info, nullptr);
}

}  // namespace
}  // namespace sentrel::test
