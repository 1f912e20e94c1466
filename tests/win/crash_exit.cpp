// Linked into every Windows test program and helper. Under Wine a crash can end with exit code 0
// once Wine's debugger has run, a pass to the run: here any unhandled exception ends the program
// at once with a failing code, having named the exception on standard error.

#include <windows.h>

#include <cstdio>

namespace {

constexpr UINT kCrashExitCode = 70;  // none of the codes the helpers report with

LONG WINAPI EndTheProgram(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    std::fprintf(stderr, "unhandled exception 0x%08lX at %p\n", record.ExceptionCode,
                 record.ExceptionAddress);
    std::fflush(stderr);
    TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

[[maybe_unused]] const LPTOP_LEVEL_EXCEPTION_FILTER previousFilter =
    SetUnhandledExceptionFilter(EndTheProgram);

}  // namespace
