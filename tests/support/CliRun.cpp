#include "tests/support/CliRun.h"

#include "cli/CommandLine.h"
#include "cli/Commands.h"

#include <sstream>

namespace brimvale::testing {

CliOutcome runCli(std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const cli::CommandLine commandLine(cli::allCommands());
    const int status = commandLine.run(arguments, {out, err});
    return {status, out.str(), err.str()};
}

} // namespace brimvale::testing
