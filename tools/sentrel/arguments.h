#pragma once

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sentrel::cli {

// What a sub-command accepts: options that take a value, and flags that stand alone.
struct ArgumentRules {
    std::set<std::string, std::less<>> valueOptions;
    std::set<std::string, std::less<>> flags;
};

struct Arguments {
    std::map<std::string, std::string, std::less<>> values;
    std::set<std::string, std::less<>> flags;
    std::vector<std::string> positionals;

    std::optional<std::string> Value(std::string_view option) const;
    bool Has(std::string_view flag) const { return flags.contains(flag); }
};

// Parses "--option value", "--option=value", flags and positionals ("--" ends the options).
// An unknown option, a missing value or a repeated option gives an error text instead.
struct ParseResult {
    Arguments arguments;
    std::string error;
};
ParseResult ParseArguments(std::span<const std::string> args, const ArgumentRules& rules);

}  // namespace sentrel::cli
