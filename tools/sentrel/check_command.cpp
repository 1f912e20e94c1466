#include <istream>
#include <ostream>

#include "command.h"
#include "loaded_policy.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// Decides one URL and writes "allow<TAB>URL" or "deny<TAB>URL".
void Decide(const WebFilterSearcher& searcher, std::string_view url, std::ostream& out) {
    const bool allowed = searcher.IsUrlAllowed(Utf8ToUtf16(url));
    out << (allowed ? "allow\t" : "deny\t") << url << '\n';
}

int RunCheck(const Arguments& arguments, CommandStreams& streams) {
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "check", error);
    }
    if (!arguments.positionals.empty()) {
        for (const std::string& url : arguments.positionals) {
            Decide(loaded.searcher, url, streams.out);
        }
    } else {
        std::string line;
        while (std::getline(streams.in, line)) {
            // A line end written as CR LF leaves the CR, which is no part of the URL.
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            Decide(loaded.searcher, line, streams.out);
        }
    }
    streams.out.flush();
    if (!streams.out) {
        return Fail(streams, "check", "cannot write the answers");
    }
    return kExitOk;
}

}  // namespace

extern const Command kCheckCommand{
    "check",
    "decide URLs: one line 'allow<TAB>URL' or 'deny<TAB>URL' each",
    "usage: sentrel check --policy FILE [--type none|policy|all] [URL ...]\n\n"
    "Decides each URL given, or else each line of standard input, against the policy.\n\n"
    "options:\n" +
        std::string(kPolicyOptionsHelp),
    {{"--policy", "--type"}, {}},
    &RunCheck,
};

}  // namespace sentrel::cli
