#include "cli/RemoveCommand.h"

#include "cli/CoordinatorSession.h"
#include "cli/DisplayText.h"
#include "cli/InterruptListener.h"
#include "cli/SavedScanTarget.h"
#include "core/cleanup/DeletionTexts.h"
#include "core/cleanup/TreeRemoval.h"
#include "core/local/LocalDiskAdapter.h"
#include "core/model/SizeFormatter.h"
#include "core/persistence/cache/LocalScanCacheStem.h"

#include <chrono>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace brimvale::cli {
namespace {

constexpr int exitInterrupted = 130;

struct RemoveArguments {
    std::string target;
    std::string path;
    std::optional<DeletionMethod> localMethod;
    bool yes = false;
    bool dryRun = false;
};

RemoveArguments parseRemoveArguments(std::span<const std::string> arguments) {
    RemoveArguments parsed;
    std::vector<std::string> positional;
    bool optionsEnded = false;
    for (const auto& argument : arguments) {
        if (!optionsEnded && (argument == "--trash" || argument == "--permanent")) {
            const DeletionMethod method = argument == "--trash" ? DeletionMethod::moveToTrash
                                                                : DeletionMethod::deletePermanently;
            if (parsed.localMethod && *parsed.localMethod != method) {
                throw UsageError("give --trash or --permanent, not both");
            }
            parsed.localMethod = method;
        } else if (!optionsEnded && argument == "--yes") {
            parsed.yes = true;
        } else if (!optionsEnded && argument == "--dry-run") {
            parsed.dryRun = true;
        } else if (!optionsEnded && argument == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && argument.size() > 1 && argument.starts_with('-')) {
            throw UsageError("unknown option '" + argument + "'");
        } else {
            positional.push_back(argument);
        }
    }
    if (positional.size() != 2) {
        throw UsageError(positional.size() < 2
                             ? "give the scanned folder or account and the item to delete, such "
                               "as: rm ~/Downloads old/big.iso"
                             : "give one scanned folder or account and one item; delete items "
                               "one command at a time");
    }
    parsed.target = positional[0];
    parsed.path = positional[1];
    if (parsed.path.empty()) {
        throw UsageError("the item to delete is empty");
    }
    return parsed;
}

// `path` below the scanned folder, "/"-separated with no empty or "." parts; none when it
// climbs with "..".
std::optional<std::string> normalizedBelow(std::string_view path) {
    std::string result;
    while (!path.empty()) {
        const auto slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            return std::nullopt;
        }
        result += result.empty() ? "" : "/";
        result += part;
    }
    return result;
}

// The tree path of PATH in the saved scan whose root is `rootPath` (a local root's logical
// path, or "/" for a cloud account); throws UsageError for a path outside it.
std::string treePathOf(const std::string& path, bool isLocal, const std::string& rootPath) {
    std::string_view below = path;
    if (isLocal && path.starts_with('/')) {
        const std::string root = "/" + rootPath;
        const std::string rootWithSlash = root.ends_with('/') ? root : root + "/";
        if (path != root && !path.starts_with(rootWithSlash)) {
            throw UsageError("'" + displayText(path) + "' is not inside the scanned folder " +
                             displayText(root));
        }
        below.remove_prefix(std::min(path.size(), rootWithSlash.size()));
    }
    const auto normalized = normalizedBelow(below);
    if (!normalized) {
        throw UsageError("give the item without '..': '" + displayText(path) + "'");
    }
    if (normalized->empty()) {
        return rootPath;
    }
    if (isLocal) {
        return rootPath.empty() ? *normalized : rootPath + "/" + *normalized;
    }
    return "/" + *normalized;
}

// `text` line by line: displayText keeps each name on one line, and the lines stay lines.
void writeLines(std::ostream& out, std::string_view text) {
    while (!text.empty()) {
        const auto end = text.find('\n');
        out << displayText(text.substr(0, end)) << (end == std::string_view::npos ? "" : "\n");
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

bool confirmOnTerminal(const std::string& question, CommandStreams streams) {
    if (&streams.err != &std::cerr || !::isatty(STDIN_FILENO) || !::isatty(STDERR_FILENO)) {
        return false;
    }
    writeLines(streams.err, question);
    streams.err << " [y/N] " << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer)) {
        streams.err << '\n';
        return false;
    }
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "YES" || answer == "Yes";
}

int runRemove(std::span<const std::string> rawArguments, CommandStreams streams) {
    const RemoveArguments arguments = parseRemoveArguments(rawArguments);
    const std::optional<std::string> accountName =
        accountInTarget(arguments.target, " and the item as a path below it");
    if (accountName && arguments.localMethod) {
        throw UsageError("--trash and --permanent are for folders of this computer; an item of "
                         "an account is deleted through its provider");
    }
    const auto fail = [&](const std::string& message) {
        streams.err << "brimvale-cli rm: " << message << '\n';
        return static_cast<int>(exitFailure);
    };
    std::string location;
    if (!accountName) {
        try {
            location = LocalDiskAdapter::resolveScanLocation(arguments.target);
        } catch (const std::system_error& error) {
            return fail(displayText(error.what()));
        }
    }
    const std::string shownTarget = accountName ? *accountName + ":" : location;

    CoordinatorSession session;
    ScannerViewModel& viewModel = session.viewModel();
    session.loadAccounts();
    const ProviderRef provider =
        accountName ? viewModel.provider(*accountName) : localAccount(viewModel);
    if (accountName && (!provider || !viewModel.configuredRemoteNames().contains(*accountName))) {
        if (const auto& listError = viewModel.accountListError()) {
            return fail("could not read the rclone accounts: " + displayText(*listError));
        }
        return fail("there is no account named '" + displayText(*accountName) +
                    "' (brimvale-cli accounts lists them)");
    }
    if (!provider) {
        return fail("no local account is available");
    }
    const std::string id = provider->remoteID();
    const std::string stem = accountName ? id : LocalScanCacheStem::stem(id, location);
    if (!viewModel.cache().loadData(stem)) {
        return fail("there is no saved scan of " + displayText(shownTarget) +
                    " (brimvale-cli scan " + displayText(shownTarget) +
                    " makes one; rm works on what a scan found)");
    }
    viewModel.openAccount(provider,
                          {.localScanPath = accountName ? std::nullopt : std::optional(location)});
    session.runUntil([&] {
        const auto kind = viewModel.paneState(id).kind();
        return kind == ScannerState::Case::done || kind == ScannerState::Case::error ||
               kind == ScannerState::Case::needsSetup;
    });
    const ScannerState pane = viewModel.paneState(id);
    const auto* done = pane.as<ScannerState::Done>();
    if (done == nullptr || !done->root) {
        return fail("the saved scan of " + displayText(shownTarget) + " could not be opened");
    }
    const std::string treePath = treePathOf(arguments.path, !accountName, done->root->path());
    if (treePath == done->root->path()) {
        return fail("'" + displayText(arguments.path) + "' is the scanned " +
                    (accountName ? "account" : "folder") + " itself; it is never deleted");
    }
    if (findNodeByPath(*done->root, treePath) == nullptr) {
        return fail("'" + displayText(arguments.path) + "' is not in the saved scan of " +
                    displayText(shownTarget) + " (a rescan shows what is there now)");
    }
    const DeletionMethod method = accountName
                                      ? DeletionMethod::deleteFromCloud
                                      : arguments.localMethod.value_or(DeletionMethod::moveToTrash);
    const std::vector<DeletionItem> items = viewModel.deletionItems(id, {treePath});
    if (items.empty()) {
        return fail("'" + displayText(arguments.path) + "' cannot be deleted");
    }
    const std::string question =
        deletionQuestion(method, items, provider->displayName(), provider->rcloneType());
    if (arguments.dryRun) {
        const char* verb =
            method == DeletionMethod::moveToTrash ? "Would move to the trash: " : "Would delete: ";
        streams.out << verb << displayText(deletionItemsText(items)) << '\n';
        for (const auto& item : items) {
            streams.out << "  " << displayText(item.location) << '\n';
        }
        streams.out << "Frees " << formatBytes(items.front().size) << " (as scanned).\n";
        return exitSuccess;
    }
    if (!arguments.yes && !confirmOnTerminal(question, streams)) {
        return fail("nothing deleted: confirm with --yes (or answer y on a terminal)");
    }

    bool interrupted = false;
    {
        InterruptListener interruptListener([&] {
            session.loop().post([&] {
                interrupted = true;
                viewModel.stopDeletion(id);
            });
        });
        viewModel.deleteItems(id, {treePath}, method);
        session.runUntil([&] {
            const ItemDeletionState* deletion = viewModel.itemDeletion(id);
            return deletion == nullptr || !deletion->running;
        });
        // Folders deleted only in part are listed again.
        session.runUntil([&] { return viewModel.foldersRefreshing(id).empty(); });
    }
    const ItemDeletionState* deletion = viewModel.itemDeletion(id);
    if (deletion == nullptr || !deletion->lastReport) {
        return fail("the deletion did not run");
    }
    const DeletionReport& report = *deletion->lastReport;
    viewModel.waitForSavedScans(std::chrono::minutes(2));
    std::ostream& reportStream = report.failures.empty() ? streams.out : streams.err;
    writeLines(reportStream, deletionReportText(method, report));
    reportStream << '\n';
    if (const auto failure = viewModel.savedScanFailure(id)) {
        return fail("the saved scan could not be updated: " + displayText(*failure));
    }
    if (interrupted) {
        return exitInterrupted;
    }
    return report.failures.empty() ? exitSuccess : exitFailure;
}

} // namespace

Command removeCommand() {
    return Command{
        .name = "rm",
        .summary = "Delete an item found by a scan, and update the saved scan",
        .usage = "rm PATH|ACCOUNT: ITEM [--trash|--permanent] [--yes] [--dry-run]",
        .details =
            "Deletes ITEM of the saved scan of the folder PATH or the account ACCOUNT: (made\n"
            "by scan). ITEM is a path below the scanned folder (or account), or an absolute\n"
            "path inside the scanned folder. The saved scan loses the item at once.\n"
            "\n"
            "  --trash       move it to the trash (the default for folders of this computer)\n"
            "  --permanent   delete it for good; a symbolic link is removed, never followed\n"
            "  --yes         do not ask; without it a terminal is asked (default no), and\n"
            "                without a terminal nothing is deleted\n"
            "  --dry-run     say what would go and how much it frees; delete nothing\n"
            "\n"
            "Items of an account are deleted through rclone (deletefile, or purge for a\n"
            "folder); whether the provider keeps them in a trash is said before asking.\n"
            "Refused: the scanned folder itself, the home folder, a mounted file system,\n"
            "items reached through a symbolic link out of the scanned folder, and items that\n"
            "changed since the scan.",
        .run = runRemove};
}

} // namespace brimvale::cli
