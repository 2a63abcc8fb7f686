#pragma once

#include "cli/CommandLine.h"

#include <vector>

namespace brimvale::cli {

// Every subcommand of brimvale-cli, in the order --help lists them.
std::vector<Command> allCommands();

} // namespace brimvale::cli
