#include "cli/ExportCommand.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/SavedScanTarget.h"
#include "core/interchange/NcduExportFile.h"
#include "core/interchange/NcduExportWriter.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/ScanCache.h"

#include <optional>
#include <system_error>
#include <unistd.h>

namespace brimvale::cli {
namespace {

struct ExportArguments {
    std::string target;
    std::string output = "-";
};

ExportArguments parseExportArguments(std::span<const std::string> arguments) {
    ExportArguments parsed;
    bool haveTarget = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "-o" || argument == "--output") {
            if (i + 1 == arguments.size()) {
                throw UsageError(argument + " needs the file to write (- for standard output)");
            }
            parsed.output = arguments[++i];
        } else if (argument.starts_with("--output=")) {
            parsed.output = argument.substr(9);
        } else if (argument.starts_with("-") && argument.size() > 1) {
            throw UsageError("unknown option '" + argument + "'");
        } else if (haveTarget) {
            throw UsageError("give one folder or account, not several");
        } else {
            parsed.target = argument;
            haveTarget = true;
        }
    }
    if (!haveTarget) {
        throw UsageError("give the folder or account whose saved scan to export");
    }
    if (parsed.output.empty()) {
        throw UsageError("-o needs a file name (- for standard output)");
    }
    return parsed;
}

int runExport(std::span<const std::string> rawArguments, CommandStreams streams) {
    const ExportArguments arguments = parseExportArguments(rawArguments);
    CoordinatorSession session;
    SavedScanTarget resolved;
    try {
        resolved = resolveSavedScanTarget(arguments.target, session);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception& error) {
        streams.err << "brimvale-cli export: " << displayText(error.what()) << '\n';
        return exitFailure;
    }
    const std::string& stem = resolved.key;
    const std::string& rootName = resolved.rootName;
    const auto saved = session.viewModel().cache().loadData(stem);
    if (!saved) {
        streams.err << "brimvale-cli export: there is no saved scan of "
                    << displayText(arguments.target) << " (brimvale-cli scan "
                    << displayText(arguments.target) << " makes one)\n";
        return exitFailure;
    }
    const auto root = decodeCacheNode(saved->bytes);
    if (!root) {
        streams.err << "brimvale-cli export: the saved scan of " << displayText(arguments.target)
                    << " is damaged; scan it again with brimvale-cli scan --rescan\n";
        return exitFailure;
    }
    try {
        if (arguments.output == "-") {
            NcduExportWriter(streams.out).write(**root, rootName, saved->modified);
        } else {
            writeNcduExportFile(arguments.output, **root, rootName, saved->modified);
        }
    } catch (const std::exception& error) {
        streams.err << "brimvale-cli export: " << displayText(error.what()) << '\n';
        return exitFailure;
    }
    return exitSuccess;
}

} // namespace

Command exportCommand() {
    return Command{
        .name = "export",
        .summary = "Write a saved scan in ncdu's JSON export format",
        .usage = "export PATH|ACCOUNT: [-o FILE]",
        .details =
            "Writes the saved scan of the folder PATH or the account ACCOUNT: (made by scan)\n"
            "in the JSON export format of ncdu, which ncdu -f, gdu -f and brimvale-cli open\n"
            "read, to FILE (- or no -o: standard output).\n"
            "\n"
            "  -o, --output FILE   the file to write; it is replaced only once complete\n"
            "\n"
            "Each item's size goes out as both its disk size and its apparent size: a saved\n"
            "scan keeps one size per item (the space on disk for a folder, the stored size\n"
            "for a cloud account).",
        .run = runExport};
}

} // namespace brimvale::cli
