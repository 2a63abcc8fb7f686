// The scan engine of ScannerViewModel: the load decision's background half, live updates,
// checkpoints, cancel and rescan.
#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/BrimvaleError.h"
#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneListingPrefetch.h"
#include "core/support/MainQueue.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/SettingsStore.h"
#include "core/support/Task.h"

#include <cmath>
#include <thread>

namespace brimvale {
namespace {

std::chrono::steady_clock::duration secondsDuration(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

// Progress from a scanning thread reaches the main thread as one posted job at a time: while a
// job is queued, newer progress only replaces what it will deliver.
struct ProgressMailbox {
    std::mutex mutex;
    std::optional<ScanProgress> latest;
    bool jobQueued = false;
};

// The folders a scan could not read, as its threads report them.
struct SkippedFolderList {
    std::mutex mutex; // guards folders
    std::vector<SkippedFolder> folders;
};

} // namespace

void ScannerViewModel::markRemoteLoading(const std::string& remoteID) {
    if (remoteIDsLoading_.insert(remoteID).second) {
        notify(PublishedField::remoteIDsLoading);
    }
}

void ScannerViewModel::unmarkRemoteLoading(const std::string& remoteID) {
    if (remoteIDsLoading_.erase(remoteID) > 0) {
        notify(PublishedField::remoteIDsLoading);
    }
}

std::string ScannerViewModel::resolvedLocalScanPath(const std::string& remoteID) {
    if (const auto found = localScanPathByRemoteID_.find(remoteID);
        found != localScanPathByRemoteID_.end()) {
        return found->second;
    }
    if (auto stored = options_.settings->stringValue(SettingsKeys::localScanPath(remoteID));
        stored && !stored->empty()) {
        localScanPathByRemoteID_[remoteID] = *stored;
        return *stored;
    }
    return "/";
}

std::string ScannerViewModel::scanPath(const CloudStorageProvider& provider) {
    const std::string id = provider.remoteID();
    const std::string type = provider.rcloneType();
    if (type == "local") {
        return resolvedLocalScanPath(id);
    }
    std::optional<std::string> root;
    if (type == "gcs") {
        root = GCSScanSettings::storedBucket(*options_.settings, id);
    } else if (type == "s3") {
        root = ObjectStorageScanPrefix::storedS3Bucket(*options_.settings, id);
    } else if (type == "azureblob") {
        root = ObjectStorageScanPrefix::storedAzureContainer(*options_.settings, id);
    }
    return root.value_or("");
}

std::string ScannerViewModel::cacheStem(const CloudStorageProvider& provider,
                                        const std::string& scanPath) const {
    if (isLocalProvider(provider)) {
        return LocalScanCacheStem::stem(provider.remoteID(), scanPath);
    }
    return provider.remoteID();
}

void ScannerViewModel::launchDetachedRemoteLoad(const ProviderRef& provider,
                                                const std::string& remoteID,
                                                std::int64_t generation, FileNodeRef seedOverride,
                                                bool clearCacheFirst, const std::string& scanPath,
                                                bool isLocal) {
    const std::string stem = cacheStem(*provider, scanPath);
    lastScanCacheStemByRemoteID_[remoteID] = stem;
    // Every run's first progress and first partial tree reach the pane.
    lastLiveUIPaneEmit_.erase(remoteID);
    latestScanProgressByRemote_.erase(remoteID);
    liveScanRootByRemote_.erase(remoteID);
    if (isLocal) {
        publish(showFullDiskAccessAdvisory_, false, PublishedField::showFullDiskAccessAdvisory);
    }
    const std::uint64_t taskID = launchTask(
        "load " + remoteID, [this, provider, remoteID, generation, seed = std::move(seedOverride),
                             clearCacheFirst, scanPath, stem, isLocal](std::stop_token token) {
            performDetachedRemoteLoad(provider, remoteID, generation, seed, clearCacheFirst,
                                      scanPath, stem, isLocal, token);
        });
    loadTasksByRemote_[remoteID] = RunningLoad{taskID, generation};
}

void ScannerViewModel::performDetachedRemoteLoad(const ProviderRef& provider,
                                                 const std::string& remoteID,
                                                 std::int64_t generation, FileNodeRef seedOverride,
                                                 bool clearCacheFirst, const std::string& scanPath,
                                                 const std::string& stem, bool isLocal,
                                                 std::stop_token stopToken) {
    // Whatever happens below, the load's entry and loading mark go once it ends, unless a newer
    // run has replaced them.
    struct Finish {
        ScannerViewModel* owner;
        std::string remoteID;
        std::int64_t generation;
        ~Finish() {
            owner->postIfAlive([owner = owner, remoteID = remoteID, generation = generation] {
                const auto load = owner->loadTasksByRemote_.find(remoteID);
                if (load != owner->loadTasksByRemote_.end() &&
                    load->second.generation == generation) {
                    owner->loadTasksByRemote_.erase(load);
                    owner->unmarkRemoteLoading(remoteID);
                }
            });
        }
    } finish{this, remoteID, generation};

    const auto apply = [this, &remoteID, generation, &stopToken](State state) {
        if (stopToken.stop_requested()) {
            return;
        }
        postIfCurrent(remoteID, generation, [this, remoteID, state = std::move(state)] {
            applyPaneState(state, remoteID);
        });
    };

    try {
        std::optional<ScanCache::LoadedData> saved;
        if (clearCacheFirst) {
            cacheWriter_->clear(stem);
        } else {
            // A tree saved a moment ago (the stop of this account's scan) is read, not the
            // checkpoint before it.
            cacheWriter_->waitForStem(stem);
            saved = cache_->loadData(stem);
        }
        throwIfCancelled(stopToken);
        if (saved) {
            apply(State::LoadingCache{remoteID, 0.0});
            int reportedPercent = 0;
            auto decoded = decodeCacheRecord(saved->bytes, [&](double fraction) {
                // Whole percents are plenty for a progress display.
                const int percent = static_cast<int>(std::floor(fraction * 100.0));
                if (percent > reportedPercent) {
                    reportedPercent = percent;
                    apply(State::LoadingCache{remoteID, fraction});
                }
            });
            throwIfCancelled(stopToken);
            if (decoded) {
                std::optional<std::int64_t> occupied;
                if (isLocal) {
                    occupied = provider->totalOccupiedBytesForScanPath(scanPath, stopToken);
                }
                ScanDiagnostics::log("loaded saved scan remote=" + remoteID + " stem=" + stem);
                apply(State::Done{.root = decoded->root,
                                  .savedDate = saved->modified,
                                  .occupiedBytes = occupied,
                                  .partial = decoded->partial});
                return;
            }
            // An unreadable saved scan counts as none: a fresh scan replaces it.
            cache_->log("Unreadable saved scan " + stem + ".cache; scanning again");
        }
        apply(State::checkingConfig());
        if (!provider->isConfigured(stopToken)) {
            throw BrimvaleError::remoteNotConfigured(provider->displayName());
        }
        runScanInBackground(provider, remoteID, generation, std::move(seedOverride), scanPath, stem,
                            isLocal, stopToken);
    } catch (const CancellationError&) {
    } catch (...) {
        if (!stopToken.stop_requested()) {
            applyFailure(provider, remoteID, generation, std::current_exception());
        }
    }
}

void ScannerViewModel::applyFailure(const ProviderRef& provider, const std::string& remoteID,
                                    std::int64_t generation, std::exception_ptr failure) {
    bool notConfigured = false;
    try {
        std::rethrow_exception(failure);
    } catch (const BrimvaleError& error) {
        notConfigured = error.is<BrimvaleError::RemoteNotConfigured>();
    } catch (...) {
    }
    State state = notConfigured ? State(State::NeedsSetup{provider})
                                : State(State::Error{ScanErrorInfo::from(failure, *provider)});
    postIfCurrent(remoteID, generation, [this, remoteID, state = std::move(state)] {
        latestScanProgressByRemote_.erase(remoteID);
        liveScanRootByRemote_.erase(remoteID);
        applyPaneState(state, remoteID);
    });
}

void ScannerViewModel::runScanInBackground(const ProviderRef& provider, const std::string& remoteID,
                                           std::int64_t generation, FileNodeRef seedOverride,
                                           const std::string& scanPath, const std::string& stem,
                                           bool isLocal, std::stop_token stopToken) {
    FileNodeRef seed = std::move(seedOverride);
    if (!seed) {
        if (auto saved = cache_->loadData(stem)) {
            if (auto decoded = decodeCacheNode(saved->bytes)) {
                seed = *decoded;
            }
        }
    }
    throwIfCancelled(stopToken);

    postIfCurrent(remoteID, generation, [this, remoteID] {
        const ScanProgress first{.stage = Stage::listing("Starting scan")};
        latestScanProgressByRemote_[remoteID] = first;
        applyPaneState(State::Scanning{first, nullptr}, remoteID);
    });

    auto mailbox = std::make_shared<ProgressMailbox>();
    std::weak_ptr<Liveness> alive = liveness_;
    MainQueue* mainQueue = &mainQueue_;
    ScanParameters parameters;
    parameters.path = scanPath;
    parameters.scanSession = generation;
    parameters.seedRoot = seed;
    parameters.mainQueue = mainQueue;
    parameters.stopToken = stopToken;
    parameters.progress = [this, alive, mainQueue, mailbox, remoteID,
                           generation](const ScanProgress& progress) {
        std::lock_guard lock(mailbox->mutex);
        mailbox->latest = progress;
        if (mailbox->jobQueued) {
            return;
        }
        mailbox->jobQueued = true;
        mainQueue->post([this, alive, mailbox, remoteID, generation] {
            std::optional<ScanProgress> latest;
            {
                std::lock_guard taken(mailbox->mutex);
                latest = std::exchange(mailbox->latest, std::nullopt);
                mailbox->jobQueued = false;
            }
            if (latest && alive.lock() && currentLoadGeneration(remoteID) == generation) {
                receiveProgress(remoteID, *latest);
            }
        });
    };
    parameters.listOneFolderAtATime = listsOneFolderAtATime(remoteID);
    auto skipped = std::make_shared<SkippedFolderList>();
    parameters.onSkippedFolder = [skipped](const SkippedFolder& folder) {
        std::lock_guard lock(skipped->mutex);
        skipped->folders.push_back(folder);
    };
    parameters.partialStructure = [this, alive, mainQueue, remoteID,
                                   generation](const FileNodeRef& root) {
        const auto deliver = [this, alive, remoteID, generation, root] {
            if (alive.lock() && currentLoadGeneration(remoteID) == generation) {
                receivePartialTree(remoteID, root);
            }
        };
        if (mainQueue->isCurrent()) {
            deliver();
        } else {
            mainQueue->post(deliver);
        }
    };

    FileNodeRef root = provider->scan(parameters);
    throwIfCancelled(stopToken);

    // The snapshot is read here, before the tree is handed over; it is encoded and written
    // while the result is shown (waitForSavedScans waits for it).
    writeSnapshotInBackground(std::make_shared<CacheSnapshot>(snapshotForCache(*root)), stem,
                              "finished scan");
    const std::optional<Date> savedDate = Date::fromUnixSeconds(
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
    std::optional<std::int64_t> occupied;
    if (isLocal) {
        occupied = provider->totalOccupiedBytesForScanPath(scanPath, stopToken);
    }
    throwIfCancelled(stopToken);
    std::vector<SkippedFolder> skippedFolders;
    {
        std::lock_guard lock(skipped->mutex);
        skippedFolders = std::move(skipped->folders);
    }
    postIfCurrent(remoteID, generation,
                  [this, remoteID, root, savedDate, occupied, stem,
                   skippedFolders = std::move(skippedFolders)]() mutable {
                      // A save that failed already is shown at once; a later outcome comes
                      // through noteSaveOutcome.
                      applyPaneState(State::Done{.root = root,
                                                 .savedDate = savedDate,
                                                 .occupiedBytes = occupied,
                                                 .skippedFolders = std::move(skippedFolders),
                                                 .saveFailure = cacheWriter_->failure(stem)},
                                     remoteID);
                      latestScanProgressByRemote_.erase(remoteID);
                      liveScanRootByRemote_.erase(remoteID);
                  });
}

void ScannerViewModel::receiveProgress(const std::string& remoteID, const ScanProgress& progress) {
    latestScanProgressByRemote_[remoteID] = progress;
    emitLiveStateIfDue(remoteID);
}

void ScannerViewModel::receivePartialTree(const std::string& remoteID, const FileNodeRef& root) {
    liveScanRootByRemote_[remoteID] = root;
    recordScanCheckpointIfDue(remoteID, root);
    emitLiveStateIfDue(remoteID);
}

ScanProgress ScannerViewModel::latestProgress(const std::string& remoteID) const {
    const auto progress = latestScanProgressByRemote_.find(remoteID);
    return progress == latestScanProgressByRemote_.end() ? ScanProgress{} : progress->second;
}

bool ScannerViewModel::takeTurnIfDue(std::map<std::string, Clock::time_point>& lastTimes,
                                     const std::string& remoteID, double intervalSeconds) {
    const auto current = now();
    const auto last = lastTimes.find(remoteID);
    if (last != lastTimes.end() && current - last->second < secondsDuration(intervalSeconds)) {
        return false;
    }
    lastTimes[remoteID] = current;
    return true;
}

void ScannerViewModel::emitLiveStateIfDue(const std::string& remoteID) {
    const ScanProgress progress = latestProgress(remoteID);
    if (!takeTurnIfDue(lastLiveUIPaneEmit_, remoteID,
                       ScanUISettings::adaptiveLiveRefreshInterval(progress.itemsScanned()))) {
        return;
    }
    FileNodeRef liveRoot;
    if (ScanUISettings::liveTreeDuringScan.load()) {
        if (const auto root = liveScanRootByRemote_.find(remoteID);
            root != liveScanRootByRemote_.end()) {
            liveRoot = root->second;
        }
    }
    applyPaneState(State::Scanning{progress, std::move(liveRoot)}, remoteID);
}

void ScannerViewModel::recordScanCheckpointIfDue(const std::string& remoteID,
                                                 const FileNodeRef& root) {
    const std::int64_t items = latestProgress(remoteID).itemsScanned();
    if (!takeTurnIfDue(lastScanCheckpointTime_, remoteID,
                       ScanUISettings::adaptiveCheckpointMinInterval(items))) {
        return;
    }
    const auto stem = lastScanCacheStemByRemoteID_.find(remoteID);
    if (stem == lastScanCacheStemByRemoteID_.end()) {
        return;
    }
    saveTreeInBackground(*root, stem->second, "checkpoint", true);
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
    writeSnapshotInBackground(snapshot, stem, why);
    return snapshot;
}

void ScannerViewModel::noteSaveOutcome(const std::string& stem,
                                       const std::optional<std::string>& failure) {
    for (const auto& [remoteID, accountStem] : lastScanCacheStemByRemoteID_) {
        if (accountStem != stem) {
            continue;
        }
        const State pane = paneState(remoteID);
        const auto* done = pane.as<State::Done>();
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
    const auto stem = lastScanCacheStemByRemoteID_.find(remoteID);
    if (stem == lastScanCacheStemByRemoteID_.end()) {
        return std::nullopt;
    }
    return cacheWriter_->failure(stem->second);
}

void ScannerViewModel::writeSnapshotInBackground(std::shared_ptr<const CacheSnapshot> snapshot,
                                                 const std::string& stem, const char* why) {
    cacheWriter_->save(stem, std::move(snapshot), why);
}

bool ScannerViewModel::waitForSavedScans(std::chrono::milliseconds timeout) {
    return cacheWriter_->waitForAll(timeout);
}

std::shared_ptr<const CacheSnapshot> ScannerViewModel::stopLoad(const std::string& remoteID,
                                                                bool keepPartialTree) {
    std::shared_ptr<const CacheSnapshot> saved;
    if (const auto load = loadTasksByRemote_.find(remoteID); load != loadTasksByRemote_.end()) {
        if (const auto task = tasks_.find(load->second.taskID); task != tasks_.end()) {
            // The task is not joined here: it may be waiting for this thread. Its end notice
            // removes it.
            task->second->cancel();
        }
        loadTasksByRemote_.erase(load);
    }
    invalidateLoadGeneration(remoteID);
    if (keepPartialTree) {
        FileNodeRef live;
        const State pane = paneState(remoteID);
        if (const auto root = liveScanRootByRemote_.find(remoteID);
            root != liveScanRootByRemote_.end()) {
            live = root->second;
        } else if (const auto* scanning = pane.as<State::Scanning>()) {
            live = scanning->liveRoot;
        }
        const auto stem = lastScanCacheStemByRemoteID_.find(remoteID);
        if (live && stem != lastScanCacheStemByRemoteID_.end()) {
            saved =
                saveTreeInBackground(*live, stem->second, "partial tree of a stopped scan", true);
        }
    }
    latestScanProgressByRemote_.erase(remoteID);
    liveScanRootByRemote_.erase(remoteID);
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
    terminateGuidedProcess();
    stopWebConfigServer();
    std::vector<std::string> loading;
    for (const auto& [remoteID, load] : loadTasksByRemote_) {
        loading.push_back(remoteID);
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

void ScannerViewModel::rescan() {
    if (!activeProvider_) {
        return;
    }
    const ProviderRef provider = activeProvider_;
    const std::string id = provider->remoteID();
    const State shown = paneState(id);
    FileNodeRef seed = shown.shownTree();
    if (!seed) {
        if (const auto live = liveScanRootByRemote_.find(id); live != liveScanRootByRemote_.end()) {
            seed = live->second;
        }
    }
    stopLoad(id, false);
    const std::int64_t generation = nextLoadGeneration(id);
    markRemoteLoading(id);
    const bool isLocal = isLocalProvider(*provider);
    launchDetachedRemoteLoad(provider, id, generation, std::move(seed), true, scanPath(*provider),
                             isLocal);
    syncPublishedStateToSelection();
}

void ScannerViewModel::rememberLocalScanPath(const std::string& remoteID,
                                             const std::string& scanPath) {
    localScanPathByRemoteID_[remoteID] = scanPath;
    options_.settings->setString(SettingsKeys::localScanPath(remoteID), scanPath);
}

void ScannerViewModel::openAccount(const ProviderRef& provider, const OpenAccountRequest& request) {
    if (!provider) {
        return;
    }
    activate(provider);
    const std::string id = provider->remoteID();
    if (request.localScanPath) {
        rememberLocalScanPath(id, *request.localScanPath);
    }
    if (request.listOneFolderAtATime) {
        listingModeOverrideByRemote_[id] = *request.listOneFolderAtATime;
    }
    if (request.rescan) {
        rescan();
        return;
    }
    stopLoad(id, false);
    const std::int64_t generation = nextLoadGeneration(id);
    markRemoteLoading(id);
    launchDetachedRemoteLoad(provider, id, generation, nullptr, false, scanPath(*provider),
                             isLocalProvider(*provider));
    syncPublishedStateToSelection();
}

void ScannerViewModel::confirmLocalDiskScan(const std::string& remoteID,
                                            const std::string& scanPath) {
    publish(showLocalVolumePicker_, false, PublishedField::showLocalVolumePicker);
    publish(pendingLocalDiskPickerRemoteID_, std::optional<std::string>(),
            PublishedField::pendingLocalDiskPickerRemoteID);
    rememberLocalScanPath(remoteID, scanPath);
    const ProviderRef chosen = provider(remoteID);
    if (!chosen) {
        return;
    }
    // Another volume replaces whatever this account was loading.
    stopLoad(remoteID, false);
    const std::int64_t generation = nextLoadGeneration(remoteID);
    markRemoteLoading(remoteID);
    launchDetachedRemoteLoad(chosen, remoteID, generation, nullptr, false, scanPath, true);
}

void ScannerViewModel::cancelLocalDiskScanPicker() {
    const std::optional<std::string> pending = pendingLocalDiskPickerRemoteID_;
    publish(showLocalVolumePicker_, false, PublishedField::showLocalVolumePicker);
    publish(pendingLocalDiskPickerRemoteID_, std::optional<std::string>(),
            PublishedField::pendingLocalDiskPickerRemoteID);
    std::optional<std::string> target = pending;
    if (!target && activeProvider_) {
        target = activeProvider_->remoteID();
    }
    // Closing the picker changes nothing that was there: a finished tree stays on screen.
    if (target && !paneState(*target).is<State::Done>()) {
        applyPaneState(State::idle(), *target);
    }
}

bool ScannerViewModel::listsOneFolderAtATime(const std::string& remoteID) const {
    if (const auto chosen = listingModeOverrideByRemote_.find(remoteID);
        chosen != listingModeOverrideByRemote_.end()) {
        return chosen->second;
    }
    return options_.settings->boolValue(SettingsKeys::listOneFolderAtATime(remoteID))
        .value_or(false);
}

void ScannerViewModel::setListsOneFolderAtATime(const std::string& remoteID, bool oneAtATime) {
    listingModeOverrideByRemote_.erase(remoteID);
    if (oneAtATime) {
        options_.settings->setBool(SettingsKeys::listOneFolderAtATime(remoteID), true);
    } else {
        options_.settings->remove(SettingsKeys::listOneFolderAtATime(remoteID));
    }
}

std::optional<std::pair<std::string, bool>>
ScannerViewModel::listingOfLastScan(const std::string& remoteID) const {
    // What the account was at its last scan: its backend type and whether it lists trees in
    // one go, as the adapter keeps them.
    const auto known =
        options_.settings->stringValue(SettingsKeys::recursiveListingFeature(remoteID));
    const auto equals = known ? known->rfind('=') : std::string::npos;
    if (equals == std::string::npos || equals == 0 || known->starts_with("local=")) {
        return std::nullopt;
    }
    return std::pair{known->substr(0, equals), known->substr(equals + 1) == "yes"};
}

void ScannerViewModel::startListingEarly(const std::string& remoteID) {
    if (listsOneFolderAtATime(remoteID)) {
        return;
    }
    const auto last = listingOfLastScan(remoteID);
    if (!last) {
        return;
    }
    auto made = CloudServiceCatalog::adapter(
        {.remoteName = remoteID, .rcloneType = last->first},
        {.rclone = {.runner = options_.runner, .settings = options_.settings}});
    const auto* account = dynamic_cast<const RcloneAdapter*>(made.get());
    if (account == nullptr) {
        return;
    }
    RcloneListingPrefetch::shared().start(
        options_.runner,
        account->recursiveLsjsonArguments(remoteID + ":" + scanPath(*made), last->second));
}

ProviderRef ScannerViewModel::accountKnownFromLastScan(const std::string& remoteID) {
    const auto last = listingOfLastScan(remoteID);
    if (!last) {
        return nullptr;
    }
    // Taken as configured: a remote deleted since makes the listing fail as not configured,
    // which the scan reports as such.
    return makeProvider(
        {.remoteName = remoteID, .rcloneType = last->first, .section = RemoteConfigSection{}});
}

} // namespace brimvale
