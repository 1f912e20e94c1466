#include <array>

#include "command.h"

namespace sentrel::cli {

extern const Command kCheckCommand;
extern const Command kExplainCommand;
extern const Command kLintCommand;
extern const Command kCrackCommand;
extern const Command kFormatCommand;
extern const Command kDiffCommand;

std::span<const Command* const> Commands() {
    static const std::array<const Command*, 6> commands = {
        &kCheckCommand, &kExplainCommand, &kLintCommand, &kCrackCommand, &kFormatCommand,
        &kDiffCommand};
    return commands;
}

}  // namespace sentrel::cli
