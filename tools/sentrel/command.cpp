#include "command.h"

#include <ostream>

namespace sentrel::cli {

namespace {

void PrintGeneralHelp(std::ostream& out) {
    out << "usage: sentrel <command> [options]\n\n"
           "Decides URLs against a web-filter policy exactly as the Sentrel component does.\n\n"
           "commands:\n";
    for (const Command* command : Commands()) {
        out << "  " << command->name << std::string(10 - command->name.size(), ' ')
            << command->summary << "\n";
    }
    out << "\nRun 'sentrel <command> --help' for a command's options.\n";
}

}  // namespace

int Fail(CommandStreams& streams, std::string_view command, std::string_view message) {
    streams.err << "sentrel " << command << ": " << message << "\n";
    return kExitUsage;
}

int RunSentrel(std::span<const std::string> args, CommandStreams& streams) {
    if (args.empty()) {
        PrintGeneralHelp(streams.err);
        return kExitUsage;
    }
    if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        PrintGeneralHelp(streams.out);
        return kExitOk;
    }
    const std::string_view name = args[0] == "--version" ? "version" : std::string_view(args[0]);
    for (const Command* command : Commands()) {
        if (command->name != name) {
            continue;
        }
        ArgumentRules rules = command->rules;
        rules.flags.insert("--help");
        const ParseResult parsed = ParseArguments(args.subspan(1), rules);
        if (!parsed.error.empty()) {
            return Fail(
                streams, command->name,
                parsed.error + " (see 'sentrel " + std::string(command->name) + " --help')");
        }
        if (parsed.arguments.Has("--help")) {
            streams.out << command->summary << "\n\n" << command->usage;
            return kExitOk;
        }
        return command->run(parsed.arguments, streams);
    }
    streams.err << "sentrel: unknown command '" << args[0] << "' (see 'sentrel --help')\n";
    return kExitUsage;
}

}  // namespace sentrel::cli
