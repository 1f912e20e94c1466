// Memory running out inside the object's calls, on client threads and on its timer thread: each
// call answers with an HRESULT, leaves what it did not finish as it was, and nothing is thrown
// out of the object.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "allocation_failure.h"
#include "log_capture.h"
#include "manager_fixture.h"
#include "module/log/logger.h"
#include "shared/wide_text.h"

namespace sentrel::test {
namespace {

// Larger than any allocation the tests make on their own while a failure is armed, and smaller
// than a copy of the large texts below.
constexpr std::size_t kFailingBytes = 4 * 1024 * 1024;
// Characters of a text whose copy needs more than kFailingBytes.
constexpr std::size_t kLargeText = 3 * 1024 * 1024;

const std::u16string kSmall = ListDocument(0, ListKind::Black, {u"http://small.example/"});
// Refuses the memory in which a document is staged for reading, and none of the smaller
// allocations around it.
constexpr std::size_t kStagingBytes = 16 * 1024;

// A document of kLargeText characters or more: a small policy padded with white space.
std::u16string LargeDocument(const std::u16string& document) {
    const std::size_t end = document.rfind(u"</WebFilters>");
    return document.substr(0, end) + std::u16string(kLargeText, u' ') + document.substr(end);
}

// A policy whose document, written anew, is longer than kLargeText.
std::u16string ManyEntries() {
    std::vector<std::u16string> urls;
    for (std::size_t i = 0; i * 100 < kLargeText; ++i) {
        std::u16string host;
        for (std::size_t n = i; host.size() < 4; n /= 26) {
            host.push_back(static_cast<char16_t>(u'a' + n % 26));
        }
        urls.push_back(u"http://host-" + host + u".example/a/rather/long/path/to/make/each/entry/");
    }
    return ListDocument(0, ListKind::Black, urls);
}

using MemoryTest = EventsTest;

TEST_F(MemoryTest, SetFilterContentChangesNothingWhenItsCopyFails) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSmall), S_OK);
    const std::u16string large = LargeDocument(ListDocument(0, ListKind::Black, {u"http://b.x/"}));
    const BSTR text = SysAllocString(AsWide(large.c_str()));
    HRESULT result = E_UNEXPECTED;
    {
        const AllocationFailure failure(kFailingBytes);
        result = Manager().SetFilterContent(WebFilterBlockPolicy, text);
        EXPECT_GT(failure.Refused(), 0u);
    }
    SysFreeString(text);
    EXPECT_EQ(result, E_OUTOFMEMORY);
    EXPECT_EQ(ContentOf(Manager()).text, kByteOrderMark + kSmall);
    EXPECT_EQ(ProbeSection()->text, kSmall);
}

TEST_F(MemoryTest, IsUrlAllowedAnswersOutOfMemoryAndLeavesTheAnswerAlone) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSmall), S_OK);
    const std::u16string url = u"http://small.example/" + std::u16string(kLargeText, u'a');
    const BSTR text = SysAllocString(AsWide(url.c_str()));
    long allowed = 7;
    HRESULT result = E_UNEXPECTED;
    {
        const AllocationFailure failure(kFailingBytes);
        result = Manager().IsUrlAllowed(text, &allowed);
    }
    SysFreeString(text);
    EXPECT_EQ(result, E_OUTOFMEMORY);
    EXPECT_EQ(allowed, 7);
}

TEST_F(MemoryTest, IsProcessConnectionAllowedAnswersFailAndLeavesTheAnswerAlone) {
    const std::u16string name(kLargeText, u'P');
    const BSTR text = SysAllocString(AsWide(name.c_str()));
    long allowed = 7;
    HRESULT result = E_UNEXPECTED;
    {
        const AllocationFailure failure(kFailingBytes);
        result = Manager().IsProcessConnectionAllowed(text, 80, &allowed);
    }
    SysFreeString(text);
    EXPECT_EQ(result, E_FAIL);
    EXPECT_EQ(allowed, 7);
}

TEST_F(MemoryTest, GetFilterContentAnswersOutOfMemoryWithTheOutputsWrittenSoFar) {
    struct Case {
        const char* name;
        std::u16string document;
        int refreshMode;  // -1: not written
    };
    const std::u16string longUrl = u"http://a.example/" + std::u16string(kLargeText, u'a');
    for (const Case& test :
         {Case{"SerialisingFails", ManyEntries(), 0},
          Case{"CopyingThePolicyFails", ListDocument(0, ListKind::Black, {longUrl}), -1}}) {
        SCOPED_TRACE(test.name);
        ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, test.document), S_OK);
        ::WebFilterType type = kNoType;
        BSTR text = nullptr;
        int refreshMode = -1;
        HRESULT result = E_UNEXPECTED;
        {
            const AllocationFailure failure(kFailingBytes);
            result = Manager().GetFilterContent(&type, &text, &refreshMode);
        }
        EXPECT_EQ(result, E_OUTOFMEMORY);
        EXPECT_EQ(type, WebFilterBlockPolicy);
        EXPECT_EQ(refreshMode, test.refreshMode);
        EXPECT_EQ(text, nullptr);
        SysFreeString(text);
    }
}

// Staging a text in memory is the one failure that reading a document reports; each reader logs it.
TEST_F(MemoryTest, ATextThatCannotBeStagedIsLoggedByEachReader) {
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSmall), S_OK);
    const ComPtr<IWebFilterManager> reader = CreateManager();
    ASSERT_TRUE(reader);
    const LogCapture log;
    {
        const AllocationFailure failure(kStagingBytes);
        EXPECT_EQ(SetContent(Manager(), WebFilterBlockPolicy, kSmall), E_INVALIDARG);
        EXPECT_EQ(reader->EnableUpdate(1), S_OK);
    }
    EXPECT_EQ(log.Count(LogLevelError,
                        u"CWebFilterManager::SetFilterContent - Could not deserialize policy"),
              1u);
    EXPECT_EQ(log.Count(LogLevelError,
                        u"CWebFilterManager::OnTimeElapsed - Could not deserialize policy"),
              1u);
}

TEST_F(MemoryTest, ARefreshThatCannotCopyThePublicationFindsNothingAndTriesAgain) {
    const std::u16string large = LargeDocument(kSmall);
    ASSERT_EQ(SetContent(Manager(), WebFilterBlockPolicy, large), S_OK);
    TestSink& sink = MakeSink();
    const ComPtr<IWebFilterManager> reader = CreateManager();
    ASSERT_TRUE(reader);
    Advise(*reader.Get(), sink);
    {
        const AllocationFailure failure(kFailingBytes);
        EXPECT_EQ(reader->EnableUpdate(1), S_OK);
        // The ticks meet the same failure on the timer thread.
        EXPECT_TRUE(WaitUntil([&] { return failure.Refused() > 1; }));
        EXPECT_EQ(ContentOf(*reader.Get()).type, WebFilterBlockNone);
        EXPECT_TRUE(sink.Events().empty());
    }
    // The publication was not taken as seen: the next tick loads and announces it.
    ASSERT_TRUE(WaitForEvents(sink, 1));
    EXPECT_EQ(ContentOf(*reader.Get()).text, kByteOrderMark + kSmall);
}

}  // namespace
}  // namespace sentrel::test
