#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli lzfse compress|decompress IN OUT`: the codec of the cache files, for anyone
// inspecting them.
Command lzfseCommand();

} // namespace brimvale::cli
