#include <deque>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>

#include "check_urls.h"
#include "command.h"
#include "entry_keys.h"
#include "explanation.h"
#include "loaded_policy.h"
#include "policy_changes.h"
#include "policy_file.h"

namespace sentrel::cli {

namespace {

// One side of the change: the policy in force, and the main entries behind its index entries,
// found once a decision flips.
struct DiffSide {
    LoadedPolicy loaded;
    std::once_flag found;
    IndexEntrySources sources;

    const IndexEntrySources& Sources() {
        std::call_once(found, [this] { sources = SourcesOfIndexEntries(loaded.policy); });
        return sources;
    }
};

// What decided, for one field of a flip's line.
std::string DescribeDecision(const DecisionTrace& trace, DiffSide& side) {
    const std::string_view words = TextsOf(trace.step).words;
    if (!ByIndex(trace.step)) {
        return std::string(words);
    }
    if (trace.index.outcome != IndexOutcome::Matched) {
        return "no " + std::string(words) + " entry matches";
    }
    const IndexEntry entry{trace.step == DecisionStep::WhiteIndex, KeysOfMatch(trace.index)};
    return KeysAsUrl(entry.keys) + " " + NameSources(side.Sources().at(entry));
}

// Decides each URL under both policies and answers the flips alone.
class FlipAnswerer final : public UrlAnswerer {
  public:
    FlipAnswerer(DiffSide& before, DiffSide& after) : before_(before), after_(after) {}

    bool Answer(std::string_view line, std::u16string_view url, std::string& answers) override {
        const bool allowed = before_.loaded.searcher.IsUrlAllowed(url);
        if (after_.loaded.searcher.IsUrlAllowed(url) == allowed) {
            return true;
        }
        ++flips;
        // Flips are few: only they pay for the traces.
        before_.loaded.searcher.IsUrlAllowed(url, &trace_);
        answers.append(allowed ? "allow>deny\t" : "deny>allow\t").append(line).push_back('\t');
        answers.append(DescribeDecision(trace_, before_)).push_back('\t');
        after_.loaded.searcher.IsUrlAllowed(url, &trace_);
        answers.append(DescribeDecision(trace_, after_)).push_back('\n');
        return true;
    }

    std::size_t flips = 0;

  private:
    DiffSide& before_;
    DiffSide& after_;
    DecisionTrace trace_;
};

int RunDiff(const Arguments& arguments, CommandStreams& streams) {
    const bool urls = arguments.Has("--urls");
    const std::size_t count = arguments.positionals.size();
    if (count != 2 && !(urls && count == 3)) {
        return Fail(streams, "diff",
                    "give OLD and NEW, and with --urls at most one FILE (see 'sentrel diff "
                    "--help')");
    }
    const std::optional<unsigned> jobs = ParseJobs(arguments);
    if (!jobs) {
        return Fail(streams, "diff",
                    "--jobs must be a whole number from 1 to " + std::to_string(kMostJobs));
    }
    const std::optional<WebFilterType> type = FilterTypeOf(arguments);
    if (!type) {
        return Fail(streams, "diff", kFilterTypeError);
    }
    DiffSide before;
    DiffSide after;
    for (DiffSide* side : {&before, &after}) {
        const std::string& path = arguments.positionals[side == &before ? 0 : 1];
        // The indexes are compared by their entries: only decisions need them built.
        const std::string error = urls ? LoadPolicyFile(path, *type, side->loaded)
                                       : ReadPolicy(path, side->loaded.policy);
        if (!error.empty()) {
            return Fail(streams, "diff", error);
        }
    }
    if (!urls) {
        const bool changes =
            WriteIndexChanges(before.loaded.policy, after.loaded.policy, *type, streams.out);
        streams.out.flush();
        const int written = AnswersWritten(streams, "diff");
        return written != kExitOk ? written : changes ? kExitProblems : kExitOk;
    }
    std::ifstream file;
    const bool fromFile = count == 3 && arguments.positionals[2] != "-";
    if (fromFile) {
        file.open(arguments.positionals[2], std::ios::binary);
        if (!file) {
            return Fail(streams, "diff", "cannot read " + arguments.positionals[2]);
        }
    }
    CommandStreams input{fromFile ? file : streams.in, streams.out, streams.err};
    std::deque<FlipAnswerer> answerers;
    AnswerUrls({}, input, *jobs,
               [&]() -> UrlAnswerer& { return answerers.emplace_back(before, after); });
    if (const int written = AnswersWritten(streams, "diff"); written != kExitOk) {
        return written;
    }
    for (const FlipAnswerer& answerer : answerers) {
        if (answerer.flips != 0) {
            return kExitProblems;
        }
    }
    return kExitOk;
}

}  // namespace

extern const Command kDiffCommand{
    "diff",
    "show what changing from one policy to another does to the decisions",
    "usage: sentrel diff OLD NEW [--type none|policy|all] [--urls [FILE]] [--jobs N]\n\n"
    "Compares the policy files OLD and NEW (WebFilters documents, as --policy of check reads\n"
    "them) under one filter type.\n\n"
    "Without --urls, one line per index entry that NEW adds or removes, in the order of their\n"
    "keys; an index entry is what a main entry that can be cracked adds to the white or black\n"
    "index (names, ids and duplicates make none):\n"
    "  added<TAB>white|black<TAB>KEYS\n"
    "  removed<TAB>white|black<TAB>KEYS\n"
    "KEYS are written as scheme://host[:port]/path (no port: any port; '/' alone: every path;\n"
    "'scheme:' alone for an entry without host). Then the hosts whose decisions can change,\n"
    "that is whose ports and paths differ once an entry for every path has swallowed the path\n"
    "entries of its port (a change on a host reaches its subdomains that have no entries of\n"
    "their own); under --type policy only the index that decides counts:\n"
    "  host<TAB>white|black<TAB>scheme://host\n"
    "or, when the white index becomes empty or non-empty (which switches the black index on or\n"
    "off), or both indexes do, one line instead of every host:\n"
    "  every<TAB>TEXT\n"
    "Under --type none or all the indexes decide nothing, so no host can change.\n\n"
    "With --urls, decides each line of FILE (standard input when FILE is absent or '-'), given\n"
    "after OLD and NEW, under both policies, on --jobs threads, and writes in input order one\n"
    "line per URL whose answer flips:\n"
    "  allow>deny|deny>allow<TAB>URL<TAB>OLD REASON<TAB>NEW REASON\n"
    "A reason is the index entry that matched and the list entries behind it\n"
    "(KEYS white|black list \"L\" entry \"E\" \"URL\" [and N more]), or the rule that decided:\n"
    "no white entry matches, no black entry matches, not crackable, no indexed entries,\n"
    "about or file URL, filter type none, filter type all.\n\n"
    "Exit status: 0 when nothing flips (without --urls: no host can change), 1 when something\n"
    "does, 2 on bad arguments or an unreadable file.\n\n"
    "options:\n"
    "  --type TYPE     the filter type in force: none, policy (default) or all\n"
    "  --urls          decide URLs, from FILE or standard input\n" +
        std::string(kJobsHelp),
    {{"--type", "--jobs"}, {"--urls"}},
    &RunDiff,
};

}  // namespace sentrel::cli
