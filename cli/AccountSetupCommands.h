#pragma once

#include "cli/CommandLine.h"

#include <span>
#include <string>

namespace brimvale::cli {

// `brimvale-cli accounts add|reconnect|remove …`.
int runAccountSetupCommand(const std::string& subcommand, std::span<const std::string> arguments,
                           CommandStreams streams);
// `brimvale-cli web-config`: rclone's configuration website until Ctrl-C.
int runWebConfig(std::span<const std::string> arguments, CommandStreams streams);

} // namespace brimvale::cli
