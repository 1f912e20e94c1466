// The type library of Sentrel64.dll as built, read from the module's resource and, once the module
// is registered, through its registration, as clients read it.

#include <windows.h>

#include <gtest/gtest.h>
#include <oleauto.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "child_process.h"
#include "manager/bstr.h"
#include "manager/com_ptr.h"
#include "module_test_paths.h"
#include "sentrel_h.h"
#include "sentrel_registration.h"
#include "shared/wide_text.h"

namespace sentrel::test {
namespace {

struct Documentation {
    std::u16string name;
    std::u16string help;
};

template <class Info>
Documentation Document(Info* info, MEMBERID member) {
    Bstr name;
    Bstr help;
    EXPECT_EQ(info->GetDocumentation(member, name.Put(), help.Put(), nullptr, nullptr), S_OK);
    return {std::u16string(name.View()), std::u16string(help.View())};
}

// Type attributes, released on every way out.
class TypeAttributes {
  public:
    explicit TypeAttributes(ITypeInfo* info) : info_(info) {
        EXPECT_EQ(info->GetTypeAttr(&attributes_), S_OK);
    }
    TypeAttributes(const TypeAttributes&) = delete;
    TypeAttributes& operator=(const TypeAttributes&) = delete;
    ~TypeAttributes() { info_->ReleaseTypeAttr(attributes_); }
    const TYPEATTR* operator->() const { return attributes_; }

  private:
    ITypeInfo* info_;
    TYPEATTR* attributes_ = nullptr;
};

enum class Source { ModuleResource, Registration };

class TypeLibraryTest : public testing::TestWithParam<Source> {
  protected:
    void SetUp() override {
        if (GetParam() == Source::ModuleResource) {
            ASSERT_EQ(LoadTypeLibEx(DllPath().c_str(), REGKIND_NONE, library_.Put()), S_OK);
            return;
        }
        RemoveSentrelRegistration();
        ASSERT_EQ(RunToEnd(L"regsvr32.exe /s " + Quote(DllPath())).exitCode, 0u);
        ASSERT_EQ(LoadRegTypeLib(LIBID_SentrelLib, 1, 0, 0, library_.Put()), S_OK);
    }
    void TearDown() override {
        library_.Reset();
        if (GetParam() == Source::Registration) {
            RemoveSentrelRegistration();
        }
    }

    ComPtr<ITypeInfo> InfoOf(REFGUID guid) {
        ComPtr<ITypeInfo> info;
        EXPECT_EQ(library_->GetTypeInfoOfGuid(guid, info.Put()), S_OK);
        return info;
    }

    ComPtr<ITypeLib> library_;
};

INSTANTIATE_TEST_SUITE_P(Sentrel64, TypeLibraryTest,
                         testing::Values(Source::ModuleResource, Source::Registration),
                         [](const testing::TestParamInfo<Source>& source) {
                             return source.param == Source::ModuleResource ? "FromTheModule"
                                                                           : "FromTheRegistration";
                         });

TEST_P(TypeLibraryTest, IsSentrelLibVersion1) {
    TLIBATTR* attributes = nullptr;
    ASSERT_EQ(library_->GetLibAttr(&attributes), S_OK);
    EXPECT_TRUE(IsEqualGUID(attributes->guid, LIBID_SentrelLib));
    EXPECT_EQ(attributes->wMajorVerNum, 1);
    EXPECT_EQ(attributes->wMinorVerNum, 0);
    EXPECT_EQ(attributes->syskind, SYS_WIN64);
    library_->ReleaseTLibAttr(attributes);
    const Documentation documentation = Document(library_.Get(), -1);
    EXPECT_EQ(documentation.name, u"SentrelLib");
    EXPECT_EQ(documentation.help, u"Sentrel 1.0 Type Library");
}

TEST_P(TypeLibraryTest, DescribesTheEnumTheInterfaceAndTheClassAndNothingElse) {
    std::vector<std::pair<TYPEKIND, std::u16string>> described;
    for (UINT index = 0; index < library_->GetTypeInfoCount(); ++index) {
        TYPEKIND kind{};
        EXPECT_EQ(library_->GetTypeInfoType(index, &kind), S_OK);
        described.emplace_back(kind, Document(library_.Get(), static_cast<INT>(index)).name);
    }
    std::sort(described.begin(), described.end());
    const std::vector<std::pair<TYPEKIND, std::u16string>> expected{
        {TKIND_ENUM, u"tagWebFilterType"},
        {TKIND_INTERFACE, u"IWebFilterManager"},
        {TKIND_COCLASS, u"WebFilterManager"}};
    EXPECT_EQ(described, expected);
    ComPtr<ITypeInfo> events;
    EXPECT_EQ(library_->GetTypeInfoOfGuid(IID_IWebFilterEvents, events.Put()),
              TYPE_E_ELEMENTNOTFOUND);
}

TEST_P(TypeLibraryTest, TheClassIsCreatableWithIWebFilterManagerAsItsOnlyInterface) {
    const ComPtr<ITypeInfo> coclass = InfoOf(CLSID_WebFilterManager);
    ASSERT_TRUE(coclass);
    EXPECT_EQ(Document(coclass.Get(), MEMBERID_NIL).help, u"WebFilterManager Class");
    const TypeAttributes attributes(coclass.Get());
    EXPECT_EQ(attributes->typekind, TKIND_COCLASS);
    EXPECT_EQ(attributes->wTypeFlags, TYPEFLAG_FCANCREATE);
    ASSERT_EQ(attributes->cImplTypes, 1);
    INT flags = 0;
    ASSERT_EQ(coclass->GetImplTypeFlags(0, &flags), S_OK);
    EXPECT_EQ(flags, IMPLTYPEFLAG_FDEFAULT);
    HREFTYPE reference = 0;
    ASSERT_EQ(coclass->GetRefTypeOfImplType(0, &reference), S_OK);
    ComPtr<ITypeInfo> implemented;
    ASSERT_EQ(coclass->GetRefTypeInfo(reference, implemented.Put()), S_OK);
    EXPECT_TRUE(IsEqualGUID(TypeAttributes(implemented.Get())->guid, IID_IWebFilterManager));
}

TEST_P(TypeLibraryTest, TheInterfaceIsACustomInterfaceOverIUnknown) {
    const ComPtr<ITypeInfo> manager = InfoOf(IID_IWebFilterManager);
    ASSERT_TRUE(manager);
    EXPECT_EQ(Document(manager.Get(), MEMBERID_NIL).help, u"IWebFilterManager Interface");
    const TypeAttributes attributes(manager.Get());
    EXPECT_EQ(attributes->typekind, TKIND_INTERFACE);
    EXPECT_EQ(attributes->wTypeFlags &
                  (TYPEFLAG_FDUAL | TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE),
              0);
    EXPECT_EQ(attributes->cFuncs, 6);
    ASSERT_EQ(attributes->cImplTypes, 1);
    HREFTYPE reference = 0;
    ASSERT_EQ(manager->GetRefTypeOfImplType(0, &reference), S_OK);
    ComPtr<ITypeInfo> base;
    ASSERT_EQ(manager->GetRefTypeInfo(reference, base.Put()), S_OK);
    EXPECT_TRUE(IsEqualGUID(TypeAttributes(base.Get())->guid, IID_IUnknown));
}

// A parameter's type as text: "BSTR", "long*", "WebFilterType", "unsigned short**", ...
std::u16string TypeText(ITypeInfo* info, const TYPEDESC& type) {
    switch (type.vt) {
        case VT_PTR:
            return TypeText(info, *type.lptdesc) + u"*";
        case VT_BSTR:
            return u"BSTR";
        case VT_I4:
            return u"long";
        case VT_INT:
            return u"int";
        case VT_UI2:
            return u"unsigned short";
        case VT_HRESULT:
            return u"HRESULT";
        case VT_USERDEFINED: {
            ComPtr<ITypeInfo> defined;
            EXPECT_EQ(info->GetRefTypeInfo(type.hreftype, defined.Put()), S_OK);
            return Document(defined.Get(), MEMBERID_NIL).name;
        }
        default:
            return u"(another type)";
    }
}

struct ParameterCase {
    std::u16string name;
    std::u16string type;
    USHORT direction;
};

struct MethodCase {
    std::u16string name;
    std::u16string help;
    std::vector<ParameterCase> parameters;
};

TEST_P(TypeLibraryTest, TheMethodsFollowIUnknownsInSlots3To8) {
    constexpr USHORT in = PARAMFLAG_FIN;
    constexpr USHORT out = PARAMFLAG_FOUT;
    const std::vector<MethodCase> methods{
        {u"IsUrlAllowed",
         u"method IsUrlAllowed",
         {{u"bstrUrl", u"BSTR", in}, {u"pbAllowed", u"long*", out}}},
        {u"SetFilterContent",
         u"method SetFilterContent",
         {{u"FilterType", u"tagWebFilterType", in}, {u"bstrXml", u"BSTR", in}}},
        {u"GetFilterContent",
         u"method GetFilterContent",
         {{u"pFilterType", u"tagWebFilterType*", out},
          {u"pbstrXml", u"BSTR*", out},
          {u"pnRefreshMode", u"int*", out}}},
        {u"EnableUpdate",
         u"method to enable or disable the polling update",
         {{u"bEnable", u"long", in}}},
        {u"IsProcessConnectionAllowed",
         u"method IsProcessConnectionAllowed",
         {{u"bstrUrl", u"BSTR", in},
          {u"nPort", u"unsigned short", in},
          {u"pbAllowed", u"long*", out}}},
        {u"GetFilteredPorts",
         u"method to get the list of filtered ports",
         {{u"pPortsNumber", u"unsigned short*", out}, {u"ppPortsList", u"unsigned short**", out}}},
    };
    const ComPtr<ITypeInfo> manager = InfoOf(IID_IWebFilterManager);
    ASSERT_TRUE(manager);
    for (UINT index = 0; index < methods.size(); ++index) {
        const MethodCase& expected = methods[index];
        SCOPED_TRACE(std::string(expected.name.begin(), expected.name.end()));
        FUNCDESC* function = nullptr;
        ASSERT_EQ(manager->GetFuncDesc(index, &function), S_OK);
        EXPECT_EQ(function->oVft, static_cast<SHORT>((3 + index) * sizeof(void*)));
        EXPECT_EQ(function->funckind, FUNC_PUREVIRTUAL);
        EXPECT_EQ(function->invkind, INVOKE_FUNC);
        EXPECT_EQ(TypeText(manager.Get(), function->elemdescFunc.tdesc), u"HRESULT");
        const Documentation documentation = Document(manager.Get(), function->memid);
        EXPECT_EQ(documentation.name, expected.name);
        EXPECT_EQ(documentation.help, expected.help);
        ASSERT_EQ(static_cast<std::size_t>(function->cParams), expected.parameters.size());
        std::array<BSTR, 4> names{};
        UINT named = 0;
        ASSERT_EQ(manager->GetNames(function->memid, names.data(), names.size(), &named), S_OK);
        ASSERT_EQ(named, expected.parameters.size() + 1);
        SysFreeString(names[0]);
        for (std::size_t parameter = 0; parameter < expected.parameters.size(); ++parameter) {
            const ELEMDESC& element = function->lprgelemdescParam[parameter];
            const Bstr name = Bstr::Adopt(names[parameter + 1]);
            EXPECT_EQ(name.View(), expected.parameters[parameter].name);
            EXPECT_EQ(TypeText(manager.Get(), element.tdesc), expected.parameters[parameter].type);
            EXPECT_EQ(element.paramdesc.wParamFlags & (in | out),
                      expected.parameters[parameter].direction);
        }
        manager->ReleaseFuncDesc(function);
    }
}

TEST_P(TypeLibraryTest, TheFilterTypeHasItsThreeValues) {
    ComPtr<ITypeInfo> type;
    for (UINT index = 0; index < library_->GetTypeInfoCount() && !type; ++index) {
        TYPEKIND kind{};
        if (library_->GetTypeInfoType(index, &kind) == S_OK && kind == TKIND_ENUM) {
            ASSERT_EQ(library_->GetTypeInfo(index, type.Put()), S_OK);
        }
    }
    ASSERT_TRUE(type);
    const TypeAttributes attributes(type.Get());
    ASSERT_EQ(attributes->cVars, 3);
    const std::array<std::u16string, 3> names{u"WebFilterBlockNone", u"WebFilterBlockPolicy",
                                              u"WebFilterBlockAll"};
    for (UINT index = 0; index < names.size(); ++index) {
        VARDESC* variable = nullptr;
        ASSERT_EQ(type->GetVarDesc(index, &variable), S_OK);
        EXPECT_EQ(Document(type.Get(), variable->memid).name, names[index]);
        EXPECT_EQ(variable->varkind, VAR_CONST);
        EXPECT_EQ(variable->lpvarValue->vt, VT_I4);
        EXPECT_EQ(variable->lpvarValue->lVal, static_cast<LONG>(index));
        type->ReleaseVarDesc(variable);
    }
}

}  // namespace
}  // namespace sentrel::test
