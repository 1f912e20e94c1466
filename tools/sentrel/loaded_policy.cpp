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

std::optional<WebFilterType> FilterTypeOf(const Arguments& arguments) {
    return ParseFilterType(arguments.Value("--type").value_or("policy"));
}

std::string LoadPolicyFile(const std::string& path, WebFilterType type, LoadedPolicy& loaded) {
    if (std::string error = ReadPolicy(path, loaded.policy); !error.empty()) {
        return error;
    }
    loaded.searcher.filterType = type;
    loaded.searcher.LoadPolicy(loaded.policy);
    return {};
}

std::string LoadPolicy(const Arguments& arguments, LoadedPolicy& loaded) {
    const std::optional<std::string> path = arguments.Value("--policy");
    if (!path) {
        return "--policy FILE is required";
    }
    const std::optional<WebFilterType> type = FilterTypeOf(arguments);
    if (!type) {
        return std::string(kFilterTypeError);
    }
    return LoadPolicyFile(*path, *type, loaded);
}

}  // namespace sentrel::cli
