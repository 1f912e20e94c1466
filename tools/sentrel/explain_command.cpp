#include <ostream>
#include <string>

#include "check_urls.h"
#include "command.h"
#include "explanation.h"
#include "json_text.h"
#include "policy/guid.h"
#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

const char* SchemeName(UrlScheme scheme) {
    switch (scheme) {
        case UrlScheme::Ftp:
            return "Ftp";
        case UrlScheme::Gopher:
            return "Gopher";
        case UrlScheme::Http:
            return "Http";
        case UrlScheme::Https:
            return "Https";
        case UrlScheme::File:
            return "File";
        case UrlScheme::News:
            return "News";
        case UrlScheme::Mailto:
            return "Mailto";
        case UrlScheme::Socks:
            return "Socks";
        case UrlScheme::Other:
            break;
    }
    return "Other";
}

void PrintCracked(const CrackedUrl& cracked, std::ostream& out) {
    out << "scheme      " << Quoted(cracked.scheme) << " (" << SchemeName(cracked.schemeId) << ")\n"
        << "host        " << Quoted(cracked.host) << "\n"
        << "userName    " << Quoted(cracked.userName) << "\n"
        << "password    " << Quoted(cracked.password) << "\n"
        << "path        " << Quoted(cracked.path) << "\n"
        << "tail        " << Quoted(cracked.tail) << "\n"
        << "port        " << cracked.port << (cracked.portNamed ? "" : " (none named)") << "\n"
        << "keys        scheme " << Quoted(SchemeKey(cracked));
    if (cracked.host.empty()) {
        out << ", no host\n";
        return;
    }
    out << ", host " << Quoted(HostKey(cracked)) << ", port " << cracked.port << ", path "
        << Quoted(PathKey(cracked)) << "\n";
}

void PrintMatch(const Explanation& explanation, std::ostream& out) {
    const IndexTrace& trace = explanation.trace.index;
    out << "matched     scheme " << Quoted(trace.schemeKey) << ", host " << Quoted(trace.hostKey)
        << ", port " << trace.port << (trace.port == 0 ? " (any port)" : "") << ", "
        << (trace.everyPath ? std::string("every path") : "path " + Quoted(trace.pathKey)) << "\n";
    for (const EntrySource& source : explanation.entries) {
        out << "list        " << Quoted(source.list->name) << " "
            << Utf16ToUtf8(GuidToText(source.list->id)) << "\n"
            << "entry       " << Quoted(source.entry.name) << " " << Quoted(source.entry.url)
            << "\n";
    }
}

void PrintExplanation(const Explanation& explanation, std::ostream& out) {
    out << "url         " << Quoted(explanation.url) << "\n"
        << "normalised  " << Quoted(explanation.normalised) << "\n";
    if (explanation.crackedWell) {
        PrintCracked(explanation.cracked, out);
    } else {
        out << "cracked     could not crack: " << DescribeCrackFailure(explanation.crackFailure)
            << "\n";
    }
    out << "decision    " << (explanation.trace.allowed ? "allow" : "deny") << ": "
        << DecisionReason(explanation) << "\n";
    if (IndexMatched(explanation.trace)) {
        PrintMatch(explanation, out);
    }
}

// The JSON form for scripts: one object per URL, given or read as check reads its lines.
class JsonAnswerer final : public UrlAnswerer {
  public:
    explicit JsonAnswerer(const LoadedPolicy& loaded) : loaded_(loaded) {}

    bool Answer(std::string_view, std::u16string_view url, std::string& answers) override {
        Explanation explanation;
        Explain(loaded_, url, explanation);
        answers.append(ExplanationJson(explanation)).push_back('\n');
        return true;
    }

  private:
    const LoadedPolicy& loaded_;
};

int RunExplain(const Arguments& arguments, CommandStreams& streams) {
    const bool json = arguments.Has("--json");
    if (!json && arguments.positionals.size() != 1) {
        return Fail(streams, "explain", "give exactly one URL (see 'sentrel explain --help')");
    }
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "explain", error);
    }
    if (json) {
        JsonAnswerer answerer(loaded);
        AnswerUrls(arguments.positionals, streams, 1,
                   [&answerer]() -> UrlAnswerer& { return answerer; });
        return AnswersWritten(streams, "explain");
    }
    Explanation explanation;
    Explain(loaded, Utf8ToUtf16(arguments.positionals.front()), explanation);
    PrintExplanation(explanation, streams.out);
    return kExitOk;
}

}  // namespace

extern const Command kExplainCommand{
    "explain",
    "show why a URL is allowed or denied",
    "usage: sentrel explain --policy FILE [--type none|policy|all] URL\n"
    "       sentrel explain --policy FILE [--type none|policy|all] --json [URL ...]\n\n"
    "Shows the normalised text, the cracked parts and index keys, which rule or index decided,\n"
    "and the list and entry whose index entry matched, or why nothing matched.\n\n"
    "With --json, each URL given (or else each line of standard input) gets one JSON object on\n"
    "one line with the fields url, normalised, cracked (the parts as crack prints them), keys\n"
    "(scheme, host, port, path), crackFailure, decision (allow or deny), step (filterNone,\n"
    "noIndexedEntries, couldNotCrack, aboutOrFileScheme, blockAll, whiteIndex or blackIndex),\n"
    "reason, index (outcome: matched, noSchemeEntry, noHost, hostWalkExhausted, noPortEntry or\n"
    "pathMismatch; schemeKey, hostKey, port, pathKey) and entries (list, listId, entry, url of\n"
    "each entry behind the match). A field that does not apply is null; a match without pathKey\n"
    "holds for every path.\n\n"
    "options:\n" +
        std::string(kPolicyOptionsHelp) +
        "  --json          one JSON object per URL instead of the text form\n",
    {{"--policy", "--type"}, {"--json"}},
    &RunExplain,
};

}  // namespace sentrel::cli
