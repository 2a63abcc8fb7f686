// Account-level operations of ScannerViewModel: removal, the one-time purge of test remotes,
// the repair of aliased backend types, and sidebar visibility.
#include "core/coordinator/CoordinatorInternals.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/support/ScanDiagnostics.h"
#include "core/support/SettingsStore.h"
#include "core/support/Task.h"

#include <algorithm>

namespace brimvale {
namespace {

constexpr std::string_view kTestRemotePrefix = "bv_";

} // namespace

bool ScannerViewModel::canRemoveAccount(const CloudStorageProvider& provider) const {
    return configuredRemoteNames_.contains(provider.remoteID());
}

bool ScannerViewModel::canAddAnotherAccount(const CloudStorageProvider& provider) const {
    if (dynamic_cast<const RcloneAdapter*>(&provider) == nullptr) {
        return false;
    }
    // Another account needs a backend to copy: a row with a known type.
    return !provider.rcloneType().empty();
}

namespace {

bool isPinnedType(const std::string& type) {
    const auto& pinned = sidebarPinnedPlaceholderRcloneTypes();
    return std::find(pinned.begin(), pinned.end(), type) != pinned.end();
}

} // namespace

bool ScannerViewModel::sidebarRemoteShowsInMainList(const CloudStorageProvider& provider) const {
    const std::string id = provider.remoteID();
    const std::string type = provider.rcloneType();
    if (configuredRemoteNames_.contains(id)) {
        if (type == "local") {
            return true;
        }
        const auto ready = sidebarRemoteReadyForUse_.find(id);
        if (ready != sidebarRemoteReadyForUse_.end() && ready->second) {
            return true;
        }
        // A sign-in left unfinished (the application ended during it) must not take the pinned
        // row of its service away: the first such remote stands in for it, and its set-up
        // view signs it in.
        if (!isPinnedType(type)) {
            return false;
        }
        const ProviderRef* first = nullptr;
        for (const ProviderRef& other : providers_) {
            if (other->rcloneType() != type ||
                !configuredRemoteNames_.contains(other->remoteID())) {
                continue;
            }
            const auto otherReady = sidebarRemoteReadyForUse_.find(other->remoteID());
            if (otherReady != sidebarRemoteReadyForUse_.end() && otherReady->second) {
                return false;
            }
            first = first == nullptr ? &other : first;
        }
        return first != nullptr && (*first)->remoteID() == id;
    }
    return isPinnedType(type);
}

bool ScannerViewModel::purgeBvPrefixedTestRemotesOnceIfNeeded(
    const std::vector<std::string>& remoteNames, std::stop_token stopToken) {
    SettingsStore& settings = *options_.settings;
    if (settings.boolValue(SettingsKeys::didPurgeBvUnderscoreTestRemotes).value_or(false)) {
        return false;
    }
    bool deletedAny = false;
    try {
        for (const auto& name : remoteNames) {
            if (name.starts_with(kTestRemotePrefix)) {
                addAccountHelper_.deleteRemote(name, stopToken);
                deletedAny = true;
                ScanDiagnostics::log("removed test remote " + name);
            }
        }
    } catch (const CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        ScanDiagnostics::log(std::string("test remote purge incomplete: ") + error.what());
    }
    settings.setBool(SettingsKeys::didPurgeBvUnderscoreTestRemotes, true);
    return deletedAny;
}

void ScannerViewModel::repairAliasedRcloneProviderTypesIfNeeded(
    const std::vector<AliasedTypeRepair>& pairs, std::stop_token stopToken) {
    if (pairs.empty() || !addAccountHelper_.runner().resolveRclonePath()) {
        return;
    }
    for (const auto& pair : pairs) {
        try {
            addAccountHelper_.rclone({"config", "update", "--non-interactive", "--",
                                      pair.remoteName, "type", pair.correctedType},
                                     stopToken);
            ScanDiagnostics::log("remote " + pair.remoteName + " retyped as " + pair.correctedType);
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            ScanDiagnostics::log("could not retype remote " + pair.remoteName + ": " +
                                 error.what());
        }
    }
}

void ScannerViewModel::forgetAccount(const std::string& remoteID) {
    stopLoad(remoteID, false);
    // Generations are never reused, so no job of the removed account's runs can pass for one
    // of a later account that gets the same name.
    runs_.erase(remoteID);
}

void ScannerViewModel::removeAccount(const ProviderRef& provider,
                                     std::function<void()> onFinished) {
    if (!provider) {
        return;
    }
    onboarding_->endHelperProcesses();
    const std::string id = provider->remoteID();
    forgetAccount(id);
    auto finished = std::make_shared<std::function<void()>>(std::move(onFinished));
    launchTask("remove " + id, [this, provider, id, finished](std::stop_token token) {
        std::optional<std::string> failure;
        try {
            addAccountHelper_.deleteRemote(id, token);
            // A cloud account has one saved scan; a local one has one per volume. Another
            // account whose name merely begins the same keeps its own.
            cacheWriter_->clearAccount(id);
            // The stored bucket, container and volume path go with the account, whatever its
            // type is now (a remote retyped since keeps nothing stale behind).
            for (const auto& key : SettingsKeys::keysOwnedByAccount(id)) {
                options_.settings->remove(key);
            }
        } catch (const CancellationError&) {
            throw;
        } catch (const std::exception& error) {
            failure = ScanErrorInfo::from(error, *provider).message;
        }
        postIfAlive([this, failure, finished] {
            if (failure) {
                publish(accountRemovalError_, failure, PublishedField::accountRemovalError);
            }
            refreshProviders(std::move(*finished));
        });
    });
}

} // namespace brimvale
