#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>

class QPainter;

namespace brimvale {

// An indeterminate activity spinner: a rotating arc in the palette's text colour. Animates
// only while visible.
class BusyIndicator final : public QWidget {
    Q_OBJECT
public:
    explicit BusyIndicator(int diameter = 16, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    // The spinner at `phase` (0…1, one turn) inside `rect`; shared with list delegates.
    static void paintSpinner(QPainter& painter, const QRectF& rect, qreal phase,
                             const QColor& color);
    // The phase of every spinner now, so spinners drawn in different places turn together.
    static qreal currentPhase();

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    int diameter_;
    QTimer timer_;
};

} // namespace brimvale
