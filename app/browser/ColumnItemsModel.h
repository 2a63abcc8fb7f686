#pragma once

#include "core/model/FileNode.h"
#include "core/persistence/history/ChangeIndex.h"

#include <QAbstractListModel>
#include <QUrl>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace brimvale {

// One column of the browser: the children of one folder, largest first, read from the tree on
// demand (nothing is copied but, for a folder whose children are not in size order yet, as
// during a live scan, one index per child). The long tail of small items is folded behind a
// last "N smaller items" row (ColumnTailSplit), which reveals more items when activated.
// GUI thread only.
class ColumnItemsModel final : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        NodeRole = Qt::UserRole + 1, // const FileNode* (as a pointer value); null for the tail
        SizeTextRole,                // the formatted size
        FractionRole,                // share of the parent, 0…1
        IsDirectoryRole,
        IsTailRowRole,
        ChangeTextRole, // "+1.2 GB", "−300 MB", "new"; empty without a change
        ChangeKindRole, // int(ChangeKind) of the item's change; none without one
    };

    // How many items one activation of the tail row reveals at least: the shown count doubles,
    // and never grows by fewer than this.
    static constexpr std::size_t kRevealStep = 100;

    explicit ColumnItemsModel(QObject* parent = nullptr);

    // Lists the children of `folder` (null: nothing), folding anew.
    void setParentNode(FileNodeRef folder);
    const FileNodeRef& parentNode() const { return folder_; }
    // The folder's children changed in place (a live scan): re-read them. Folding starts anew
    // only when the set of items changed.
    void refresh();

    // What changed since an earlier scan (null: nothing shown), and whether the items are
    // ordered by the size of their change (largest first) rather than by size.
    void setChanges(std::shared_ptr<const ChangeIndex> changes, bool sortByChange);
    bool hasChanges() const { return changes_ != nullptr; }

    // Drag support: the address an item is dragged as (a local file, a cloud page); may be
    // empty for items without one.
    void setDragURLMaker(std::function<QUrl(const FileNode&)> maker) {
        dragURLMaker_ = std::move(maker);
    }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

    // The node of a row, or null (the tail row, or a row past the end).
    FileNode* nodeAt(int row) const;
    FileNodeRef nodeRefAt(int row) const;
    // The row of `node`; -1 when it is not an item of this column. A hidden item is revealed
    // first when `revealIfHidden`.
    int rowOf(const FileNode* node, bool revealIfHidden);
    bool isTailRow(int row) const;
    bool hasTailRow() const { return hiddenCount() > 0; }
    int tailRow() const;

    std::size_t itemCount() const { return order_.empty() ? identityCount_ : order_.size(); }
    std::size_t splitIndex() const { return split_; }
    std::size_t revealedCount() const { return revealed_; }
    std::size_t visibleCount() const;
    std::size_t hiddenCount() const { return itemCount() - visibleCount(); }
    std::int64_t hiddenBytes() const { return hiddenBytes_; }
    // The formatted size of the first (largest) item; empty for an empty column. The rows'
    // shared size column is measured on it.
    QString firstItemSizeText() const;

    // Activation of the tail row: reveals the next items.
    void revealMore();

signals:
    // The rows were re-read (new folder, refresh or reveal): views re-apply their selection.
    void itemsReset();

private:
    struct Snapshot {
        std::vector<std::uint32_t> order; // empty: the children's own order
        std::size_t count = 0;
        std::size_t split = 0;
        std::uint64_t key = 0;
    };
    Snapshot readChildren() const;
    void applySnapshot(Snapshot snapshot, bool keepRevealed);
    void recomputeHiddenBytes();
    FileNode* item(std::size_t position) const;

    FileNodeRef folder_;
    std::vector<std::uint32_t> order_; // display position → child index, when not identity
    std::size_t identityCount_ = 0;    // the item count when order_ is empty
    std::size_t split_ = 0;
    std::size_t revealed_ = 0;
    std::uint64_t itemsKey_ = 0;
    std::int64_t hiddenBytes_ = 0;
    std::function<QUrl(const FileNode&)> dragURLMaker_;
    std::shared_ptr<const ChangeIndex> changes_;
    bool sortByChange_ = false;
};

} // namespace brimvale
