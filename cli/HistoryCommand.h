#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli history TARGET [--json]`: the saved scans of a folder or account.
Command historyCommand();
// `brimvale-cli changes TARGET [--since DATE | --from N] [--top N] [--depth N] [--json]`: what
// changed between two of them.
Command changesCommand();

} // namespace brimvale::cli
