#include <ostream>

#include "command.h"

namespace sentrel::cli {

namespace {

int RunVersion(const Arguments&, CommandStreams& streams) {
    // The project's version, defined for this file by the build.
    streams.out << "sentrel " << SENTREL_VERSION << "\n";
    return kExitOk;
}

}  // namespace

extern const Command kVersionCommand{
    "version",
    "print the tool's version",
    "usage: sentrel version (or sentrel --version)\n\n"
    "Prints \"sentrel\" and the version of the build, as in \"sentrel 1.2.3\".\n",
    {},
    &RunVersion,
};

}  // namespace sentrel::cli
