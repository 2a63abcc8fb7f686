#pragma once

#include <QObject>

#include <map>
#include <string>

class QProgressDialog;
class QWidget;

namespace brimvale {

class ScannerViewModel;
class ViewModelSignals;

// Shows the deletions of every account: a progress dialog while one runs (its Cancel button
// stops it), then, when something was not deleted or it was stopped, what was not deleted and
// why. A deletion that went through says nothing more: the tree shows it. GUI thread only.
class DeletionProgressView final : public QObject {
    Q_OBJECT
public:
    DeletionProgressView(ScannerViewModel& viewModel, ViewModelSignals& viewModelSignals,
                         QWidget* window);
    ~DeletionProgressView() override;

private:
    void update();

    ScannerViewModel& viewModel_;
    QWidget* window_;
    std::map<std::string, QProgressDialog*> dialogs_; // by account
};

} // namespace brimvale
