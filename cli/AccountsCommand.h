#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli accounts`: the sidebar's accounts.
Command accountsCommand();
// `brimvale-cli web-config`.
Command webConfigCommand();

} // namespace brimvale::cli
