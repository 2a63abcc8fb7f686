#pragma once

#include <optional>
#include <string>
#include <vector>

namespace brimvale {

// What `brimvale` was asked to do, read before any window or display connection exists, so
// that --help and --version work without a display.
struct ApplicationCommandLine {
    enum class Action { run, printHelp, printVersion, usageError };

    Action action = Action::run;
    // A folder to scan at once with the local disk account.
    std::optional<std::string> folder;
    // The message of a usage error.
    std::string error;
    // Arguments left for Qt (its own options, such as -platform or -style).
    std::vector<std::string> toolkitArguments;

    static ApplicationCommandLine parse(const std::vector<std::string>& arguments);
    static std::string helpText();
    static std::string versionText();
};

} // namespace brimvale
