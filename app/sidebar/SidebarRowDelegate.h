#pragma once

#include <QStyledItemDelegate>

namespace brimvale {

// Paints a sidebar row: the service icon, the account's name and, at the right, its state at a
// glance (a spinner while loading or scanning, the total size when done, a warning mark after
// a failure).
class SidebarRowDelegate final : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit SidebarRowDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace brimvale
