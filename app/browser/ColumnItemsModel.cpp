#include "app/browser/ColumnItemsModel.h"

#include "app/support/WidgetText.h"
#include "core/model/ColumnTailSplit.h"
#include "core/model/SizeFormatter.h"
#include "core/support/FatalError.h"

#include <QMimeData>

#include <algorithm>
#include <limits>
#include <numeric>

namespace brimvale {

ColumnItemsModel::ColumnItemsModel(QObject* parent)
    : QAbstractListModel(parent) {}

FileNode* ColumnItemsModel::item(std::size_t position) const {
    if (!folder_) {
        return nullptr;
    }
    const auto& children = folder_->children();
    std::size_t index = position;
    if (!order_.empty()) {
        if (position >= order_.size()) {
            return nullptr;
        }
        index = order_[position];
    }
    // The tree may have changed since the last refresh; never read past its end.
    return index < children.size() ? children[index].get() : nullptr;
}

ColumnItemsModel::Snapshot ColumnItemsModel::readChildren() const {
    Snapshot snapshot;
    if (!folder_) {
        snapshot.split = ColumnTailSplit::kNoSplit;
        return snapshot;
    }
    const auto& children = folder_->children();
    snapshot.count = children.size();
    bool sorted = true;
    for (std::size_t index = 1; index < children.size() && sorted; ++index) {
        sorted = children[index - 1]->size() >= children[index]->size();
    }
    if (sortByChange_ && changes_) {
        // Largest change first; items without one keep their order after them.
        std::vector<std::uint64_t> magnitudes(children.size(), 0);
        for (std::size_t index = 0; index < children.size(); ++index) {
            const ScanChange* change = changes_->find(*children[index]);
            magnitudes[index] = change == nullptr ? 0
                                : change->kind == ChangeKind::added
                                    ? static_cast<std::uint64_t>(change->after)
                                    : change->sizeChangeMagnitude();
        }
        snapshot.order.resize(children.size());
        std::iota(snapshot.order.begin(), snapshot.order.end(), 0U);
        std::stable_sort(snapshot.order.begin(), snapshot.order.end(),
                         [&](std::uint32_t a, std::uint32_t b) {
                             if (magnitudes[a] != magnitudes[b]) {
                                 return magnitudes[a] > magnitudes[b];
                             }
                             return children[a]->size() > children[b]->size();
                         });
    } else if (!sorted) {
        // A live tree is sorted only at its end; show it largest first meanwhile.
        snapshot.order.resize(children.size());
        std::iota(snapshot.order.begin(), snapshot.order.end(), 0U);
        std::stable_sort(snapshot.order.begin(), snapshot.order.end(),
                         [&](std::uint32_t a, std::uint32_t b) {
                             return children[a]->size() > children[b]->size();
                         });
    }
    // The set of items, whatever their order: sizes change during a scan, the items do not.
    std::uint64_t key = children.size();
    for (const auto& child : children) {
        const NodeID id = child->id();
        std::uint64_t mixed = (id.high ^ (id.low * 0x9e3779b97f4a7c15ULL)) + 0x9e3779b97f4a7c15ULL;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL;
        key += mixed ^ (mixed >> 27);
    }
    snapshot.key = key;
    const auto& order = snapshot.order;
    snapshot.split = ColumnTailSplit::computeSplitIndex(
        children.size(), [&](std::size_t position) -> const FileNode& {
            return *children[order.empty() ? position : order[position]];
        });
    return snapshot;
}

std::size_t ColumnItemsModel::visibleCount() const {
    const std::size_t count = itemCount();
    if (split_ == ColumnTailSplit::kNoSplit) {
        return count;
    }
    return std::min(count, split_ + revealed_);
}

int ColumnItemsModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid()) {
        return 0;
    }
    const std::size_t rows = visibleCount() + (hiddenCount() > 0 ? 1 : 0);
    return static_cast<int>(std::min<std::size_t>(rows, std::numeric_limits<int>::max()));
}

int ColumnItemsModel::tailRow() const {
    return hasTailRow() ? static_cast<int>(visibleCount()) : -1;
}

bool ColumnItemsModel::isTailRow(int row) const {
    return hasTailRow() && row == tailRow();
}

FileNode* ColumnItemsModel::nodeAt(int row) const {
    if (row < 0 || static_cast<std::size_t>(row) >= visibleCount()) {
        return nullptr;
    }
    return item(static_cast<std::size_t>(row));
}

FileNodeRef ColumnItemsModel::nodeRefAt(int row) const {
    return FileNodeRef(nodeAt(row));
}

int ColumnItemsModel::rowOf(const FileNode* node, bool revealIfHidden) {
    if (node == nullptr) {
        return -1;
    }
    const std::size_t count = itemCount();
    for (std::size_t position = 0; position < count; ++position) {
        if (item(position) != node) {
            continue;
        }
        if (position >= visibleCount()) {
            if (!revealIfHidden) {
                return -1;
            }
            const std::size_t oldRows = static_cast<std::size_t>(rowCount());
            revealed_ = position + 1 - std::min(position + 1, split_);
            recomputeHiddenBytes();
            const auto newRows = static_cast<std::size_t>(rowCount());
            if (newRows > oldRows) {
                beginInsertRows({}, static_cast<int>(oldRows), static_cast<int>(newRows) - 1);
                endInsertRows();
            } else if (newRows < oldRows) {
                beginRemoveRows({}, static_cast<int>(newRows), static_cast<int>(oldRows) - 1);
                endRemoveRows();
            }
            emit dataChanged(index(0), index(std::max(0, rowCount() - 1)));
        }
        return static_cast<int>(position);
    }
    return -1;
}

QVariant ColumnItemsModel::data(const QModelIndex& modelIndex, int role) const {
    if (!modelIndex.isValid()) {
        return {};
    }
    const int row = modelIndex.row();
    if (isTailRow(row)) {
        switch (role) {
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole:
            return qtText(
                ColumnTailSplit::smallerItemsLabel(static_cast<std::int64_t>(hiddenCount())));
        case SizeTextRole:
            return qtText(formatBytes(hiddenBytes_));
        case IsTailRowRole:
            return true;
        case IsDirectoryRole:
            return false;
        case FractionRole:
            return 0.0;
        case NodeRole:
            return QVariant::fromValue<quintptr>(0);
        default:
            return {};
        }
    }
    const FileNode* node = nodeAt(row);
    if (node == nullptr) {
        return {};
    }
    switch (role) {
    case Qt::DisplayRole:
        // No tooltip: the hover chip shows the whole name of a row too narrow for it.
        return qtText(node->name());
    case Qt::AccessibleTextRole:
        return qtText(std::string(node->name()) + ", " + node->formattedSize());
    case SizeTextRole:
        return qtText(node->formattedSize());
    case FractionRole:
        return std::clamp(node->fractionOfParent(), 0.0, 1.0);
    case IsDirectoryRole:
        return node->isDirectory();
    case IsTailRowRole:
        return false;
    case NodeRole:
        return QVariant::fromValue(reinterpret_cast<quintptr>(node));
    case ChangeTextRole:
        return changes_ ? qtText(ChangeIndex::text(changes_->find(*node))) : QString();
    case ChangeKindRole:
        if (const ScanChange* change = changes_ ? changes_->find(*node) : nullptr) {
            return static_cast<int>(change->kind);
        }
        return {};
    default:
        return {};
    }
}

Qt::ItemFlags ColumnItemsModel::flags(const QModelIndex& modelIndex) const {
    if (!modelIndex.isValid()) {
        return Qt::NoItemFlags;
    }
    if (isTailRow(modelIndex.row())) {
        return Qt::ItemIsEnabled;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}

QStringList ColumnItemsModel::mimeTypes() const {
    return {QStringLiteral("text/uri-list")};
}

QMimeData* ColumnItemsModel::mimeData(const QModelIndexList& indexes) const {
    QList<QUrl> urls;
    for (const auto& modelIndex : indexes) {
        const FileNode* node = nodeAt(modelIndex.row());
        if (node != nullptr && dragURLMaker_) {
            const QUrl url = dragURLMaker_(*node);
            if (!url.isEmpty()) {
                urls.push_back(url);
            }
        }
    }
    if (urls.isEmpty()) {
        return nullptr;
    }
    auto* mime = new QMimeData();
    mime->setUrls(urls);
    return mime;
}

QString ColumnItemsModel::firstItemSizeText() const {
    const FileNode* first = item(0);
    return first == nullptr ? QString() : qtText(first->formattedSize());
}

void ColumnItemsModel::recomputeHiddenBytes() {
    std::int64_t bytes = 0;
    const std::size_t count = itemCount();
    for (std::size_t position = visibleCount(); position < count; ++position) {
        if (const FileNode* node = item(position)) {
            bytes = checkedAdd(bytes, node->size(), "size overflow in a browser column");
        }
    }
    hiddenBytes_ = bytes;
}

void ColumnItemsModel::applySnapshot(Snapshot snapshot, bool keepRevealed) {
    const int oldRows = rowCount();
    order_ = std::move(snapshot.order);
    identityCount_ = snapshot.count;
    split_ = snapshot.split;
    itemsKey_ = snapshot.key;
    if (!keepRevealed) {
        revealed_ = 0;
    }
    recomputeHiddenBytes();
    const int newRows = rowCount();
    // Rows are slots: the ones that stay are updated in place, so the view keeps its scroll
    // position.
    if (newRows > oldRows) {
        beginInsertRows({}, oldRows, newRows - 1);
        endInsertRows();
    } else if (newRows < oldRows) {
        beginRemoveRows({}, newRows, oldRows - 1);
        endRemoveRows();
    }
    if (newRows > 0) {
        emit dataChanged(index(0), index(newRows - 1));
    }
    emit itemsReset();
}

void ColumnItemsModel::setParentNode(FileNodeRef folder) {
    if (folder == folder_) {
        refresh();
        return;
    }
    beginResetModel();
    folder_ = std::move(folder);
    Snapshot snapshot = readChildren();
    order_ = std::move(snapshot.order);
    identityCount_ = snapshot.count;
    split_ = snapshot.split;
    itemsKey_ = snapshot.key;
    revealed_ = 0;
    recomputeHiddenBytes();
    endResetModel();
    emit itemsReset();
}

void ColumnItemsModel::setChanges(std::shared_ptr<const ChangeIndex> changes, bool sortByChange) {
    if (changes == changes_ && sortByChange == sortByChange_) {
        return;
    }
    changes_ = std::move(changes);
    sortByChange_ = sortByChange;
    applySnapshot(readChildren(), true);
}

void ColumnItemsModel::refresh() {
    Snapshot snapshot = readChildren();
    const bool sameItems = snapshot.key == itemsKey_;
    applySnapshot(std::move(snapshot), sameItems);
}

void ColumnItemsModel::revealMore() {
    if (hiddenCount() == 0) {
        return;
    }
    const std::size_t shown = visibleCount();
    const std::size_t step = std::max(kRevealStep, shown);
    const int oldRows = rowCount();
    revealed_ += step;
    recomputeHiddenBytes();
    const int newRows = rowCount();
    if (newRows > oldRows) {
        beginInsertRows({}, oldRows, newRows - 1);
        endInsertRows();
    } else if (newRows < oldRows) {
        beginRemoveRows({}, newRows, oldRows - 1);
        endRemoveRows();
    }
    emit dataChanged(index(0), index(std::max(0, newRows - 1)));
    emit itemsReset();
}

} // namespace brimvale
