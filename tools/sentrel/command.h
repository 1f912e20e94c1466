#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

#include "arguments.h"

namespace sentrel::cli {

// Exit statuses of every sub-command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitProblems = 1;  // lint found something
inline constexpr int kExitUsage = 2;     // wrong arguments, unreadable or unwritable files

struct CommandStreams {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
};

struct Command {
    std::string_view name;
    std::string_view summary;
    std::string usage;    // the full --help text after the summary line
    ArgumentRules rules;  // --help is accepted by every command
    int (*run)(const Arguments& arguments, CommandStreams& streams);
};

// The commands, in the order the general help lists them.
std::span<const Command* const> Commands();

// Runs "sentrel <args>": finds the command, parses its arguments, prints help or one error line.
int RunSentrel(std::span<const std::string> args, CommandStreams& streams);

// Reports a failure of a command as one line on the error stream and returns kExitUsage.
int Fail(CommandStreams& streams, std::string_view command, std::string_view message);

}  // namespace sentrel::cli
