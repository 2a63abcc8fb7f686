#include "core/coordinator/ScannerViewModel.h"

#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
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
    , onboarding_(std::make_unique<AccountOnboarding>(*this))
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
    // Nothing new starts from here on (a task's end notice or a write outcome may still run
    // jobs on this thread while it joins below).
    shuttingDown_ = true;
    onboarding_->endHelperProcesses();
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

AccountRun& ScannerViewModel::run(const std::string& remoteID) {
    return runs_[remoteID];
}

const AccountRun* ScannerViewModel::findRun(const std::string& remoteID) const {
    const auto found = runs_.find(remoteID);
    return found == runs_.end() ? nullptr : &found->second;
}

void ScannerViewModel::forgetPane(const std::string& remoteID) {
    if (auto found = runs_.find(remoteID); found != runs_.end()) {
        found->second.setPane(State::idle());
    }
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
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? State::idle() : account->pane();
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
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? std::nullopt : account->cacheStem();
}

void ScannerViewModel::applyPaneState(State state, const std::string& remoteID) {
    run(remoteID).setPane(state);
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
    if (const AccountRun* account = findRun(id);
        account != nullptr && account->isLoading() && account->progress()) {
        reconcileActiveRemoteWithLiveScanBuffers(id);
        return;
    }
    state_ = paneState(id);
    notify(PublishedField::state);
}

void ScannerViewModel::reconcileActiveRemoteWithLiveScanBuffers(const std::string& remoteID) {
    const AccountRun* account = findRun(remoteID);
    if (account == nullptr || !account->progress()) {
        return;
    }
    FileNodeRef liveRoot;
    if (ScanUISettings::liveTreeDuringScan.load()) {
        liveRoot = account->liveRoot();
    }
    applyPaneState(State::Scanning{*account->progress(), std::move(liveRoot)}, remoteID);
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
    if (shuttingDown_) {
        return 0;
    }
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
    const AccountRun* account = findRun(remoteID);
    return account == nullptr ? 0 : account->generation();
}

std::int64_t ScannerViewModel::takeNewGeneration() {
    lastGeneration_ = checkedAdd(lastGeneration_, std::int64_t{1}, "load generation overflow");
    return lastGeneration_;
}

std::int64_t ScannerViewModel::nextLoadGeneration(const std::string& remoteID) {
    const std::int64_t generation = takeNewGeneration();
    run(remoteID).supersede(generation);
    return generation;
}

void ScannerViewModel::invalidateLoadGeneration(const std::string& remoteID) {
    nextLoadGeneration(remoteID);
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
    if (const AccountRun* account = findRun(id); account != nullptr && account->isLoading()) {
        // A running load is never started twice; the view catches up with its live state.
        reconcileActiveRemoteWithLiveScanBuffers(id);
        if (!account->progress()) {
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
    startLoad(provider, nullptr, false, scanPath(*provider));
    syncPublishedStateToSelection();
}

} // namespace brimvale
