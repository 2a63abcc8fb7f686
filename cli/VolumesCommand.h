#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli volumes [--json]`: the places a local scan can start from.
Command volumesCommand();

} // namespace brimvale::cli
