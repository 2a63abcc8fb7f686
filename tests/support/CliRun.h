#pragma once

#include <string>
#include <vector>

namespace brimvale::testing {

// What brimvale-cli printed and returned for one command line, run in-process.
struct CliOutcome {
    int status;
    std::string out;
    std::string err;
};

CliOutcome runCli(std::vector<std::string> arguments);

} // namespace brimvale::testing
