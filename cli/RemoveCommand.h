#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli rm TARGET PATH [--trash|--permanent] [--yes] [--dry-run]`: deletes an item of
// the saved scan of TARGET and keeps that saved scan true.
Command removeCommand();

} // namespace brimvale::cli
