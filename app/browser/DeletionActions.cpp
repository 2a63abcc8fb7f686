#include "app/browser/DeletionActions.h"

#include "app/support/WidgetText.h"
#include "core/cleanup/DeletionTexts.h"
#include "core/coordinator/ScannerViewModel.h"

#include <QMenu>
#include <QMessageBox>
#include <QPushButton>

namespace brimvale {
namespace {

std::string titleOf(DeletionMethod method) {
    switch (method) {
    case DeletionMethod::moveToTrash:
        return "Move to Trash";
    case DeletionMethod::deletePermanently:
        return "Delete Permanently";
    case DeletionMethod::deleteFromCloud:
        break;
    }
    return "Delete from the Account";
}

void confirmAndDelete(ScannerViewModel& viewModel, const ProviderRef& account,
                      const std::vector<std::string>& paths, DeletionMethod method,
                      QWidget* dialogParent) {
    const std::string id = account->remoteID();
    const std::vector<DeletionItem> items = viewModel.deletionItems(id, paths);
    if (items.empty()) {
        return;
    }
    if (method != DeletionMethod::moveToTrash) {
        const auto dialog = deletionConfirmation(dialogParent, method, items,
                                                 account->displayName(), account->rcloneType());
        dialog->exec();
        if (dialog->buttonRole(dialog->clickedButton()) != QMessageBox::DestructiveRole) {
            return;
        }
    }
    viewModel.deleteItems(id, paths, method);
}

} // namespace

std::unique_ptr<QMessageBox> deletionConfirmation(QWidget* parent, DeletionMethod method,
                                                  const std::vector<DeletionItem>& items,
                                                  const std::string& accountName,
                                                  const std::string& rcloneType) {
    auto dialog = std::make_unique<QMessageBox>(parent);
    dialog->setIcon(QMessageBox::Warning);
    dialog->setWindowTitle(qtText(titleOf(method)));
    const std::string question = deletionQuestion(method, items, accountName, rcloneType);
    const auto firstLineEnd = question.find('\n');
    dialog->setText(qtText(question.substr(0, firstLineEnd)));
    if (firstLineEnd != std::string::npos) {
        dialog->setInformativeText(qtText(question.substr(firstLineEnd + 1)));
    }
    QPushButton* remove = dialog->addButton(method == DeletionMethod::deletePermanently
                                                ? QObject::tr("Delete Permanently")
                                                : QObject::tr("Delete"),
                                            QMessageBox::DestructiveRole);
    remove->setObjectName("confirmDeletion");
    QPushButton* cancel = dialog->addButton(QMessageBox::Cancel);
    dialog->setDefaultButton(cancel);
    dialog->setEscapeButton(cancel);
    return dialog;
}

void addDeletionActions(QMenu& menu, ScannerViewModel& viewModel,
                        const std::vector<FileNodeRef>& nodes, bool enabled,
                        QWidget* dialogParent) {
    const ProviderRef account = viewModel.activeProvider();
    if (!account || nodes.empty()) {
        return;
    }
    std::vector<std::string> paths;
    for (const auto& node : nodes) {
        paths.push_back(node->path());
    }
    const QString count =
        nodes.size() == 1 ? QString() : QObject::tr(" (%1 Items)").arg(nodes.size());
    menu.addSeparator();
    const auto add = [&](const QString& text, DeletionMethod method) {
        QAction* action = menu.addAction(text + count);
        action->setEnabled(enabled);
        QObject::connect(
            action, &QAction::triggered, &menu, [&viewModel, account, paths, method, dialogParent] {
                // After the menu has closed.
                QMetaObject::invokeMethod(
                    dialogParent,
                    [&viewModel, account, paths, method, dialogParent] {
                        confirmAndDelete(viewModel, account, paths, method, dialogParent);
                    },
                    Qt::QueuedConnection);
            });
    };
    if (account->rcloneType() == "local") {
        add(QObject::tr("Move to Trash"), DeletionMethod::moveToTrash);
        add(QObject::tr("Delete Permanently\u2026"), DeletionMethod::deletePermanently);
    } else {
        add(QObject::tr("Delete\u2026"), DeletionMethod::deleteFromCloud);
    }
}

} // namespace brimvale
