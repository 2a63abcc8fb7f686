#pragma once

#include "core/coordinator/ScannerState.h"

#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <string>

class QAction;
class QSplitter;
class QStackedWidget;

namespace brimvale {

class AccountSidebar;
class AddAccountSheet;
class CheckingConfigView;
class ErrorView;
class ImportedScanController;
class ImportedScansList;
class IdleView;
class LoadingCacheView;
class LocalVolumeSheet;
class NeedsSetupView;
class ScannerViewModel;
class SettingsStore;
class TreePage;
class ViewModelSignals;

// The one window: the accounts sidebar beside the detail area, which shows one view per state
// of the active account, and a toolbar with Add account, Rescan, Stop scan and the preview
// toggle. It reads the coordinator and turns every user action into one of its operations;
// the window size and the sidebar width are kept in the settings. GUI thread only.
class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    struct Options {
        // Read the account list when the window first appears (the tests that script the
        // coordinator turn it off).
        bool refreshAccountsOnShow = true;
        // Asks whether to remove an account (the default shows a confirmation).
        std::function<bool(QWidget* parent, const QString& accountName)> confirmRemoval;
    };

    MainWindow(ScannerViewModel& viewModel, Options options, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The confirmation text of removing an account.
    static QString removalConfirmationText();

    AccountSidebar* sidebar() const { return sidebar_; }
    QSplitter* splitter() const { return splitter_; }
    QStackedWidget* detail() const { return detail_; }
    IdleView* idleView() const { return idle_; }
    CheckingConfigView* checkingConfigView() const { return checking_; }
    LoadingCacheView* loadingCacheView() const { return loading_; }
    NeedsSetupView* needsSetupView() const { return needsSetup_; }
    ErrorView* errorView() const { return error_; }
    TreePage* treePage() const { return tree_; }
    QAction* addAccountAction() const { return addAccountAction_; }
    QAction* rescanAction() const { return rescanAction_; }
    QAction* stopAction() const { return stopAction_; }
    QAction* previewAction() const { return previewAction_; }
    // Scans opened from export files, and File > Open Scan… / Export Scan….
    ImportedScansList* importedScans() const { return imported_; }
    ImportedScanController* importer() const { return importer_; }
    LocalVolumeSheet* localVolumeSheet() const;
    AddAccountSheet* addAccountSheet() const;

    // Writes the window geometry and sidebar width to the settings (also done on close).
    void saveLayout();

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildActions();
    void restoreLayout();
    // Keeps the window within the available area of its screen.
    void fitOnScreen();
    void showState();
    void updateActions();
    void showFolderRefreshes();
    void updateOnboarding();
    void accountActivated(const ProviderRef& provider);
    void openLocalVolumeSheet(const ProviderRef& provider, bool forCoordinator);
    void syncLocalVolumePicker();
    void confirmRemoval(const ProviderRef& provider);
    void showRemovalError();
    void openAddAccountSheet();
    bool activeIsLocal() const;
    void syncWebConfigSheet();
    void submitSetupForm();

    ScannerViewModel& viewModel_;
    Options options_;
    ViewModelSignals* signals_;
    AccountSidebar* sidebar_;
    QSplitter* splitter_;
    QStackedWidget* detail_;
    IdleView* idle_;
    CheckingConfigView* checking_;
    LoadingCacheView* loading_;
    NeedsSetupView* needsSetup_;
    ErrorView* error_;
    TreePage* tree_;
    ImportedScansList* imported_;
    ImportedScanController* importer_;
    QAction* addAccountAction_ = nullptr;
    QAction* chooseFolderAction_ = nullptr;
    QAction* rescanAction_ = nullptr;
    QAction* stopAction_ = nullptr;
    QAction* previewAction_ = nullptr;
    QPointer<LocalVolumeSheet> volumeSheet_;
    bool volumeSheetForCoordinator_ = false;
    QPointer<AddAccountSheet> addAccountSheet_;
    bool shownOnce_ = false;
    ScannerState::Case lastCase_ = ScannerState::Case::idle;
    std::string lastActiveID_;
    bool removalErrorShown_ = false;
    QPointer<QDialog> webConfigSheet_;
    std::string openedWebConfigURL_;
};

} // namespace brimvale
