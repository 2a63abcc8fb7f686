#include "core/coordinator/ScannerViewModel.h"

#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/onboarding/RcloneGuidedProcessBox.h"
#include "core/onboarding/RcloneWebConfigServer.h"
#include "core/persistence/settings/ScanUISettings.h"
#include "core/rclone/BrimvaleError.h"
#include "core/support/FatalError.h"
#include "core/support/MainQueue.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/SettingsStore.h"
#include "core/support/Task.h"

#include <algorithm>
#include <future>

namespace brimvale {
namespace {

MainQueue& requireMainQueue(MainQueue* mainQueue) {
    if (mainQueue == nullptr) {
        fatalError("ScannerViewModel needs a main queue");
    }
    return *mainQueue;
}

} // namespace

ScannerViewModel::ScannerViewModel(ScannerViewModelOptions options)
    : options_(std::move(options))
    , mainQueue_(requireMainQueue(options_.mainQueue))
    , cache_(std::make_shared<ScanCache>(options_.cacheDirectory))
    , addAccountHelper_(
          "", "", RcloneAdapterOptions{.runner = options_.runner, .settings = options_.settings})
    , liveness_(std::make_shared<Liveness>())
    , cacheWriter_(std::make_unique<ScanCacheWriter>(
          cache_, [this, alive = std::weak_ptr<Liveness>(liveness_), queue = &mainQueue_](
                      const std::string& stem, const std::optional<std::string>& failure) {
              queue->post([this, alive, stem, failure] {
                  if (alive.lock()) {
                      noteSaveOutcome(stem, failure);
                  }
              });
          })) {
    if (!options_.settings) {
        fatalError("ScannerViewModel needs a settings store");
    }
}

ScannerViewModel::~ScannerViewModel() {
    // The web helper runs without a password on this computer: it must not outlive its use.
    terminateGuidedProcess();
    webConfigServer_.reset();
    // Every task is stopped, then joined: background bodies use this object's members. A task
    // waiting for this thread (a merge into its tree) gives up its wait when stopped, and
    // rclone children are ended by the stop, so the joins are short.
    for (auto& [id, task] : tasks_) {
        task->cancel();
    }
    tasks_.clear();
    // Only now, with no task left to post, do queued jobs learn that this object is gone.
    liveness_.reset();
}

ScannerViewModel::Clock::time_point ScannerViewModel::now() const {
    return options_.clock ? options_.clock() : Clock::now();
}

void ScannerViewModel::addObserver(ScannerViewModelObserver* observer) {
    if (std::find(observers_.begin(), observers_.end(), observer) == observers_.end()) {
        observers_.push_back(observer);
    }
}

void ScannerViewModel::removeObserver(ScannerViewModelObserver* observer) {
    std::erase(observers_, observer);
}

void ScannerViewModel::notify(PublishedField field) {
    // An observer may remove itself (or another) while being notified.
    const auto observers = observers_;
    for (auto* observer : observers) {
        if (std::find(observers_.begin(), observers_.end(), observer) != observers_.end()) {
            observer->publishedFieldChanged(field);
        }
    }
}

ScannerState ScannerViewModel::paneState(const std::string& remoteID) const {
    const auto found = paneStatesByRemote_.find(remoteID);
    return found == paneStatesByRemote_.end() ? State::idle() : found->second;
}

ProviderRef ScannerViewModel::provider(const std::string& remoteID) const {
    for (const auto& candidate : providers_) {
        if (candidate->remoteID() == remoteID) {
            return candidate;
        }
    }
    return nullptr;
}

std::optional<std::string> ScannerViewModel::lastScanCacheStem(const std::string& remoteID) const {
    const auto found = lastScanCacheStemByRemoteID_.find(remoteID);
    if (found == lastScanCacheStemByRemoteID_.end()) {
        return std::nullopt;
    }
    return found->second;
}

void ScannerViewModel::applyPaneState(State state, const std::string& remoteID) {
    paneStatesByRemote_[remoteID] = state;
    if (activeProvider_ && activeProvider_->remoteID() == remoteID) {
        state_ = std::move(state);
        notify(PublishedField::state);
    } else {
        notify(PublishedField::paneStates);
    }
}

void ScannerViewModel::syncPublishedStateToSelection() {
    if (!activeProvider_) {
        state_ = State::idle();
        notify(PublishedField::state);
        return;
    }
    const std::string id = activeProvider_->remoteID();
    if (loadTasksByRemote_.contains(id) && latestScanProgressByRemote_.contains(id)) {
        reconcileActiveRemoteWithLiveScanBuffers(id);
        return;
    }
    state_ = paneState(id);
    notify(PublishedField::state);
}

void ScannerViewModel::reconcileActiveRemoteWithLiveScanBuffers(const std::string& remoteID) {
    const auto progress = latestScanProgressByRemote_.find(remoteID);
    if (progress == latestScanProgressByRemote_.end()) {
        return;
    }
    FileNodeRef liveRoot;
    if (ScanUISettings::liveTreeDuringScan.load()) {
        const auto root = liveScanRootByRemote_.find(remoteID);
        if (root != liveScanRootByRemote_.end()) {
            liveRoot = root->second;
        }
    }
    applyPaneState(State::Scanning{progress->second, std::move(liveRoot)}, remoteID);
}

void ScannerViewModel::select(FileNodeRef node) {
    if (selectedNode_ == node) {
        return;
    }
    selectedNode_ = std::move(node);
    notify(PublishedField::selectedNode);
}

std::optional<std::string> ScannerViewModel::webURL(const FileNode& node) const {
    if (!activeProvider_) {
        return std::nullopt;
    }
    return activeProvider_->webURL(node);
}

void ScannerViewModel::dismissAccountRemovalError() {
    publish(accountRemovalError_, std::optional<std::string>(),
            PublishedField::accountRemovalError);
}

// Background work.

std::uint64_t ScannerViewModel::launchTask(const std::string& label,
                                           std::function<void(std::stop_token)> body) {
    const std::uint64_t taskID = nextTaskID_++;
    std::weak_ptr<Liveness> alive = liveness_;
    MainQueue* mainQueue = &mainQueue_;
    auto task = std::make_unique<Task>(Task::start(
        label, [this, alive, mainQueue, taskID, body = std::move(body)](std::stop_token token) {
            struct EndNotice {
                ScannerViewModel* owner;
                std::weak_ptr<Liveness> alive;
                MainQueue* mainQueue;
                std::uint64_t taskID;
                ~EndNotice() {
                    mainQueue->post([owner = owner, alive = alive, taskID = taskID] {
                        if (alive.lock()) {
                            owner->taskEnded(taskID);
                        }
                    });
                }
            } endNotice{this, alive, mainQueue, taskID};
            body(token);
        }));
    tasks_.emplace(taskID, std::move(task));
    return taskID;
}

void ScannerViewModel::taskEnded(std::uint64_t taskID) {
    // The body has returned; joining its thread takes no longer than its last few instructions.
    tasks_.erase(taskID);
}

bool ScannerViewModel::hasBackgroundWork() const {
    return !tasks_.empty() || refreshInFlight_ > 0;
}

void ScannerViewModel::postIfAlive(std::function<void()> job) const {
    mainQueue_.post([alive = std::weak_ptr<Liveness>(liveness_), job = std::move(job)] {
        if (alive.lock()) {
            job();
        }
    });
}

void ScannerViewModel::postIfCurrent(const std::string& remoteID, std::int64_t generation,
                                     std::function<void()> job) const {
    mainQueue_.post([this, alive = std::weak_ptr<Liveness>(liveness_), remoteID, generation,
                     job = std::move(job)] {
        if (alive.lock() && currentLoadGeneration(remoteID) == generation) {
            job();
        }
    });
}

std::int64_t ScannerViewModel::currentLoadGeneration(const std::string& remoteID) const {
    const auto found = loadGenerationByRemote_.find(remoteID);
    return found == loadGenerationByRemote_.end() ? 0 : found->second;
}

std::int64_t ScannerViewModel::nextLoadGeneration(const std::string& remoteID) {
    auto& generation = loadGenerationByRemote_[remoteID];
    generation = checkedAdd(generation, std::int64_t{1}, "load generation overflow");
    return generation;
}

void ScannerViewModel::invalidateLoadGeneration(const std::string& remoteID) {
    nextLoadGeneration(remoteID);
}

// The account list.

ProviderRef ScannerViewModel::makeProvider(const AccountEntry& entry) {
    if (options_.providerFactory) {
        if (auto made = options_.providerFactory(entry)) {
            return made;
        }
    }
    LocalScanOptions local = options_.localScanOptions;
    if (entry.rcloneType == "local") {
        std::weak_ptr<Liveness> alive = liveness_;
        MainQueue* mainQueue = &mainQueue_;
        auto previous = local.onPermissionError;
        local.onPermissionError = [this, alive, mainQueue, previous] {
            if (previous) {
                previous();
            }
            mainQueue->post([this, alive] {
                if (alive.lock()) {
                    publish(showFullDiskAccessAdvisory_, true,
                            PublishedField::showFullDiskAccessAdvisory);
                }
            });
        };
    }
    auto made = CloudServiceCatalog::adapter({.remoteName = entry.remoteName,
                                              .rcloneType = entry.rcloneType,
                                              .accountLabel = entry.accountLabel,
                                              .isPlaceholder = entry.isPlaceholder},
                                             {.rclone = {.runner = options_.runner,
                                                         .settings = options_.settings,
                                                         .configSection = entry.section},
                                              .local = std::move(local)});
    return ProviderRef(std::move(made));
}

void ScannerViewModel::refreshProviders(std::function<void()> onFinished) {
    ++refreshInFlight_;
    newestRefreshEnded_ = false;
    const std::uint64_t refreshNumber = ++latestRefreshNumber_;
    auto finished = std::make_shared<std::function<void()>>(std::move(onFinished));
    launchTask("refresh accounts", [this, refreshNumber, finished](std::stop_token token) {
        std::optional<AccountDirectory> directory;
        std::optional<std::string> failure;
        try {
            // One run of rclone: the dump names every remote and holds its settings.
            auto dump = addAccountHelper_.configDumpDictionary(token);
            const auto namesIn = [](const auto& configDump) {
                std::vector<std::string> names;
                for (const auto& remote : configuredRemotes(configDump)) {
                    names.push_back(remote.name);
                }
                return names;
            };
            std::vector<std::string> names = namesIn(dump);
            if (purgeBvPrefixedTestRemotesOnceIfNeeded(names, token)) {
                dump = addAccountHelper_.configDumpDictionary(token);
                names = namesIn(dump);
            }
            directory = readAccountDirectory(names, dump);
            repairAliasedRcloneProviderTypesIfNeeded(directory->repairs, token);
        } catch (const CancellationError&) {
            postIfAlive([this, refreshNumber] { finishAccountListRefresh(refreshNumber, {}); });
            throw;
        } catch (const std::exception& error) {
            failure = error.what();
            ScanDiagnostics::log("account list unavailable: " + *failure);
        }
        postIfAlive(
            [this, refreshNumber, finished, failure, directory = std::move(directory)]() mutable {
                if (refreshNumber == latestRefreshNumber_) {
                    accountListError_ = failure;
                    if (directory) {
                        publishAccountDirectory(std::move(*directory));
                    } else if (!accountListPublished_) {
                        // Without a readable configuration the pinned rows still appear; an
                        // account list shown before stays as it was.
                        publishAccountDirectory(readAccountDirectory({}, {}));
                    }
                }
                finishAccountListRefresh(refreshNumber, std::move(*finished));
            });
    });
}

void ScannerViewModel::finishAccountListRefresh(std::uint64_t refreshNumber,
                                                std::function<void()> onFinished) {
    --refreshInFlight_;
    if (refreshNumber == latestRefreshNumber_) {
        newestRefreshEnded_ = true;
    }
    if (onFinished) {
        // A superseded refresh's follow-up waits for the newest list, so it never acts on an
        // older one or runs before a newer one is shown.
        refreshFollowUps_.push_back(std::move(onFinished));
    }
    if (refreshNumber != latestRefreshNumber_ && !newestRefreshEnded_) {
        return;
    }
    auto followUps = std::move(refreshFollowUps_);
    refreshFollowUps_.clear();
    for (auto& followUp : followUps) {
        followUp();
    }
}

void ScannerViewModel::publishAccountDirectory(AccountDirectory directory) {
    accountListPublished_ = true;
    std::vector<ProviderRef> providers;
    std::set<std::string> configured;
    std::set<std::string> types;
    std::map<std::string, bool> ready;
    // Rows that now stand for another account under the same name: a pinned placeholder in
    // place of a removed account, or a remote retyped. They start afresh.
    std::set<std::string> gone;
    for (const auto& entry : directory.accounts) {
        // A row that did not change keeps its provider object, so views holding it stay valid.
        ProviderRef kept = provider(entry.remoteName);
        if (kept && (kept->rcloneType() != entry.rcloneType ||
                     placeholderIDs_.contains(entry.remoteName) != entry.isPlaceholder)) {
            gone.insert(entry.remoteName);
        }
        const bool keep = kept && kept->rcloneType() == entry.rcloneType &&
                          kept->displayName() == entry.displayName &&
                          placeholderIDs_.contains(entry.remoteName) == entry.isPlaceholder;
        providers.push_back(keep ? kept : makeProvider(entry));
        if (!entry.isPlaceholder) {
            configured.insert(entry.remoteName);
            types.insert(entry.rcloneType);
            ready[entry.remoteName] = entry.readyForUse;
        }
    }
    placeholderIDs_.clear();
    for (const auto& entry : directory.accounts) {
        if (entry.isPlaceholder) {
            placeholderIDs_.insert(entry.remoteName);
        }
    }

    if (providers != providers_) {
        providers_ = std::move(providers);
        notify(PublishedField::providers);
    }
    publish(configuredRemoteNames_, std::move(configured), PublishedField::configuredRemoteNames);
    publish(backendTypesPresentInRclone_, std::move(types),
            PublishedField::backendTypesPresentInRclone);
    publish(sidebarRemoteReadyForUse_, std::move(ready), PublishedField::sidebarRemoteReadyForUse);

    // Accounts that left the list stop their loads and forget their panes: their results
    // would have nowhere to go, and an account added again under the name starts afresh.
    for (const auto& [remoteID, load] : loadTasksByRemote_) {
        if (!provider(remoteID)) {
            gone.insert(remoteID);
        }
    }
    for (const auto& [remoteID, pane] : paneStatesByRemote_) {
        if (!provider(remoteID)) {
            gone.insert(remoteID);
        }
    }
    for (const auto& remoteID : gone) {
        forgetAccount(remoteID);
    }
    std::set<std::string> loading;
    for (const auto& remoteID : remoteIDsLoading_) {
        if (provider(remoteID)) {
            loading.insert(remoteID);
        }
    }
    publish(remoteIDsLoading_, std::move(loading), PublishedField::remoteIDsLoading);

    if (activeProvider_) {
        ProviderRef current = provider(activeProvider_->remoteID());
        if (!current) {
            activeProvider_ = nullptr;
            notify(PublishedField::activeProvider);
            select(nullptr);
        } else if (current != activeProvider_) {
            activeProvider_ = current;
            notify(PublishedField::activeProvider);
        }
    }
    syncPublishedStateToSelection();
}

void ScannerViewModel::activate(const ProviderRef& provider) {
    if (activeProvider_ != provider) {
        activeProvider_ = provider;
        notify(PublishedField::activeProvider);
        select(nullptr);
    }
}

void ScannerViewModel::selectProvider(const ProviderRef& provider) {
    if (!provider) {
        return;
    }
    activate(provider);
    const std::string id = provider->remoteID();
    if (loadTasksByRemote_.contains(id)) {
        // A running load is never started twice; the view catches up with its live state.
        reconcileActiveRemoteWithLiveScanBuffers(id);
        if (!latestScanProgressByRemote_.contains(id)) {
            syncPublishedStateToSelection();
        }
        return;
    }
    if (provider->rcloneType() == "local" && configuredRemoteNames_.contains(id)) {
        publish(pendingLocalDiskPickerRemoteID_, std::optional<std::string>(id),
                PublishedField::pendingLocalDiskPickerRemoteID);
        publish(showLocalVolumePicker_, true, PublishedField::showLocalVolumePicker);
        syncPublishedStateToSelection();
        return;
    }
    if (paneState(id).is<State::Done>()) {
        syncPublishedStateToSelection();
        return;
    }
    const std::int64_t generation = nextLoadGeneration(id);
    markRemoteLoading(id);
    const std::string path = scanPath(*provider);
    launchDetachedRemoteLoad(provider, id, generation, nullptr, false, path,
                             provider->rcloneType() == "local");
    syncPublishedStateToSelection();
}

} // namespace brimvale
