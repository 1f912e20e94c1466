#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <thread>
#include <vector>

#include "core_test_support.h"
#include "module/log/logger.h"

namespace sentrel {
namespace {

using namespace std::chrono_literals;

TEST(FormatLogMessage, ConvertsAsWidePrintfDoes) {
    const std::u16string text = u"a";  // arguments view their texts, which must outlive them
    const struct {
        const char16_t* format;
        std::vector<LogArgument> arguments;
        std::u16string expected;
    } cases[] = {
        {u"%s|%s|%s", {text, std::u16string_view(u""), u"ä€"}, u"a||ä€"},
        {u"failed: %d %d", {INT32_MIN, 0}, u"failed: -2147483648 0"},
        {u"Error %u", {-1}, u"Error 4294967295"},
        {u"mutex 0x%x 0x%x", {0xDEADBEEFu, 0u}, u"mutex 0xdeadbeef 0x0"},
        {u"%p %p",
         {0x80004005u, reinterpret_cast<const void*>(0xA)},
         u"0000000080004005 000000000000000A"},
        {u"100%% %q, trailing %", {}, u"100% %q, trailing %"},
        {u"missing %s and %d", {u"one"}, u"missing one and "},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FormatLogMessage(c.format, c.arguments), c.expected) << test::Readable(c.format);
    }
}

std::shared_future<void> released;
std::atomic<int> inside{0};

TEST(Logger, GateAdmitsItsCountThenGivesUpAfterTheWait) {
    constexpr int kGate = 3;
    Logger logger(kGate, 200ms);
    EXPECT_EQ(logger.Log(LogLevelError, u"%s", u"text"), Logger::kResultNoSink);
    const LogSink sink = [](std::int32_t, const std::u16string&) -> std::int32_t {
        ++inside;
        released.wait();
        return 1;
    };
    logger.InstallSink(sink);
    std::promise<void> release;
    released = release.get_future().share();
    std::vector<std::future<std::int32_t>> held;
    for (int i = 0; i < kGate; ++i) {
        held.push_back(
            std::async(std::launch::async, [&] { return logger.Log(LogLevelError, u"held"); }));
    }
    for (const auto until = std::chrono::steady_clock::now() + 10s;
         inside < kGate && std::chrono::steady_clock::now() < until;) {
        std::this_thread::yield();
    }
    EXPECT_EQ(inside, kGate);
    // The gate is full: one more caller waits for the limit and gives up without the sink.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(logger.Log(LogLevelError, u"lost"), Logger::kResultGateClosed);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 150ms);
    release.set_value();
    // Every held call ends with the sink's result and gives its place back.
    for (std::future<std::int32_t>& call : held) {
        EXPECT_EQ(call.get(), 1);
    }
    for (int i = 0; i <= kGate; ++i) {
        EXPECT_EQ(logger.Log(LogLevelError, u"again"), 1);
    }
    EXPECT_EQ(logger.InstallSink(nullptr), sink);
    EXPECT_EQ(logger.Log(LogLevelError, u"quiet again"), Logger::kResultNoSink);
}

}  // namespace
}  // namespace sentrel
