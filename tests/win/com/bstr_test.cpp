#include "com/bstr.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace sentrel {
namespace {

TEST(Bstr, CopyKeepsTheWholeTextWithZerosInside) {
    const std::u16string text(u"ab\0cd", 5);
    const Bstr copy = Bstr::Copy(text);
    ASSERT_TRUE(copy);
    EXPECT_EQ(SysStringLen(copy.Get()), 5u);
    EXPECT_EQ(copy.View(), text);
    EXPECT_EQ(copy.Get()[5], L'\0');
}

TEST(Bstr, TheEmptyTextIsAnEmptyBstrNotANullOne) {
    const Bstr empty = Bstr::Copy(u"");
    ASSERT_TRUE(empty);
    EXPECT_EQ(SysStringLen(empty.Get()), 0u);
    EXPECT_TRUE(Bstr().View().empty());
}

TEST(Bstr, MovesTransferOwnership) {
    Bstr first = Bstr::Copy(u"first");
    const BSTR raw = first.Get();
    Bstr second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second.Get(), raw);
    Bstr third = Bstr::Copy(u"third");
    third = std::move(second);
    EXPECT_EQ(third.Get(), raw);
    EXPECT_EQ(third.View(), u"first");
}

TEST(Bstr, DetachHandsTheStringToTheCallerAndPutTakesAnOutParameter) {
    Bstr text = Bstr::Copy(u"kept");
    BSTR detached = text.Detach();
    EXPECT_FALSE(text);
    Bstr adopted = Bstr::Adopt(detached);
    *adopted.Put() = SysAllocString(L"replaced");
    EXPECT_EQ(adopted.View(), u"replaced");
}

}  // namespace
}  // namespace sentrel
