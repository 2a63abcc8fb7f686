#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli top TARGET [-n N] [--json]`: the largest files of a saved scan.
Command topCommand();
// `brimvale-cli types TARGET [--json]`: its space by kind of file and by extension.
Command typesCommand();
// `brimvale-cli find TARGET PATTERN [-n N] [--json]`: its items whose names match.
Command findCommand();

} // namespace brimvale::cli
