#include "app/ApplicationCommandLine.h"

#include "core/support/Version.h"

namespace brimvale {
namespace {

// Qt's own options that take a value; they and their values are passed through.
bool isToolkitOptionWithValue(const std::string& argument) {
    return argument == "-platform" || argument == "-style" || argument == "-display" ||
           argument == "-qwindowgeometry" || argument == "-qwindowtitle" ||
           argument == "-platformtheme" || argument == "-plugin" || argument == "-stylesheet";
}

} // namespace

ApplicationCommandLine ApplicationCommandLine::parse(const std::vector<std::string>& arguments) {
    ApplicationCommandLine parsed;
    bool optionsEnded = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (!optionsEnded && (argument == "--help" || argument == "-h")) {
            parsed.action = Action::printHelp;
            return parsed;
        }
        if (!optionsEnded && (argument == "--version" || argument == "-v")) {
            parsed.action = Action::printVersion;
            return parsed;
        }
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
            continue;
        }
        if (!optionsEnded && isToolkitOptionWithValue(argument)) {
            parsed.toolkitArguments.push_back(argument);
            if (index + 1 < arguments.size()) {
                parsed.toolkitArguments.push_back(arguments[++index]);
            }
            continue;
        }
        if (!optionsEnded && argument.size() > 1 && argument[0] == '-') {
            if (argument[1] != '-') {
                // Other single-dash options are Qt's (-reverse, -nograb…).
                parsed.toolkitArguments.push_back(argument);
                continue;
            }
            parsed.action = Action::usageError;
            parsed.error = "unknown option " + argument;
            return parsed;
        }
        if (parsed.folder) {
            parsed.action = Action::usageError;
            parsed.error = "only one folder can be scanned at a time";
            return parsed;
        }
        parsed.folder = argument;
    }
    return parsed;
}

std::string ApplicationCommandLine::helpText() {
    return "Usage: brimvale [OPTION]... [FOLDER | SCAN.json]\n"
           "See where storage space goes, on local disks and in cloud accounts.\n"
           "\n"
           "Opens the Brimvale window. With FOLDER, scans that folder at once with the local\n"
           "disk account. With a file, opens it as a scan exported by ncdu -o, gdu -o or\n"
           "brimvale-cli export (plain or gzip), shown beside the accounts until closed.\n"
           "\n"
           "  -h, --help     show this help and exit\n"
           "  -v, --version  show the version and exit\n"
           "\n"
           "Qt's own options (-platform, -style, …) are accepted too.\n"
           "\n"
           "Environment:\n"
           "  BRIMVALE_SCAN_DEBUG=1  write the scan log to standard error\n"
           "  BRIMVALE_TREE_DEBUG    write what the column browser does and how long it takes\n"
           "  BRIMVALE_TREE_TRACE    write every selection and key of the column browser\n"
           "\n"
           "Without a display, use the command-line twin: brimvale-cli scan FOLDER\n";
}

std::string ApplicationCommandLine::versionText() {
    return std::string("brimvale ") + kVersion + "\n";
}

} // namespace brimvale
