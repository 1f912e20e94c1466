#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

#include "helper_process.h"
#include "section_probe.h"

namespace sentrel {
namespace {

using test::HelperProcess;

// Writer and reader processes race on the section for a few seconds. Only the section's creator
// can write while it lives, so the writers stop one after another to let the section change
// hands (and so its size); the texts vary in length enough to make it grow. Every reader checks
// that each text it is handed matches its stamp, type, length and checksum.
TEST(FileMapperStress, ReadersNeverSeeATornText) {
    ASSERT_FALSE(test::ProbeSection().has_value());
    constexpr int kWriters = 3;
    constexpr int kReaders = 3;
    constexpr int kWriterStepMs = 1200;
    std::vector<HelperProcess> processes;
    for (int writer = 0; writer < kWriters; ++writer) {
        const int durationMs = kWriterStepMs * (writer + 1);
        processes.emplace_back(test::kSharedHelper,
                               L"writer " + std::to_wstring(durationMs) + L" " +
                                   std::to_wstring(GetTickCount() + static_cast<DWORD>(writer)) +
                                   L" " + std::to_wstring(writer));
    }
    for (int reader = 0; reader < kReaders; ++reader) {
        processes.emplace_back(test::kSharedHelper,
                               L"reader " + std::to_wstring(kWriterStepMs * kWriters));
    }
    for (HelperProcess& process : processes) {
        ASSERT_TRUE(process.Started());
    }
    for (HelperProcess& process : processes) {
        EXPECT_EQ(process.WaitForExit(60000), 0u) << process.Output();
    }
    EXPECT_FALSE(test::ProbeSection().has_value());
}

}  // namespace
}  // namespace sentrel
