#pragma once

#include <windows.h>

namespace sentrel::test {

// The exit code of a Windows test program or helper that met an unhandled exception (see
// crash_exit.cpp); it is none of the codes the helpers report with.
constexpr UINT kCrashExitCode = 70;

}  // namespace sentrel::test
