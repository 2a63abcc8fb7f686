#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli cache show FILE [--json]` and `brimvale-cli cache dir`: what a cache file holds.
Command cacheCommand();

} // namespace brimvale::cli
