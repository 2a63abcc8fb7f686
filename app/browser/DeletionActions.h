#pragma once

#include "core/cleanup/ItemDeletion.h"
#include "core/model/FileNode.h"

#include <memory>
#include <string>
#include <vector>

class QMenu;
class QMessageBox;
class QWidget;

namespace brimvale {

class ScannerViewModel;

// The deletion items of a row menu, acting on `nodes` (the selected rows of one column):
// "Move to Trash" and "Delete Permanently…" for a local account, "Delete…" for a cloud
// account. The items ending in "…" ask first. `enabled`: the tree is the account's finished
// tree and no deletion of the account runs. GUI thread only.
void addDeletionActions(QMenu& menu, ScannerViewModel& viewModel,
                        const std::vector<FileNodeRef>& nodes, bool enabled, QWidget* dialogParent);

// The question asked before a permanent or cloud deletion; Cancel is the default button.
std::unique_ptr<QMessageBox> deletionConfirmation(QWidget* parent, DeletionMethod method,
                                                  const std::vector<DeletionItem>& items,
                                                  const std::string& accountName,
                                                  const std::string& rcloneType);

} // namespace brimvale
