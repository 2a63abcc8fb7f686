// The account list of ScannerViewModel: reading it from the rclone configuration in the
// background, and publishing it (rows kept, made or dropped with their runs).
#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/support/MainQueue.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/SettingsStore.h"
#include "core/support/Task.h"

namespace brimvale {

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
    rememberLocalDiskAccount();

    // Accounts that left the list stop their loads and forget their panes: their results
    // would have nowhere to go, and an account added again under the name starts afresh.
    for (const auto& [remoteID, account] : runs_) {
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

void ScannerViewModel::rememberLocalDiskAccount() {
    const ProviderRef local = localDiskAccount();
    if (!options_.settings || !local) {
        return;
    }
    std::string chosen =
        configuredRemoteNames_.contains(local->remoteID()) ? "configured:" : "pinned:";
    chosen += local->remoteID();
    if (options_.settings->stringValue(SettingsKeys::localDiskAccount()) != chosen) {
        options_.settings->setString(SettingsKeys::localDiskAccount(), chosen);
    }
}

} // namespace brimvale
