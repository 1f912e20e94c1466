#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "helper_process.h"
#include "log_capture.h"
#include "module/log/logger.h"
#include "search/web_filter_type.h"
#include "section_probe.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel {
namespace {

using test::CheckFrom;
using test::CheckResult;
using test::HelperProcess;
using test::HoldingHelper;
using test::LogCapture;
using test::LoggedMessage;
using test::ProbeSection;

class FileMapperProcessTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_FALSE(ProbeSection().has_value()) << "a section is left over"; }
    void TearDown() override { EXPECT_FALSE(ProbeSection().has_value()); }
};

// Runs the call and returns how long it took.
template <class Call>
std::chrono::milliseconds Timed(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
}

TEST_F(FileMapperProcessTest, LockHeldByAnotherProcessFailsWriteAndCheck) {
    WebFilterFileMapper mapper;
    HoldingHelper helper(test::kSharedHelper, L"hold-lock");
    ASSERT_TRUE(helper.WaitReady(test::kHelperWaitMs));

    LogCapture log;
    // Each call waits its full second before it gives up.
    EXPECT_GE(
        Timed([&] { EXPECT_FALSE(mapper.WriteContent(WebFilterBlockAll, u"blocked")); }).count(),
        900);
    EXPECT_EQ(
        log.Messages(),
        (std::vector<LoggedMessage>{
            {LogLevelError, u"WebFilterFileMapper::WriteContent - Entering scope"},
            {LogLevelError, u"WebFilterFileMapper::WriteContent - Could not lock on mutex"}}));

    log.Clear();
    EXPECT_GE(Timed([&] { EXPECT_FALSE(CheckFrom(mapper, 0).changed); }).count(), 900);
    EXPECT_EQ(log.Messages(),
              (std::vector<LoggedMessage>{
                  {LogLevelError,
                   u"WebFilterFileMapper::CheckContentChanged - Could not lock on mutex"}}));
    EXPECT_FALSE(ProbeSection().has_value());  // the section was never touched

    EXPECT_EQ(helper.Release(test::kHelperWaitMs), 0u);
    // Released, not abandoned by the helper's exit.
    const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
    EXPECT_EQ(WaitForSingleObject(mutex.Get(), 0), WAIT_OBJECT_0);
    ReleaseMutex(mutex.Get());
    EXPECT_TRUE(mapper.WriteContent(WebFilterBlockAll, u"free again"));
}

// The call that meets the mutex first after its owner died takes it over.
class AbandonedMutexTest : public FileMapperProcessTest,
                           public ::testing::WithParamInterface<bool> {};

TEST_P(AbandonedMutexTest, IsTakenOverWithTheContentIntact) {
    const bool checkFirst = GetParam();
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.WriteContent(WebFilterBlockPolicy, u"kept policy"));
    HelperProcess helper(test::kSharedHelper, L"abandon");
    ASSERT_TRUE(helper.Started());
    ASSERT_EQ(helper.WaitForExit(test::kHelperWaitMs), 0u);

    LogCapture log;
    if (!checkFirst) {
        // The same text: the lock is taken and the stored text compared as it stands.
        EXPECT_FALSE(mapper.WriteContent(WebFilterBlockPolicy, u"kept policy"));
        EXPECT_EQ(log.Count(LogLevelTrace,
                            u"WebFilterFileMapper::WriteContent - No need to apply filter"),
                  1u);
    }
    const CheckResult check = CheckFrom(mapper, 0);
    ASSERT_TRUE(check.changed);
    EXPECT_EQ(check.lastStamp, 1u);
    EXPECT_EQ(check.type, static_cast<std::uint32_t>(WebFilterBlockPolicy));
    EXPECT_EQ(check.text, u"kept policy");
    EXPECT_TRUE(mapper.WriteContent(WebFilterBlockAll, u"after"));
    EXPECT_EQ(ProbeSection()->stamp, 2u);
    for (const LoggedMessage& message : log.Messages()) {
        EXPECT_EQ(message.text.find(u"Could not lock"), std::u16string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(FirstCall, AbandonedMutexTest, ::testing::Values(false, true));

TEST_F(FileMapperProcessTest, PublicationOfAnotherProcessIsSeenByItsStamp) {
    HoldingHelper helper(test::kSharedHelper, L"publish 1 from-helper");
    ASSERT_TRUE(helper.WaitReady(test::kHelperWaitMs));

    WebFilterFileMapper mapper;
    const CheckResult check = CheckFrom(mapper, 0);
    ASSERT_TRUE(check.changed);
    EXPECT_EQ(check.lastStamp, 1u);
    EXPECT_EQ(check.type, static_cast<std::uint32_t>(WebFilterBlockPolicy));
    EXPECT_EQ(check.text, u"from-helper");
    EXPECT_FALSE(CheckFrom(mapper, 1).changed);
    {
        LogCapture log;
        EXPECT_FALSE(mapper.WriteContent(WebFilterBlockAll, u"refused here"));
        EXPECT_EQ(log.Count(LogLevelError,
                            u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: 5"),
                  1u);
    }
    EXPECT_EQ(helper.Release(test::kHelperWaitMs), 0u);  // the helper's own write succeeded
}

TEST_F(FileMapperProcessTest, PublicationOfThisProcessIsSeenByAnother) {
    WebFilterFileMapper mapper;
    ASSERT_TRUE(mapper.WriteContent(WebFilterBlockPolicy, u"first"));
    EXPECT_EQ(HelperProcess(test::kSharedHelper, L"check 1 1 first refused")
                  .WaitForExit(test::kHelperWaitMs),
              0u);

    ASSERT_TRUE(mapper.WriteContent(WebFilterBlockAll, u"second"));
    EXPECT_EQ(
        HelperProcess(test::kSharedHelper, L"check 2 2 second").WaitForExit(test::kHelperWaitMs),
        0u);

    ASSERT_TRUE(mapper.WriteContent(WebFilterBlockNone, u""));
    EXPECT_EQ(
        HelperProcess(test::kSharedHelper, L"check 3 0 \"\"").WaitForExit(test::kHelperWaitMs), 0u);
}

}  // namespace
}  // namespace sentrel
