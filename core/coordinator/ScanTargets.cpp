// What the coordinator scans and how: the folder or bucket of an account, its saved-scan stem,
// its listing mode, and the operations that start a load (open, rescan, the volume picker).
#include "core/coordinator/CoordinatorInternals.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/persistence/cache/LocalScanCacheStem.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/rclone/GCSScanSettings.h"
#include "core/rclone/ObjectStorageScanPrefix.h"
#include "core/rclone/RcloneListingPrefetch.h"
#include "core/support/SettingsStore.h"

namespace brimvale {

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
    if (const AccountRun* account = findRun(remoteID); account && account->localScanPath) {
        return *account->localScanPath;
    }
    if (auto stored = options_.settings->stringValue(SettingsKeys::localScanPath(remoteID));
        stored && !stored->empty()) {
        run(remoteID).localScanPath = *stored;
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

void ScannerViewModel::rescan() {
    if (!activeProvider_) {
        return;
    }
    const ProviderRef provider = activeProvider_;
    const std::string id = provider->remoteID();
    const State shown = paneState(id);
    FileNodeRef seed = shown.shownTree();
    if (const AccountRun* account = findRun(id); !seed && account) {
        seed = account->liveRoot();
    }
    stopLoad(id, false);
    startLoad(provider, std::move(seed), true, scanPath(*provider));
    syncPublishedStateToSelection();
}

void ScannerViewModel::rememberLocalScanPath(const std::string& remoteID,
                                             const std::string& scanPath) {
    run(remoteID).localScanPath = scanPath;
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
        run(id).listingModeOverride = *request.listOneFolderAtATime;
    }
    if (request.rescan) {
        rescan();
        return;
    }
    stopLoad(id, false);
    startLoad(provider, nullptr, false, scanPath(*provider));
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
    startLoad(chosen, nullptr, false, scanPath);
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
    if (const AccountRun* account = findRun(remoteID); account && account->listingModeOverride) {
        return *account->listingModeOverride;
    }
    return options_.settings->boolValue(SettingsKeys::listOneFolderAtATime(remoteID))
        .value_or(false);
}

void ScannerViewModel::setListsOneFolderAtATime(const std::string& remoteID, bool oneAtATime) {
    if (auto found = runs_.find(remoteID); found != runs_.end()) {
        found->second.listingModeOverride.reset();
    }
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

ProviderRef ScannerViewModel::localDiskAccount() const {
    ProviderRef pinned;
    for (const auto& candidate : providers_) {
        if (candidate->rcloneType() != "local") {
            continue;
        }
        if (configuredRemoteNames_.contains(candidate->remoteID())) {
            return candidate;
        }
        if (!pinned) {
            pinned = candidate;
        }
    }
    return pinned;
}

ProviderRef ScannerViewModel::localDiskAccountKnownFromLastList() {
    if (!options_.settings) {
        return nullptr;
    }
    const auto known = options_.settings->stringValue(SettingsKeys::localDiskAccount());
    if (!known) {
        return nullptr;
    }
    const auto colon = known->find(':');
    const std::string id = colon == std::string::npos ? std::string() : known->substr(colon + 1);
    const std::string kind = known->substr(0, colon);
    if (id.empty() || (kind != "configured" && kind != "pinned")) {
        return nullptr;
    }
    AccountEntry entry{
        .remoteName = id,
        .rcloneType = "local",
        .displayName = CloudServiceCatalog::sidebarLabel({.remoteName = id, .rcloneType = "local"}),
        .isPlaceholder = kind == "pinned"};
    if (kind == "configured") {
        entry.section = RemoteConfigSection{};
    }
    return makeProvider(entry);
}

} // namespace brimvale
