#include "app/MainWindow.h"

#include "app/ImportedScanController.h"
#include "app/bridge/ViewModelSignals.h"
#include "app/browser/ColumnBrowser.h"
#include "app/insights/TreemapView.h"
#include "app/onboarding/AddAccountSheet.h"
#include "app/onboarding/NativeCredentialForm.h"
#include "app/sheets/LocalVolumeSheet.h"
#include "app/sidebar/AccountSidebar.h"
#include "app/sidebar/ImportedScansList.h"
#include "app/support/AppSettingsKeys.h"
#include "app/support/ExternalOpen.h"
#include "app/support/ScreenFit.h"
#include "app/support/Symbols.h"
#include "app/support/WidgetText.h"
#include "app/views/CheckingConfigView.h"
#include "app/views/DeletionProgressView.h"
#include "app/views/ErrorView.h"
#include "app/views/IdleView.h"
#include "app/views/LoadingCacheView.h"
#include "app/views/NeedsSetupView.h"
#include "app/views/TreePage.h"
#include "core/coordinator/ScannerViewModel.h"
#include "core/onboarding/CloudServiceCatalog.h"
#include "core/persistence/settings/SettingsKeys.h"
#include "core/support/SettingsStore.h"
#include "core/support/Version.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QListView>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolBar>
#include <QVBoxLayout>

#include <algorithm>
#include <type_traits>
#include <variant>

namespace brimvale {
namespace {

constexpr int kDefaultSidebarWidth = 230;
constexpr int kMinSidebarWidth = 160;

bool askToRemove(QWidget* parent, const QString& accountName) {
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(MainWindow::tr("Remove Account"));
    box.setText(MainWindow::tr("Remove “%1”?").arg(accountName));
    box.setInformativeText(MainWindow::removalConfirmationText());
    QPushButton* remove = box.addButton(MainWindow::tr("Remove"), QMessageBox::DestructiveRole);
    box.addButton(QMessageBox::Cancel);
    box.setDefaultButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == remove;
}

} // namespace

MainWindow::MainWindow(ScannerViewModel& viewModel, Options options, QWidget* parent)
    : QMainWindow(parent)
    , viewModel_(viewModel)
    , options_(std::move(options))
    , signals_(new ViewModelSignals(viewModel, this)) {
    setWindowTitle(QString::fromLatin1(kProductName));
    setWindowIcon(Symbols::applicationIcon());
    setUnifiedTitleAndToolBarOnMac(true);

    sidebar_ = new AccountSidebar(viewModel_, *signals_, this);
    new DeletionProgressView(viewModel_, *signals_, this);
    sidebar_->setMinimumWidth(kMinSidebarWidth);
    detail_ = new QStackedWidget(this);
    detail_->setAccessibleName(tr("Details"));
    idle_ = new IdleView(detail_);
    checking_ = new CheckingConfigView(detail_);
    loading_ = new LoadingCacheView(detail_);
    needsSetup_ = new NeedsSetupView(detail_);
    error_ = new ErrorView(detail_);
    tree_ = new TreePage(viewModel_, detail_);
    for (QWidget* page :
         std::initializer_list<QWidget*>{idle_, checking_, loading_, needsSetup_, error_, tree_}) {
        detail_->addWidget(page);
    }
    imported_ = new ImportedScansList(this);
    importer_ = new ImportedScanController(viewModel_, *imported_, *tree_, *detail_, *this);
    auto* sidePane = new QWidget(this);
    auto* sideLayout = new QVBoxLayout(sidePane);
    sideLayout->setContentsMargins(0, 0, 0, 0);
    sideLayout->addWidget(sidebar_, 1);
    sideLayout->addWidget(imported_);
    splitter_ = new QSplitter(Qt::Horizontal, this);
    splitter_->addWidget(sidePane);
    splitter_->addWidget(detail_);
    splitter_->setStretchFactor(0, 0);
    splitter_->setStretchFactor(1, 1);
    splitter_->setCollapsible(0, false);
    splitter_->setCollapsible(1, false);
    splitter_->setChildrenCollapsible(false);
    setCentralWidget(splitter_);

    buildActions();
    restoreLayout();

    connect(signals_, &ViewModelSignals::stateChanged, this, &MainWindow::showState);
    connect(importer_, &ImportedScanController::importLeft, this, &MainWindow::showState);
    // The active account's row stays selected while an imported scan shows; a click on it
    // goes back to the account.
    connect(sidebar_->list(), &QListView::clicked, importer_, &ImportedScanController::leaveImport);
    connect(signals_, &ViewModelSignals::sidebarChanged, this, &MainWindow::updateActions);
    connect(signals_, &ViewModelSignals::localVolumePickerChanged, this,
            &MainWindow::syncLocalVolumePicker);
    connect(signals_, &ViewModelSignals::accessAdvisoryChanged, this,
            [this] { tree_->setAccessAdvisory(viewModel_.showFullDiskAccessAdvisory()); });
    connect(signals_, &ViewModelSignals::accountRemovalErrorChanged, this,
            &MainWindow::showRemovalError);
    connect(signals_, &ViewModelSignals::onboardingChanged, this, &MainWindow::updateOnboarding);
    connect(signals_, &ViewModelSignals::folderRefreshesChanged, this,
            &MainWindow::showFolderRefreshes);

    connect(sidebar_, &AccountSidebar::accountActivated, this, &MainWindow::accountActivated);
    connect(sidebar_, &AccountSidebar::addAccountRequested, this, &MainWindow::openAddAccountSheet);
    connect(sidebar_, &AccountSidebar::refreshRequested, this,
            [this] { viewModel_.refreshProviders(); });
    connect(sidebar_, &AccountSidebar::chooseLocalFolderRequested, this,
            [this](const ProviderRef& provider) { openLocalVolumeSheet(provider, false); });
    connect(sidebar_, &AccountSidebar::rescanRequested, this, [this](const ProviderRef& provider) {
        viewModel_.openAccount(provider, {.rescan = true});
    });
    connect(sidebar_, &AccountSidebar::revealInBrowserRequested, this,
            [this](const ProviderRef& provider) {
                if (const auto url = sidebar_->accountWebURL(provider)) {
                    ExternalOpen::openInDesktop(QUrl(qtText(*url)));
                }
            });
    connect(sidebar_, &AccountSidebar::removeRequested, this, &MainWindow::confirmRemoval);

    connect(tree_, &TreePage::stopScanRequested, this, [this] { viewModel_.cancelScan(); });
    connect(tree_, &TreePage::rescanRequested, this, [this] { viewModel_.rescan(); });
    connect(tree_->browser(), &ColumnBrowser::previewPaneVisibilityChanged, this,
            &MainWindow::updateActions);
    connect(tree_->browser(), &ColumnBrowser::pathChanged, this, &MainWindow::updateActions);

    connect(error_, &ErrorView::openSignInPageRequested, this,
            [](const QUrl& url) { ExternalOpen::openInDesktop(url); });
    connect(error_, &ErrorView::reconnectRequested, this,
            [this] { viewModel_.beginReconnect(viewModel_.activeProvider()); });
    connect(needsSetup_, &NeedsSetupView::openSignInPageRequested, this,
            [](const QUrl& url) { ExternalOpen::openInDesktop(url); });
    connect(needsSetup_, &NeedsSetupView::signInRequested, this,
            [this] { viewModel_.beginGuidedConnect(needsSetup_->provider()); });
    connect(needsSetup_, &NeedsSetupView::openFullWebConfigRequested, this,
            [this] { viewModel_.openFullWebConfigOnly(needsSetup_->provider()); });
    connect(needsSetup_, &NeedsSetupView::finishSetupRequested, this,
            [this] { viewModel_.finishSetup(needsSetup_->provider()); });
    connect(needsSetup_, &NeedsSetupView::cancelSignInRequested, this,
            [this] { viewModel_.cancelSetup(needsSetup_->provider()); });
    connect(needsSetup_, &NeedsSetupView::formSubmitted, this, &MainWindow::submitSetupForm);
    connect(sidebar_, &AccountSidebar::addAnotherRequested, this,
            [this](const ProviderRef& provider) { viewModel_.beginAddAnotherAccount(provider); });

    showState();
}

MainWindow::~MainWindow() = default;

LocalVolumeSheet* MainWindow::localVolumeSheet() const {
    return volumeSheet_.data();
}

AddAccountSheet* MainWindow::addAccountSheet() const {
    return addAccountSheet_.data();
}

QString MainWindow::removalConfirmationText() {
    return tr("This removes the saved connection and cached file list from this computer. You "
              "can add the account again using Add account in the toolbar.");
}

void MainWindow::buildActions() {
    addAccountAction_ = new QAction(Symbols::icon("plus"), tr("Add account…"), this);
    addAccountAction_->setToolTip(tr("Add a cloud account"));
    addAccountAction_->setShortcut(QKeySequence::New);
    connect(addAccountAction_, &QAction::triggered, this, [this] { viewModel_.beginAddAccount(); });

    chooseFolderAction_ =
        new QAction(Symbols::icon("folder.badge.plus"), tr("Choose disk or folder…"), this);
    chooseFolderAction_->setShortcut(QKeySequence::Open);
    connect(chooseFolderAction_, &QAction::triggered, this, [this] {
        if (ProviderRef local = sidebar_->localProvider()) {
            openLocalVolumeSheet(local, false);
        }
    });

    rescanAction_ = new QAction(Symbols::icon("arrow.clockwise"), tr("Rescan"), this);
    rescanAction_->setToolTip(tr("Scan the account again"));
    rescanAction_->setShortcuts({QKeySequence::Refresh, QKeySequence(Qt::CTRL | Qt::Key_R)});
    connect(rescanAction_, &QAction::triggered, this, [this] { viewModel_.rescan(); });

    stopAction_ = new QAction(Symbols::icon("stop.fill"), tr("Stop scan"), this);
    stopAction_->setToolTip(tr("Stop the scan and keep what it found"));
    stopAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Period));
    connect(stopAction_, &QAction::triggered, this, [this] { viewModel_.cancelScan(); });

    previewAction_ = new QAction(Symbols::icon("sidebar.right"), tr("Preview"), this);
    previewAction_->setCheckable(true);
    previewAction_->setChecked(true);
    previewAction_->setToolTip(tr("Show or hide the preview"));
    previewAction_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    connect(previewAction_, &QAction::toggled, this,
            [this](bool shown) { tree_->browser()->setPreviewPaneVisible(shown); });

    auto* toolbar = addToolBar(tr("Toolbar"));
    toolbar->setObjectName(QStringLiteral("mainToolbar"));
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->setIconSize(QSize(16, 16));
    toolbar->setAccessibleName(tr("Toolbar"));
    toolbar->addAction(addAccountAction_);
    toolbar->addSeparator();
    toolbar->addAction(rescanAction_);
    toolbar->addAction(stopAction_);
    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    toolbar->addAction(previewAction_);

    QMenu* fileMenu = menuBar()->addMenu(tr("&File"));
    fileMenu->addAction(addAccountAction_);
    fileMenu->addAction(chooseFolderAction_);
    fileMenu->addSeparator();
    fileMenu->addAction(importer_->openAction());
    fileMenu->addAction(importer_->exportAction());
    fileMenu->addSeparator();
    fileMenu->addAction(rescanAction_);
    fileMenu->addAction(stopAction_);
    fileMenu->addSeparator();
    QAction* quit = fileMenu->addAction(tr("&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);
    QMenu* viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addAction(previewAction_);
    QAction* shading = viewMenu->addAction(tr("Shaded Map"));
    shading->setCheckable(true);
    shading->setChecked(tree_->treemap()->cushions());
    shading->setToolTip(tr("Shade the map's rectangles like cushions, or fill them flat"));
    connect(shading, &QAction::toggled, this,
            [this](bool shaded) { tree_->treemap()->setCushions(shaded); });
    QAction* refresh = viewMenu->addAction(tr("Refresh accounts"), this,
                                           [this] { viewModel_.refreshProviders(); });
    refresh->setIcon(Symbols::icon("arrow.clockwise"));
    QMenu* helpMenu = menuBar()->addMenu(tr("&Help"));
    helpMenu->addAction(tr("&About Brimvale"), this, [this] {
        QMessageBox::about(this, tr("About Brimvale"),
                           tr("<b>Brimvale</b> %1<p>See where storage space goes, on local disks "
                              "and in cloud accounts.</p>")
                               .arg(QString::fromLatin1(kVersion)));
    });
}

void MainWindow::fitOnScreen() {
    // At a large scale, or after the window was saved on a larger screen, the default or
    // restored size can exceed what the screen has room for.
    if (const QScreen* shown = screen()) {
        setGeometry(app::fittedWithin(geometry(), shown->availableGeometry()));
    }
}

void MainWindow::restoreLayout() {
    SettingsStore& settings = *viewModel_.settings();
    bool restored = false;
    if (const auto geometry = settings.stringValue(AppSettingsKeys::mainWindowGeometry)) {
        restored = restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(*geometry)));
    }
    if (!restored) {
        resize(1180, 740);
    }
    fitOnScreen();
    int sidebarWidth = kDefaultSidebarWidth;
    if (const auto stored = settings.stringValue(AppSettingsKeys::sidebarWidth)) {
        bool ok = false;
        const int value = QString::fromStdString(*stored).toInt(&ok);
        if (ok && value >= kMinSidebarWidth) {
            sidebarWidth = value;
        }
    }
    splitter_->setSizes({sidebarWidth, std::max(400, width() - sidebarWidth)});
}

void MainWindow::saveLayout() {
    SettingsStore& settings = *viewModel_.settings();
    settings.setString(AppSettingsKeys::mainWindowGeometry,
                       saveGeometry().toBase64().toStdString());
    const QList<int> sizes = splitter_->sizes();
    if (!sizes.isEmpty() && sizes.front() > 0) {
        settings.setString(AppSettingsKeys::sidebarWidth, std::to_string(sizes.front()));
    }
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!shownOnce_) {
        shownOnce_ = true;
        // Restoring the width before the first layout can be undone by it; apply it again.
        restoreLayout();
        if (options_.refreshAccountsOnShow) {
            viewModel_.refreshProviders();
        }
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    saveLayout();
    QMainWindow::closeEvent(event);
}

bool MainWindow::activeIsLocal() const {
    const ProviderRef& active = viewModel_.activeProvider();
    return active && active->rcloneType() == "local";
}

void MainWindow::showState() {
    if (importer_->showingImport()) {
        updateActions();
        return;
    }
    const ScannerState& state = viewModel_.state();
    const ProviderRef& active = viewModel_.activeProvider();
    const std::string activeID = active ? active->remoteID() : std::string();
    const bool accountChanged = activeID != lastActiveID_;
    if (accountChanged) {
        tree_->forgetPath();
    }
    switch (state.kind()) {
    case ScannerState::Case::idle:
        detail_->setCurrentWidget(idle_);
        break;
    case ScannerState::Case::checkingConfig:
        detail_->setCurrentWidget(checking_);
        break;
    case ScannerState::Case::loadingCache:
        if (lastCase_ != ScannerState::Case::loadingCache || accountChanged) {
            loading_->setFraction(0);
        }
        loading_->setFraction(state.as<ScannerState::LoadingCache>()->fraction);
        detail_->setCurrentWidget(loading_);
        break;
    case ScannerState::Case::needsSetup: {
        const auto& provider = state.as<ScannerState::NeedsSetup>()->provider;
        std::optional<NativeCredentialOnboardingKind> kind;
        if (provider) {
            kind = CloudServiceCatalog::nativeOnboardingKind(provider->rcloneType());
        }
        needsSetup_->showAccount(provider, kind);
        detail_->setCurrentWidget(needsSetup_);
        break;
    }
    case ScannerState::Case::scanning: {
        const auto* scanning = state.as<ScannerState::Scanning>();
        const bool newScan = lastCase_ != ScannerState::Case::scanning || accountChanged;
        tree_->showScanning(scanning->progress, scanning->liveRoot, newScan);
        detail_->setCurrentWidget(tree_);
        break;
    }
    case ScannerState::Case::done: {
        const auto* done = state.as<ScannerState::Done>();
        tree_->setAccessAdvisory(viewModel_.showFullDiskAccessAdvisory());
        tree_->showDone({.root = done->root,
                         .savedDate = done->savedDate,
                         .occupiedBytes = done->occupiedBytes,
                         .skippedFolders = done->skippedFolders,
                         .partial = done->partial,
                         .saveFailure = done->saveFailure,
                         .local = activeIsLocal(),
                         .historyKey = viewModel_.activeProvider()
                                           ? viewModel_.lastScanCacheStem(
                                                 viewModel_.activeProvider()->remoteID())
                                           : std::nullopt});
        detail_->setCurrentWidget(tree_);
        break;
    }
    case ScannerState::Case::error:
        error_->showError(state.as<ScannerState::Error>()->info, activeIsLocal());
        detail_->setCurrentWidget(error_);
        break;
    }
    lastCase_ = state.kind();
    lastActiveID_ = activeID;
    showFolderRefreshes();
    setWindowTitle(active ? tr("%1 — Brimvale").arg(qtText(active->displayName()))
                          : QString::fromLatin1(kProductName));
    updateOnboarding();
    updateActions();
}

void MainWindow::showFolderRefreshes() {
    const ProviderRef& active = viewModel_.activeProvider();
    if (!active) {
        tree_->setFolderRefreshes({}, {});
        return;
    }
    const std::string id = active->remoteID();
    tree_->setFolderRefreshes(viewModel_.foldersRefreshing(id),
                              qtText(viewModel_.folderRefreshError(id).value_or("")));
}

void MainWindow::updateActions() {
    const ScannerState& state = viewModel_.state();
    const bool hasAccount = viewModel_.activeProvider() != nullptr;
    const auto kind = state.kind();
    rescanAction_->setEnabled(hasAccount && (kind == ScannerState::Case::done ||
                                             kind == ScannerState::Case::error ||
                                             kind == ScannerState::Case::idle));
    stopAction_->setEnabled(kind == ScannerState::Case::scanning ||
                            kind == ScannerState::Case::checkingConfig);
    const bool treeShown = state.shownTree() != nullptr || importer_->showingImport();
    previewAction_->setEnabled(treeShown);
    const QSignalBlocker blocker(previewAction_);
    previewAction_->setChecked(tree_->browser()->previewPaneVisible());
    chooseFolderAction_->setEnabled(sidebar_->localProvider() != nullptr);
    importer_->updateActions();
}

void MainWindow::accountActivated(const ProviderRef& provider) {
    if (!provider) {
        return;
    }
    importer_->leaveImport();
    const std::string id = provider->remoteID();
    // A local disk not scanned before asks what to scan rather than starting on the whole disk.
    const bool firstLocal = provider->rcloneType() == "local" &&
                            !viewModel_.configuredRemoteNames().contains(id) &&
                            !viewModel_.settings()->contains(SettingsKeys::localScanPath(id)) &&
                            viewModel_.paneState(id).is<ScannerState::Idle>() &&
                            !viewModel_.remoteIDsLoading().contains(id);
    if (firstLocal) {
        openLocalVolumeSheet(provider, false);
        return;
    }
    viewModel_.selectProvider(provider);
}

void MainWindow::openLocalVolumeSheet(const ProviderRef& provider, bool forCoordinator) {
    if (!provider) {
        return;
    }
    if (volumeSheet_) {
        volumeSheet_->raise();
        return;
    }
    const std::string id = provider->remoteID();
    LocalVolumeSheet::Options options;
    options.savedPath = viewModel_.settings()->stringValue(SettingsKeys::localScanPath(id));
    options.accountName = qtText(provider->displayName());
    volumeSheet_ = new LocalVolumeSheet(std::move(options), this);
    volumeSheet_->setAttribute(Qt::WA_DeleteOnClose);
    volumeSheetForCoordinator_ = forCoordinator;
    connect(volumeSheet_, &LocalVolumeSheet::chosen, this,
            [this, provider, id, forCoordinator](const std::string& path) {
                if (forCoordinator) {
                    viewModel_.confirmLocalDiskScan(id, path);
                } else {
                    viewModel_.openAccount(provider, {.localScanPath = path});
                }
            });
    connect(volumeSheet_, &LocalVolumeSheet::cancelled, this, [this, forCoordinator] {
        if (forCoordinator) {
            viewModel_.cancelLocalDiskScanPicker();
        }
        // The sidebar shows the active account again.
        sidebar_->update();
        Q_EMIT signals_->sidebarChanged();
    });
    // A finished sheet is deleted later; a new request must not find it meanwhile.
    connect(volumeSheet_, &QDialog::finished, this, [this, sheet = volumeSheet_.data()] {
        if (volumeSheet_ == sheet) {
            volumeSheet_.clear();
        }
    });
    volumeSheet_->open();
}

void MainWindow::syncLocalVolumePicker() {
    const bool wanted = viewModel_.showLocalVolumePicker();
    if (wanted && !volumeSheet_) {
        const auto& pending = viewModel_.pendingLocalDiskPickerRemoteID();
        if (ProviderRef provider = pending ? viewModel_.provider(*pending) : nullptr) {
            openLocalVolumeSheet(provider, true);
        }
    } else if (!wanted && volumeSheet_ && volumeSheetForCoordinator_) {
        // Closed by the coordinator: nothing to report back.
        volumeSheet_->dismissWithoutReport();
    }
}

void MainWindow::confirmRemoval(const ProviderRef& provider) {
    if (!provider || !viewModel_.canRemoveAccount(*provider)) {
        return;
    }
    const QString name = qtText(provider->displayName());
    const bool confirmed =
        options_.confirmRemoval ? options_.confirmRemoval(this, name) : askToRemove(this, name);
    if (confirmed) {
        viewModel_.removeAccount(provider);
    }
}

void MainWindow::showRemovalError() {
    const auto& message = viewModel_.accountRemovalError();
    if (!message || removalErrorShown_) {
        return;
    }
    removalErrorShown_ = true;
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Couldn’t remove account"),
                                qtText(*message), QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this] {
        removalErrorShown_ = false;
        viewModel_.dismissAccountRemovalError();
    });
    box->open();
}

void MainWindow::updateOnboarding() {
    // A sign-in page to open: the browser gets it once.
    if (const auto& url = viewModel_.oauthBrowserURL()) {
        ExternalOpen::openInDesktop(QUrl(qtText(*url)));
        viewModel_.acknowledgeOAuthBrowserOpened();
    }
    const QUrl mainSignIn(qtText(viewModel_.mainFlowSignInURL().value_or("")));
    needsSetup_->setSignInState(viewModel_.isGuidedConnectRunning(), mainSignIn);
    error_->setReconnectState(viewModel_.isGuidedConnectRunning(), mainSignIn);
    if (viewModel_.isPresentingAddAccount() && !addAccountSheet_) {
        openAddAccountSheet();
    } else if (!viewModel_.isPresentingAddAccount() && addAccountSheet_) {
        addAccountSheet_->dismissWithoutReport();
    }
    if (NativeCredentialForm* form = needsSetup_->form()) {
        form->setBusy(viewModel_.addAccountGuidedRunning());
        if (const auto& error = viewModel_.addAccountError();
            error && !viewModel_.isPresentingAddAccount()) {
            form->showSubmitError(qtText(*error));
        }
    }
    syncWebConfigSheet();
}

void MainWindow::submitSetupForm() {
    NativeCredentialForm* form = needsSetup_->form();
    ProviderRef provider = needsSetup_->provider();
    if (form == nullptr || !provider) {
        return;
    }
    const std::string name = provider->remoteID();
    auto finished = [this, provider](bool succeeded) {
        if (succeeded) {
            viewModel_.finishSetup(provider);
        }
    };
    viewModel_.applyNativeCredentials(name, form->fields(), finished);
}

void MainWindow::syncWebConfigSheet() {
    const auto& url = viewModel_.webConfigURL();
    const bool wanted = viewModel_.showWebConfigSheet() && url.has_value();
    if (!wanted) {
        openedWebConfigURL_.clear();
        if (webConfigSheet_) {
            webConfigSheet_->blockSignals(true);
            webConfigSheet_->close();
        }
        return;
    }
    // No embedded web view in this build: the helper's page opens in the default browser,
    // and a small sheet stands for it, so closing the sheet stops the helper.
    if (*url != openedWebConfigURL_) {
        openedWebConfigURL_ = *url;
        ExternalOpen::openInDesktop(QUrl(qtText(*url)));
    }
    if (webConfigSheet_) {
        return;
    }
    auto* box = new QMessageBox(QMessageBox::Information, tr("Configuration website"),
                                tr("rclone's configuration website is open in your browser."),
                                QMessageBox::NoButton, this);
    box->setInformativeText(tr("Finish the account there, then close this window. The website "
                               "stops when this window closes."));
    QPushButton* again = box->addButton(tr("Open in Browser Again"), QMessageBox::ActionRole);
    box->addButton(QMessageBox::Close);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // The action button must not close the box.
    disconnect(again, &QAbstractButton::clicked, box, nullptr);
    connect(again, &QPushButton::clicked, this, [this] {
        if (const auto& current = viewModel_.webConfigURL()) {
            ExternalOpen::openInDesktop(QUrl(qtText(*current)));
        }
    });
    connect(box, &QMessageBox::finished, this, [this, box] {
        if (webConfigSheet_ == box) {
            webConfigSheet_.clear();
            viewModel_.dismissWebConfigSheet();
        }
    });
    webConfigSheet_ = box;
    box->open();
}

void MainWindow::openAddAccountSheet() {
    if (addAccountSheet_) {
        addAccountSheet_->raise();
        return;
    }
    addAccountSheet_ = new AddAccountSheet(viewModel_, *signals_, this);
    addAccountSheet_->setAttribute(Qt::WA_DeleteOnClose);
    connect(addAccountSheet_, &QDialog::finished, this, [this, sheet = addAccountSheet_.data()] {
        if (addAccountSheet_ == sheet) {
            addAccountSheet_.clear();
        }
    });
    addAccountSheet_->open();
}

} // namespace brimvale
