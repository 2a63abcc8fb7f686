#include "app/bridge/ViewModelSignals.h"

#include "core/coordinator/ScannerViewModel.h"

namespace brimvale {

ViewModelSignals::ViewModelSignals(ScannerViewModel& viewModel, QObject* parent)
    : QObject(parent)
    , viewModel_(viewModel) {
    viewModel_.addObserver(this);
}

ViewModelSignals::~ViewModelSignals() {
    viewModel_.removeObserver(this);
}

void ViewModelSignals::publishedFieldChanged(PublishedField field) {
    emit fieldChanged(field);
    switch (field) {
    case PublishedField::state:
        emit stateChanged();
        // The active account's row shows its state at a glance too.
        emit sidebarChanged();
        break;
    case PublishedField::selectedNode:
        emit selectedNodeChanged();
        break;
    case PublishedField::providers:
    case PublishedField::activeProvider:
    case PublishedField::configuredRemoteNames:
    case PublishedField::sidebarRemoteReadyForUse:
    case PublishedField::remoteIDsLoading:
    case PublishedField::paneStates:
        emit sidebarChanged();
        break;
    case PublishedField::backendTypesPresentInRclone:
        break;
    case PublishedField::accountRemovalError:
        emit accountRemovalErrorChanged();
        break;
    case PublishedField::webConfigURL:
    case PublishedField::showWebConfigSheet:
    case PublishedField::isGuidedConnectRunning:
    case PublishedField::oauthBrowserURL:
    case PublishedField::mainFlowSignInURL:
    case PublishedField::addAccountWebURL:
    case PublishedField::isPresentingAddAccount:
    case PublishedField::addAccountGuidedRunning:
    case PublishedField::addAccountError:
    case PublishedField::addAccountSignInURL:
    case PublishedField::addAccountPendingRemoteName:
    case PublishedField::addAccountPendingRcloneType:
    case PublishedField::addAccountPendingNativeKind:
    case PublishedField::rcloneBackends:
        emit onboardingChanged();
        break;
    case PublishedField::showFullDiskAccessAdvisory:
        emit accessAdvisoryChanged();
        break;
    case PublishedField::folderRefreshes:
        emit folderRefreshesChanged();
        break;
    case PublishedField::itemDeletions:
        emit itemDeletionsChanged();
        break;
    case PublishedField::showLocalVolumePicker:
    case PublishedField::pendingLocalDiskPickerRemoteID:
        emit localVolumePickerChanged();
        break;
    }
}

} // namespace brimvale
