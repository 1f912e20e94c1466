#include "loaded_policy.h"

#include "policy/web_filter_xml_processor.h"
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
    PolicyFile file = ReadPolicyFile(*path);
    if (!file.error.empty()) {
        return file.error;
    }
    loaded.text = std::move(file.text);
    if (!WebFilterXmlProcessor::DeserializePolicy(loaded.policy, loaded.text)) {
        return "cannot read the policy in " + *path;
    }
    loaded.searcher.filterType = *type;
    loaded.searcher.LoadPolicy(loaded.policy);
    return {};
}

}  // namespace sentrel::cli
