#include "app/sidebar/ImportedScansList.h"

#include <QDateTime>
#include <QFileInfo>
#include <QListWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace brimvale {

ImportedScansList::ImportedScansList(QWidget* parent)
    : QWidget(parent)
    , list_(new QListWidget(this))
    , close_(new QToolButton(this)) {
    list_->setAccessibleName(tr("Imported scans"));
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    close_->setText(tr("Close Imported Scan"));
    close_->setEnabled(false);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(list_);
    layout->addWidget(close_);
    setVisible(false);
    connect(list_, &QListWidget::currentRowChanged, this, [this](int row) {
        close_->setEnabled(row >= 0);
        if (row >= 0 && row < static_cast<int>(scans_.size())) {
            emit scanActivated(scans_[static_cast<std::size_t>(row)]);
        }
    });
    connect(close_, &QToolButton::clicked, this, &ImportedScansList::closeSelected);
}

QString ImportedScansList::rowText(const ImportedScan& scan, const QString& fileName) {
    QString name = QFileInfo(fileName).fileName();
    if (name.isEmpty() || fileName == QStringLiteral("-")) {
        name = QString::fromUtf8(scan.root->name().data(),
                                 static_cast<qsizetype>(scan.root->name().size()));
    }
    const QString date =
        scan.exportDate
            ? QDateTime::fromSecsSinceEpoch(static_cast<qint64>(scan.exportDate->unixSeconds()))
                  .toString(QStringLiteral("yyyy-MM-dd HH:mm"))
            : tr("no date");
    return tr("Imported: %1, %2").arg(name, date);
}

void ImportedScansList::addScan(ImportedScan scan, const QString& fileName) {
    auto* item = new QListWidgetItem(rowText(scan, fileName), list_);
    item->setToolTip(fileName);
    scans_.push_back(std::move(scan));
    setVisible(true);
    list_->setCurrentRow(list_->count() - 1);
}

const ImportedScan* ImportedScansList::selectedScan() const {
    const int row = list_->currentRow();
    if (row < 0 || row >= static_cast<int>(scans_.size()) || !list_->currentItem() ||
        !list_->currentItem()->isSelected()) {
        return nullptr;
    }
    return &scans_[static_cast<std::size_t>(row)];
}

void ImportedScansList::clearSelection() {
    const QSignalBlocker blocker(list_);
    list_->setCurrentRow(-1);
    close_->setEnabled(false);
}

void ImportedScansList::closeSelected() {
    const int row = list_->currentRow();
    if (row < 0 || row >= static_cast<int>(scans_.size())) {
        return;
    }
    {
        const QSignalBlocker blocker(list_);
        delete list_->takeItem(row);
        scans_.erase(scans_.begin() + row);
        list_->setCurrentRow(-1);
    }
    close_->setEnabled(false);
    setVisible(!scans_.empty());
    emit scanClosed();
}

} // namespace brimvale
