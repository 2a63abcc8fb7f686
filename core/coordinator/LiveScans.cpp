// A running scan's live side: its progress and live tree on the pane (throttled), checkpoints
// and the other saves, and stopping it with its partial tree kept.
#include "core/coordinator/CoordinatorInternals.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <chrono>

namespace brimvale {
namespace {

std::chrono::steady_clock::duration secondsDuration(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

} // namespace

void ScannerViewModel::receiveProgress(const std::string& remoteID, const ScanProgress& progress) {
    run(remoteID).setProgress(progress);
    emitLiveStateIfDue(remoteID);
}

void ScannerViewModel::receivePartialTree(const std::string& remoteID, const FileNodeRef& root) {
    run(remoteID).setLiveRoot(root);
    recordScanCheckpointIfDue(remoteID, root);
    emitLiveStateIfDue(remoteID);
}

ScanProgress ScannerViewModel::latestProgress(const std::string& remoteID) const {
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? ScanProgress{} : account->progress().value_or(ScanProgress{});
}

void ScannerViewModel::emitLiveStateIfDue(const std::string& remoteID) {
    AccountRun& account = run(remoteID);
    const ScanProgress progress = account.progress().value_or(ScanProgress{});
    if (!account.takeLiveTurn(now(), secondsDuration(ScanUISettings::adaptiveLiveRefreshInterval(
                                         progress.itemsScanned())))) {
        return;
    }
    FileNodeRef liveRoot;
    if (ScanUISettings::liveTreeDuringScan.load()) {
        liveRoot = account.liveRoot();
    }
    applyPaneState(State::Scanning{progress, std::move(liveRoot)}, remoteID);
}

void ScannerViewModel::recordScanCheckpointIfDue(const std::string& remoteID,
                                                 const FileNodeRef& root) {
    AccountRun& account = run(remoteID);
    const std::int64_t items = latestProgress(remoteID).itemsScanned();
    if (!account.takeCheckpointTurn(
            now(), secondsDuration(ScanUISettings::adaptiveCheckpointMinInterval(items)))) {
        return;
    }
    if (const auto& stem = account.cacheStem()) {
        saveTreeInBackground(*root, *stem, "checkpoint", true);
    }
}

std::shared_ptr<const CacheSnapshot> ScannerViewModel::saveTreeInBackground(const FileNode& root,
                                                                            const std::string& stem,
                                                                            const char* why,
                                                                            bool partial) {
    // The snapshot is taken here, on the main thread, which alone touches a live tree.
    auto snapshot = std::make_shared<CacheSnapshot>(snapshotForCache(root));
    snapshot->partial = partial;
    if (partial) {
        rollUpFolderSizes(*snapshot);
    }
    cacheWriter_->save(stem, snapshot, why);
    return snapshot;
}

void ScannerViewModel::noteSaveOutcome(const std::string& stem,
                                       const std::optional<std::string>& failure) {
    for (auto& [remoteID, account] : runs_) {
        if (account.cacheStem() != stem) {
            continue;
        }
        const auto* done = account.pane().as<State::Done>();
        if (done == nullptr || done->saveFailure == failure) {
            continue;
        }
        if (failure) {
            ScanDiagnostics::log("saved scan of " + remoteID + " not written: " + *failure);
        }
        State::Done updated = *done;
        updated.saveFailure = failure;
        applyPaneState(std::move(updated), remoteID);
    }
}

std::optional<std::string> ScannerViewModel::savedScanFailure(const std::string& remoteID) const {
    const AccountRun* account = findRun(remoteID);
    if (account == nullptr || !account->cacheStem()) {
        return std::nullopt;
    }
    return cacheWriter_->failure(*account->cacheStem());
}

bool ScannerViewModel::waitForSavedScans(std::chrono::milliseconds timeout) {
    return cacheWriter_->waitForAll(timeout);
}

std::shared_ptr<const CacheSnapshot> ScannerViewModel::stopLoad(const std::string& remoteID,
                                                                bool keepPartialTree) {
    AccountRun& account = run(remoteID);
    FileNodeRef live = account.liveRoot();
    if (const auto* scanning = account.pane().as<State::Scanning>(); !live && scanning) {
        live = scanning->liveRoot;
    }
    if (const auto taskID = account.stop(takeNewGeneration())) {
        if (const auto task = tasks_.find(*taskID); task != tasks_.end()) {
            // The task is not joined here: it may be waiting for this thread. Its end notice
            // removes it.
            task->second->cancel();
        }
    }
    std::shared_ptr<const CacheSnapshot> saved;
    if (keepPartialTree && live && account.cacheStem()) {
        saved = saveTreeInBackground(*live, *account.cacheStem(), "partial tree of a stopped scan",
                                     true);
    }
    unmarkRemoteLoading(remoteID);
    return saved;
}

void ScannerViewModel::cancelScan() {
    if (!activeProvider_) {
        return;
    }
    const std::string id = activeProvider_->remoteID();
    const auto saved = stopLoad(id, true);
    if (!saved) {
        applyPaneState(State::idle(), id);
        return;
    }
    showStoppedTree(id, saved);
}

void ScannerViewModel::showStoppedTree(const std::string& remoteID,
                                       std::shared_ptr<const CacheSnapshot> snapshot) {
    // The pane shows what the stopped scan found, as it was saved: a tree of its own, built
    // from the snapshot off the main thread, sorted like any finished tree (the live tree is
    // not, and a merge job still queued may touch it). Selecting the account meanwhile opens
    // the saved scan, which is the same tree.
    const std::int64_t generation = nextLoadGeneration(remoteID);
    applyPaneState(State::LoadingCache{remoteID, 0.0}, remoteID);
    launchTask("show stopped " + remoteID,
               [this, remoteID, generation, snapshot = std::move(snapshot)](std::stop_token) {
                   auto tree = rebuildTree(*snapshot, {});
                   if (tree) {
                       finishRebuiltTree(**tree);
                   }
                   postIfCurrent(remoteID, generation, [this, remoteID, tree = std::move(tree)] {
                       if (!tree) {
                           applyPaneState(State::idle(), remoteID);
                           return;
                       }
                       const auto now = std::chrono::system_clock::now().time_since_epoch();
                       applyPaneState(State::Done{.root = *tree,
                                                  .savedDate = Date::fromUnixSeconds(
                                                      std::chrono::duration<double>(now).count()),
                                                  .partial = true,
                                                  .saveFailure = savedScanFailure(remoteID)},
                                      remoteID);
                   });
               });
}

void ScannerViewModel::cancelAllWork() {
    onboarding_->endHelperProcesses();
    std::vector<std::string> loading;
    for (const auto& [remoteID, account] : runs_) {
        if (account.isLoading()) {
            loading.push_back(remoteID);
        }
    }
    for (const auto& remoteID : loading) {
        const bool wasScanning = paneState(remoteID).is<State::Scanning>();
        stopLoad(remoteID, wasScanning);
        if (wasScanning) {
            applyPaneState(State::idle(), remoteID);
        }
    }
    for (auto& [id, task] : tasks_) {
        task->cancel();
    }
}

} // namespace brimvale
