#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <thread>

#include "check_urls.h"
#include "command.h"
#include "loaded_policy.h"

namespace sentrel::cli {

namespace {

#ifdef _WIN32
// Only the Windows build can reach the registered component.
constexpr std::string_view kComponentUsage = " [--com]";
constexpr std::string_view kComponentHelp =
    "  --com           let the registered component (Sentrel.WebFilterManager) decide instead\n"
    "                  of the built-in library; the component shares the policy with the\n"
    "                  manager objects of the other processes while it runs; it decides on\n"
    "                  one thread, whatever --jobs says\n";
constexpr std::array<const char*, 1> kComponentFlags{"--com"};
#else
constexpr std::string_view kComponentUsage;
constexpr std::string_view kComponentHelp;
constexpr std::array<const char*, 0> kComponentFlags{};
#endif

// Decisions on more threads than this gain nothing, and each thread costs memory.
constexpr unsigned kMostJobs = 1024;

// The number of threads that --jobs names, by default one per core.
std::optional<unsigned> ParseJobs(const Arguments& arguments) {
    const std::optional<std::string> text = arguments.Value("--jobs");
    if (!text) {
        return std::max(1u, std::thread::hardware_concurrency());
    }
    unsigned jobs = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, jobs);
    if (error != std::errc() || stop != end || jobs < 1 || jobs > kMostJobs) {
        return std::nullopt;
    }
    return jobs;
}

int RunCheck(const Arguments& arguments, CommandStreams& streams) {
    const std::optional<unsigned> jobs = ParseJobs(arguments);
    if (!jobs) {
        return Fail(streams, "check",
                    "--jobs must be a whole number from 1 to " + std::to_string(kMostJobs));
    }
#ifdef _WIN32
    if (arguments.Has("--com")) {
        return RunComponentCheck(arguments, streams);
    }
#endif
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "check", error);
    }
    // Decisions need the index alone.
    loaded.policy = {};
    const WebFilterSearcher& searcher = loaded.searcher;
    return CheckUrls(arguments, streams, *jobs, [&searcher](std::u16string_view url) {
        return std::optional<bool>(searcher.IsUrlAllowed(url));
    });
}

}  // namespace

extern const Command kCheckCommand{
    "check",
    "decide URLs: one line 'allow<TAB>URL' or 'deny<TAB>URL' each",
    "usage: sentrel check --policy FILE [--type none|policy|all]" + std::string(kComponentUsage) +
        " [--jobs N] [URL ...]\n\n"
        "Decides each URL given, or else each line of standard input, against the policy. The\n"
        "answers come in input order, also when lines are decided on several threads.\n\n"
        "options:\n" +
        std::string(kPolicyOptionsHelp) +
        "  --jobs N        decide lines of standard input on N threads at once (default: one\n"
        "                  per core)\n" +
        std::string(kComponentHelp),
    {{"--policy", "--type", "--jobs"}, {kComponentFlags.begin(), kComponentFlags.end()}},
    &RunCheck,
};

}  // namespace sentrel::cli
