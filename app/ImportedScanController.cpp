#include "app/ImportedScanController.h"

#include "app/sidebar/ImportedScansList.h"
#include "app/support/WidgetText.h"
#include "app/views/TreePage.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/interchange/NcduExportFile.h"
#include "core/support/CorruptDataError.h"

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QStackedWidget>

#include <chrono>
#include <system_error>

namespace brimvale {
namespace {

QString fromBytes(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Reading a million-item export takes about a second; the window says it is busy meanwhile.
struct BusyCursor {
    BusyCursor() { QApplication::setOverrideCursor(Qt::WaitCursor); }
    ~BusyCursor() { QApplication::restoreOverrideCursor(); }
};

} // namespace

ImportedScanController::ImportedScanController(ScannerViewModel& viewModel, ImportedScansList& list,
                                               TreePage& page, QStackedWidget& detail,
                                               QWidget& window)
    : QObject(&window)
    , viewModel_(viewModel)
    , list_(list)
    , page_(page)
    , detail_(detail)
    , window_(window)
    , open_(new QAction(tr("Open Scan\u2026"), this))
    , export_(new QAction(tr("Export Scan\u2026"), this)) {
    reportError = [this](const QString& title, const QString& message) {
        QMessageBox::warning(&window_, title, message);
    };
    open_->setShortcut(QKeySequence::Open);
    open_->setToolTip(tr("Open a scan exported by ncdu, gdu or Brimvale"));
    export_->setToolTip(tr("Save the shown scan in the export format ncdu and gdu open"));
    connect(open_, &QAction::triggered, this, [this] {
        const QString path =
            QFileDialog::getOpenFileName(&window_, tr("Open Scan"), {},
                                         tr("Scan exports (*.json *.json.gz *.gz);;All files (*)"));
        if (!path.isEmpty()) {
            openFile(path);
        }
    });
    connect(export_, &QAction::triggered, this, [this] {
        const QString path = QFileDialog::getSaveFileName(
            &window_, tr("Export Scan"), QStringLiteral("scan.json"), tr("Scan exports (*.json)"));
        if (!path.isEmpty()) {
            exportTo(path);
        }
    });
    connect(&list_, &ImportedScansList::scanActivated, this, &ImportedScanController::show);
    connect(&list_, &ImportedScansList::scanClosed, this, [this] {
        if (showing_) {
            leaveImport();
        }
    });
    updateActions();
}

bool ImportedScanController::openFile(const QString& path) {
    ImportedScan scan;
    try {
        const BusyCursor busy;
        scan = readNcduExportFile(pathBytes(path));
    } catch (const std::system_error& error) {
        reportError(tr("The scan could not be opened"), fromBytes(error.what()));
        return false;
    } catch (const CorruptDataError& error) {
        reportError(
            tr("The scan could not be opened"),
            tr("%1 is not a scan export Brimvale can read: %2").arg(path, fromBytes(error.what())));
        return false;
    }
    list_.addScan(std::move(scan), path);
    return true;
}

void ImportedScanController::show(const ImportedScan& scan) {
    showing_ = true;
    page_.forgetPath();
    page_.showDone({.root = scan.root, .savedDate = scan.exportDate});
    detail_.setCurrentWidget(&page_);
    window_.setWindowTitle(tr("%1 — Brimvale").arg(fromBytes(scan.root->name())));
    updateActions();
}

void ImportedScanController::leaveImport() {
    if (!showing_) {
        return;
    }
    showing_ = false;
    list_.clearSelection();
    page_.forgetPath();
    emit importLeft();
}

bool ImportedScanController::exportTo(const QString& path) {
    FileNodeRef root;
    std::string rootName;
    Date date = Date::fromUnixSeconds(
        static_cast<double>(std::chrono::duration_cast<std::chrono::seconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count()));
    if (const ImportedScan* imported = showing_ ? list_.selectedScan() : nullptr) {
        root = imported->root;
        rootName = root->name();
        date = imported->exportDate.value_or(date);
    } else if (const auto* done = viewModel_.state().as<ScannerState::Done>();
               done != nullptr && done->root && viewModel_.activeProvider()) {
        root = done->root;
        const ProviderRef& provider = viewModel_.activeProvider();
        // Local trees keep paths without their leading "/"; a cloud scan is named by its account,
        // as `brimvale-cli export` names it.
        rootName =
            provider->rcloneType() == "local" ? "/" + root->path() : provider->remoteID() + ":";
        date = done->savedDate.value_or(date);
    }
    if (!root) {
        reportError(tr("Nothing to export"),
                    tr("Open a scan or finish scanning an account first."));
        return false;
    }
    try {
        const BusyCursor busy;
        writeNcduExportFile(pathBytes(path), *root, rootName, date);
    } catch (const std::exception& error) {
        reportError(tr("The scan could not be exported"), fromBytes(error.what()));
        return false;
    }
    return true;
}

void ImportedScanController::updateActions() {
    export_->setEnabled(showing_ || viewModel_.state().is<ScannerState::Done>());
}

} // namespace brimvale
