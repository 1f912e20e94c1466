#include <ostream>

#include "command.h"
#include "entry_keys.h"
#include "loaded_policy.h"
#include "policy/guid.h"
#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "text/url_text.h"
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
    out << "scheme      " << Quoted(cracked.scheme) << " (" << SchemeName(cracked.schemeId)
        << ")\n"
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

std::string Miss(const IndexTrace& trace) {
    switch (trace.outcome) {
        case IndexOutcome::NoSchemeEntry:
            return "no entry for the scheme key " + Quoted(trace.schemeKey);
        case IndexOutcome::NoHost:
            return "the URL has no host, which no entry matches";
        case IndexOutcome::HostWalkExhausted:
            return "no entry for the host key or any shorter suffix of it";
        case IndexOutcome::NoPortEntry:
            return "host " + Quoted(trace.hostKey) +
                   " is listed, but neither for the URL's port nor without a port";
        case IndexOutcome::PathMismatch:
            return "host " + Quoted(trace.hostKey) +
                   " is listed, but none of its paths is the URL's path or a prefix of it";
        case IndexOutcome::Matched:
            break;
    }
    return "matched";
}

void PrintMatch(const LoadedPolicy& loaded, bool white, const IndexTrace& trace,
                std::ostream& out) {
    out << "matched     scheme " << Quoted(trace.schemeKey) << ", host " << Quoted(trace.hostKey)
        << ", port " << trace.port << (trace.port == 0 ? " (any port)" : "") << ", "
        << (trace.everyPath ? std::string("every path") : "path " + Quoted(trace.pathKey)) << "\n";
    for (const EntrySource& source : EntriesWithKeys(loaded.policy, white, KeysOfMatch(trace))) {
        out << "list        " << Quoted(source.list->name) << " "
            << Utf16ToUtf8(GuidToText(source.list->id)) << "\n"
            << "entry       " << Quoted(source.entry.name) << " " << Quoted(source.entry.url)
            << "\n";
    }
}

int RunExplain(const Arguments& arguments, CommandStreams& streams) {
    if (arguments.positionals.size() != 1) {
        return Fail(streams, "explain", "give exactly one URL (see 'sentrel explain --help')");
    }
    LoadedPolicy loaded;
    if (const std::string error = LoadPolicy(arguments, loaded); !error.empty()) {
        return Fail(streams, "explain", error);
    }
    const std::u16string url = Utf8ToUtf16(arguments.positionals.front());
    DecisionTrace trace;
    const bool allowed = loaded.searcher.IsUrlAllowed(url, &trace);

    std::ostream& out = streams.out;
    const std::u16string normalised = NormalizeUrlText(url);
    out << "url         " << Quoted(url) << "\n"
        << "normalised  " << Quoted(normalised) << "\n";
    CrackedUrl cracked;
    CrackFailure why = CrackFailure::None;
    if (CrackUrl(normalised, cracked, &why)) {
        PrintCracked(cracked, out);
    } else {
        out << "cracked     could not crack: " << DescribeCrackFailure(why) << "\n";
    }
    out << "decision    " << (allowed ? "allow" : "deny") << ": ";
    switch (trace.step) {
        case DecisionStep::FilterNone:
            out << "the filter type is none, which allows everything\n";
            break;
        case DecisionStep::NoIndexedEntries:
            out << "the policy has no indexed entries, which allows everything\n";
            break;
        case DecisionStep::CouldNotCrack:
            out << "the URL could not be cracked\n";
            break;
        case DecisionStep::AboutOrFileScheme:
            out << "about and file URLs are always allowed\n";
            break;
        case DecisionStep::BlockAll:
            out << "the filter type is all, which denies everything but about and file URLs\n";
            break;
        case DecisionStep::WhiteIndex:
        case DecisionStep::BlackIndex: {
            const bool white = trace.step == DecisionStep::WhiteIndex;
            out << (white ? "the white index " : "the black index ")
                << (trace.index.outcome == IndexOutcome::Matched
                        ? "matches"
                        : "does not match: " + Miss(trace.index))
                << "\n";
            if (trace.index.outcome == IndexOutcome::Matched) {
                PrintMatch(loaded, white, trace.index, out);
            }
            break;
        }
    }
    return kExitOk;
}

}  // namespace

extern const Command kExplainCommand{
    "explain",
    "show why a URL is allowed or denied",
    "usage: sentrel explain --policy FILE [--type none|policy|all] URL\n\n"
    "Shows the normalised text, the cracked parts and index keys, which rule or index decided,\n"
    "and the list and entry whose index entry matched, or why nothing matched.\n\n"
    "options:\n" +
        std::string(kPolicyOptionsHelp),
    {{"--policy", "--type"}, {}},
    &RunExplain,
};

}  // namespace sentrel::cli
