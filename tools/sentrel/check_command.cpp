#include <array>
#include <deque>
#include <optional>
#include <string>

#include "check_urls.h"
#include "command.h"
#include "decision_tally.h"
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
constexpr std::array<const char*, 2> kFlags{"--summary", "--com"};
#else
constexpr std::string_view kComponentUsage;
constexpr std::string_view kComponentHelp;
constexpr std::array<const char*, 1> kFlags{"--summary"};
#endif

// Answers as check does and counts the decisions for --summary. Answerers stand side by side
// and each is written on every URL by its own thread: each takes whole cache lines of its own.
class alignas(64) TallyingAnswerer final : public UrlAnswerer {
  public:
    explicit TallyingAnswerer(const WebFilterSearcher& searcher)
        : tally(searcher), searcher_(searcher) {
        trace_.index.keys = false;
    }
    bool Answer(std::string_view line, std::u16string_view url, std::string& answers) override {
        AppendCheckAnswer(searcher_.IsUrlAllowed(url, &trace_), line, answers);
        tally.Count(trace_);
        return true;
    }

    DecisionTally tally;

  private:
    const WebFilterSearcher& searcher_;
    DecisionTrace trace_;  // kept for the memory of its path key
};

int CheckWithSummary(const Arguments& arguments, CommandStreams& streams, unsigned jobs,
                     const LoadedPolicy& loaded) {
    std::deque<TallyingAnswerer> answerers;
    AnswerUrls(arguments.positionals, streams, jobs,
               [&]() -> UrlAnswerer& { return answerers.emplace_back(loaded.searcher); });
    DecisionTally total(loaded.searcher);
    for (TallyingAnswerer& answerer : answerers) {
        total.Merge(answerer.tally);
    }
    total.Print(loaded.policy, streams.err);
    return AnswersWritten(streams, "check");
}

int RunCheck(const Arguments& arguments, CommandStreams& streams) {
    const std::optional<unsigned> jobs = ParseJobs(arguments);
    if (!jobs) {
        return Fail(streams, "check",
                    "--jobs must be a whole number from 1 to " + std::to_string(kMostJobs));
    }
#ifdef _WIN32
    if (arguments.Has("--com")) {
        if (arguments.Has("--summary")) {
            return Fail(streams, "check", "--summary needs the built-in library, not --com");
        }
        return RunComponentCheck(arguments, streams);
    }
#endif
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "check", error);
    }
    if (arguments.Has("--summary")) {
        return CheckWithSummary(arguments, streams, *jobs, loaded);
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
        " [--jobs N] [--summary] [URL ...]\n\n"
        "Decides each URL given, or else each line of standard input, against the policy. The\n"
        "answers come in input order, also when lines are decided on several threads.\n\n"
        "options:\n" +
        std::string(kPolicyOptionsHelp) + std::string(kJobsHelp) +
        "  --summary       after the answers, write on standard error how many URLs were\n"
        "                  allowed, denied and not crackable, one line each ('allowed<TAB>N'):\n"
        "                  a URL that could not be cracked is denied but counted as not\n"
        "                  crackable alone, and one that the decision did not need to crack\n"
        "                  (filter type none, no indexed entries) counts by its answer; then\n"
        "                  the 20 index entries that decided most often, most often first, ties\n"
        "                  in the order of their keys, one line each:\n"
        "                  'decided<TAB>COUNT<TAB>KEYS<TAB>white|black list \"L\" entry \"E\" "
        "\"URL\"',\n"
        "                  KEYS written as scheme://host[:port]/path (no port: any port; '/'\n"
        "                  alone: every path), followed by ' and N more' when more list entries\n"
        "                  stand behind the same index entry\n" +
        std::string(kComponentHelp),
    {{"--policy", "--type", "--jobs"}, {kFlags.begin(), kFlags.end()}},
    &RunCheck,
};

}  // namespace sentrel::cli
