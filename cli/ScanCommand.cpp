#include "cli/ScanCommand.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/InterruptListener.h"
#include "cli/ListingArguments.h"
#include "cli/SavedScanTarget.h"
#include "cli/SavedTree.h"
#include "cli/ScanStatusLine.h"
#include "cli/TreeJsonWriter.h"
#include "cli/TreeListing.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/model/SizeFormatter.h"
#include "core/model/TreePath.h"
#include "core/rclone/RcloneListingPrefetch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <mutex>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace brimvale::cli {
namespace {

constexpr int exitInterrupted = 130; // the shell's status for a command stopped by Ctrl-C

struct ScanArguments {
    ListingArguments listing;
    bool rescan = false;
    bool quiet = false;
    bool perFolder = false;
    std::optional<std::string> refresh; // a folder below the target, to list again
};

ScanArguments parseScanArguments(std::span<const std::string> arguments) {
    ScanArguments parsed;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--refresh") {
            if (i + 1 == arguments.size()) {
                throw UsageError("--refresh needs the folder to list again, such as "
                                 "--refresh photos/2024");
            }
            parsed.refresh = arguments[++i];
        } else if (argument == "--rescan") {
            parsed.rescan = true;
        } else if (argument == "--quiet") {
            parsed.quiet = true;
        } else if (argument == "--per-folder") {
            parsed.perFolder = true;
        } else {
            rest.push_back(argument);
        }
    }
    parsed.listing = parseListingArguments(rest, "folder or account to scan");
    if (parsed.refresh && parsed.rescan) {
        throw UsageError("--refresh lists one folder of the saved scan again; --rescan scans "
                         "everything: give one of them");
    }
    return parsed;
}

bool writesToTerminal(const CommandStreams& streams) {
    return &streams.out == &std::cout && &streams.err == &std::cerr && ::isatty(STDOUT_FILENO) &&
           ::isatty(STDERR_FILENO);
}

double secondsSince(const Date& date) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - date.unixSeconds();
}

struct ItemCounts {
    std::int64_t files = 0;
    std::int64_t folders = 0;
};

// Folders include the scanned folder itself, as the scanner counts them.
ItemCounts countItems(const FileNode& root) {
    ItemCounts counts{.files = 0, .folders = root.isDirectory() ? 1 : 0};
    std::vector<const FileNode*> pending{&root};
    while (!pending.empty()) {
        const FileNode* node = pending.back();
        pending.pop_back();
        for (const auto& child : node->children()) {
            if (child->isDirectory()) {
                ++counts.folders;
                pending.push_back(child.get());
            } else {
                ++counts.files;
            }
        }
    }
    return counts;
}

// Checks the folder before any account work, with the messages a shell user expects.
bool checkFolder(const std::string& target, CommandStreams streams) {
    const std::string shownPath = displayText(target);
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            streams.err << "brimvale-cli scan: '" << shownPath << "' does not exist\n";
        } else {
            streams.err << "brimvale-cli scan: cannot open '" << shownPath
                        << "': " << std::error_code(error, std::generic_category()).message()
                        << '\n';
        }
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        streams.err << "brimvale-cli scan: '" << shownPath << "' is a file, not a folder\n";
        return false;
    }
    return true;
}

void printSkippedFolders(std::vector<SkippedFolder> skipped, std::ostream& err) {
    if (skipped.empty()) {
        return;
    }
    std::sort(skipped.begin(), skipped.end(), [](const SkippedFolder& a, const SkippedFolder& b) {
        return a.location < b.location;
    });
    err << "brimvale-cli scan: " << groupedCount(static_cast<std::int64_t>(skipped.size()))
        << (skipped.size() == 1 ? " folder" : " folders")
        << " could not be read and counted as empty:\n";
    for (const auto& folder : skipped) {
        err << "  " << displayText(folder.location) << ": " << folder.reason << '\n';
    }
}

// A cloud listing goes on past folders it cannot read; the first few are named.
void printUnreadableCloudFolders(const std::vector<SkippedFolder>& unreadable, std::ostream& err) {
    if (unreadable.empty()) {
        return;
    }
    constexpr std::size_t kNamed = 5;
    err << "brimvale-cli scan: " << groupedCount(static_cast<std::int64_t>(unreadable.size()))
        << (unreadable.size() == 1 ? " folder" : " folders")
        << " could not be read; the rest was listed:\n";
    for (std::size_t i = 0; i < unreadable.size() && i < kNamed; ++i) {
        err << "  " << displayText(unreadable[i].location) << ": "
            << displayText(unreadable[i].reason) << '\n';
    }
    if (unreadable.size() > kNamed) {
        err << "  \u2026 and "
            << groupedCount(static_cast<std::int64_t>(unreadable.size() - kNamed))
            << " more (--json lists them all)\n";
    }
}

int runScan(std::span<const std::string> rawArguments, CommandStreams streams) {
    const ScanArguments arguments = parseScanArguments(rawArguments);
    const std::string& target = arguments.listing.target;
    const std::optional<std::string> accountName =
        accountInTarget(target, " (Brimvale scans the whole account, or the bucket stored for it)");
    std::string location;
    if (!accountName) {
        if (!checkFolder(target, streams)) {
            return exitFailure;
        }
        try {
            location = LocalDiskAdapter::resolveScanLocation(target);
        } catch (const std::system_error& error) {
            streams.err << "brimvale-cli scan: " << displayText(error.what()) << '\n';
            return exitFailure;
        }
    }

    std::mutex skippedMutex;
    std::vector<SkippedFolder> skipped;
    CoordinatorSession session(
        LocalScanOptions{.onSkippedFolder = [&](const SkippedFolder& folder) {
            std::lock_guard lock(skippedMutex);
            skipped.push_back(folder);
        }});
    ScannerViewModel& viewModel = session.viewModel();
    // A rescan of a known account lists while the account list is read; an early listing
    // nobody took is stopped when the command ends.
    struct EarlyListingStop {
        ~EarlyListingStop() { RcloneListingPrefetch::shared().cancelAll(); }
    } earlyListingStop;
    if (accountName && arguments.rescan && !arguments.perFolder) {
        viewModel.startListingEarly(*accountName);
    }
    ProviderRef provider;
    if (accountName && arguments.rescan && !arguments.perFolder) {
        // A known account's rescan needs nothing from the account list: the listing is the
        // command's only rclone run.
        provider = viewModel.accountKnownFromLastScan(*accountName);
    } else if (!accountName && !arguments.refresh) {
        // A folder refresh finds its account in the list; a scan needs none of it.
        provider = viewModel.localDiskAccountKnownFromLastList();
    }
    if (!provider) {
        session.loadAccounts();
        provider = accountName ? viewModel.provider(*accountName) : localAccount(viewModel);
        if (accountName &&
            (!provider || !viewModel.configuredRemoteNames().contains(*accountName))) {
            if (const auto& listError = viewModel.accountListError()) {
                streams.err << "brimvale-cli scan: could not read the rclone accounts: "
                            << displayText(*listError) << '\n';
                return exitFailure;
            }
            streams.err << "brimvale-cli scan: there is no account named '"
                        << displayText(*accountName) << "' (brimvale-cli accounts lists them)\n";
            return exitFailure;
        }
        if (!provider) {
            streams.err << "brimvale-cli scan: no local account is available\n";
            return exitFailure;
        }
    }
    const std::string id = provider->remoteID();
    const std::string shownTarget = accountName ? *accountName + ":" : location;

    ScanStatusLine statusLine(streams.err, writesToTerminal(streams) && !arguments.quiet);
    bool started = false;
    bool loadedFromCache = false;
    bool interrupted = false;
    const auto finished = [&] {
        if (interrupted) {
            return true;
        }
        const auto kind = viewModel.paneState(id).kind();
        using Case = ScannerState::Case;
        if (kind == Case::loadingCache || kind == Case::checkingConfig || kind == Case::scanning) {
            started = true;
            return false;
        }
        return kind == Case::done || kind == Case::error || kind == Case::needsSetup ||
               (started && kind == Case::idle);
    };
    const auto onChange = [&](PublishedField field) {
        if (field != PublishedField::state && field != PublishedField::paneStates) {
            return;
        }
        const ScannerState pane = viewModel.paneState(id);
        if (const auto* loading = pane.as<ScannerState::LoadingCache>()) {
            loadedFromCache = true;
            statusLine.showLoading(loading->fraction);
        } else if (pane.is<ScannerState::CheckingConfig>()) {
            statusLine.showText("Checking the account\u2026");
        } else if (const auto* scanning = pane.as<ScannerState::Scanning>()) {
            statusLine.showScanning(scanning->progress);
        }
    };

    {
        InterruptListener interruptListener([&session, &viewModel, &interrupted] {
            session.loop().post([&session, &viewModel, &interrupted] {
                interrupted = true;
                viewModel.cancelScan();
                session.stop();
            });
        });
        viewModel.openAccount(
            provider,
            {.localScanPath = accountName ? std::nullopt : std::optional<std::string>(location),
             .rescan = arguments.rescan,
             .listOneFolderAtATime =
                 arguments.perFolder ? std::optional<bool>(true) : std::nullopt});
        session.runUntil(finished, onChange);
        if (arguments.refresh && !interrupted && loadedFromCache) {
            const ScannerState loaded = viewModel.paneState(id);
            const auto* done = loaded.as<ScannerState::Done>();
            const FileNode* folder = done != nullptr && done->root
                                         ? folderBelow(*done->root, *arguments.refresh)
                                         : nullptr;
            if (folder == nullptr) {
                statusLine.erase();
                streams.err << "brimvale-cli scan: '" << displayText(*arguments.refresh)
                            << "' is not a folder of the saved scan of " << displayText(shownTarget)
                            << '\n';
                return exitFailure;
            }
            const std::string folderPath = folder->path();
            statusLine.showText("Listing " + displayText(*arguments.refresh) + " again\u2026");
            viewModel.refreshFolder(id, folderPath);
            session.runUntil([&] {
                return interrupted || !viewModel.foldersRefreshing(id).contains(folderPath);
            });
        }
    }
    statusLine.erase();
    if (arguments.refresh && !interrupted) {
        if (const auto failure = viewModel.folderRefreshError(id)) {
            streams.err << "brimvale-cli scan: " << displayText(*failure) << '\n';
            return exitFailure;
        }
    }

    if (interrupted) {
        const bool written = viewModel.waitForSavedScans(std::chrono::minutes(2));
        if (const auto failure = viewModel.savedScanFailure(id)) {
            streams.err << "brimvale-cli scan: stopped; what was scanned so far could not be "
                           "saved: "
                        << displayText(*failure) << '\n';
        } else {
            streams.err << "brimvale-cli scan: stopped"
                        << (written ? "; what was scanned so far is saved" : "") << '\n';
        }
        return exitInterrupted;
    }

    const ScannerState pane = viewModel.paneState(id);
    if (const auto* failure = pane.as<ScannerState::Error>()) {
        streams.err << "brimvale-cli scan: " << displayText(failure->info.message) << '\n';
        if (failure->info.canReconnect) {
            streams.err << "Signing in again may fix this: brimvale-cli accounts reconnect "
                        << displayText(id) << '\n';
        }
        return exitFailure;
    }
    if (pane.is<ScannerState::NeedsSetup>()) {
        streams.err << "brimvale-cli scan: the account '" << displayText(id)
                    << "' is not set up yet (brimvale-cli accounts add sets one up)\n";
        return exitFailure;
    }
    const auto* done = pane.as<ScannerState::Done>();
    if (done == nullptr || !done->root) {
        streams.err << "brimvale-cli scan: the scan ended without a result\n";
        return exitFailure;
    }
    const FileNode& tree = *done->root;
    // A local scan's skipped folders come through the scanner's own report (below).
    const std::vector<SkippedFolder> unreadable =
        accountName ? done->skippedFolders : std::vector<SkippedFolder>();
    if (arguments.listing.json) {
        if (accountName) {
            TreeJsonWriter(streams.out).write(tree, unreadable, done->partial);
        } else {
            std::lock_guard lock(skippedMutex);
            TreeJsonWriter(streams.out).write(tree, skipped, done->partial);
        }
    } else {
        const ItemCounts counts = countItems(tree);
        streams.out << displayText(shownTarget) << "  " << formatBytes(tree.size()) << "  ("
                    << groupedCount(counts.files) << (counts.files == 1 ? " file, " : " files, ")
                    << groupedCount(counts.folders)
                    << (counts.folders == 1 ? " folder)" : " folders)");
        if (loadedFromCache && done->savedDate) {
            streams.out << "  cached " << relativeAge(secondsSince(*done->savedDate));
        }
        if (done->partial) {
            streams.out << "  partial: the scan did not finish (--rescan scans it all)";
        }
        streams.out << '\n';
        printTreeListing(streams.out, tree,
                         {.depth = arguments.listing.depth, .top = arguments.listing.top});
    }
    streams.out.flush();
    {
        std::lock_guard lock(skippedMutex);
        printSkippedFolders(std::move(skipped), streams.err);
    }
    printUnreadableCloudFolders(unreadable, streams.err);
    // The scan is saved while it is printed; the command ends once it is on disk.
    if (&streams.out == &std::cout) {
        keepUntilExit(done->root);
    }
    if (!viewModel.waitForSavedScans(std::chrono::minutes(2))) {
        streams.err << "brimvale-cli scan: the scan could not be saved in time\n";
        return exitFailure;
    }
    if (const auto failure = viewModel.savedScanFailure(id)) {
        streams.err << "brimvale-cli scan: the scan could not be saved, so the next run will "
                       "not show it: "
                    << displayText(*failure) << '\n';
        return exitFailure;
    }
    return exitSuccess;
}

} // namespace

bool scansCloudAccount(const std::vector<std::string>& arguments) {
    if (arguments.empty() || arguments.front() != "scan") {
        return false;
    }
    return std::any_of(arguments.begin() + 1, arguments.end(), [](const std::string& argument) {
        const auto colon = argument.find(':');
        return !argument.starts_with('-') && colon != std::string::npos && colon != 0 &&
               colon + 1 == argument.size() && argument.find('/') == std::string::npos;
    });
}

Command scanCommand() {
    return Command{
        .name = "scan",
        .summary = "Scan a folder or an account and list its largest items",
        .usage = "scan PATH|ACCOUNT: [--rescan | --refresh FOLDER] [--per-folder] [--quiet] "
                 "[--json] [--depth N] [--top N]",
        .details =
            "Adds up the space used by everything in the folder PATH, or in the rclone\n"
            "account ACCOUNT: (its stored bucket or container for object storage), and lists\n"
            "the largest items with their share of their folder. A saved scan is shown when\n"
            "there is one, with its age; --rescan scans afresh. Every finished scan is saved.\n"
            "\n"
            "  --rescan      scan again even when a saved scan exists\n"
            "  --refresh FOLDER\n"
            "                list one folder of the saved scan again (a path below PATH or\n"
            "                the account, such as photos/2024) and save the result\n"
            "  --per-folder  list an account one folder per rclone run (slower; for services\n"
            "                that throttle recursive listings)\n"
            "  --quiet       no live progress line\n"
            "  --depth N     list folders N levels deep (default 1)\n"
            "  --top N       show the N largest items of each folder (default 10)\n"
            "  --json        write the whole tree as JSON, one object per item\n"
            "\n"
            "Hard-linked files count once; symbolic links count as themselves and are not\n"
            "followed; kernel file systems such as /proc are not entered. Folders that cannot\n"
            "be read are listed on standard error at the end. Ctrl-C stops the scan and saves\n"
            "what was scanned so far (exit status 130).",
        .run = runScan};
}

} // namespace brimvale::cli
