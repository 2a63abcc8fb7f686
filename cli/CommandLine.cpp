#include "cli/CommandLine.h"

#include "core/support/Version.h"

#include <algorithm>
#include <ostream>

namespace brimvale::cli {
namespace {

constexpr const char* kProgram = "brimvale-cli";

bool isHelpFlag(const std::string& argument) {
    return argument == "--help" || argument == "-h";
}

} // namespace

CommandLine::CommandLine(std::vector<Command> commands)
    : commands_(std::move(commands)) {}

const Command* CommandLine::find(const std::string& name) const {
    const auto found = std::find_if(commands_.begin(), commands_.end(),
                                    [&](const Command& command) { return command.name == name; });
    return found == commands_.end() ? nullptr : &*found;
}

void CommandLine::printHelp(std::ostream& out) const {
    out << "Usage: " << kProgram << " COMMAND [ARGUMENTS…]\n"
        << "       " << kProgram << " --help | --version\n\n"
        << "See where storage space goes, on local disks and in cloud accounts.\n\n"
        << "Commands:\n";
    std::size_t width = 4;
    for (const auto& command : commands_) {
        width = std::max(width, command.name.size());
    }
    out << "  " << std::string("help") << std::string(width - 4 + 2, ' ')
        << "Show help for a command\n";
    for (const auto& command : commands_) {
        out << "  " << command.name << std::string(width - command.name.size() + 2, ' ')
            << command.summary << '\n';
    }
    out << "\nOptions:\n"
        << "  -h, --help     Show this help\n"
        << "  --version      Show the version\n\n"
        << "Run '" << kProgram << " help COMMAND' for a command's arguments.\n";
}

void CommandLine::printCommandHelp(const Command& command, std::ostream& out) {
    out << "Usage: " << kProgram << ' ' << command.usage << "\n\n" << command.summary << '\n';
    if (!command.details.empty()) {
        out << '\n' << command.details;
        if (command.details.back() != '\n') {
            out << '\n';
        }
    }
}

int CommandLine::run(std::span<const std::string> arguments, CommandStreams streams) const {
    if (arguments.empty()) {
        streams.err << kProgram << ": no command given\n";
        printHelp(streams.err);
        return exitUsage;
    }
    const std::string& first = arguments.front();
    if (isHelpFlag(first)) {
        printHelp(streams.out);
        return exitSuccess;
    }
    if (first == "--version" || first == "-V") {
        streams.out << kProgram << ' ' << kVersion << '\n';
        return exitSuccess;
    }
    if (first == "help") {
        if (arguments.size() == 1) {
            printHelp(streams.out);
            return exitSuccess;
        }
        if (const Command* command = find(arguments[1])) {
            printCommandHelp(*command, streams.out);
            return exitSuccess;
        }
        streams.err << kProgram << ": no help for unknown command '" << arguments[1] << "'\n";
        return exitUsage;
    }
    if (first.starts_with("-")) {
        streams.err << kProgram << ": unknown option '" << first << "'\n"
                    << "Run '" << kProgram << " --help' for usage.\n";
        return exitUsage;
    }
    const Command* command = find(first);
    if (command == nullptr) {
        streams.err << kProgram << ": unknown command '" << first << "'\n"
                    << "Run '" << kProgram << " --help' for the list of commands.\n";
        return exitUsage;
    }
    const auto rest = arguments.subspan(1);
    if (std::any_of(rest.begin(), rest.end(), isHelpFlag)) {
        printCommandHelp(*command, streams.out);
        return exitSuccess;
    }
    try {
        return command->run(rest, streams);
    } catch (const UsageError& error) {
        streams.err << kProgram << ' ' << command->name << ": " << error.what() << '\n'
                    << "Usage: " << kProgram << ' ' << command->usage << '\n';
        return exitUsage;
    }
}

} // namespace brimvale::cli
