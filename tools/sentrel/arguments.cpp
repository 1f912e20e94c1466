#include "arguments.h"

namespace sentrel::cli {

std::optional<std::string> Arguments::Value(std::string_view option) const {
    const auto found = values.find(option);
    if (found == values.end()) {
        return std::nullopt;
    }
    return found->second;
}

ParseResult ParseArguments(std::span<const std::string> args, const ArgumentRules& rules) {
    ParseResult result;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-' || arg[1] != '-') {
            result.arguments.positionals.push_back(arg);
            result.arguments.sequence.emplace_back(std::string(), arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (rules.flags.contains(name)) {
            if (equals != std::string::npos) {
                result.error = "option " + name + " takes no value";
                return result;
            }
            result.arguments.flags.insert(name);
            continue;
        }
        if (!rules.valueOptions.contains(name)) {
            result.error = "unknown option " + name;
            return result;
        }
        std::string value;
        if (equals != std::string::npos) {
            value = arg.substr(equals + 1);
        } else if (i + 1 < args.size()) {
            value = args[++i];
        } else {
            result.error = "option " + name + " needs a value";
            return result;
        }
        result.arguments.sequence.emplace_back(name, value);
        const auto [stored, added] = result.arguments.values.emplace(name, value);
        if (!added) {
            if (!rules.repeatable.contains(name)) {
                result.error = "option " + name + " given twice";
                return result;
            }
            stored->second = std::move(value);
        }
    }
    return result;
}

}  // namespace sentrel::cli
