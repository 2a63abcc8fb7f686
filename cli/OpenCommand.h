#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli open FILE [--json] [--depth N] [--top N]`: lists a scan exported by ncdu, gdu
// or Brimvale itself the way `scan` lists one.
Command openCommand();

} // namespace brimvale::cli
