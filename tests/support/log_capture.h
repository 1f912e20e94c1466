#pragma once

// A log capture for native and Windows tests alike: it uses only the portable logger.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "module/log/logger.h"

namespace sentrel::test {

struct LoggedMessage {
    std::int32_t level;
    std::u16string text;
    bool operator==(const LoggedMessage&) const = default;
};

// Collects every message logged through TheLogger while it lives, and puts back the sink it
// found when it goes. One capture at a time: a new one starts empty. With failFirst, the first
// message is not collected: logging it fails as memory running out does.
class LogCapture {
  public:
    explicit LogCapture(bool failFirst = false) {
        Clear();
        FailNext() = failFirst;
        previous_ = TheLogger.InstallSink(&Capture);
    }
    ~LogCapture() { TheLogger.InstallSink(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LoggedMessage> Messages() const {
        const std::lock_guard lock(Mutex());
        return Store();
    }
    std::size_t Count(std::int32_t level, const std::u16string& text) const {
        const std::lock_guard lock(Mutex());
        return static_cast<std::size_t>(
            std::count(Store().begin(), Store().end(), LoggedMessage{level, text}));
    }
    void Clear() {
        const std::lock_guard lock(Mutex());
        Store().clear();
    }

  private:
    static std::int32_t Capture(std::int32_t level, const std::u16string& text) {
        if (FailNext().exchange(false)) {
            throw std::bad_alloc();
        }
        const std::lock_guard lock(Mutex());
        Store().push_back({level, text});
        return 0;
    }
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static std::atomic<bool>& FailNext() {
        static std::atomic<bool> failNext{false};
        return failNext;
    }
    static std::vector<LoggedMessage>& Store() {
        static std::vector<LoggedMessage> messages;
        return messages;
    }

    LogSink previous_ = nullptr;
};

}  // namespace sentrel::test
