#include "app/browser/ColumnBrowser.h"

#include "app/browser/ColumnItemsModel.h"
#include "app/browser/ColumnListView.h"
#include "app/browser/ColumnResizeSplitter.h"
#include "app/browser/ColumnRowDelegate.h"
#include "app/browser/DeletionActions.h"
#include "app/browser/HoverNameChip.h"
#include "app/browser/PreviewPanel.h"
#include "app/browser/SelectionDebouncer.h"
#include "app/support/ExternalOpen.h"
#include "app/support/Symbols.h"
#include "app/support/TreeViewDiagnostics.h"
#include "app/support/WidgetText.h"
#include "core/coordinator/ScannerViewModel.h"

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>

namespace brimvale {

ColumnBrowser::ColumnBrowser(ScannerViewModel& viewModel, QWidget* parent)
    : QWidget(parent)
    , viewModel_(viewModel)
    , debouncer_(std::make_unique<SelectionDebouncer>(
          [this](FileNodeRef node) {
              TreeViewDiagnostics::trace("publish selection " +
                                         (node ? std::string(node->name()) : std::string("nil")));
              viewModel_.select(std::move(node));
          },
          this)) {
    setAccessibleName(tr("Column browser"));
    if (TreeViewDiagnostics::traceEnabled()) {
        state_.setTrace([](std::string_view line) { TreeViewDiagnostics::trace(line); });
    }

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    scrollArea_ = new QScrollArea(this);
    scrollArea_->setFrameShape(QFrame::NoFrame);
    scrollArea_->setWidgetResizable(true);
    scrollArea_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollArea_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    scrollArea_->setBackgroundRole(QPalette::Base);
    strip_ = new QWidget(scrollArea_);
    strip_->setBackgroundRole(QPalette::Base);
    strip_->setAutoFillBackground(true);
    stripLayout_ = new QHBoxLayout(strip_);
    stripLayout_->setContentsMargins(0, 0, 0, 0);
    stripLayout_->setSpacing(0);
    stripLayout_->addStretch(1);
    scrollArea_->setWidget(strip_);
    QScrollBar* horizontal = scrollArea_->horizontalScrollBar();
    connect(horizontal, &QScrollBar::rangeChanged, this, [this, horizontal](int, int maximum) {
        if (keepEndInView_) {
            horizontal->setValue(maximum);
        }
    });
    connect(horizontal, &QScrollBar::actionTriggered, this, [this] { keepEndInView_ = false; });
    layout->addWidget(scrollArea_, 1);

    previewDivider_ = new QFrame(this);
    previewDivider_->setFrameShape(QFrame::VLine);
    previewDivider_->setFrameShadow(QFrame::Plain);
    previewDivider_->setFixedWidth(1);
    previewDivider_->setForegroundRole(QPalette::Mid);
    layout->addWidget(previewDivider_);
    preview_ = new PreviewPanel(ColumnBrowserState::previewPanelWidth, this);
    layout->addWidget(preview_);
    connect(preview_, &PreviewPanel::dismissRequested, this,
            [this] { setPreviewPaneVisible(false); });

    nameChip_ = new HoverNameChip(this);
    spinnerTimer_.setInterval(50);
    connect(&spinnerTimer_, &QTimer::timeout, this, [this] {
        for (const auto& column : columns_) {
            column.view->viewport()->update();
        }
    });
    updatePreview();
}

ColumnBrowser::~ColumnBrowser() = default;

ColumnListView* ColumnBrowser::columnView(int depth) const {
    if (depth < 0 || depth >= columnCount()) {
        return nullptr;
    }
    return columns_[static_cast<std::size_t>(depth)].view;
}

ColumnItemsModel* ColumnBrowser::columnModel(int depth) const {
    if (depth < 0 || depth >= columnCount()) {
        return nullptr;
    }
    return columns_[static_cast<std::size_t>(depth)].model;
}

ColumnResizeSplitter* ColumnBrowser::splitter(int depth) const {
    if (depth < 0 || depth >= columnCount()) {
        return nullptr;
    }
    return columns_[static_cast<std::size_t>(depth)].splitter;
}

bool ColumnBrowser::isLocal() const {
    const ProviderRef& provider = viewModel_.activeProvider();
    return provider && provider->rcloneType() == "local";
}

void ColumnBrowser::setRoot(FileNodeRef root) {
    QElapsedTimer timer;
    timer.start();
    const bool sameRoot = root == state_.root();
    const bool pathChanged = state_.replaceRoot(std::move(root));
    if (sameRoot) {
        // The tree changed in place: every column re-reads its folder.
        for (auto& column : columns_) {
            column.model->refresh();
        }
    }
    bool selectedFirst = state_.selectFirstRootChildIfNeeded();
    if (selectedFirst) {
        selectionIsAutomatic_ = true;
    } else if (sameRoot && selectionIsAutomatic_ && state_.columnPath().size() == 1) {
        const FileNodeRef largest = ColumnBrowserState::firstChildInDisplayOrder(*state_.root());
        if (largest && largest != state_.columnPath().front()) {
            selectedFirst = state_.setSelection(0, largest, ColumnBrowserState::Origin::automatic);
        }
    }
    syncColumns(false);
    if (pathChanged || selectedFirst) {
        pathDidChange(true);
    }
    TreeViewDiagnostics::debug((sameRoot ? "refresh " : "root ") + std::to_string(columnCount()) +
                               " columns in " + std::to_string(timer.nsecsElapsed() / 1000) +
                               " us");
}

void ColumnBrowser::clear() {
    state_.forgetChosenPath();
    setRoot({});
}

void ColumnBrowser::setChanges(std::shared_ptr<const ChangeIndex> changes, bool sortByChange) {
    changes_ = std::move(changes);
    sortByChange_ = sortByChange;
    for (int depth = 0; depth < columnCount(); ++depth) {
        const Column& column = columns_[static_cast<std::size_t>(depth)];
        column.model->setChanges(changes_, sortByChange_);
        applyColumnWidth(depth);
        column.view->viewport()->update();
    }
}

ColumnBrowser::Column ColumnBrowser::makeColumn(int depth) {
    Column column;
    column.model = new ColumnItemsModel(this);
    column.model->setChanges(changes_, sortByChange_);
    column.model->setDragURLMaker([this](const FileNode& node) {
        return ExternalOpen::openURL(node, isLocal(), viewModel_.webURL(node));
    });
    column.view = new ColumnListView(depth, strip_);
    column.view->setItemsModel(column.model);
    column.view->setBusyFolders(&refreshingFolders_);
    column.view->keyHandler = [this](ColumnListView& view, QKeyEvent& event) {
        return handleColumnKey(view, event);
    };
    column.view->rowClicked = [this](ColumnListView& view, int row) {
        activateRow(view, row);
    };
    column.view->rowDoubleClicked = [this](ColumnListView& view, int row) {
        openRow(view, row);
    };
    column.view->contextMenuAt = [this](ColumnListView& view, int row, const QPoint& position) {
        showRowMenu(view, row, position);
    };
    column.view->hoverChanged = [this](ColumnListView& view, int row, const QRect& rect,
                                       bool elided) {
        showNameChip(view, row, rect, elided);
    };
    connect(column.model, &ColumnItemsModel::itemsReset, column.view,
            [view = column.view] { view->updateSizeColumnWidth(); });
    column.splitter = new ColumnResizeSplitter(ColumnBrowserState::minColumnWidth,
                                               ColumnBrowserState::maxColumnWidth, strip_);
    column.splitter->leadingWidth = [this, depth] {
        return state_.columnWidth(depth);
    };
    column.splitter->setLeadingWidth = [this, depth](int width) {
        state_.setColumnWidth(depth, width);
        applyColumnWidth(depth);
    };
    // Before the trailing stretch.
    const int position = stripLayout_->count() - 1;
    stripLayout_->insertWidget(position, column.view);
    stripLayout_->insertWidget(position + 1, column.splitter);
    return column;
}

void ColumnBrowser::applyColumnWidth(int depth) {
    if (ColumnListView* view = columnView(depth)) {
        // The change since an earlier scan takes room of its own, not the names'.
        const int changeRoom =
            changes_ ? ColumnRowDelegate::changeColumnWidth(view->font()) + ColumnRowDelegate::kGap
                     : 0;
        view->setFixedWidth(state_.columnWidth(depth) + changeRoom);
    }
}

void ColumnBrowser::syncColumns(bool scrollToEnd) {
    const std::vector<FileNodeRef> parents = state_.columnParents();
    const int count = static_cast<int>(parents.size());
    state_.syncColumnWidthsToColumnCount(count);
    state_.syncKeyboardColumnToTreeFocus(count);
    while (columnCount() > count) {
        Column column = columns_.back();
        columns_.pop_back();
        // Later: the column may be the one whose event is being handled.
        for (QWidget* widget :
             {static_cast<QWidget*>(column.view), static_cast<QWidget*>(column.splitter)}) {
            widget->hide();
            stripLayout_->removeWidget(widget);
            widget->deleteLater();
        }
        column.view->keyHandler = nullptr;
        column.view->rowClicked = nullptr;
        column.view->rowDoubleClicked = nullptr;
        column.view->contextMenuAt = nullptr;
        column.view->hoverChanged = nullptr;
        column.model->deleteLater();
    }
    for (int depth = 0; depth < count; ++depth) {
        if (depth >= columnCount()) {
            columns_.push_back(makeColumn(depth));
        }
        Column& column = columns_[static_cast<std::size_t>(depth)];
        if (column.model->parentNode() != parents[static_cast<std::size_t>(depth)]) {
            column.model->setParentNode(parents[static_cast<std::size_t>(depth)]);
        }
        applyColumnWidth(depth);
    }
    const int keyboardColumn = state_.keyboardColumn();
    for (int depth = 0; depth < count; ++depth) {
        Column& column = columns_[static_cast<std::size_t>(depth)];
        const FileNodeRef selected = state_.selection(depth);
        column.view->showSelectedRow(column.model->rowOf(selected.get(), true));
        column.view->setExpandedNode(
            depth + 1 < count ? parents[static_cast<std::size_t>(depth) + 1].get() : nullptr);
        column.view->setColumnFocused(depth == keyboardColumn);
    }
    if (scrollToEnd || keyboardColumn != lastKeyboardColumn_) {
        scheduleHorizontalScroll();
    }
    lastKeyboardColumn_ = keyboardColumn;
    updatePreview();
}

void ColumnBrowser::scheduleHorizontalScroll() {
    // On the next turn of the loop, after the strip's layout took the new columns; a newer
    // request replaces a pending one.
    keepEndInView_ = true;
    if (horizontalScrollPending_) {
        return;
    }
    horizontalScrollPending_ = true;
    QTimer::singleShot(0, this, [this] {
        horizontalScrollPending_ = false;
        if (columns_.empty()) {
            return;
        }
        // The strip takes its new width from posted layout requests; settle them first.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QScrollBar* bar = scrollArea_->horizontalScrollBar();
        bar->setValue(bar->maximum());
    });
}

void ColumnBrowser::pathDidChange(bool scrollToEnd) {
    syncColumns(scrollToEnd);
    debouncer_->schedulePublish([this] { return state_.deepestSelection(); });
    emit pathChanged();
}

bool ColumnBrowser::previewPanelShown() const {
    return previewPaneVisible_ && !previewHeldBack_ && state_.deepestSelection() != nullptr;
}

void ColumnBrowser::setPreviewHeldBack(bool heldBack) {
    if (previewHeldBack_ != heldBack) {
        previewHeldBack_ = heldBack;
        updatePreview();
    }
}

void ColumnBrowser::setPreviewPaneVisible(bool visible) {
    if (previewPaneVisible_ == visible) {
        return;
    }
    previewPaneVisible_ = visible;
    updatePreview();
    emit previewPaneVisibilityChanged(visible);
}

void ColumnBrowser::updatePreview() {
    const FileNodeRef deepest = state_.deepestSelection();
    const bool shown = previewPaneVisible_ && !previewHeldBack_ && deepest;
    if (shown && (preview_->node() != deepest || preview_->isStale())) {
        preview_->setNode(deepest);
    }
    preview_->setVisible(shown);
    previewDivider_->setVisible(shown);
}

void ColumnBrowser::selectNode(int depth, const FileNodeRef& node) {
    selectionIsAutomatic_ = false;
    const int before = columnCount();
    if (state_.setSelection(depth, node)) {
        if (!previewPaneVisible_) {
            setPreviewPaneVisible(true);
        }
        pathDidChange(columnCount() > before);
    } else {
        syncColumns(false);
    }
}

void ColumnBrowser::selectPath(const FileNodeRef& node) {
    std::vector<FileNodeRef> chain;
    for (FileNode* at = node.get(); at != nullptr && at != state_.root().get(); at = at->parent()) {
        chain.push_back(FileNodeRef(at));
    }
    if (chain.empty() || chain.back()->parent() != state_.root().get()) {
        return;
    }
    selectionIsAutomatic_ = false;
    const int before = columnCount();
    bool changed = false;
    for (int depth = 0; depth < static_cast<int>(chain.size()); ++depth) {
        changed =
            state_.setSelection(depth, chain[chain.size() - 1 - static_cast<std::size_t>(depth)]) ||
            changed;
    }
    if (changed) {
        pathDidChange(columnCount() > before);
    }
}

void ColumnBrowser::activateRow(ColumnListView& view, int row) {
    ColumnItemsModel* model = view.itemsModel();
    nameChip_->dismiss();
    if (model->isTailRow(row)) {
        model->revealMore();
        state_.focusColumn(view.depth());
        syncColumns(false);
        return;
    }
    FileNodeRef node = model->nodeRefAt(row);
    if (!node) {
        return;
    }
    // Selecting any item shows the preview again.
    if (!previewPaneVisible_) {
        setPreviewPaneVisible(true);
    }
    selectNode(view.depth(), node);
}

void ColumnBrowser::openRow(ColumnListView& view, int row) {
    FileNodeRef node = view.itemsModel()->nodeRefAt(row);
    if (!node) {
        return;
    }
    if (node->isDirectory()) {
        // A folder opens in the next column, with the keyboard there.
        selectNode(view.depth(), node);
        if (state_.handleKey(ColumnBrowserState::Key::right)) {
            pathDidChange(true);
            if (ColumnListView* next = columnView(state_.keyboardColumn())) {
                next->setFocus(Qt::OtherFocusReason);
            }
        }
        return;
    }
    ExternalOpen::openInDesktop(ExternalOpen::openURL(*node, isLocal(), viewModel_.webURL(*node)));
}

void ColumnBrowser::openSelectionExternally() {
    const FileNodeRef node = state_.selection(state_.keyboardColumn());
    const FileNodeRef target = node ? node : state_.deepestSelection();
    if (!target) {
        return;
    }
    TreeViewDiagnostics::trace("keyPress cmd+down openExternal");
    ExternalOpen::openInDesktop(
        ExternalOpen::revealURL(*target, isLocal(), viewModel_.webURL(*target)));
}

bool ColumnBrowser::handleColumnKey(ColumnListView& view, QKeyEvent& event) {
    const Qt::KeyboardModifiers modifiers =
        event.modifiers() &
        (Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier);
    // Keys act on the column that has the keyboard.
    state_.focusColumn(view.depth());
    selectionIsAutomatic_ = false;
    if (event.key() == Qt::Key_Down && modifiers == Qt::ControlModifier) {
        openSelectionExternally();
        return true;
    }
    if (modifiers != Qt::NoModifier && modifiers != Qt::KeypadModifier) {
        return false;
    }
    switch (event.key()) {
    case Qt::Key_Left:
    case Qt::Key_Right: {
        const bool handled =
            state_.handleKey(event.key() == Qt::Key_Left ? ColumnBrowserState::Key::left
                                                         : ColumnBrowserState::Key::right);
        if (handled) {
            pathDidChange(event.key() == Qt::Key_Right);
            if (ColumnListView* target = columnView(state_.keyboardColumn())) {
                target->setFocus(Qt::OtherFocusReason);
            }
        } else {
            syncColumns(false);
        }
        // A key that did nothing is still the browser's: it must not scroll the list.
        return true;
    }
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_Home:
    case Qt::Key_End:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
        moveWithinColumn(view.depth(), event.key());
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter: {
        const FileNodeRef selected = state_.selection(view.depth());
        if (selected) {
            const int row = view.itemsModel()->rowOf(selected.get(), true);
            openRow(view, row);
        }
        return true;
    }
    default:
        return false;
    }
}

bool ColumnBrowser::moveWithinColumn(int depth, int key) {
    ColumnListView* view = columnView(depth);
    if (view == nullptr) {
        return false;
    }
    ColumnItemsModel* model = view->itemsModel();
    const int visible = static_cast<int>(model->visibleCount());
    if (model->itemCount() == 0) {
        return false;
    }
    const FileNodeRef selected = state_.selection(depth);
    const int current = selected ? model->rowOf(selected.get(), true) : -1;
    const int rowHeight = std::max(1, view->sizeHintForRow(0));
    const int page = std::max(1, view->viewport()->height() / rowHeight - 1);
    int target = current;
    switch (key) {
    case Qt::Key_Up:
        target = current < 0 ? 0 : current - 1;
        break;
    case Qt::Key_Down:
        target = current + 1;
        break;
    case Qt::Key_Home:
        target = 0;
        break;
    case Qt::Key_End:
        target = visible - 1;
        break;
    case Qt::Key_PageUp:
        target = std::max(0, current - page);
        break;
    case Qt::Key_PageDown:
        target = current + page;
        break;
    default:
        return false;
    }
    // Moving past the last shown item reveals the folded ones (up and down stop at the ends).
    if (target >= visible && model->hasTailRow() && key != Qt::Key_End) {
        model->revealMore();
    }
    target = std::clamp(target, 0, static_cast<int>(model->visibleCount()) - 1);
    if (target == current) {
        syncColumns(false);
        return false;
    }
    selectNode(depth, model->nodeRefAt(target));
    view->scrollTo(model->index(target), QAbstractItemView::EnsureVisible);
    return true;
}

void ColumnBrowser::showRowMenu(ColumnListView& view, int row, const QPoint& globalPosition) {
    FileNodeRef node = view.itemsModel()->nodeRefAt(row);
    if (!node) {
        return;
    }
    // A right click inside a selection of several rows keeps it; anywhere else it selects
    // the row.
    std::vector<FileNodeRef> selection;
    const QModelIndexList selected = view.selectionModel()->selectedRows();
    if (selected.size() > 1 && view.selectionModel()->isSelected(view.model()->index(row, 0))) {
        for (const QModelIndex& index : selected) {
            if (FileNodeRef chosen = view.itemsModel()->nodeRefAt(index.row())) {
                selection.push_back(std::move(chosen));
            }
        }
    } else {
        activateRow(view, row);
    }
    rowMenu(node, std::move(selection))->exec(globalPosition);
}

std::unique_ptr<QMenu> ColumnBrowser::rowMenu(const FileNodeRef& node,
                                              std::vector<FileNodeRef> selection) {
    auto menu = std::make_unique<QMenu>(this);
    menu->setToolTipsVisible(true);
    const bool local = isLocal();
    const std::optional<std::string> web = viewModel_.webURL(*node);
    if (!node->isDirectory()) {
        QAction* open = menu->addAction(tr("Open"));
        open->setEnabled(local || web.has_value());
        connect(open, &QAction::triggered, this, [this, node, local] {
            ExternalOpen::openInDesktop(
                ExternalOpen::openURL(*node, local, viewModel_.webURL(*node)));
        });
    }
    QAction* reveal = menu->addAction(local ? tr("Show in File Manager") : tr("Open in Browser"));
    reveal->setShortcut(QKeySequence(Qt::ControlModifier | Qt::Key_Down));
    reveal->setEnabled(local || web.has_value());
    connect(reveal, &QAction::triggered, this, [this, node, local] {
        ExternalOpen::openInDesktop(
            ExternalOpen::revealURL(*node, local, viewModel_.webURL(*node)));
    });
    if (node->isDirectory()) {
        menu->addSeparator();
        QAction* rescan =
            menu->addAction(Symbols::icon("arrow.clockwise"), tr("Rescan This Folder"));
        const ProviderRef& account = viewModel_.activeProvider();
        const std::string path = node->path();
        // Only a finished tree is refreshed; a folder being rescanned is not asked again.
        const bool finishedTree =
            account && viewModel_.state().is<ScannerState::Done>() &&
            viewModel_.state().as<ScannerState::Done>()->root == state_.root();
        const bool running = refreshingFolders_.contains(path);
        rescan->setEnabled(finishedTree && !running);
        rescan->setToolTip(running ? tr("This folder is being rescanned")
                                   : tr("List this folder again and update its size; the rest "
                                        "of the tree stays as it is"));
        if (account) {
            connect(rescan, &QAction::triggered, this,
                    [this, id = account->remoteID(), path] { viewModel_.refreshFolder(id, path); });
        }
    }
    menu->addSeparator();
    QAction* copy = menu->addAction(local ? tr("Copy Path") : tr("Copy Link"));
    copy->setEnabled(local || web.has_value());
    connect(copy, &QAction::triggered, this, [this, node, local] {
        if (!local) {
            QApplication::clipboard()->setText(qtText(viewModel_.webURL(*node).value_or("")));
            return;
        }
        // The text shows bytes that are not UTF-8 as U+FFFD; the file address beside it keeps
        // them, for file managers and terminals that paste addresses.
        auto* copied = new QMimeData;
        copied->setText(qtText(ExternalOpen::localPath(*node)));
        copied->setUrls({ExternalOpen::openURL(*node, true, std::nullopt)});
        QApplication::clipboard()->setMimeData(copied);
    });
    if (selection.empty()) {
        selection.push_back(node);
    }
    const ProviderRef& account = viewModel_.activeProvider();
    const ItemDeletionState* deletion =
        account ? viewModel_.itemDeletion(account->remoteID()) : nullptr;
    const bool canDelete = account && viewModel_.state().is<ScannerState::Done>() &&
                           viewModel_.state().as<ScannerState::Done>()->root == state_.root() &&
                           (deletion == nullptr || !deletion->running);
    addDeletionActions(*menu, viewModel_, selection, canDelete, window());
    return menu;
}

void ColumnBrowser::setRefreshingFolders(std::set<std::string> folders) {
    if (folders == refreshingFolders_) {
        return;
    }
    refreshingFolders_ = std::move(folders);
    if (refreshingFolders_.empty()) {
        spinnerTimer_.stop();
    } else {
        spinnerTimer_.start();
    }
    for (const auto& column : columns_) {
        column.view->viewport()->update();
    }
}

void ColumnBrowser::showNameChip(ColumnListView& view, int row, const QRect& rowRect, bool elided) {
    if (row < 0 || !elided) {
        nameChip_->dismiss();
        return;
    }
    const QModelIndex index = view.model()->index(row, 0);
    QStyleOptionViewItem option;
    option.rect = rowRect;
    option.font = view.font();
    const QRect nameRect = ColumnRowDelegate::nameRect(option, index, view.sizeColumnWidth());
    const QPoint topLeft = view.viewport()->mapTo(this, nameRect.topLeft());
    const QRect frame(view.viewport()->mapTo(this, rowRect.topLeft()), rowRect.size());
    nameChip_->showFor(index.data(Qt::DisplayRole).toString(), frame, topLeft.x());
}

} // namespace brimvale
