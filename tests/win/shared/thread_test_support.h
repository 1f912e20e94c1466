#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace sentrel::test {

// Polls the condition until it holds (true) or the time is up (false).
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace sentrel::test
