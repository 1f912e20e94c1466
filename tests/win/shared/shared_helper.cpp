// A second process for the shared-section tests. Each command does one thing to the named mutex
// or section and reports through its exit code (0: as expected).
//
//   hold-lock <ready event> <release event>   take the mutex, signal, hold it until released
//   abandon                                   take the mutex and exit without releasing it
//   publish <type> <text> <ready> <release>   publish, signal, keep the section until released;
//                                             exit 1 when the write was refused
//   check <stamp> <type> <text> [refused]     see exactly that publication as new, then as
//                                             unchanged; with "refused", also be refused a write
//   writer <ms> <seed> <id>                   publish random stress texts for a while
//   reader <ms>                               check and verify stress texts for a while
//   crash                                     meet an unhandled exception

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

#include "com/wide_text.h"
#include "helper_process.h"
#include "log_capture.h"
#include "module/log/logger.h"
#include "search/web_filter_type.h"
#include "section_probe.h"
#include "shared/mutex_lock.h"
#include "shared/web_filter_file_mapper.h"
#include "stress_text.h"

namespace sentrel::test {
namespace {

std::uint32_t Number(const wchar_t* text) {
    return static_cast<std::uint32_t>(std::wcstoul(text, nullptr, 10));
}

int HoldLock(const wchar_t* ready, const wchar_t* release) {
    const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
    const MutexLock lock(mutex.Get(), kHelperWaitMs);
    if (!lock.Held()) {
        return kHelperUnexpected;
    }
    SignalNamedEvent(ready);
    return WaitForNamedEvent(release, kHelperWaitMs) ? kHelperOk : kHelperUnexpected;
}

int Abandon() {
    const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
    // Taken and never released: the process ends owning it.
    return WaitForSingleObject(mutex.Get(), kHelperWaitMs) == WAIT_OBJECT_0 ? kHelperOk
                                                                            : kHelperUnexpected;
}

int Publish(std::uint32_t type, std::u16string_view text, const wchar_t* ready,
            const wchar_t* release) {
    WebFilterFileMapper mapper;
    const bool written = mapper.WriteContent(type, text);
    SignalNamedEvent(ready);
    if (!WaitForNamedEvent(release, kHelperWaitMs)) {
        return kHelperUnexpected;
    }
    return written ? kHelperOk : kHelperRefused;
}

int Check(std::uint32_t stamp, std::uint32_t type, std::u16string_view text, bool refused) {
    WebFilterFileMapper mapper;
    const CheckResult seen = CheckFrom(mapper, 0);
    if (!seen.changed || seen.lastStamp != stamp || seen.type != type || seen.text != text) {
        std::printf("check: saw stamp %u type %u and %zu characters\n", seen.lastStamp, seen.type,
                    seen.text.size());
        return kHelperUnexpected;
    }
    if (CheckFrom(mapper, stamp).changed) {
        return kHelperUnexpected;
    }
    if (refused) {
        const LogCapture log;
        if (mapper.WriteContent(WebFilterBlockAll, u"not mine") ||
            log.Count(LogLevelError,
                      u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: 5") != 1) {
            return kHelperUnexpected;
        }
    }
    return kHelperOk;
}

bool Before(std::chrono::steady_clock::time_point deadline) {
    return std::chrono::steady_clock::now() < deadline;
}

std::chrono::steady_clock::time_point DeadlineIn(std::uint32_t ms) {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
}

// Mostly short texts, some long enough to make the section grow.
std::size_t StressLength(std::mt19937& random) {
    const auto pick = random() % 10;
    if (pick < 6) {
        return random() % 200;
    }
    if (pick < 9) {
        return 200 + random() % 5000;
    }
    return 5000 + random() % 60000;
}

int Writer(std::uint32_t durationMs, std::uint32_t seed, std::uint32_t id) {
    WebFilterFileMapper mapper;
    std::mt19937 random(seed);
    std::uint32_t written = 0;
    std::uint32_t refused = 0;
    const auto deadline = DeadlineIn(durationMs);
    while (Before(deadline)) {
        const std::uint32_t type = random() % 2 == 0 ? WebFilterBlockPolicy : WebFilterBlockAll;
        const std::u16string text =
            MakeStressText(id, mapper.WriteCount() + 1, type, StressLength(random), random);
        if (mapper.WriteContent(type, text)) {
            ++written;
        } else {
            ++refused;
            Sleep(1);  // another writer owns the section: let it work
        }
    }
    std::printf("writer %u: %u written, %u refused, capacity %u\n", id, written, refused,
                mapper.Capacity());
    return mapper.WriteCount() == written ? kHelperOk : kHelperUnexpected;
}

int Reader(std::uint32_t durationMs) {
    const WebFilterFileMapper mapper;
    std::uint32_t lastStamp = 0;
    std::uint32_t type = 0;
    std::u16string text;
    std::uint32_t whole = 0;
    std::uint32_t torn = 0;
    const auto deadline = DeadlineIn(durationMs);
    while (Before(deadline)) {
        if (mapper.CheckContentChanged(lastStamp, type, text)) {
            if (IsWholeStressText(text, lastStamp, type)) {
                ++whole;
            } else {
                ++torn;
                std::printf("reader: torn text at stamp %u, type %u, %zu characters\n", lastStamp,
                            type, text.size());
            }
        }
    }
    std::printf("reader: %u whole, %u torn\n", whole, torn);
    return torn == 0 && whole > 0 ? kHelperOk : kHelperUnexpected;
}

int Run(int argc, wchar_t** argv) {
    const std::wstring_view command = argc > 1 ? argv[1] : L"";
    if (command == L"hold-lock" && argc == 4) {
        return HoldLock(argv[2], argv[3]);
    }
    if (command == L"abandon" && argc == 2) {
        return Abandon();
    }
    if (command == L"publish" && argc == 6) {
        return Publish(Number(argv[2]), U16View(argv[3]), argv[4], argv[5]);
    }
    if (command == L"check" && (argc == 5 || argc == 6)) {
        return Check(Number(argv[2]), Number(argv[3]), U16View(argv[4]), argc == 6);
    }
    if (command == L"writer" && argc == 5) {
        return Writer(Number(argv[2]), Number(argv[3]), Number(argv[4]));
    }
    if (command == L"reader" && argc == 3) {
        return Reader(Number(argv[2]));
    }
    if (command == L"crash" && argc == 2) {
        RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
    }
    return kHelperUsage;
}

}  // namespace
}  // namespace sentrel::test

int wmain(int argc, wchar_t** argv) {
    const int result = sentrel::test::Run(argc, argv);
    std::fflush(stdout);
    return result;
}
