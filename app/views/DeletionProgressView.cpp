#include "app/views/DeletionProgressView.h"

#include "app/bridge/ViewModelSignals.h"
#include "app/support/WidgetText.h"
#include "core/cleanup/DeletionTexts.h"
#include "core/coordinator/ScannerViewModel.h"

#include <QMessageBox>
#include <QProgressDialog>

namespace brimvale {

DeletionProgressView::DeletionProgressView(ScannerViewModel& viewModel,
                                           ViewModelSignals& viewModelSignals, QWidget* window)
    : QObject(window)
    , viewModel_(viewModel)
    , window_(window) {
    connect(&viewModelSignals, &ViewModelSignals::itemDeletionsChanged, this,
            &DeletionProgressView::update);
}

DeletionProgressView::~DeletionProgressView() = default;

void DeletionProgressView::update() {
    for (const auto& account : viewModel_.providers()) {
        const std::string id = account->remoteID();
        const ItemDeletionState* deletion = viewModel_.itemDeletion(id);
        if (deletion == nullptr) {
            continue;
        }
        auto found = dialogs_.find(id);
        if (deletion->running) {
            if (found == dialogs_.end()) {
                auto* dialog = new QProgressDialog(window_);
                dialog->setWindowTitle(tr("Deleting"));
                dialog->setCancelButtonText(tr("Stop"));
                dialog->setMinimumDuration(400);
                dialog->setAutoClose(false);
                dialog->setAutoReset(false);
                connect(dialog, &QProgressDialog::canceled, this,
                        [this, id] { viewModel_.stopDeletion(id); });
                found = dialogs_.emplace(id, dialog).first;
            }
            const DeletionProgress& progress = deletion->progress;
            QProgressDialog* dialog = found->second;
            // A cloud deletion tells nothing until rclone ends: a busy bar.
            dialog->setRange(0, deletion->method == DeletionMethod::deleteFromCloud
                                    ? 0
                                    : static_cast<int>(progress.itemsTotal));
            dialog->setValue(static_cast<int>(progress.itemsDone));
            QString text = tr("Deleting %1").arg(qtText(progress.current));
            if (progress.entriesRemoved > 0) {
                text += tr("\n%1 items removed").arg(progress.entriesRemoved);
            }
            dialog->setLabelText(text);
            continue;
        }
        if (found != dialogs_.end()) {
            found->second->deleteLater();
            dialogs_.erase(found);
        }
        if (!deletion->lastReport) {
            continue;
        }
        const DeletionReport report = *deletion->lastReport;
        const DeletionMethod method = deletion->method;
        viewModel_.dismissDeletionReport(id);
        if (report.failures.empty() && !report.stopped) {
            continue;
        }
        auto* box =
            new QMessageBox(QMessageBox::Warning, tr("Not Everything Was Deleted"),
                            qtText(deletionReportText(method, report)), QMessageBox::Ok, window_);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
    }
}

} // namespace brimvale
