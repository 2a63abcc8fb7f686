#pragma once

#include "cli/CommandLine.h"

#include <string>
#include <vector>

namespace brimvale::cli {

// Every subcommand of brimvale-cli, in the order --help lists them.
std::vector<Command> allCommands();

// Whether the command line (without the program name) scans a cloud account: such a run waits
// on rclone, and building its tree is a small part of it.
bool scansCloudAccount(const std::vector<std::string>& arguments);

} // namespace brimvale::cli
