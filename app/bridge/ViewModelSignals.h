#pragma once

#include "core/coordinator/PublishedField.h"

#include <QObject>

namespace brimvale {

class ScannerViewModel;

// Turns the coordinator's change notifications into Qt signals, so each view connects to the
// group of fields it shows and redraws only when one of them changed. Lives on the GUI thread
// with the coordinator; signals are emitted synchronously, after the field has its new value.
class ViewModelSignals final : public QObject, private ScannerViewModelObserver {
    Q_OBJECT
public:
    ViewModelSignals(ScannerViewModel& viewModel, QObject* parent = nullptr);
    ~ViewModelSignals() override;

    ScannerViewModel& viewModel() const { return viewModel_; }

signals:
    // Every change, with the field.
    void fieldChanged(brimvale::PublishedField field);
    // `state`: the detail area.
    void stateChanged();
    // `selectedNode`.
    void selectedNodeChanged();
    // What the sidebar shows: the accounts, their readiness, the active one, loading marks and
    // any pane state (shown or not).
    void sidebarChanged();
    // The add-account sheet and the connect flows.
    void onboardingChanged();
    // `showLocalVolumePicker` and `pendingLocalDiskPickerRemoteID`.
    void localVolumePickerChanged();
    // `showFullDiskAccessAdvisory`.
    void accessAdvisoryChanged();
    // `accountRemovalError`.
    void accountRemovalErrorChanged();
    // Folders being refreshed, or a refresh failure, changed (any account).
    void folderRefreshesChanged();
    // A deletion started, progressed or ended (any account).
    void itemDeletionsChanged();

private:
    void publishedFieldChanged(PublishedField field) override;

    ScannerViewModel& viewModel_;
};

} // namespace brimvale
