#include "log_capture.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>

#include "module/log/logger.h"

namespace sentrel::test {

namespace {

std::mutex capturedLock;
std::vector<LoggedMessage> captured;
std::atomic<bool> failNext{false};

std::int32_t Capture(std::int32_t level, const std::u16string& message) {
    if (failNext.exchange(false)) {
        throw std::bad_alloc();
    }
    const std::lock_guard<std::mutex> guard(capturedLock);
    captured.push_back(LoggedMessage{level, message});
    return 0;
}

}  // namespace

LogCapture::LogCapture(bool failFirst) {
    Clear();
    failNext = failFirst;
    TheLogger.InstallSink(&Capture);
}

LogCapture::~LogCapture() {
    TheLogger.InstallSink(nullptr);
}

std::vector<LoggedMessage> LogCapture::Messages() const {
    const std::lock_guard<std::mutex> guard(capturedLock);
    return captured;
}

std::size_t LogCapture::Count(std::int32_t level, const std::u16string& text) const {
    const std::lock_guard<std::mutex> guard(capturedLock);
    return static_cast<std::size_t>(
        std::count(captured.begin(), captured.end(), LoggedMessage{level, text}));
}

void LogCapture::Clear() {
    const std::lock_guard<std::mutex> guard(capturedLock);
    captured.clear();
}

}  // namespace sentrel::test
