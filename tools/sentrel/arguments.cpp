#include "arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

namespace sentrel::cli {

namespace {

// CLI11 reads "-x" as a short option, but none of our commands has one: "-x" is a positional (or
// an option's value), as "-" is. Such arguments, and any that start with the escape itself, reach
// CLI11 behind an escape that makes them plain words, and lose it again on the way out.
constexpr char kEscape = '\x01';

std::string Escaped(const std::string& arg) {
    const bool shortOptionLike = arg.size() >= 2 && arg[0] == '-' && arg[1] != '-';
    return shortOptionLike || arg.starts_with(kEscape) ? kEscape + arg : arg;
}

std::string Unescaped(const std::string& arg) {
    return arg.starts_with(kEscape) ? arg.substr(1) : arg;
}

// What a flag records when it is given bare; anything else was written after "=".
constexpr std::string_view kBareFlag = "\x01";

std::string NameOf(const std::string& arg) {
    return arg.substr(0, arg.find('='));
}

}  // namespace

std::optional<std::string> Arguments::Value(std::string_view option) const {
    const auto found = values.find(option);
    if (found == values.end()) {
        return std::nullopt;
    }
    return found->second;
}

ParseResult ParseArguments(std::span<const std::string> args, const ArgumentRules& rules) {
    CLI::App app;
    app.set_help_flag();  // each command prints its own help
    app.allow_extras();   // unknown options are left over, and reported below in our words
    std::map<const CLI::Option*, std::string> valueOptions;
    for (const std::string& name : rules.valueOptions) {
        CLI::Option* option = app.add_option(name);
        option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        valueOptions.emplace(option, name);
    }
    std::map<std::string, const CLI::Option*> flags;
    for (const std::string& name : rules.flags) {
        flags.emplace(name, app.add_flag(name + "{" + std::string(kBareFlag) + "}"));
    }
    CLI::Option* positionals = app.add_option("positionals");
    positionals->expected(0, CLI::detail::expected_max_vector_size)->allow_extra_args();

    ParseResult result;
    // CLI11 takes "--name=" like "--name", with the next argument as the value: here it is an
    // option written without its value.
    for (const std::string& arg : args) {
        if (arg == "--") {
            break;
        }
        if (arg.starts_with("--") && arg.find('=') == arg.size() - 1) {
            const std::string name = NameOf(arg);
            if (rules.valueOptions.contains(name) || rules.flags.contains(name)) {
                result.error = "option " + name +
                               (rules.flags.contains(name) ? " takes no value" : " needs a value");
                return result;
            }
        }
    }
    std::vector<std::string> reversed;  // CLI11 takes the arguments from the back
    std::transform(args.rbegin(), args.rend(), std::back_inserter(reversed), Escaped);
    try {
        app.parse(reversed);
    } catch (const CLI::ArgumentMismatch&) {
        // The one mismatch our rules allow: a value option that ends the arguments.
        result.error = "option " + NameOf(args.back()) + " needs a value";
        return result;
    }
    for (const std::string& extra : app.remaining()) {
        if (extra != "--") {
            result.error = "unknown option " + NameOf(extra);
            return result;
        }
    }
    for (const auto& [name, flag] : flags) {
        for (const std::string& given : flag->results()) {
            if (given != kBareFlag) {
                result.error = "option " + name + " takes no value";
                return result;
            }
        }
        if (flag->count() > 0) {
            result.arguments.flags.insert(name);
        }
    }

    // The options and positionals in the order given: CLI11 notes each value's option in turn.
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        const auto valueOption = valueOptions.find(option);
        if (option != positionals && valueOption == valueOptions.end()) {
            continue;  // a flag
        }
        const std::string value = Unescaped(option->results()[taken[option]++]);
        if (option == positionals) {
            result.arguments.positionals.push_back(value);
            result.arguments.sequence.emplace_back(std::string(), value);
            continue;
        }
        const std::string& name = valueOption->second;
        result.arguments.sequence.emplace_back(name, value);
        if (!result.arguments.values.insert_or_assign(name, value).second &&
            !rules.repeatable.contains(name)) {
            result.error = "option " + name + " given twice";
            return result;
        }
    }
    return result;
}

}  // namespace sentrel::cli
