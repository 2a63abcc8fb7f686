#include "cli/ScanCommand.h"

#include "cli/DisplayText.h"
#include "cli/ListingArguments.h"
#include "cli/TreeJsonWriter.h"
#include "cli/TreeListing.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/model/SizeFormatter.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace brimvale::cli {
namespace {

// The live status line on a terminal: rewritten in place at most ten times a second and
// erased before the result is printed.
class StatusLine {
public:
    StatusLine(std::ostream& err, bool enabled)
        : err_(err)
        , enabled_(enabled)
        , started_(std::chrono::steady_clock::now()) {}

    void update(const ScanProgress& progress) {
        if (!enabled_) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (shown_ && now - lastShown_ < std::chrono::milliseconds(100)) {
            return;
        }
        lastShown_ = now;
        shown_ = true;
        const double seconds = std::chrono::duration<double>(now - started_).count();
        const auto rate =
            seconds > 0.05
                ? static_cast<std::int64_t>(static_cast<double>(progress.itemsScanned()) / seconds)
                : 0;
        err_ << "\r\x1b[2KScanning\u2026 " << groupedCount(progress.itemsScanned())
             << " items \u00B7 " << groupedCount(progress.foldersScanned) << " folders \u00B7 "
             << formatBytes(progress.bytesAccountedFor) << " \u00B7 " << groupedCount(rate)
             << " items/s" << std::flush;
    }

    void erase() {
        if (shown_) {
            err_ << "\r\x1b[2K" << std::flush;
            shown_ = false;
        }
    }

private:
    std::ostream& err_;
    const bool enabled_;
    const std::chrono::steady_clock::time_point started_;
    std::chrono::steady_clock::time_point lastShown_;
    bool shown_ = false;
};

bool writesToTerminal(const CommandStreams& streams) {
    return &streams.out == &std::cout && &streams.err == &std::cerr && ::isatty(STDOUT_FILENO) &&
           ::isatty(STDERR_FILENO);
}

// The program ends right after a scan; giving half a million nodes back to the allocator one
// by one would only delay its exit. Still reachable, so not a leak to a checker.
void keepUntilExit(FileNodeRef root) {
    static auto* kept = new std::vector<FileNodeRef>();
    kept->push_back(std::move(root));
}

int runScan(std::span<const std::string> rawArguments, CommandStreams streams) {
    const ListingArguments arguments = parseListingArguments(rawArguments, "folder to scan");
    const std::string shownPath = displayText(arguments.target);
    struct stat status {};
    if (::stat(arguments.target.c_str(), &status) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            streams.err << "brimvale-cli scan: '" << shownPath << "' does not exist\n";
        } else {
            streams.err << "brimvale-cli scan: cannot open '" << shownPath
                        << "': " << std::error_code(error, std::generic_category()).message()
                        << '\n';
        }
        return exitFailure;
    }
    if (!S_ISDIR(status.st_mode)) {
        streams.err << "brimvale-cli scan: '" << shownPath << "' is a file, not a folder\n";
        return exitFailure;
    }

    std::vector<SkippedFolder> skipped;
    LocalDiskAdapter adapter(
        "local", "Local disk",
        LocalScanOptions{.onSkippedFolder = [&skipped](const SkippedFolder& folder) {
            skipped.push_back(folder);
        }});
    StatusLine statusLine(streams.err, writesToTerminal(streams));
    ScanProgress lastProgress;
    std::string location;
    FileNodeRef root;
    try {
        location = LocalDiskAdapter::resolveScanLocation(arguments.target);
        root = adapter.scan(
            ScanParameters{.path = location, .progress = [&](const ScanProgress& progress) {
                               lastProgress = progress;
                               statusLine.update(progress);
                           }});
    } catch (const std::system_error& error) {
        statusLine.erase();
        streams.err << "brimvale-cli scan: " << displayText(error.what()) << '\n';
        return exitFailure;
    }
    statusLine.erase();

    if (arguments.json) {
        TreeJsonWriter(streams.out).write(*root);
    } else {
        streams.out << displayText(location) << "  " << formatBytes(root->size()) << "  ("
                    << groupedCount(lastProgress.filesScanned) << " files, "
                    << groupedCount(lastProgress.foldersScanned) << " folders)\n";
        printTreeListing(streams.out, *root, {.depth = arguments.depth, .top = arguments.top});
    }
    streams.out.flush();

    if (!skipped.empty()) {
        std::sort(
            skipped.begin(), skipped.end(),
            [](const SkippedFolder& a, const SkippedFolder& b) { return a.location < b.location; });
        streams.err << "brimvale-cli scan: "
                    << groupedCount(static_cast<std::int64_t>(skipped.size()))
                    << (skipped.size() == 1 ? " folder" : " folders")
                    << " could not be read and counted as empty:\n";
        for (const auto& folder : skipped) {
            streams.err << "  " << displayText(folder.location) << ": " << folder.reason << '\n';
        }
    }
    if (&streams.out == &std::cout) {
        keepUntilExit(std::move(root));
    }
    return exitSuccess;
}

} // namespace

Command scanCommand() {
    return Command{
        .name = "scan",
        .summary = "Scan a local folder and list its largest items",
        .usage = "scan PATH [--json] [--depth N] [--top N]",
        .details = "Adds up the space on disk of everything in the folder PATH and lists the\n"
                   "largest items with their share of their folder. Hard-linked files count once;\n"
                   "symbolic links count as themselves and are not followed; kernel file systems\n"
                   "such as /proc are not entered.\n"
                   "\n"
                   "  --depth N   list folders N levels deep (default 1)\n"
                   "  --top N     show the N largest items of each folder (default 10)\n"
                   "  --json      write the whole tree as JSON, one object per item\n"
                   "\n"
                   "Folders that cannot be read are listed on standard error at the end.",
        .run = runScan};
}

} // namespace brimvale::cli
