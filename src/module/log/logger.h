#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

namespace sentrel {

enum LogLevel : std::int32_t {
    LogLevelError = 2,
    LogLevelTrace = 4,
    LogLevelDiagnostic = 8,
};

// Receives each formatted message; its result is what Logger::Log returns. It may be called from
// up to the gate's count of threads at once.
using LogSink = std::int32_t (*)(std::int32_t level, const std::u16string& message);

// One argument of a log call. Texts are kept as views: they are read only while the call runs.
class LogArgument {
  public:
    enum class Kind { Text, Signed, Unsigned, Pointer };

    LogArgument(const char16_t* text) : kind_(Kind::Text), text_(text ? text : u"") {}
    LogArgument(std::u16string_view text) : kind_(Kind::Text), text_(text) {}
    LogArgument(const std::u16string& text) : kind_(Kind::Text), text_(text) {}
    LogArgument(std::int32_t value)
        : kind_(Kind::Signed), bits_(static_cast<std::uint32_t>(value)) {}
    LogArgument(std::uint32_t value) : kind_(Kind::Unsigned), bits_(value) {}
    LogArgument(const void* pointer)
        : kind_(Kind::Pointer), bits_(reinterpret_cast<std::uintptr_t>(pointer)) {}

    Kind kind() const { return kind_; }
    std::u16string_view text() const { return text_; }
    // The argument's bits as the conversion that reads it sees them: 32 bits for %d, %u and %x,
    // pointer-sized for %p.
    std::uint64_t bits() const { return bits_; }

  private:
    Kind kind_;
    std::u16string_view text_;
    std::uint64_t bits_ = 0;
};

// Formats as the platform's wide printf does for the conversions the component uses: %s (UTF-16
// text), %d, %u, %x, %p (pointer-sized, 16 upper-case hexadecimal digits) and %%.
std::u16string FormatLogMessage(std::u16string_view format, std::span<const LogArgument> arguments);

class Logger {
  public:
    static constexpr std::int32_t kResultNoSink = 6;
    static constexpr std::int32_t kResultGateClosed = 12;
    static constexpr std::ptrdiff_t kGateCount = 20;
    static constexpr std::chrono::milliseconds kGateWait{10000};

    explicit Logger(std::ptrdiff_t gateCount = kGateCount,
                    std::chrono::milliseconds gateWait = kGateWait);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Without a sink the arguments are neither read nor formatted.
    template <class... Args>
    std::int32_t Log(std::int32_t level, const char16_t* format, const Args&... args) {
        const std::array<LogArgument, sizeof...(Args)> arguments{LogArgument(args)...};
        return LogArguments(level, format, arguments);
    }

    // Installs a sink (or none, with nullptr) and returns the previous one. Calls already inside
    // the gate finish with the sink they started with.
    LogSink InstallSink(LogSink sink);

  private:
    std::int32_t LogArguments(std::int32_t level, const char16_t* format,
                              std::span<const LogArgument> arguments);

    // The gate: how many more callers may enter. A mutex and condition variable rather than
    // std::counting_semaphore, whose waits can miss their wake-up with the mingw runtime.
    std::mutex gateMutex_;
    std::condition_variable gateOpened_;
    std::ptrdiff_t gateFree_;
    std::chrono::milliseconds gateWait_;
    std::atomic<LogSink> sink_{nullptr};
};

// The component's one logger; the component itself installs no sink.
extern Logger TheLogger;

}  // namespace sentrel
