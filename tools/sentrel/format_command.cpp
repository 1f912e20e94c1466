#include <ostream>

#include "command.h"
#include "policy/hresult_error.h"
#include "policy/web_filter_xml_processor.h"
#include "policy_file.h"

namespace sentrel::cli {

namespace {

int RunFormat(const Arguments& arguments, CommandStreams& streams) {
    const std::optional<std::string> path = arguments.Value("--policy");
    if (!path) {
        return Fail(streams, "format", "--policy FILE is required");
    }
    WebFilterPolicy policy;
    if (const std::string error = ReadPolicy(*path, policy); !error.empty()) {
        return Fail(streams, "format", error);
    }
    std::u16string document;
    try {
        document = WebFilterXmlProcessor::SerializePolicy(policy);
    } catch (const HResultError&) {
        return Fail(streams, "format", "the policy holds text that XML cannot carry");
    }
    if (document.empty()) {
        return Fail(streams, "format", "the policy holds a list of unknown type");
    }
    const std::string bytes = DocumentBytes(document, arguments.Has("--utf8"));
    const std::string out = arguments.Value("--out").value_or("-");
    if (const std::string error = WriteBytes(out, bytes, streams.out); !error.empty()) {
        return Fail(streams, "format", error);
    }
    return kExitOk;
}

}  // namespace

extern const Command kFormatCommand{
    "format",
    "write a policy as the component writes it",
    "usage: sentrel format --policy FILE [--out FILE] [--utf8]\n\n"
    "Reads the policy and writes it again as the component serialises it: UTF-16LE with a byte\n"
    "order mark, no declaration and no indentation.\n\n"
    "options:\n"
    "  --policy FILE   the WebFilters document (UTF-16LE with byte order mark FF FE, else UTF-8)\n"
    "  --out FILE      where to write (default: standard output)\n"
    "  --utf8          write UTF-8 without a byte order mark instead\n",
    {{"--policy", "--out"}, {"--utf8"}},
    &RunFormat,
};

}  // namespace sentrel::cli
