#include <ostream>

#include "command.h"
#include "json_text.h"
#include "search/cracked_url.h"
#include "text/url_text.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

int RunCrack(const Arguments& arguments, CommandStreams& streams) {
    if (arguments.positionals.empty()) {
        return Fail(streams, "crack", "no URL given (see 'sentrel crack --help')");
    }
    for (const std::string& url : arguments.positionals) {
        const std::u16string normalised = NormalizeUrlText(Utf8ToUtf16(url));
        CrackedUrl cracked;
        if (!CrackUrl(normalised, cracked)) {
            streams.out << "{\"error\":\"could not crack\"}\n";
            continue;
        }
        streams.out << CrackedUrlJson(cracked) << "\n";
    }
    return kExitOk;
}

}  // namespace

extern const Command kCrackCommand{
    "crack",
    "show the parts a URL is cracked into, as JSON",
    "usage: sentrel crack URL ...\n\n"
    "Normalises and cracks each URL as the filter does and prints one JSON object per URL with\n"
    "scheme, schemeId (the scheme table's value, -1 for any other scheme), host, userName,\n"
    "password, path, tail and port, or {\"error\":\"could not crack\"}.\n",
    {},
    &RunCrack,
};

}  // namespace sentrel::cli
