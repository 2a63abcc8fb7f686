#pragma once

#include "app/views/StatusPage.h"

#include <QVariantAnimation>

class QProgressBar;

namespace brimvale {

// A saved scan is being read: "Loading saved scan — 42%", the percentage counting up smoothly.
class LoadingCacheView final : public StatusPage {
    Q_OBJECT
public:
    explicit LoadingCacheView(QWidget* parent = nullptr);

    // The decoder's progress, 0…1.
    void setFraction(double fraction);
    // The whole percentage a fraction reads as (truncated: 0.999 is 99%).
    static int percentFor(double fraction);
    static QString loadingText(int percent);
    // The percentage the animation is heading for.
    int targetPercent() const { return target_; }

private:
    void showPercent(int percent);

    QProgressBar* bar_;
    QVariantAnimation animation_;
    int shown_ = 0;
    int target_ = 0;
};

} // namespace brimvale
