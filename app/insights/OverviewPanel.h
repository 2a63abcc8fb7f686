#pragma once

#include "core/insights/NameIndex.h"
#include "core/model/FileNode.h"

#include <QFrame>
#include <QTimer>

#include <vector>

class QComboBox;
class QLabel;
class QTreeWidget;
class QTreeWidgetItem;

namespace brimvale {

// The pane at the right of the columns or the map that looks at the whole tree at once: the
// largest files, the space by kind of file and extension, or the items whose names match a
// search; over the whole scan or the selected folder. Each is computed again when its tree,
// scope or search changes (once the changes settle), on the GUI thread that owns the tree: a
// million items take about a tenth of a second for the totals and a few hundredths for a
// search, whose name index is built once per tree. GUI thread only.
class OverviewPanel final : public QFrame {
    Q_OBJECT
public:
    enum class Page { largestFiles, types, search };
    static constexpr int kLargestCount = 100;
    static constexpr int kSearchRows = 500;

    explicit OverviewPanel(QWidget* parent = nullptr);

    Page page() const { return page_; }
    void showPage(Page page);
    // The tree: a new one, or the same root changed in place (a live scan).
    void setTree(FileNodeRef root);
    // The folder the selection is in (its scope when "Selected folder" is chosen).
    void setSelectedFolder(FileNodeRef folder);
    void setSearchText(const QString& text);
    // Whether the whole scan is looked at (else the selected folder).
    void setWholeScan(bool whole);

    QTreeWidget* list() const { return list_; }
    QLabel* summary() const { return summary_; }
    // Computes now what a pending change asked for (tests; screenshots).
    void refreshNow();
    // Builds the search's index ahead of the first keystroke (the search field got the focus).
    void prepareSearch();

signals:
    void itemPicked(FileNodeRef node);
    void closeRequested();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    FileNodeRef scope() const;
    void scheduleRefresh(int delayMilliseconds);
    void showLargestFiles(const FileNode& folder);
    void showTypes(const FileNode& folder);
    void showSearch(const FileNodeRef& folder);
    void indexFolder(const FileNodeRef& folder);
    void dropSearchIndex();
    QTreeWidgetItem* itemRow(const FileNodeRef& node, const FileNode& folder);

    Page page_ = Page::largestFiles;
    FileNodeRef root_;
    FileNodeRef selectedFolder_;
    QString searchText_;
    QLabel* title_;
    QComboBox* scopeChoice_;
    QLabel* summary_;
    QTreeWidget* list_;
    QTimer refresh_;
    // The nodes of the rows listed (a row keeps its index): held, so a row clicked after its
    // item left the tree still names a live node.
    std::vector<FileNodeRef> rows_;
    // The search's index: of which folder, and whether that tree changed since.
    NameIndex index_;
    FileNodeRef indexedFolder_;
    bool indexStale_ = true;
};

} // namespace brimvale
