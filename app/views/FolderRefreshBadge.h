#pragma once

#include <QFrame>

#include <set>
#include <string>

class QLabel;
class QToolButton;

namespace brimvale {

class BusyIndicator;
class SymbolLabel;

// Says what "Rescan This Folder" is doing over a finished tree: a spinner and "Rescanning
// “2024”…" while folders are listed again, or "Couldn’t rescan the folder" with rclone's or the
// system's reason (and a close button) when the last one failed. The rest of the tree stays
// usable meanwhile.
class FolderRefreshBadge final : public QFrame {
    Q_OBJECT
public:
    explicit FolderRefreshBadge(QWidget* parent = nullptr);

    // The folders being refreshed (tree paths) and the last failure; returns whether there is
    // anything to show. A running refresh is shown before an old failure.
    bool setStatus(const std::set<std::string>& refreshing, const QString& error);
    bool isBusy() const { return busy_; }

    // "Rescanning “2024”…" for one folder (its last path component), "Rescanning 3 folders…".
    static QString busyText(const std::set<std::string>& refreshing);

    QLabel* textLabel() const { return text_; }
    QLabel* detailLabel() const { return detail_; }
    QToolButton* closeButton() const { return close_; }

signals:
    void dismissRequested();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    BusyIndicator* spinner_;
    SymbolLabel* warning_;
    QLabel* text_;
    QLabel* detail_;
    QToolButton* close_;
    bool busy_ = false;
};

} // namespace brimvale
