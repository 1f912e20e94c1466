#pragma once

#include <windows.h>

#include <cstdint>

#include "module/log/logger.h"

namespace sentrel {

// Logs a failure at the error level with the thread's last error as the format's one argument.
inline void LogLastError(const char16_t* format) {
    TheLogger.Log(LogLevelError, format, static_cast<std::uint32_t>(GetLastError()));
}

}  // namespace sentrel
