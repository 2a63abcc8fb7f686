#pragma once

#include "core/interchange/NcduExportReader.h"

#include <QWidget>

#include <vector>

class QListWidget;
class QToolButton;

namespace brimvale {

// The scans opened from export files, under the accounts: one row "Imported: NAME, date" each
// until it is closed. They live in the window only; the coordinator never sees them.
// GUI thread only.
class ImportedScansList final : public QWidget {
    Q_OBJECT
public:
    explicit ImportedScansList(QWidget* parent = nullptr);

    // Adds a row for `scan` (opened from `fileName`), selects it and reports it activated.
    void addScan(ImportedScan scan, const QString& fileName);
    // The scan of the selected row; none when no row is selected.
    const ImportedScan* selectedScan() const;
    void clearSelection();
    // Closes the selected row's scan.
    void closeSelected();

    QListWidget* list() const { return list_; }
    QToolButton* closeButton() const { return close_; }
    static QString rowText(const ImportedScan& scan, const QString& fileName);

signals:
    void scanActivated(const brimvale::ImportedScan& scan);
    // The shown scan was closed; the window goes back to the active account.
    void scanClosed();

private:
    QListWidget* list_;
    QToolButton* close_;
    std::vector<ImportedScan> scans_; // in the order of the rows
};

} // namespace brimvale
