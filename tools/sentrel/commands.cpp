#include <array>

#include "command.h"

namespace sentrel::cli {

extern const Command kCheckCommand;
extern const Command kExplainCommand;
extern const Command kLintCommand;
extern const Command kCrackCommand;
extern const Command kFormatCommand;
extern const Command kImportCommand;
extern const Command kVersionCommand;
extern const Command kDiffCommand;

std::span<const Command* const> Commands() {
    static const std::array<const Command*, 8> commands = {
        &kCheckCommand,  &kExplainCommand, &kLintCommand,    &kCrackCommand,
        &kFormatCommand, &kImportCommand,  &kVersionCommand, &kDiffCommand};
    return commands;
}

}  // namespace sentrel::cli
