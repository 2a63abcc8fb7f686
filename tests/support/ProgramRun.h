#pragma once

#include <string>
#include <vector>

namespace brimvale::testing {

struct ProgramResult {
    int exitStatus = -1; // the exit code, or 128 + signal number
    std::string out;
    std::string err;
};

// Runs a program (looked up in PATH) with `arguments` (argv[0] first), no standard input,
// both outputs collected without ever blocking the child. Throws std::runtime_error when the
// program cannot be started. Safe on any thread.
ProgramResult runProgram(const std::vector<std::string>& arguments);

} // namespace brimvale::testing
