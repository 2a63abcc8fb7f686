#pragma once

#include "core/model/FileNode.h"

#include <QFrame>
#include <QString>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class QLabel;
class QGridLayout;
class QToolButton;
class QVBoxLayout;

namespace brimvale {

// The fixed-width pane right of the columns that sums up the deepest selected item: what it
// is, how big, when it changed, how many items it holds and its five largest items.
class PreviewPanel final : public QFrame {
    Q_OBJECT
public:
    struct InfoRow {
        QString label;
        QString value;
        friend bool operator==(const InfoRow&, const InfoRow&) = default;
    };

    explicit PreviewPanel(int width, QWidget* parent = nullptr);

    // Rebuilds the panel for `node` (null: empty).
    void setNode(FileNodeRef node);
    const FileNodeRef& node() const { return node_; }
    // Whether the node changed since it was shown (a live scan grows it); rebuilding the panel
    // on every refresh of a live tree would cost the scan time on the GUI thread.
    bool isStale() const;

    // What the panel shows, for tests and accessibility.
    const std::vector<InfoRow>& infoRows() const { return infoRows_; }
    // The "Largest items" section: names with formatted sizes; empty when it is absent.
    const std::vector<std::pair<QString, QString>>& largestItems() const { return largest_; }
    QToolButton* closeButton() const { return closeButton_; }

    // The rows of a node (Size, Kind, Modified, and Items for a folder).
    static std::vector<InfoRow> infoRowsFor(const FileNode& node);
    // "Folder"; the item's own kind; else a kind from its name's extension; else "File".
    static QString kindText(const FileNode& node);

signals:
    // The close button: hide the panel (a click on an item shows it again).
    void dismissRequested();

private:
    void clearContent();

    FileNodeRef node_;
    std::int64_t shownSize_ = 0;
    std::size_t shownChildCount_ = 0;
    std::vector<InfoRow> infoRows_;
    std::vector<std::pair<QString, QString>> largest_;
    QToolButton* closeButton_;
    class SymbolLabel* icon_;
    QLabel* name_;
    QWidget* content_;
    QGridLayout* infoGrid_;
    QWidget* largestSection_;
    QGridLayout* largestGrid_;
};

} // namespace brimvale
