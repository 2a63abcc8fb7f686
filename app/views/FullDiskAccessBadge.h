#pragma once

#include <QFrame>

class QPushButton;
class QToolButton;

namespace brimvale {

// Shown over a local scan while some folders could not be read: "Some folders need more
// permissions", with an explanation of what to do and a close button.
class FullDiskAccessBadge final : public QFrame {
    Q_OBJECT
public:
    explicit FullDiskAccessBadge(QWidget* parent = nullptr);

    static QString explanation();
    QPushButton* learnMoreButton() const { return learnMore_; }
    QToolButton* closeButton() const { return close_; }

signals:
    void learnMoreRequested();
    void dismissRequested();

private:
    void paintEvent(QPaintEvent* event) override;

    QPushButton* learnMore_;
    QToolButton* close_;
};

} // namespace brimvale
