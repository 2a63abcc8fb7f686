#pragma once

#include "core/model/SkippedFolder.h"

#include <QDialog>
#include <QFrame>

#include <cstddef>
#include <vector>

class QLabel;
class QPushButton;
class QToolButton;
class QTreeWidget;

namespace brimvale {

// Shown over a finished tree when the scan could not read some folders: "3 folders could not
// be read", "Show…" and a close button. A click anywhere on it (or "Show…") asks for the list.
class SkippedFoldersBadge final : public QFrame {
    Q_OBJECT
public:
    explicit SkippedFoldersBadge(QWidget* parent = nullptr);

    void setCount(std::size_t count);
    // "1 folder could not be read", "1,204 folders could not be read".
    static QString countText(std::size_t count);

    QLabel* textLabel() const { return text_; }
    QPushButton* showButton() const { return show_; }
    QToolButton* closeButton() const { return close_; }

signals:
    void listRequested();
    void dismissRequested();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QLabel* text_;
    QPushButton* show_;
    QToolButton* close_;
};

// The list behind the badge: every folder with the reason it could not be read, sorted by
// path, selectable and copyable (Ctrl+C copies the selected rows, "Copy All" every row, one
// "path: reason" line each).
class SkippedFoldersDialog final : public QDialog {
    Q_OBJECT
public:
    SkippedFoldersDialog(std::vector<SkippedFolder> folders, bool local, QWidget* parent = nullptr);

    // Path order: component by component in file-manager order, so a folder comes right before
    // what lies below it ("/a", "/a/b", "/a b"), then byte order for names that rank equal.
    static std::vector<SkippedFolder> sortedByPath(std::vector<SkippedFolder> folders);
    // The reason as shown: rclone's or the system's words, or what a timed-out folder means.
    static QString reasonText(const SkippedFolder& folder);
    // One "path: reason" line per folder, in the given order.
    static QString copyText(const std::vector<SkippedFolder>& folders);

    QTreeWidget* list() const { return list_; }
    QPushButton* copyButton() const { return copy_; }
    const std::vector<SkippedFolder>& folders() const { return folders_; }
    // Ctrl+C in the list: the selected rows, or every row when none is selected.
    void copySelection() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::vector<SkippedFolder> folders_;
    QTreeWidget* list_;
    QPushButton* copy_;
};

} // namespace brimvale
