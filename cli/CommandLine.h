#pragma once

#include <functional>
#include <iosfwd>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace brimvale::cli {

// Exit statuses of brimvale-cli.
enum ExitStatus : int {
    exitSuccess = 0,
    exitFailure = 1, // the command ran and failed (unreadable file, failed scan…)
    exitUsage = 2,   // the command line itself was wrong
};

// Thrown by a command whose arguments are wrong; the message says what is wrong and the
// command's usage line is printed after it.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CommandStreams {
    std::ostream& out;
    std::ostream& err;
};

// One subcommand: `brimvale-cli NAME ARGS…`.
struct Command {
    std::string name;
    std::string summary; // one line for the command list
    std::string usage;   // the synopsis after "brimvale-cli ", e.g. "scan PATH [--json]"
    std::string details; // further lines of help, may be empty
    std::function<int(std::span<const std::string> arguments, CommandStreams streams)> run;
};

// Dispatches argv to the registered commands, with --help, --version and clear usage errors.
class CommandLine {
public:
    explicit CommandLine(std::vector<Command> commands);

    int run(std::span<const std::string> arguments, CommandStreams streams) const;

    void printHelp(std::ostream& out) const;

private:
    const Command* find(const std::string& name) const;
    static void printCommandHelp(const Command& command, std::ostream& out);

    std::vector<Command> commands_;
};

} // namespace brimvale::cli
