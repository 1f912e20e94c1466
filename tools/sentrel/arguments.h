#pragma once

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sentrel::cli {

// What a sub-command accepts: options that take a value, flags that stand alone, and the value
// options that may be given more than once (each applying to what follows it).
struct ArgumentRules {
    std::set<std::string, std::less<>> valueOptions;
    std::set<std::string, std::less<>> flags;
    std::set<std::string, std::less<>> repeatable = {};
};

struct Arguments {
    std::map<std::string, std::string, std::less<>> values;
    std::set<std::string, std::less<>> flags;
    std::vector<std::string> positionals;
    // Every value option and positional as given, in order; a positional has an empty name.
    std::vector<std::pair<std::string, std::string>> sequence;

    std::optional<std::string> Value(std::string_view option) const;
    bool Has(std::string_view flag) const { return flags.contains(flag); }
};

// Parses "--option value", "--option=value", flags and positionals ("--" ends the options).
// An unknown option, a missing value or a repeated option that is not repeatable gives an error
// text instead; a repeatable option's value is its last one.
struct ParseResult {
    Arguments arguments;
    std::string error;
};
ParseResult ParseArguments(std::span<const std::string> args, const ArgumentRules& rules);

}  // namespace sentrel::cli
