// The load of one account: superseding the account's run with a new one, and the run's
// background half (the saved scan or a scan, then the result on the pane).
#include "core/coordinator/CoordinatorInternals.h"
#include "core/persistence/cache/CacheRecord.h"
#include "core/persistence/cache/CacheSnapshot.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/MainQueue.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/Task.h"

#include <cmath>
#include <mutex>

namespace brimvale {
namespace {
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

void ScannerViewModel::startLoad(const ProviderRef& provider, FileNodeRef seedOverride,
                                 bool clearCacheFirst, const std::string& scanPath) {
    const std::string remoteID = provider->remoteID();
    const bool isLocal = isLocalProvider(*provider);
    const std::string stem = cacheStem(*provider, scanPath);
    AccountRun& account = run(remoteID);
    const std::int64_t generation = takeNewGeneration();
    // A load still running belongs to the run this one supersedes: it is stopped, not joined
    // (it may be waiting for this thread); its end notice removes its task.
    if (const auto previous = account.stop(generation)) {
        if (const auto task = tasks_.find(*previous); task != tasks_.end()) {
            task->second->cancel();
        }
    }
    markRemoteLoading(remoteID);
    if (isLocal) {
        publish(showFullDiskAccessAdvisory_, false, PublishedField::showFullDiskAccessAdvisory);
    }
    const std::uint64_t taskID = launchTask(
        "load " + remoteID, [this, provider, remoteID, generation, seed = std::move(seedOverride),
                             clearCacheFirst, scanPath, stem, isLocal](std::stop_token token) {
            performDetachedRemoteLoad(provider, remoteID, generation, seed, clearCacheFirst,
                                      scanPath, stem, isLocal, token);
        });
    run(remoteID).start(taskID, stem);
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
                const auto account = owner->runs_.find(remoteID);
                if (account != owner->runs_.end() && account->second.loadEnded(generation)) {
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
        run(remoteID).dropLiveBuffers();
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
        run(remoteID).setProgress(first);
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
    cacheWriter_->save(stem, std::make_shared<CacheSnapshot>(snapshotForCache(*root)),
                       "finished scan",
                       options_.settings ? HistoryLimits::forAccount(*options_.settings, remoteID)
                                         : HistoryLimits{});
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
                      run(remoteID).dropLiveBuffers();
                  });
}

} // namespace brimvale
