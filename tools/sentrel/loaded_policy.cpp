#include "loaded_policy.h"

#include "policy_file.h"

namespace sentrel::cli {

std::optional<WebFilterType> ParseFilterType(std::string_view name) {
    if (name == "none") {
        return WebFilterBlockNone;
    }
    if (name == "policy") {
        return WebFilterBlockPolicy;
    }
    if (name == "all") {
        return WebFilterBlockAll;
    }
    return std::nullopt;
}

std::string LoadPolicy(const Arguments& arguments, LoadedPolicy& loaded) {
    const std::optional<std::string> path = arguments.Value("--policy");
    if (!path) {
        return "--policy FILE is required";
    }
    const std::optional<WebFilterType> type =
        ParseFilterType(arguments.Value("--type").value_or("policy"));
    if (!type) {
        return "--type must be none, policy or all";
    }
    if (std::string error = ReadPolicy(*path, loaded.policy); !error.empty()) {
        return error;
    }
    loaded.searcher.filterType = *type;
    loaded.searcher.LoadPolicy(loaded.policy);
    return {};
}

}  // namespace sentrel::cli
