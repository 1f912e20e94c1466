#include <array>
#include <istream>
#include <ostream>

#include "check_urls.h"
#include "command.h"
#include "loaded_policy.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

#ifdef _WIN32
// Only the Windows build can reach the registered component.
constexpr std::string_view kComponentUsage = " [--com]";
constexpr std::string_view kComponentHelp =
    "  --com           let the registered component (Sentrel.WebFilterManager) decide instead\n"
    "                  of the built-in library; the component shares the policy with the\n"
    "                  manager objects of the other processes while it runs\n";
constexpr std::array<const char*, 1> kComponentFlags{"--com"};
#else
constexpr std::string_view kComponentUsage;
constexpr std::string_view kComponentHelp;
constexpr std::array<const char*, 0> kComponentFlags{};
#endif

int RunCheck(const Arguments& arguments, CommandStreams& streams) {
#ifdef _WIN32
    if (arguments.Has("--com")) {
        return RunComponentCheck(arguments, streams);
    }
#endif
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "check", error);
    }
    return CheckUrls(arguments, streams, [&loaded](std::string_view url) {
        return std::optional<bool>(loaded.searcher.IsUrlAllowed(Utf8ToUtf16(url)));
    });
}

}  // namespace

int CheckUrls(const Arguments& arguments, CommandStreams& streams, const UrlDecision& decide) {
    const auto answer = [&](std::string_view url) {
        const std::optional<bool> allowed = decide(url);
        if (allowed) {
            streams.out << (*allowed ? "allow\t" : "deny\t") << url << '\n';
        }
        return allowed.has_value();
    };
    bool decided = true;
    if (!arguments.positionals.empty()) {
        for (const std::string& url : arguments.positionals) {
            decided = decided && answer(url);
        }
    } else {
        std::string line;
        while (decided && std::getline(streams.in, line)) {
            // A line end written as CR LF leaves the CR, which is no part of the URL.
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            decided = answer(line);
        }
    }
    if (!decided) {
        return Fail(streams, "check", "the component could not decide a URL");
    }
    streams.out.flush();
    if (!streams.out) {
        return Fail(streams, "check", "cannot write the answers");
    }
    return kExitOk;
}

extern const Command kCheckCommand{
    "check",
    "decide URLs: one line 'allow<TAB>URL' or 'deny<TAB>URL' each",
    "usage: sentrel check --policy FILE [--type none|policy|all]" + std::string(kComponentUsage) +
        " [URL ...]\n\n"
        "Decides each URL given, or else each line of standard input, against the policy.\n\n"
        "options:\n" +
        std::string(kPolicyOptionsHelp) + std::string(kComponentHelp),
    {{"--policy", "--type"}, {kComponentFlags.begin(), kComponentFlags.end()}},
    &RunCheck,
};

}  // namespace sentrel::cli
