#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "module/log/logger.h"

namespace sentrel {
namespace {

using namespace std::chrono_literals;

struct FormatCase {
    const char16_t* format;
    std::vector<LogArgument> arguments;
    std::u16string expected;
};

TEST(FormatLogMessage, ConvertsAsWidePrintfDoes) {
    int object = 0;
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(&object);
    std::u16string addressText;
    for (int shift = 60; shift >= 0; shift -= 4) {
        addressText.push_back(u"0123456789ABCDEF"[(address >> shift) & 0xF]);
    }
    // Arguments hold views: the texts they view must outlive the cases.
    const std::u16string ownedText = u"a";
    const std::vector<FormatCase> cases = {
        {u"Could not crack url: %s", {u"http://ä€/x"}, u"Could not crack url: http://ä€/x"},
        {u"%s|%s", {ownedText, std::u16string_view(u"")}, u"a|"},
        {u"failed: %d", {std::int32_t{-2147483647 - 1}}, u"failed: -2147483648"},
        {u"failed: %d", {std::int32_t{0}}, u"failed: 0"},
        {u"Error %u", {std::uint32_t{4294967295u}}, u"Error 4294967295"},
        {u"Error %u", {std::int32_t{-1}}, u"Error 4294967295"},
        {u"mutex 0x%x", {std::uint32_t{0xDEADBEEF}}, u"mutex 0xdeadbeef"},
        {u"mutex 0x%x", {std::uint32_t{0}}, u"mutex 0x0"},
        {u"hr = %p", {std::uint32_t{0x80004005u}}, u"hr = 0000000080004005"},
        {u"at %p", {static_cast<const void*>(&object)}, u"at " + addressText},
        {u"100%% %q", {}, u"100% %q"},
        {u"trailing %", {}, u"trailing %"},
        {u"missing %s and %d", {u"one"}, u"missing one and "},
    };
    for (const FormatCase& c : cases) {
        EXPECT_EQ(FormatLogMessage(c.format, c.arguments), c.expected)
            << std::u16string_view(c.format).size();
    }
}

TEST(Logger, WithoutSinkReturnsSixForEveryLevel) {
    Logger logger;
    for (const std::int32_t level : {0, 2, 4, 8, -1}) {
        EXPECT_EQ(logger.Log(level, u"%s %d", u"text", 5), Logger::kResultNoSink);
    }
}

std::int32_t levelSeen = 0;
std::u16string messageSeen;

TEST(Logger, SinkResultReachesCallerAndSinkSeesLevelAndText) {
    Logger logger;
    logger.InstallSink([](std::int32_t level, const std::u16string& message) -> std::int32_t {
        levelSeen = level;
        messageSeen = message;
        return -77;
    });
    EXPECT_EQ(logger.Log(LogLevelTrace, u"a %s b %u", u"x", std::uint32_t{3}), -77);
    EXPECT_EQ(levelSeen, LogLevelTrace);
    EXPECT_EQ(messageSeen, u"a x b 3");
    // Removing the sink goes back to the quiet result.
    EXPECT_NE(logger.InstallSink(nullptr), nullptr);
    EXPECT_EQ(logger.Log(LogLevelTrace, u"x"), Logger::kResultNoSink);
}

// A sink that blocks until released, to fill the gate.
std::mutex blockMutex;
std::condition_variable blockChanged;
bool released = false;
int inside = 0;

std::int32_t BlockingSink(std::int32_t, const std::u16string&) {
    std::unique_lock lock(blockMutex);
    ++inside;
    blockChanged.notify_all();
    blockChanged.wait(lock, [] { return released; });
    --inside;
    return 1;
}

TEST(Logger, GateAdmitsItsCountThenGivesUpAfterTheWait) {
    constexpr int kGate = 3;
    Logger logger(kGate, 200ms);
    logger.InstallSink(&BlockingSink);
    {
        std::lock_guard lock(blockMutex);
        released = false;
        inside = 0;
    }
    std::vector<std::thread> blocked;
    std::atomic<int> blockedResults{0};
    for (int i = 0; i < kGate; ++i) {
        blocked.emplace_back([&] { blockedResults += logger.Log(LogLevelError, u"held"); });
    }
    {
        std::unique_lock lock(blockMutex);
        ASSERT_TRUE(blockChanged.wait_for(lock, 10s, [] { return inside == kGate; }));
    }
    // The gate is full: one more caller waits for the limit and gives up without the sink.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(logger.Log(LogLevelError, u"lost"), Logger::kResultGateClosed);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);
    {
        std::lock_guard lock(blockMutex);
        EXPECT_EQ(inside, kGate);
        released = true;
    }
    blockChanged.notify_all();
    for (auto& thread : blocked) {
        thread.join();
    }
    EXPECT_EQ(blockedResults, kGate);
    // Every blocked call gave its place back: the gate admits a full round again.
    for (int i = 0; i < kGate + 1; ++i) {
        EXPECT_EQ(logger.Log(LogLevelError, u"again"), 1);
    }
}

}  // namespace
}  // namespace sentrel
