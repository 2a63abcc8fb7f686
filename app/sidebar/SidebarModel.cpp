#include "app/sidebar/SidebarModel.h"

#include "app/support/WidgetText.h"
#include "core/model/SizeFormatter.h"

#include <QRegularExpression>

namespace brimvale {

SidebarModel::SidebarModel(ScannerViewModel& viewModel, QObject* parent)
    : QAbstractListModel(parent)
    , viewModel_(viewModel) {}

void SidebarModel::reload() {
    std::vector<ProviderRef> rows;
    for (const auto& provider : viewModel_.providers()) {
        if (viewModel_.sidebarRemoteShowsInMainList(*provider)) {
            rows.push_back(provider);
        }
    }
    bool sameAccounts = rows.size() == rows_.size();
    for (std::size_t index = 0; sameAccounts && index < rows.size(); ++index) {
        sameAccounts = rows[index] == rows_[index];
    }
    if (!sameAccounts) {
        beginResetModel();
        rows_ = std::move(rows);
        endResetModel();
        return;
    }
    if (!rows_.empty()) {
        emit dataChanged(index(0), index(static_cast<int>(rows_.size()) - 1));
    }
}

int SidebarModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

ProviderRef SidebarModel::providerAt(int row) const {
    if (row < 0 || static_cast<std::size_t>(row) >= rows_.size()) {
        return nullptr;
    }
    return rows_[static_cast<std::size_t>(row)];
}

int SidebarModel::rowOf(const std::string& remoteID) const {
    for (std::size_t row = 0; row < rows_.size(); ++row) {
        if (rows_[row]->remoteID() == remoteID) {
            return static_cast<int>(row);
        }
    }
    return -1;
}

SidebarModel::Glance SidebarModel::glanceFor(const ScannerViewModel& viewModel,
                                             const std::string& remoteID) {
    const ScannerState pane = viewModel.paneState(remoteID);
    if (viewModel.remoteIDsLoading().contains(remoteID) || pane.is<ScannerState::Scanning>() ||
        pane.is<ScannerState::LoadingCache>() || pane.is<ScannerState::CheckingConfig>()) {
        return Glance::busy;
    }
    if (const auto* done = pane.as<ScannerState::Done>(); done && done->root) {
        return Glance::size;
    }
    if (pane.is<ScannerState::Error>()) {
        return Glance::warning;
    }
    return Glance::none;
}

bool SidebarModel::anyBusy() const {
    for (const auto& provider : rows_) {
        if (glanceFor(viewModel_, provider->remoteID()) == Glance::busy) {
            return true;
        }
    }
    return false;
}

QString SidebarModel::toolTip(const CloudStorageProvider& provider) const {
    const QString id = qtText(provider.remoteID());
    if (!viewModel_.configuredRemoteNames().contains(provider.remoteID())) {
        return {};
    }
    static const QRegularExpression notWord(QStringLiteral("[^\\w.@-]+"));
    if (qtText(provider.displayName()).split(notWord, Qt::SkipEmptyParts).contains(id)) {
        return {};
    }
    return tr("rclone remote \u201c%1\u201d").arg(id);
}

QVariant SidebarModel::data(const QModelIndex& modelIndex, int role) const {
    const ProviderRef provider = providerAt(modelIndex.row());
    if (!provider) {
        return {};
    }
    const std::string id = provider->remoteID();
    switch (role) {
    case Qt::DisplayRole:
        return qtText(provider->displayName());
    case Qt::ToolTipRole:
        return toolTip(*provider);
    case ProviderIDRole:
        return qtText(id);
    case RcloneTypeRole:
        return qtText(provider->rcloneType());
    case GlanceRole:
        return static_cast<int>(glanceFor(viewModel_, id));
    case GlanceTextRole: {
        const ScannerState pane = viewModel_.paneState(id);
        if (const auto* done = pane.as<ScannerState::Done>(); done && done->root) {
            return qtText(done->root->formattedSize());
        }
        return QString();
    }
    case IsActiveRole:
        return viewModel_.activeProvider() && viewModel_.activeProvider()->remoteID() == id;
    case Qt::AccessibleTextRole: {
        QString text = qtText(provider->displayName());
        switch (glanceFor(viewModel_, id)) {
        case Glance::busy:
            text += tr(", loading");
            break;
        case Glance::size:
            text += QStringLiteral(", ") + data(modelIndex, GlanceTextRole).toString();
            break;
        case Glance::warning:
            text += tr(", failed");
            break;
        case Glance::none:
            break;
        }
        return text;
    }
    default:
        return {};
    }
}

} // namespace brimvale
