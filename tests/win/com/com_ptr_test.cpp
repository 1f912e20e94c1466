#include "com/com_ptr.h"

#include <gtest/gtest.h>

#include <utility>

#include "test_doubles.h"

namespace sentrel::test {
namespace {

TEST(ComPtr, CopiesAddAReferenceAndMovesDoNot) {
    TestSink sink;
    {
        ComPtr<IWebFilterEvents> first(&sink);
        EXPECT_EQ(sink.References(), 1);
        ComPtr<IWebFilterEvents> copy(first);
        EXPECT_EQ(sink.References(), 2);
        ComPtr<IWebFilterEvents> moved(std::move(copy));
        EXPECT_EQ(sink.References(), 2);
        EXPECT_FALSE(copy);
        EXPECT_EQ(moved.Get(), &sink);
    }
    EXPECT_EQ(sink.References(), 0);
}

TEST(ComPtr, AssignmentReleasesTheOldReferenceAndSurvivesSelfAssignment) {
    TestSink first;
    TestSink second;
    ComPtr<IWebFilterEvents> pointer(&first);
    pointer = ComPtr<IWebFilterEvents>(&second);
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(second.References(), 1);
    ComPtr<IWebFilterEvents>& alias = pointer;
    pointer = alias;
    EXPECT_EQ(second.References(), 1);
    pointer = nullptr;
    EXPECT_EQ(second.References(), 0);
}

TEST(ComPtr, AdoptTakesOverAndDetachGivesUpAReference) {
    TestSink sink;
    sink.AddRef();
    ComPtr<IWebFilterEvents> adopted = ComPtr<IWebFilterEvents>::Adopt(&sink);
    EXPECT_EQ(sink.References(), 1);
    IWebFilterEvents* detached = adopted.Detach();
    EXPECT_FALSE(adopted);
    EXPECT_EQ(sink.References(), 1);
    detached->Release();
}

TEST(ComPtr, PutReleasesTheOldReferenceBeforeAnOutParameterFillsIt) {
    TestSink first;
    TestSink second;
    ComPtr<IUnknown> pointer(&first);
    ASSERT_EQ(second.QueryInterface(IID_IUnknown, pointer.PutVoid()), S_OK);
    EXPECT_EQ(first.References(), 0);
    EXPECT_EQ(second.References(), 1);
}

TEST(ComPtr, CopyToHandsOutANewReference) {
    TestSink sink;
    ComPtr<IWebFilterEvents> pointer(&sink);
    IWebFilterEvents* out = nullptr;
    pointer.CopyTo(&out);
    EXPECT_EQ(out, &sink);
    EXPECT_EQ(sink.References(), 2);
    out->Release();
    ComPtr<IWebFilterEvents> empty;
    out = &sink;
    empty.CopyTo(&out);
    EXPECT_EQ(out, nullptr);
}

TEST(ComPtr, AsAsksForAnotherInterface) {
    TestSink sink;
    TestSink refusing(E_NOINTERFACE);
    ComPtr<IUnknown> unknown(static_cast<IUnknown*>(&sink));
    ComPtr<IWebFilterEvents> events;
    EXPECT_EQ(unknown.As(events), S_OK);
    EXPECT_EQ(events.Get(), &sink);
    EXPECT_EQ(sink.References(), 2);
    ComPtr<IUnknown> other(static_cast<IUnknown*>(&refusing));
    EXPECT_EQ(other.As(events), E_NOINTERFACE);
    EXPECT_FALSE(events);
    EXPECT_EQ(sink.References(), 1);
}

}  // namespace
}  // namespace sentrel::test
