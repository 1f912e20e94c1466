#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "arguments.h"
#include "policy/web_filter_policy.h"
#include "search/web_filter_searcher.h"

namespace sentrel::cli {

// The filter type named on the command line: none, policy or all.
std::optional<WebFilterType> ParseFilterType(std::string_view name);

// A policy file read and put in force as the component does: the document read into a policy
// and the searcher's indexes built from it under the filter type.
struct LoadedPolicy {
    WebFilterPolicy policy;
    WebFilterSearcher searcher;
};

// The filter type named by --type (default policy).
std::optional<WebFilterType> FilterTypeOf(const Arguments& arguments);
inline constexpr std::string_view kFilterTypeError = "--type must be none, policy or all";

// Loads a policy file under a filter type; the error text is empty on success.
std::string LoadPolicyFile(const std::string& path, WebFilterType type, LoadedPolicy& loaded);

// Loads the file named by --policy under the type named by --type; the error text is empty on
// success.
std::string LoadPolicy(const Arguments& arguments, LoadedPolicy& loaded);

// The help text lines of the two options that LoadPolicy reads.
inline constexpr std::string_view kPolicyOptionsHelp =
    "  --policy FILE   the WebFilters document (UTF-16LE with byte order mark FF FE, else UTF-8)\n"
    "  --type TYPE     the filter type in force: none, policy (default) or all\n";

}  // namespace sentrel::cli
