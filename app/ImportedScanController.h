#pragma once

#include "core/interchange/NcduExportReader.h"

#include <QObject>
#include <QString>

#include <functional>

class QAction;
class QStackedWidget;
class QWidget;

namespace brimvale {

class ImportedScansList;
class ScannerViewModel;
class TreePage;

// File > Open Scan… and File > Export Scan…: opens export files of ncdu, gdu or Brimvale into
// rows of the imported-scans list and shows the selected one on the tree page; writes the
// shown tree (an imported one or the active account's finished scan) as an export. The
// coordinator is only read. GUI thread only.
class ImportedScanController final : public QObject {
    Q_OBJECT
public:
    ImportedScanController(ScannerViewModel& viewModel, ImportedScansList& list, TreePage& page,
                           QStackedWidget& detail, QWidget& window);

    QAction* openAction() const { return open_; }
    QAction* exportAction() const { return export_; }

    // Whether the tree page shows an imported scan rather than the active account.
    bool showingImport() const { return showing_; }
    // Reads the export at `path` ("-": standard input) and shows it; a failure is reported.
    bool openFile(const QString& path);
    // Writes the shown tree to `path`; a failure is reported.
    bool exportTo(const QString& path);
    // The user went back to an account.
    void leaveImport();
    void updateActions();

    // How failures are told (a warning box by default; tests record them).
    std::function<void(const QString& title, const QString& message)> reportError;

signals:
    // The imported scan stopped being shown: the window shows the active account again.
    void importLeft();

private:
    void show(const ImportedScan& scan);

    ScannerViewModel& viewModel_;
    ImportedScansList& list_;
    TreePage& page_;
    QStackedWidget& detail_;
    QWidget& window_;
    QAction* open_;
    QAction* export_;
    bool showing_ = false;
};

} // namespace brimvale
