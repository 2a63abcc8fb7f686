#include "app/sidebar/AccountSidebar.h"

#include "app/bridge/ViewModelSignals.h"
#include "app/sidebar/SidebarModel.h"
#include "app/sidebar/SidebarRowDelegate.h"
#include "app/support/Symbols.h"
#include "core/coordinator/ScannerViewModel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace brimvale {

AccountSidebar::AccountSidebar(ScannerViewModel& viewModel, ViewModelSignals& bridge,
                               QWidget* parent)
    : QWidget(parent)
    , viewModel_(viewModel) {
    setAccessibleName(tr("Accounts"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 8);
    layout->setSpacing(6);

    auto* heading = new QLabel(tr("Accounts"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(std::max(7.0, headingFont.pointSizeF() - 1.0));
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    heading->setForegroundRole(QPalette::PlaceholderText);
    heading->setContentsMargins(16, 0, 0, 0);
    layout->addWidget(heading);

    model_ = new SidebarModel(viewModel_, this);
    list_ = new QListView(this);
    list_->setModel(model_);
    list_->setItemDelegate(new SidebarRowDelegate(list_));
    list_->setFrameShape(QFrame::NoFrame);
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list_->setMouseTracking(true);
    list_->setContextMenuPolicy(Qt::CustomContextMenu);
    list_->setAccessibleName(tr("Accounts"));
    list_->setAutoFillBackground(false);
    list_->viewport()->setAutoFillBackground(false);
    layout->addWidget(list_, 1);

    addAccount_ = new QPushButton(Symbols::icon("plus"), tr("Add account…"), this);
    addAccount_->setAccessibleName(tr("Add account…"));
    chooseFolder_ =
        new QPushButton(Symbols::icon("folder.badge.plus"), tr("Choose disk or folder…"), this);
    chooseFolder_->setAccessibleName(tr("Choose disk or folder…"));
    chooseFolder_->setToolTip(tr("Choose what the local disk account scans"));
    refresh_ = new QToolButton(this);
    refresh_->setIcon(Symbols::icon("arrow.clockwise"));
    refresh_->setAutoRaise(true);
    refresh_->setToolTip(tr("Refresh accounts"));
    refresh_->setAccessibleName(tr("Refresh accounts"));
    auto* footer = new QVBoxLayout();
    footer->setContentsMargins(10, 0, 10, 0);
    footer->setSpacing(6);
    footer->addWidget(chooseFolder_);
    auto* addRow = new QHBoxLayout();
    addRow->addWidget(addAccount_, 1);
    addRow->addWidget(refresh_);
    footer->addLayout(addRow);
    layout->addLayout(footer);

    connect(addAccount_, &QPushButton::clicked, this, &AccountSidebar::addAccountRequested);
    connect(refresh_, &QToolButton::clicked, this, &AccountSidebar::refreshRequested);
    connect(chooseFolder_, &QPushButton::clicked, this, [this] {
        if (ProviderRef local = localProvider()) {
            emit chooseLocalFolderRequested(local);
        }
    });
    // A selection, not a current row: focusing the list makes its first row current without
    // selecting it, and that must not open an account.
    connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this](const QItemSelection& selected) {
                if (syncingSelection_ || selected.indexes().isEmpty()) {
                    return;
                }
                if (ProviderRef provider = model_->providerAt(selected.indexes().front().row())) {
                    emit accountActivated(provider);
                }
            });
    // A click on the row that is already current (the local account, to choose again).
    connect(list_, &QListView::clicked, this, [this](const QModelIndex& index) {
        ProviderRef provider = model_->providerAt(index.row());
        if (provider && viewModel_.activeProvider() != provider) {
            emit accountActivated(provider);
        }
    });
    connect(list_, &QListView::customContextMenuRequested, this, &AccountSidebar::showContextMenu);
    connect(&bridge, &ViewModelSignals::sidebarChanged, this, &AccountSidebar::reload);

    spinnerTimer_.setInterval(50);
    connect(&spinnerTimer_, &QTimer::timeout, list_->viewport(), qOverload<>(&QWidget::update));
    reload();
}

ProviderRef AccountSidebar::localProvider() const {
    const ProviderRef& active = viewModel_.activeProvider();
    if (active && active->rcloneType() == "local") {
        return active;
    }
    for (int row = 0; row < model_->rowCount(); ++row) {
        ProviderRef provider = model_->providerAt(row);
        if (provider->rcloneType() == "local") {
            return provider;
        }
    }
    return nullptr;
}

void AccountSidebar::reload() {
    syncingSelection_ = true;
    model_->reload();
    const ProviderRef& active = viewModel_.activeProvider();
    const int row = active ? model_->rowOf(active->remoteID()) : -1;
    if (row >= 0) {
        list_->selectionModel()->setCurrentIndex(model_->index(row),
                                                 QItemSelectionModel::ClearAndSelect);
    } else {
        list_->selectionModel()->clearSelection();
    }
    syncingSelection_ = false;
    chooseFolder_->setVisible(localProvider() != nullptr);
    if (model_->anyBusy()) {
        spinnerTimer_.start();
    } else {
        spinnerTimer_.stop();
    }
    list_->viewport()->update();
}

std::optional<std::string> AccountSidebar::accountWebURL(const ProviderRef& provider) const {
    if (!provider) {
        return std::nullopt;
    }
    FileNodeRef root = viewModel_.paneState(provider->remoteID()).shownTree();
    if (!root) {
        root = FileNode::make({.name = provider->remoteID(), .path = "/", .isDirectory = true});
    }
    return provider->webURL(*root);
}

QStringList AccountSidebar::contextActionsFor(const ProviderRef& provider) const {
    QStringList actions;
    if (!provider) {
        return actions;
    }
    actions << tr("Rescan");
    if (accountWebURL(provider)) {
        actions << tr("Reveal in Browser");
    }
    if (viewModel_.canAddAnotherAccount(*provider) &&
        viewModel_.configuredRemoteNames().contains(provider->remoteID())) {
        actions << tr("Add Another Account…");
    }
    if (provider->rcloneType() != "local") {
        actions << tr("List One Folder at a Time");
    }
    if (viewModel_.canRemoveAccount(*provider)) {
        actions << tr("Remove Account…");
    }
    return actions;
}

QString AccountSidebar::oneFolderAtATimeExplanation() {
    return tr("For providers that limit recursive listings: slower, one request per folder.");
}

void AccountSidebar::showContextMenu(const QPoint& position) {
    const QModelIndex index = list_->indexAt(position);
    ProviderRef provider = model_->providerAt(index.row());
    if (!provider) {
        return;
    }
    contextMenuFor(provider)->exec(list_->viewport()->mapToGlobal(position));
}

std::unique_ptr<QMenu> AccountSidebar::contextMenuFor(const ProviderRef& provider) {
    auto menu = std::make_unique<QMenu>(this);
    menu->setToolTipsVisible(true);
    for (const QString& action : contextActionsFor(provider)) {
        QAction* item = menu->addAction(action);
        if (action == tr("Rescan")) {
            item->setIcon(Symbols::icon("arrow.clockwise"));
            connect(item, &QAction::triggered, this,
                    [this, provider] { emit rescanRequested(provider); });
        } else if (action == tr("Reveal in Browser")) {
            item->setIcon(Symbols::icon("globe"));
            connect(item, &QAction::triggered, this,
                    [this, provider] { emit revealInBrowserRequested(provider); });
        } else if (action == tr("Add Another Account…")) {
            item->setIcon(Symbols::icon("plus"));
            connect(item, &QAction::triggered, this,
                    [this, provider] { emit addAnotherRequested(provider); });
        } else if (action == tr("List One Folder at a Time")) {
            // A setting of the account, which its next scan follows.
            menu->insertSeparator(item);
            item->setCheckable(true);
            item->setChecked(viewModel_.listsOneFolderAtATime(provider->remoteID()));
            item->setToolTip(oneFolderAtATimeExplanation());
            item->setStatusTip(oneFolderAtATimeExplanation());
            connect(item, &QAction::toggled, this, [this, id = provider->remoteID()](bool on) {
                viewModel_.setListsOneFolderAtATime(id, on);
            });
        } else {
            menu->addSeparator();
            menu->removeAction(item);
            menu->addAction(item);
            connect(item, &QAction::triggered, this,
                    [this, provider] { emit removeRequested(provider); });
        }
    }
    return menu;
}

} // namespace brimvale
