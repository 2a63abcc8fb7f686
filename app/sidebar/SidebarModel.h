#pragma once

#include "core/coordinator/ScannerViewModel.h"

#include <QAbstractListModel>

#include <vector>

namespace brimvale {

// The sidebar's rows: the coordinator's accounts in its order, those it lists in the main list,
// each with its pane's state at a glance. Re-read from the coordinator on every change of the
// fields the sidebar shows. GUI thread only.
class SidebarModel final : public QAbstractListModel {
    Q_OBJECT
public:
    enum class Glance { none, busy, size, warning };
    enum Role {
        ProviderIDRole = Qt::UserRole + 1, // the account id (text)
        RcloneTypeRole,
        GlanceRole,     // Glance, as int
        GlanceTextRole, // the total size when done
        IsActiveRole,
    };

    explicit SidebarModel(ScannerViewModel& viewModel, QObject* parent = nullptr);

    // Re-reads the rows; changes that keep the same accounts update rows in place.
    void reload();

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    ProviderRef providerAt(int row) const;
    int rowOf(const std::string& remoteID) const;
    bool anyBusy() const;

    // The glance of one account: busy while it loads or scans, its total size when done, a
    // warning after a failure.
    static Glance glanceFor(const ScannerViewModel& viewModel, const std::string& remoteID);

private:
    // The rclone remote behind a row, when its label does not already name it; nothing for a
    // service not set up yet.
    QString toolTip(const CloudStorageProvider& provider) const;

    ScannerViewModel& viewModel_;
    std::vector<ProviderRef> rows_;
};

} // namespace brimvale
