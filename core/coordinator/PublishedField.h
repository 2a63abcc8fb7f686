#pragma once

namespace brimvale {

// The coordinator's published fields: each change is announced to its observers with the field
// that changed, so a view redraws only what depends on it.
enum class PublishedField {
    state,
    selectedNode,
    providers,
    activeProvider,
    backendTypesPresentInRclone,
    configuredRemoteNames,
    sidebarRemoteReadyForUse,
    accountRemovalError,
    webConfigURL,
    showWebConfigSheet,
    isGuidedConnectRunning,
    oauthBrowserURL,
    mainFlowSignInURL,
    addAccountWebURL,
    isPresentingAddAccount,
    addAccountGuidedRunning,
    addAccountError,
    addAccountSignInURL,
    addAccountPendingRemoteName,
    addAccountPendingRcloneType,
    addAccountPendingNativeKind,
    // The backends of the installed rclone, once read (for the add-account sheet).
    rcloneBackends,
    remoteIDsLoading,
    showFullDiskAccessAdvisory,
    showLocalVolumePicker,
    pendingLocalDiskPickerRemoteID,
    // foldersRefreshing and folderRefreshError of any account.
    folderRefreshes,
    // itemDeletion of any account (running, progress, report).
    itemDeletions,
    // Not a field of its own: a pane state of an account that is not shown changed (the
    // sidebar shows every account's state at a glance).
    paneStates,
};

// Receives the coordinator's change notifications on the main thread, after the field has
// its new value.
class ScannerViewModelObserver {
public:
    virtual ~ScannerViewModelObserver() = default;
    virtual void publishedFieldChanged(PublishedField field) = 0;
};

} // namespace brimvale
