#pragma once

#include "core/coordinator/AccountDirectory.h"
#include "core/coordinator/AccountOnboarding.h"
#include "core/coordinator/AccountRun.h"
#include "core/coordinator/PublishedField.h"
#include "core/coordinator/ScannerState.h"
#include "core/local/LocalScanOptions.h"
#include "core/onboarding/CloudServiceDefinition.h"
#include "core/onboarding/NativeCredentialConfiguration.h"
#include "core/onboarding/NativeCredentialOnboardingKind.h"
#include "core/persistence/cache/ScanCache.h"
#include "core/persistence/cache/ScanCacheWriter.h"
#include "core/rclone/RcloneAdapter.h"
#include "core/rclone/RcloneRunner.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace brimvale {

struct CacheSnapshot;

class MainQueue;
class SettingsStore;
class Task;

// Makes the provider object of one sidebar row. The default builds the adapter of the row's
// backend type; tests substitute scripted providers.
using ProviderFactory = std::function<ProviderRef(const AccountEntry& entry)>;

struct ScannerViewModelOptions {
    // The main thread's queue; the coordinator is used on that thread only.
    MainQueue* mainQueue = nullptr;
    std::shared_ptr<SettingsStore> settings;
    // Where saved scans are kept.
    std::string cacheDirectory = ScanCache::defaultDirectory();
    // Runs rclone for the account list and configuration changes (tests point it at their own
    // configuration); also handed to the adapters the default factory makes.
    RcloneRunner runner;
    // Null: the default adapters.
    ProviderFactory providerFactory;
    // The local scanner's options for local accounts (the permission callback is the
    // coordinator's own).
    LocalScanOptions localScanOptions;
    // Whether an account just added or signed in is selected (which starts its first scan), as
    // the desktop application wants; the command line only adds it.
    bool selectAccountsAfterSetup = true;
    // The clock of the live-refresh and checkpoint throttles.
    std::function<std::chrono::steady_clock::time_point()> clock;
};

// The one object that owns the application's state: the accounts, the selected account and
// what its detail area shows, and the scans and loads running in the background, one at most
// per account. Views read its published fields and call its operations; every change of a
// published field is announced to the observers.
//
// Thread safety: everything here belongs to the main thread. Background work (scans, cache
// reads and writes, rclone runs) runs on tasks that come back to the main thread to publish,
// and only while their run is still the account's current one (its generation).
class ScannerViewModel {
public:
    using State = ScannerState;
    using Clock = std::chrono::steady_clock;

    explicit ScannerViewModel(ScannerViewModelOptions options);
    // Cancels every background run; runs still on their way out publish nothing.
    ~ScannerViewModel();
    ScannerViewModel(const ScannerViewModel&) = delete;
    ScannerViewModel& operator=(const ScannerViewModel&) = delete;

    void addObserver(ScannerViewModelObserver* observer);
    void removeObserver(ScannerViewModelObserver* observer);

    // Published fields.
    const State& state() const { return state_; }
    const FileNodeRef& selectedNode() const { return selectedNode_; }
    const std::vector<ProviderRef>& providers() const { return providers_; }
    const ProviderRef& activeProvider() const { return activeProvider_; }
    const std::set<std::string>& backendTypesPresentInRclone() const {
        return backendTypesPresentInRclone_;
    }
    const std::set<std::string>& configuredRemoteNames() const { return configuredRemoteNames_; }
    const std::map<std::string, bool>& sidebarRemoteReadyForUse() const {
        return sidebarRemoteReadyForUse_;
    }
    const std::optional<std::string>& accountRemovalError() const { return accountRemovalError_; }
    const std::set<std::string>& remoteIDsLoading() const { return remoteIDsLoading_; }
    bool showFullDiskAccessAdvisory() const { return showFullDiskAccessAdvisory_; }
    bool showLocalVolumePicker() const { return showLocalVolumePicker_; }
    const std::optional<std::string>& pendingLocalDiskPickerRemoteID() const {
        return pendingLocalDiskPickerRemoteID_;
    }

    // Onboarding (published by onboarding()).
    const std::optional<std::string>& webConfigURL() const { return onboarding_->webConfigURL(); }
    bool showWebConfigSheet() const { return onboarding_->showWebConfigSheet(); }
    bool isGuidedConnectRunning() const { return onboarding_->isGuidedConnectRunning(); }
    const std::optional<std::string>& oauthBrowserURL() const {
        return onboarding_->oauthBrowserURL();
    }
    const std::optional<std::string>& mainFlowSignInURL() const {
        return onboarding_->mainFlowSignInURL();
    }
    const std::optional<std::string>& addAccountWebURL() const {
        return onboarding_->addAccountWebURL();
    }
    bool isPresentingAddAccount() const { return onboarding_->isPresentingAddAccount(); }
    bool addAccountGuidedRunning() const { return onboarding_->addAccountGuidedRunning(); }
    const std::optional<std::string>& addAccountError() const {
        return onboarding_->addAccountError();
    }
    const std::optional<std::string>& addAccountSignInURL() const {
        return onboarding_->addAccountSignInURL();
    }
    const std::optional<std::string>& addAccountPendingRemoteName() const {
        return onboarding_->addAccountPendingRemoteName();
    }
    const std::optional<std::string>& addAccountPendingRcloneType() const {
        return onboarding_->addAccountPendingRcloneType();
    }
    const std::optional<NativeCredentialOnboardingKind>& addAccountPendingNativeKind() const {
        return onboarding_->addAccountPendingNativeKind();
    }
    const std::shared_ptr<const RcloneBackendList>& rcloneBackends() const {
        return onboarding_->rcloneBackends();
    }

    // The last state of an account, shown or not (the sidebar's glance); idle when none.
    State paneState(const std::string& remoteID) const;
    // The provider of the sidebar row `remoteID`, when there is one.
    ProviderRef provider(const std::string& remoteID) const;
    // The saved-scan stem the last load of the account used.
    std::optional<std::string> lastScanCacheStem(const std::string& remoteID) const;
    // The folder the account scans: for a local account its chosen path (else "/"), for object
    // storage its stored bucket or container, else the whole remote ("").
    std::string scanPath(const CloudStorageProvider& provider);
    ScanCache& cache() { return *cache_; }

    // Start-up and the account list.
    // Rebuilds the account list from the rclone configuration in the background; `onFinished`
    // runs on the main thread once the list is published (also when reading it failed).
    void refreshProviders(std::function<void()> onFinished = {});
    bool isRefreshingProviders() const { return refreshInFlight_ > 0; }
    // Why the last refresh could not read the rclone configuration (rclone missing, an
    // unreadable configuration file); absent when it could.
    const std::optional<std::string>& accountListError() const { return accountListError_; }
    void selectProvider(const ProviderRef& provider);
    void applyPaneState(State state, const std::string& remoteID);
    void syncPublishedStateToSelection();
    void reconcileActiveRemoteWithLiveScanBuffers(const std::string& remoteID);
    void select(FileNodeRef node);
    std::optional<std::string> webURL(const FileNode& node) const;
    void dismissAccountRemovalError();

    // Scans.
    void confirmLocalDiskScan(const std::string& remoteID, const std::string& scanPath);
    void cancelLocalDiskScanPicker();
    void rescan();
    void cancelScan();
    // Makes `provider` active and loads it without the picker's detour: a local account scans
    // `localScanPath` when one is given (remembered as its chosen folder, as
    // confirmLocalDiskScan does); `rescan` scans afresh even when a saved scan exists. What
    // the command line calls; the load otherwise follows selectProvider's rules.
    struct OpenAccountRequest {
        std::optional<std::string> localScanPath;
        bool rescan = false;
        // For this session: list the account one folder per rclone run (true) or in one
        // recursive listing (false), whatever the account's setting says.
        std::optional<bool> listOneFolderAtATime;
    };
    void openAccount(const ProviderRef& provider, const OpenAccountRequest& request);
    // Starts the account's recursive listing at once, before the account list is read, from
    // what the account was at its last scan (its backend type and listing feature, kept in
    // the settings); a scan asking for the same command line takes the run over
    // (RcloneListingPrefetch). For a command that will rescan a known cloud account. Does
    // nothing for an account never scanned, or one listed one folder at a time.
    void startListingEarly(const std::string& remoteID);
    // A cloud account that was scanned before, made from what its last scan kept in the
    // settings (its backend type), without reading the account list: for a command that
    // rescans it and needs nothing else from rclone. None for an account never scanned.
    ProviderRef accountKnownFromLastScan(const std::string& remoteID);
    // The account that scans local folders: the first local remote of the rclone
    // configuration, else the pinned local row. None before the account list is read.
    ProviderRef localDiskAccount() const;
    // The local disk account as the last reading of the account list chose it (kept in the
    // settings), without reading the list again: a local scan then runs no rclone at all.
    // None when no list was ever read.
    ProviderRef localDiskAccountKnownFromLastList();
    // The account's setting "List one folder at a time" (cloud accounts), which the next scan
    // follows; a session's choice made with openAccount comes first.
    bool listsOneFolderAtATime(const std::string& remoteID) const;
    void setListsOneFolderAtATime(const std::string& remoteID, bool oneAtATime);
    // Lists one folder of the account's finished tree again (one streamed listing of that
    // folder for cloud accounts, the local scanner on it for local ones) and puts the result
    // in place of its subtree: sizes change up through every ancestor, the changed folders
    // are re-sorted, the tree is saved. The rest of the tree stays on screen and usable
    // meanwhile. `folderPath` is the folder's FileNode::path() in the tree on screen; the
    // tree's root means a rescan. Does nothing unless the account's pane is done.
    void refreshFolder(const std::string& remoteID, const std::string& folderPath);
    // The folders of the account being refreshed now (folderRefreshes).
    const std::set<std::string>& foldersRefreshing(const std::string& remoteID) const;
    // Why the account's last folder refresh failed; cleared when the next one starts.
    std::optional<std::string> folderRefreshError(const std::string& remoteID) const;
    // Deleting items of the account's finished tree (ItemDeletions.cpp). `nodePaths` are
    // FileNode::path() values of the tree on screen; the root and items inside another
    // selected folder are left out. Local accounts move to the trash or delete permanently,
    // cloud accounts delete through rclone (`method` is then deleteFromCloud). Runs in the
    // background; afterwards the items gone leave the tree (sizes and order change up through
    // every ancestor), folders deleted only in part are listed again, and the tree is saved.
    // Does nothing unless the pane is done and no deletion of the account runs.
    void deleteItems(const std::string& remoteID, const std::vector<std::string>& nodePaths,
                     DeletionMethod method);
    // What deleteItems would delete, for the confirmation and dry runs.
    std::vector<DeletionItem> deletionItems(const std::string& remoteID,
                                            const std::vector<std::string>& nodePaths);
    // Stops the account's deletion (the local walk at its next entry, rclone with SIGTERM).
    void stopDeletion(const std::string& remoteID);
    // The account's deletion (itemDeletions); null when the account has no record.
    const ItemDeletionState* itemDeletion(const std::string& remoteID) const;
    void dismissDeletionReport(const std::string& remoteID);
    // Cancels every running scan the way cancelScan does (partial trees are saved) and every
    // other background run; for quitting. `waitForSavedScans` then waits for the saves.
    void cancelAllWork();
    // Waits (up to `timeout`) until the checkpoint and cancel-time cache writes queued so far
    // are on disk; true when they all finished.
    bool waitForSavedScans(std::chrono::milliseconds timeout);
    // Why the last save of the account's tree failed (a full disk, a read-only or missing
    // cache folder); none when it succeeded. Up to date once waitForSavedScans returned.
    std::optional<std::string> savedScanFailure(const std::string& remoteID) const;
    // True while any load, scan or refresh of this object still runs (cancelled ones
    // included, until they have ended).
    bool hasBackgroundWork() const;
    std::int64_t currentLoadGeneration(const std::string& remoteID) const;
    std::int64_t nextLoadGeneration(const std::string& remoteID);
    void invalidateLoadGeneration(const std::string& remoteID);

    // Accounts.
    void removeAccount(const ProviderRef& provider, std::function<void()> onFinished = {});
    bool canRemoveAccount(const CloudStorageProvider& provider) const;
    bool canAddAnotherAccount(const CloudStorageProvider& provider) const;
    bool sidebarRemoteShowsInMainList(const CloudStorageProvider& provider) const;

    // Adding and connecting accounts: the views' entry points into AccountOnboarding, which
    // says what each does.
    AccountOnboarding& onboarding() { return *onboarding_; }
    void beginAddAccount() { onboarding_->beginAddAccount(); }
    void addAccountPickService(const CloudServiceDefinition& definition) {
        onboarding_->addAccountPickService(definition);
    }
    void runAddAccountGuidedFlow(const std::string& remoteName, const std::string& rcloneType,
                                 std::function<void(bool)> onFinished = {}) {
        onboarding_->runAddAccountGuidedFlow(remoteName, rcloneType, std::move(onFinished));
    }
    void retryAddAccountOAuthFlow(std::function<void(bool)> onFinished = {}) {
        onboarding_->retryAddAccountOAuthFlow(std::move(onFinished));
    }
    void openAddAccountAdvancedWebUI() { onboarding_->openAddAccountAdvancedWebUI(); }
    void completeAddAccount() { onboarding_->completeAddAccount(); }
    void completeNativeAddAccount(const std::string& remoteName) {
        onboarding_->completeNativeAddAccount(remoteName);
    }
    void cancelAddAccount() { onboarding_->cancelAddAccount(); }
    void applyS3AwsNativeCredentials(const std::string& remoteName, S3AwsCredentialFields fields,
                                     std::function<void(bool)> onFinished = {}) {
        onboarding_->applyS3AwsNativeCredentials(remoteName, std::move(fields),
                                                 std::move(onFinished));
    }
    void applyS3CloudflareR2NativeCredentials(const std::string& remoteName,
                                              CloudflareR2CredentialFields fields,
                                              std::function<void(bool)> onFinished = {}) {
        onboarding_->applyS3CloudflareR2NativeCredentials(remoteName, std::move(fields),
                                                          std::move(onFinished));
    }
    void applyGCSNativeCredentials(const std::string& remoteName, GCSCredentialFields fields,
                                   std::function<void(bool)> onFinished = {}) {
        onboarding_->applyGCSNativeCredentials(remoteName, std::move(fields),
                                               std::move(onFinished));
    }
    void applyAzureBlobNativeCredentials(const std::string& remoteName,
                                         AzureBlobCredentialFields fields,
                                         std::function<void(bool)> onFinished = {}) {
        onboarding_->applyAzureBlobNativeCredentials(remoteName, std::move(fields),
                                                     std::move(onFinished));
    }
    void applyFTPNativeCredentials(const std::string& remoteName, FTPCredentialFields fields,
                                   std::function<void(bool)> onFinished = {}) {
        onboarding_->applyFTPNativeCredentials(remoteName, std::move(fields),
                                               std::move(onFinished));
    }
    void applySFTPNativeCredentials(const std::string& remoteName, SFTPCredentialFields fields,
                                    std::function<void(bool)> onFinished = {}) {
        onboarding_->applySFTPNativeCredentials(remoteName, std::move(fields),
                                                std::move(onFinished));
    }
    void applyBackendOptions(const std::string& remoteName, const std::string& rcloneType,
                             std::vector<std::pair<std::string, std::string>> values,
                             std::function<void(bool)> onFinished = {}) {
        onboarding_->applyBackendOptions(remoteName, rcloneType, std::move(values),
                                         std::move(onFinished));
    }
    void applyNativeCredentials(const std::string& remoteName, const NativeCredentialFields& fields,
                                std::function<void(bool)> onFinished = {}) {
        onboarding_->applyNativeCredentials(remoteName, fields, std::move(onFinished));
    }
    void beginAddAnotherAccount(const ProviderRef& provider) {
        onboarding_->beginAddAnotherAccount(provider);
    }
    void beginGuidedConnect(const ProviderRef& provider,
                            std::function<void(bool)> onFinished = {}) {
        onboarding_->beginGuidedConnect(provider, std::move(onFinished));
    }
    void beginReconnect(const ProviderRef& provider, std::function<void(bool)> onFinished = {}) {
        onboarding_->beginReconnect(provider, std::move(onFinished));
    }
    void completeConnectAfterGuided(const std::string& remoteID) {
        onboarding_->completeConnectAfterGuided(remoteID);
    }
    void openFullWebConfigOnly(const ProviderRef& provider) {
        onboarding_->openFullWebConfigOnly(provider);
    }
    void presentEmbeddedWebConfigPanel(const ProviderRef& provider) {
        onboarding_->presentEmbeddedWebConfigPanel(provider);
    }
    void dismissWebConfigSheet() { onboarding_->dismissWebConfigSheet(); }
    void finishSetup(const ProviderRef& provider) { onboarding_->finishSetup(provider); }
    void cancelSetup(const ProviderRef& provider) { onboarding_->cancelSetup(provider); }
    void acknowledgeOAuthBrowserOpened() { onboarding_->acknowledgeOAuthBrowserOpened(); }
    std::optional<std::string> remoteNameProblem(const std::string& remoteName) const {
        return onboarding_->remoteNameProblem(remoteName);
    }

    // The adapter of the account list and configuration commands.
    const RcloneAdapter& addAccountHelper() const { return addAccountHelper_; }
    const std::shared_ptr<SettingsStore>& settings() const { return options_.settings; }

private:
    friend class AccountOnboarding;
    struct FolderRefreshResult {
        ProviderRef account;
        std::string remoteID;
        std::string folderPath;
        std::int64_t generation = 0;
        FileNodeRef root; // the tree that was on screen when the refresh started
        FileNodeRef fresh;
        std::exception_ptr failure;
        std::vector<SkippedFolder> skippedFolders;
    };
    void finishFolderRefresh(const FolderRefreshResult& result);
    void finishDeletion(const std::string& remoteID, std::int64_t generation,
                        const FileNodeRef& root, const DeletionReport& report);
    class Liveness;

    Clock::time_point now() const;
    void notify(PublishedField field);
    template <class Value> void publish(Value& field, Value value, PublishedField name);

    // A generation no run of any account has had.
    std::int64_t takeNewGeneration();
    // The account's record, made when it has none; or the record, when there is one.
    AccountRun& run(const std::string& remoteID);
    const AccountRun* findRun(const std::string& remoteID) const;
    // The account's pane shows the idle page again (a fresh start after a sign-in).
    void forgetPane(const std::string& remoteID);

    // Background work.
    std::uint64_t launchTask(const std::string& label, std::function<void(std::stop_token)> body);
    void taskEnded(std::uint64_t taskID);
    void postIfAlive(std::function<void()> job) const;
    void postIfCurrent(const std::string& remoteID, std::int64_t generation,
                       std::function<void()> job) const;

    // Scan runs.
    void markRemoteLoading(const std::string& remoteID);
    void unmarkRemoteLoading(const std::string& remoteID);
    std::string cacheStem(const CloudStorageProvider& provider, const std::string& scanPath) const;
    std::string resolvedLocalScanPath(const std::string& remoteID);
    // Supersedes the account's run with a new one that loads it; what every start does.
    void startLoad(const ProviderRef& provider, FileNodeRef seedOverride, bool clearCacheFirst,
                   const std::string& scanPath);
    void performDetachedRemoteLoad(const ProviderRef& provider, const std::string& remoteID,
                                   std::int64_t generation, FileNodeRef seedOverride,
                                   bool clearCacheFirst, const std::string& scanPath,
                                   const std::string& cacheStem, bool isLocal,
                                   std::stop_token stopToken);
    void runScanInBackground(const ProviderRef& provider, const std::string& remoteID,
                             std::int64_t generation, FileNodeRef seedOverride,
                             const std::string& scanPath, const std::string& cacheStem,
                             bool isLocal, std::stop_token stopToken);
    void applyFailure(const ProviderRef& provider, const std::string& remoteID,
                      std::int64_t generation, std::exception_ptr failure);
    void receiveProgress(const std::string& remoteID, const ScanProgress& progress);
    void receivePartialTree(const std::string& remoteID, const FileNodeRef& root);
    void emitLiveStateIfDue(const std::string& remoteID);
    // The newest progress of the account's scan (zero counts before the first).
    ScanProgress latestProgress(const std::string& remoteID) const;
    void recordScanCheckpointIfDue(const std::string& remoteID, const FileNodeRef& root);
    // `partial`: the tree of a scan that has not finished (a checkpoint, a stopped scan).
    // Returns the snapshot it queued.
    std::shared_ptr<const CacheSnapshot> saveTreeInBackground(const FileNode& root,
                                                              const std::string& stem,
                                                              const char* why, bool partial);
    // On the main thread after each write: a finished tree on a pane learns whether it was
    // saved.
    void noteSaveOutcome(const std::string& stem, const std::optional<std::string>& failure);
    // Stops the account's load; with `keepPartialTree`, saves its live tree and returns the
    // snapshot saved (none when there was no live tree).
    std::shared_ptr<const CacheSnapshot> stopLoad(const std::string& remoteID,
                                                  bool keepPartialTree);
    void showStoppedTree(const std::string& remoteID,
                         std::shared_ptr<const CacheSnapshot> snapshot);

    // The account list.
    void publishAccountDirectory(AccountDirectory directory);
    void rememberLocalDiskAccount();
    std::optional<std::pair<std::string, bool>>
    listingOfLastScan(const std::string& remoteID) const;
    void finishAccountListRefresh(std::uint64_t refreshNumber, std::function<void()> onFinished);
    ProviderRef makeProvider(const AccountEntry& entry);
    // Deletes the remotes named "bv_…" among `remoteNames`, once per user; true when it
    // deleted any (the configuration changed).
    bool purgeBvPrefixedTestRemotesOnceIfNeeded(const std::vector<std::string>& remoteNames,
                                                std::stop_token stopToken);
    void repairAliasedRcloneProviderTypesIfNeeded(const std::vector<AliasedTypeRepair>& pairs,
                                                  std::stop_token stopToken);
    // Stops the account's load and drops its record.
    void forgetAccount(const std::string& remoteID);
    void activate(const ProviderRef& provider);
    void rememberLocalScanPath(const std::string& remoteID, const std::string& scanPath);

    ScannerViewModelOptions options_;
    MainQueue& mainQueue_;
    std::shared_ptr<ScanCache> cache_;
    RcloneAdapter addAccountHelper_;
    std::shared_ptr<Liveness> liveness_;
    std::vector<ScannerViewModelObserver*> observers_;

    // Published.
    State state_;
    FileNodeRef selectedNode_;
    std::vector<ProviderRef> providers_;
    ProviderRef activeProvider_;
    std::set<std::string> backendTypesPresentInRclone_;
    std::set<std::string> configuredRemoteNames_;
    std::map<std::string, bool> sidebarRemoteReadyForUse_;
    std::optional<std::string> accountRemovalError_;
    std::set<std::string> remoteIDsLoading_;
    bool showFullDiskAccessAdvisory_ = false;
    bool showLocalVolumePicker_ = false;
    std::optional<std::string> pendingLocalDiskPickerRemoteID_;

    // Internal.
    std::map<std::string, AccountRun> runs_; // by account id
    // The last generation given to a run of any account: a generation is never used twice, so
    // a job of a removed account's run can never pass for one of a later account of the name.
    std::int64_t lastGeneration_ = 0;
    std::map<std::uint64_t, std::unique_ptr<Task>> tasks_;
    std::uint64_t nextTaskID_ = 1;
    // Set by the destructor: nothing new starts.
    bool shuttingDown_ = false;
    int refreshInFlight_ = 0;
    std::uint64_t latestRefreshNumber_ = 0;
    bool newestRefreshEnded_ = true;
    // What finished refreshes asked to do once the newest account list is in.
    std::vector<std::function<void()>> refreshFollowUps_;
    bool accountListPublished_ = false;
    std::optional<std::string> accountListError_;
    std::set<std::string> placeholderIDs_;
    std::unique_ptr<AccountOnboarding> onboarding_;
    // Declared last: destroyed first of the members, after the tasks were joined, it writes
    // what is still queued.
    std::unique_ptr<ScanCacheWriter> cacheWriter_;
};

} // namespace brimvale
