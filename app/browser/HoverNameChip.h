#pragma once

#include <QLabel>
#include <QTimer>

namespace brimvale {

// The floating chip with an item's full name, shown over a hovered row whose name is cut
// short. It is a child of the browser, placed from the row's frame in the browser's
// coordinates, and never takes the mouse or the keyboard.
class HoverNameChip final : public QLabel {
    Q_OBJECT
public:
    explicit HoverNameChip(QWidget* parent);

    // Shows `name` over `rowFrame` (in the parent's coordinates) after a short pause; a new
    // request replaces a pending one.
    void showFor(const QString& name, const QRect& rowFrame, int nameLeft);
    void dismiss();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void place();

    QTimer delay_;
    QRect rowFrame_;
    int nameLeft_ = 0;
};

} // namespace brimvale
