#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli scan PATH [--json] [--depth N] [--top N]`: scans a local folder and lists its
// largest items, or writes the whole tree as JSON.
Command scanCommand();

} // namespace brimvale::cli
