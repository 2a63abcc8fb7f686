#pragma once

#include "core/coordinator/ScannerState.h"

#include <QTimer>
#include <QWidget>

#include <memory>

class QListView;
class QMenu;
class QPushButton;
class QToolButton;

namespace brimvale {

class ScannerViewModel;
class SidebarModel;
class ViewModelSignals;

// The list of accounts beside the detail area, with "Add account…", the local account's
// "Choose disk or folder…" and "Refresh accounts" under it. It follows the coordinator (rows,
// the active one, every account's state at a glance) and reports what the user asks for;
// the main window turns requests into coordinator calls.
class AccountSidebar final : public QWidget {
    Q_OBJECT
public:
    AccountSidebar(ScannerViewModel& viewModel, ViewModelSignals& bridge,
                   QWidget* parent = nullptr);

    QListView* list() const { return list_; }
    SidebarModel* model() const { return model_; }
    QPushButton* addAccountButton() const { return addAccount_; }
    QPushButton* chooseFolderButton() const { return chooseFolder_; }
    QToolButton* refreshButton() const { return refresh_; }

    // The local account the folder button acts on: the active one when it is local, else the
    // first local row.
    ProviderRef localProvider() const;
    // The actions the context menu offers for a row, in order (for tests): "Rescan",
    // "Reveal in Browser", "Add Another Account…", "List One Folder at a Time" (cloud accounts;
    // checkable), "Remove Account…", as applicable.
    QStringList contextActionsFor(const ProviderRef& provider) const;
    // The context menu of a row, as a right click shows it.
    std::unique_ptr<QMenu> contextMenuFor(const ProviderRef& provider);
    static QString oneFolderAtATimeExplanation();
    // The account's page in its provider's web interface, when it has one.
    std::optional<std::string> accountWebURL(const ProviderRef& provider) const;

signals:
    void accountActivated(const brimvale::ProviderRef& provider);
    void addAccountRequested();
    void chooseLocalFolderRequested(const brimvale::ProviderRef& provider);
    void refreshRequested();
    void rescanRequested(const brimvale::ProviderRef& provider);
    void revealInBrowserRequested(const brimvale::ProviderRef& provider);
    void removeRequested(const brimvale::ProviderRef& provider);
    void addAnotherRequested(const brimvale::ProviderRef& provider);

private:
    void reload();
    void showContextMenu(const QPoint& position);

    ScannerViewModel& viewModel_;
    SidebarModel* model_;
    QListView* list_;
    QPushButton* addAccount_;
    QPushButton* chooseFolder_;
    QToolButton* refresh_;
    QTimer spinnerTimer_;
    bool syncingSelection_ = false;
};

} // namespace brimvale
