// Deleting items of a finished tree: moved to the trash or removed for good on this computer,
// deleted through rclone on a cloud account. The tree on screen loses them at once and is saved.
#include "core/cleanup/TreeRemoval.h"
#include "core/coordinator/CoordinatorInternals.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <algorithm>
#include <chrono>

namespace brimvale {
namespace {

Date currentDate() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromUnixSeconds(std::chrono::duration<double>(now).count());
}

AccountRun* runOf(std::map<std::string, AccountRun>& runs, const std::string& remoteID) {
    const auto found = runs.find(remoteID);
    return found == runs.end() ? nullptr : &found->second;
}

bool isBelow(const std::string& path, const std::string& folder) {
    if (folder.empty()) {
        return !path.empty();
    }
    return path.size() > folder.size() && path.starts_with(folder) &&
           (path[folder.size()] == '/' || folder == "/");
}

} // namespace

std::vector<DeletionItem>
ScannerViewModel::deletionItems(const std::string& remoteID,
                                const std::vector<std::string>& nodePaths) {
    const State pane = paneState(remoteID);
    const auto* done = pane.as<State::Done>();
    const ProviderRef account = provider(remoteID);
    if (done == nullptr || !done->root || !account) {
        return {};
    }
    const bool isLocal = isLocalProvider(*account);
    const std::string root = isLocal ? "/" + done->root->path() : scanPath(*account);
    std::vector<DeletionItem> items;
    for (const auto& path : nodePaths) {
        const FileNode* node = findNodeByPath(*done->root, path);
        const bool insideAnother =
            std::any_of(nodePaths.begin(), nodePaths.end(),
                        [&](const std::string& other) { return isBelow(path, other); });
        const bool again = std::any_of(items.begin(), items.end(), [&](const DeletionItem& item) {
            return item.treePath == path;
        });
        if (node != nullptr && node != done->root.get() && !insideAnother && !again) {
            items.push_back(deletionItem(*node, isLocal, remoteID, root));
        }
    }
    return items;
}

void ScannerViewModel::deleteItems(const std::string& remoteID,
                                   const std::vector<std::string>& nodePaths,
                                   DeletionMethod method) {
    const State pane = paneState(remoteID);
    const auto* done = pane.as<State::Done>();
    const ProviderRef account = provider(remoteID);
    if (done == nullptr || !done->root || !account || run(remoteID).deletion.running) {
        return;
    }
    const bool isLocal = isLocalProvider(*account);
    if (isLocal == (method == DeletionMethod::deleteFromCloud)) {
        return;
    }
    DeletionRequest request{.method = method,
                            .accountLabel = account->displayName(),
                            .scanRoot = isLocal ? "/" + done->root->path() : std::string(),
                            .items = deletionItems(remoteID, nodePaths),
                            .runner = options_.runner};
    if (request.items.empty()) {
        return;
    }
    if (const auto* adapter = dynamic_cast<const RcloneAdapter*>(account.get())) {
        request.runner = adapter->runner();
    }
    ScanDiagnostics::log("deletion of " + std::to_string(request.items.size()) + " item(s) of " +
                         remoteID + " starts");
    const std::int64_t generation = currentLoadGeneration(remoteID);
    const FileNodeRef root = done->root;
    ItemDeletionState& deletion = run(remoteID).deletion;
    deletion = ItemDeletionState{
        .running = true,
        .method = method,
        .progress = {.itemsTotal = request.items.size()},
    };
    deletion.taskID = launchTask(
        "delete items of " + remoteID,
        [this, remoteID, generation, root, request = std::move(request)](std::stop_token token) {
            DeletionReport report =
                runDeletion(request, token, [this, remoteID](const DeletionProgress& progress) {
                    postIfAlive([this, remoteID, progress] {
                        if (AccountRun* record = runOf(runs_, remoteID);
                            record != nullptr && record->deletion.running) {
                            record->deletion.progress = progress;
                            notify(PublishedField::itemDeletions);
                        }
                    });
                });
            postIfAlive([this, remoteID, generation, root, report = std::move(report)] {
                finishDeletion(remoteID, generation, root, report);
            });
        });
    notify(PublishedField::itemDeletions);
}

void ScannerViewModel::finishDeletion(const std::string& remoteID, std::int64_t generation,
                                      const FileNodeRef& root, const DeletionReport& report) {
    AccountRun* account = runOf(runs_, remoteID);
    if (account == nullptr) {
        return; // the account was removed meanwhile
    }
    account->deletion.running = false;
    account->deletion.taskID = 0;
    account->deletion.lastReport = report;
    const State pane = paneState(remoteID);
    const auto* done = pane.as<State::Done>();
    // A rescan or another folder since the deletion started: that tree is no longer shown.
    if (done == nullptr || done->root != root || currentLoadGeneration(remoteID) != generation) {
        notify(PublishedField::itemDeletions);
        return;
    }
    bool changed = false;
    for (const auto& path : report.deleted) {
        if (FileNode* node = findNodeByPath(*root, path); node != nullptr && node != root.get()) {
            changed = removeFromTree(*node) || changed;
        }
    }
    for (const auto& [path, date] : report.changedFolders) {
        if (FileNode* folder = findNodeByPath(*root, path); folder != nullptr) {
            const auto providerID = folder->providerID();
            const auto mimeType = folder->mimeType();
            folder->setListingDetails(
                date, providerID ? std::optional<std::string>(*providerID) : std::nullopt,
                mimeType ? std::optional<std::string>(*mimeType) : std::nullopt);
        }
    }
    if (changed) {
        if (selectedNode_ && findNodeByPath(*root, selectedNode_->path()) != selectedNode_.get()) {
            publish(selectedNode_, FileNodeRef(), PublishedField::selectedNode);
        }
        const bool partial = done->partial;
        applyPaneState(State::Done{.root = root,
                                   .savedDate = currentDate(),
                                   .occupiedBytes = done->occupiedBytes,
                                   .skippedFolders = done->skippedFolders,
                                   .partial = partial,
                                   .saveFailure = done->saveFailure},
                       remoteID);
        if (const auto& stem = account->cacheStem()) {
            saveTreeInBackground(*root, *stem, "deletion", partial);
        }
    }
    notify(PublishedField::itemDeletions);
    for (const auto& path : report.partlyDeleted) {
        refreshFolder(remoteID, path);
    }
}

void ScannerViewModel::stopDeletion(const std::string& remoteID) {
    const AccountRun* account = findRun(remoteID);
    if (account == nullptr || !account->deletion.running) {
        return;
    }
    if (const auto task = tasks_.find(account->deletion.taskID); task != tasks_.end()) {
        task->second->cancel();
    }
}

const ItemDeletionState* ScannerViewModel::itemDeletion(const std::string& remoteID) const {
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? nullptr : &account->deletion;
}

void ScannerViewModel::dismissDeletionReport(const std::string& remoteID) {
    AccountRun* account = runOf(runs_, remoteID);
    if (account != nullptr && account->deletion.lastReport) {
        account->deletion.lastReport.reset();
        notify(PublishedField::itemDeletions);
    }
}

} // namespace brimvale
