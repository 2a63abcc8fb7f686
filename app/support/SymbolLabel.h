#pragma once

#include <QIcon>
#include <QLabel>

namespace brimvale {

// A symbol shown at a fixed size, painted from its icon at every paint, so it follows palette
// changes (light to dark) and the screen's pixel ratio.
class SymbolLabel final : public QLabel {
    Q_OBJECT
public:
    explicit SymbolLabel(int size, QWidget* parent = nullptr);

    void setSymbol(const QIcon& icon);
    const QIcon& symbol() const { return icon_; }
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    int size_;
    QIcon icon_;
};

} // namespace brimvale
