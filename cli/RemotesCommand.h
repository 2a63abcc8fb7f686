#pragma once

#include "cli/CommandLine.h"
#include "core/rclone/RcloneRunner.h"

// The cloud commands of brimvale-cli. Each runs on the calling thread and blocks on rclone.
namespace brimvale::cli {

// `brimvale-cli remotes [--json]`: the configured rclone remotes with their backend types and
// account labels.
Command remotesCommand(RcloneRunner runner = RcloneRunner());

// `brimvale-cli ls REMOTE:PATH [--json]`: one folder of a remote, largest first, with sizes.
Command lsCommand(RcloneRunner runner = RcloneRunner());

} // namespace brimvale::cli
