#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "log_capture.h"
#include "section_probe.h"
#include "shared/mutex_lock.h"
#include "thread_test_support.h"

namespace sentrel::test {
namespace {

LoggedMessage Logged(std::int32_t level, const std::u16string& text) {
    return {level, u"WebFilterFileMapper::" + text};
}
const LoggedMessage kEntering = Logged(LogLevelError, u"WriteContent - Entering scope");
const LoggedMessage kNoNeed = Logged(LogLevelTrace, u"WriteContent - No need to apply filter");
const LoggedMessage kExiting = Logged(LogLevelTrace, u"WriteContent - Exiting scope");

// What a check from a last stamp hands back; one that finds nothing leaves type and text as set.
struct Check {
    bool changed;
    std::uint32_t stamp, type = 99;
    std::u16string text = u"untouched";
    bool operator==(const Check&) const = default;
};
Check CheckFrom(const WebFilterFileMapper& mapper, std::uint32_t lastStamp) {
    Check check{false, lastStamp};
    check.changed = mapper.CheckContentChanged(check.stamp, check.type, check.text);
    return check;
}

TEST(FileMapper, WritesOnlyWhenTheRuleSaysSo) {
    struct Row {
        const char* name;
        std::vector<SectionContent> before;  // each written first (stamps unused)
        SectionContent request;
        bool written;
    };
    const Row rows[] = {
        {"none without a view", {}, {0, 0, u"abc"}, false},
        {"none over all", {{0, 2, u""}}, {0, 0, u"xyz"}, true},
        {"none over a policy text", {{0, 1, u"abc"}}, {0, 0, u""}, true},
        {"none over an empty none", {{0, 1, u"a"}, {0, 0, u""}}, {0, 0, u""}, false},
        {"empty policy without a view", {}, {0, 1, u""}, false},
        {"policy without a view", {}, {0, 1, u"abc"}, true},
        {"same policy text", {{0, 1, u"abc"}}, {0, 1, u"abc"}, false},
        {"shorter policy text", {{0, 1, u"abc"}}, {0, 1, u"ab"}, true},
        {"policy text published as all", {{0, 2, u"abc"}}, {0, 1, u"abc"}, false},
        {"policy text up to a zero", {{0, 1, u"ab"}}, {0, 1, {u"ab\0c", 4}}, false},
        {"all with the same text again", {{0, 2, u"abc"}}, {0, 2, u"abc"}, true},
        {"other type", {{0, 1, u"abc"}}, {0, 3, u"abd"}, false},
    };
    LogCapture log;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        WebFilterFileMapper mapper;
        for (const SectionContent& before : row.before) {
            ASSERT_TRUE(mapper.WriteContent(before.type, before.text));
        }
        log.Clear();
        EXPECT_EQ(mapper.WriteContent(row.request.type, row.request.text), row.written);
        EXPECT_EQ(log.Messages(), (row.written ? std::vector{kEntering, kExiting}
                                               : std::vector{kEntering, kNoNeed, kExiting}));
        std::optional<SectionContent> stored;  // none: no section
        if (row.written || !row.before.empty()) {
            stored = row.written ? row.request : row.before.back();
            stored->stamp = static_cast<std::uint32_t>(row.before.size() + row.written);
        }
        EXPECT_EQ(ProbeSection(), stored);
    }
}

TEST(FileMapper, CreatorAloneWritesAndGrowsTheSectionThatReadersCheck) {
    LogCapture log;
    auto writer = std::make_unique<WebFilterFileMapper>();
    WebFilterFileMapper reader;
    EXPECT_EQ(CheckFrom(reader, 5), (Check{false, 5}));  // no section, and none made
    EXPECT_EQ(log.Messages(),
              std::vector{Logged(LogLevelError, u"OpenAndMap - OpenFileMappingW failed: 2")});
    ASSERT_TRUE(writer->OpenAndMap(true, 0));  // made, not written: stamp 0 is no change
    EXPECT_EQ(CheckFrom(reader, 0), (Check{false, 0}));
    // Room for 12 characters with the terminator; a longer text makes it just large enough.
    const std::uint32_t lengthsThenCapacities[][2] = {{11, 12}, {12, 13}, {5, 13}, {500, 501}};
    std::uint32_t stamp = 0;
    for (const auto& [length, capacity] : lengthsThenCapacities) {
        const std::u16string text(length, u'g');
        ASSERT_TRUE(writer->WriteContent(2, text));
        EXPECT_EQ(writer->Capacity(), capacity);
        EXPECT_EQ(CheckFrom(reader, stamp), (Check{true, stamp + 1, 2, text}));
        ++stamp;
    }
    EXPECT_TRUE(CheckFrom(reader, stamp + 1).changed);
    ASSERT_TRUE(reader.OpenAndMap(false, 0));  // a read-only view does not let it write
    log.Clear();
    EXPECT_FALSE(reader.WriteContent(2, u"reader's"));
    EXPECT_EQ(log.Messages().at(1),
              Logged(LogLevelError, u"OpenAndMap - OpenFileMappingW failed: 5"));
    writer.reset();  // the section goes with its only holder, and the next writer makes its own
    EXPECT_TRUE(reader.WriteContent(1, u"reader's"));
}

// Made elsewhere with default security: any mapper may write it, not knowing its size.
TEST(FileMapper, OpenedSectionIsNeverReadOrWrittenBeyondItsEnd) {
    const UniqueHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                  4096, WebFilterFileMapper::kSectionName));
    const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_TRUE(view);
    FillMemory(view.Get(), 4096, 'q');  // a text with no terminator
    EXPECT_EQ(CheckFrom(WebFilterFileMapper(), 0),
              (Check{true, 0x71717171, 0x7171, std::u16string(2044, u'\x7171')}));
    LogCapture log;
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.WriteContent(1, u"eleven char"));  // opened: the capacity stays 12
    EXPECT_FALSE(mapper.WriteContent(2, std::u16string(12, u'L')));
    EXPECT_EQ(log.Count(LogLevelError, u"WebFilterFileMapper::WriteString - _tcscpy_s failed: 34"),
              1u);
    // The new type over an empty text, under the old stamp: nobody takes it as new.
    EXPECT_EQ(ProbeSection(), (SectionContent{1, 2, u""}));
}

TEST(FileMapper, LockHeldElsewhereFailsBothCallsAndAnAbandonedOneIsTakenOver) {
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.WriteContent(1, u"kept"));
    std::atomic<bool> held{false}, release{false};
    std::thread holder([&] {  // through a handle of its own, that may only wait on the mutex
        const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
        const MutexLock lock(mutex.Get(), 0);
        held = true;
        WaitUntil([&] { return release.load(); });
    });
    ASSERT_TRUE(WaitUntil([&] { return held.load(); }));
    LogCapture log;
    EXPECT_FALSE(mapper.WriteContent(2, u"blocked"));
    EXPECT_EQ(CheckFrom(mapper, 0), (Check{false, 0}));
    EXPECT_EQ(
        log.Messages(),
        (std::vector{kEntering, Logged(LogLevelError, u"WriteContent - Could not lock on mutex"),
                     Logged(LogLevelError, u"CheckContentChanged - Could not lock on mutex")}));
    release = true;
    holder.join();
    // Released, not abandoned; then a thread ends owning it, and the next call takes it over.
    const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
    std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex.Get(), 0), WAIT_OBJECT_0); }).join();
    EXPECT_EQ(CheckFrom(mapper, 0), (Check{true, 1, 1, u"kept"}));
}

}  // namespace
}  // namespace sentrel::test
