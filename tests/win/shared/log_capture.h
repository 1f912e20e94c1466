#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sentrel::test {

struct LoggedMessage {
    std::int32_t level;
    std::u16string text;
    bool operator==(const LoggedMessage&) const = default;
};

// Collects every message logged through TheLogger while it lives (one capture at a time). With
// failFirst, the first message is not collected: logging it fails as memory running out does.
class LogCapture {
  public:
    explicit LogCapture(bool failFirst = false);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LoggedMessage> Messages() const;
    std::size_t Count(std::int32_t level, const std::u16string& text) const;
    void Clear();
};

}  // namespace sentrel::test
