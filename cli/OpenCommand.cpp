#include "cli/OpenCommand.h"

#include "cli/DisplayText.h"
#include "cli/ListingArguments.h"
#include "cli/SavedTree.h"
#include "cli/TreeJsonWriter.h"
#include "cli/TreeListing.h"
#include "core/interchange/NcduExportFile.h"
#include "core/model/SizeFormatter.h"
#include "core/support/CorruptDataError.h"

#include <iostream>
#include <system_error>

namespace brimvale::cli {
namespace {

int runOpen(std::span<const std::string> arguments, CommandStreams streams) {
    const ListingArguments parsed = parseListingArguments(arguments, "export file (- for "
                                                                     "standard input)");
    const std::string shownFile = parsed.target == "-" ? "standard input" : parsed.target;
    ImportedScan scan;
    try {
        scan = readNcduExportFile(parsed.target);
    } catch (const std::system_error& error) {
        streams.err << "brimvale-cli open: " << displayText(error.what()) << '\n';
        return exitFailure;
    } catch (const CorruptDataError& error) {
        streams.err << "brimvale-cli open: " << displayText(shownFile)
                    << " is not a scan export Brimvale can read: " << displayText(error.what())
                    << '\n';
        return exitFailure;
    }
    const FileNode& tree = *scan.root;
    if (parsed.json) {
        TreeJsonWriter(streams.out).write(tree);
    } else {
        streams.out << displayText(tree.name()) << "  " << formatBytes(tree.size()) << "  ("
                    << groupedCount(scan.files) << (scan.files == 1 ? " file, " : " files, ")
                    << groupedCount(scan.folders) << (scan.folders == 1 ? " folder)" : " folders)");
        if (!scan.program.empty()) {
            streams.out << "  exported by " << displayText(scan.program);
            if (!scan.programVersion.empty()) {
                streams.out << ' ' << displayText(scan.programVersion);
            }
        }
        if (scan.exportDate) {
            streams.out << (scan.program.empty() ? "  exported " : ", ")
                        << scan.exportDate->iso8601();
        }
        streams.out << '\n';
        printTreeListing(streams.out, tree, {.depth = parsed.depth, .top = parsed.top});
    }
    streams.out.flush();
    if (&streams.out == &std::cout) {
        keepUntilExit(std::move(scan.root));
    }
    return exitSuccess;
}

} // namespace

Command openCommand() {
    return Command{
        .name = "open",
        .summary = "List a scan exported by ncdu, gdu or brimvale-cli export",
        .usage = "open FILE|- [--json] [--depth N] [--top N]",
        .details =
            "Reads FILE (- for standard input), a scan in ncdu's JSON export format as\n"
            "written by `ncdu -o`, `gdu -o` or `brimvale-cli export`, plain or gzip-compressed,\n"
            "and lists its largest items like scan does.\n"
            "\n"
            "  --depth N     list folders N levels deep (default 1)\n"
            "  --top N       show the N largest items of each folder (default 10)\n"
            "  --json        write the whole tree as JSON, one object per item\n"
            "\n"
            "Sizes are the space each item takes on disk (its apparent size when the export\n"
            "has no disk sizes); hard-linked files count once. Entries the exporting tool\n"
            "could not read, left out or did not measure (special files) are marked so.",
        .run = runOpen};
}

} // namespace brimvale::cli
