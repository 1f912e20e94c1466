// A test program or helper that crashes must fail, whatever Wine's debugger makes of the crash.

#include <gtest/gtest.h>

#include <windows.h>

#include "crash_exit.h"
#include "helper_process.h"

namespace sentrel {
namespace {

TEST(CrashExit, AnUnhandledExceptionEndsTheProgramWithTheCrashCode) {
    test::HelperProcess helper(test::kSharedHelper, L"crash");
    ASSERT_TRUE(helper.Started());
    EXPECT_EQ(helper.WaitForExit(test::kHelperWaitMs), test::kCrashExitCode);
}

}  // namespace
}  // namespace sentrel
