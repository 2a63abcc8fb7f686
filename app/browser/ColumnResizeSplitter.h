#pragma once

#include <QWidget>

#include <functional>
#include <optional>

namespace brimvale {

// The grab area between two columns: a 1-pixel line in an 8-pixel wide strip. Dragging it sets
// the width of the column to its left to the width at the start of the drag plus the
// horizontal movement, clamped to [minimum, maximum].
class ColumnResizeSplitter final : public QWidget {
    Q_OBJECT
public:
    static constexpr int kGrabWidth = 8;

    ColumnResizeSplitter(int minWidth, int maxWidth, QWidget* parent = nullptr);

    // Reads and writes the width of the column on the left.
    std::function<int()> leadingWidth;
    std::function<void(int width)> setLeadingWidth;

    std::optional<int> widthAtDragStart() const { return widthAtDragStart_; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    int minWidth_;
    int maxWidth_;
    std::optional<int> widthAtDragStart_;
    qreal pressX_ = 0;
    bool pressed_ = false;
};

} // namespace brimvale
