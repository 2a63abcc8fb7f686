#pragma once

#include "cli/CommandLine.h"

namespace brimvale::cli {

// `brimvale-cli export TARGET [-o FILE]`: writes the saved scan of a folder or an account in
// ncdu's JSON export format, which ncdu, gdu and `brimvale-cli open` read.
Command exportCommand();

} // namespace brimvale::cli
