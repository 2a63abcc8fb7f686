#include "app/views/LoadingCacheView.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace brimvale {

LoadingCacheView::LoadingCacheView(QWidget* parent)
    : StatusPage(parent) {
    setSymbol("clock");
    bar_ = new QProgressBar(this);
    bar_->setRange(0, 100);
    bar_->setTextVisible(false);
    bar_->setFixedWidth(260);
    body()->addWidget(bar_, 0, Qt::AlignHCenter);
    auto* hint = new QLabel(tr("Large trees may take a moment"), this);
    hint->setAlignment(Qt::AlignHCenter);
    hint->setForegroundRole(QPalette::PlaceholderText);
    body()->addWidget(hint, 0, Qt::AlignHCenter);
    animation_.setDuration(250);
    animation_.setEasingCurve(QEasingCurve::OutCubic);
    connect(&animation_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { showPercent(value.toInt()); });
    showPercent(0);
}

int LoadingCacheView::percentFor(double fraction) {
    if (!(fraction > 0)) {
        return 0;
    }
    return static_cast<int>(std::min(100.0, std::floor(fraction * 100.0)));
}

QString LoadingCacheView::loadingText(int percent) {
    return tr("Loading saved scan — %1%").arg(percent);
}

void LoadingCacheView::setFraction(double fraction) {
    const int percent = percentFor(fraction);
    if (percent == target_) {
        return;
    }
    target_ = percent;
    animation_.stop();
    if (percent < shown_ || !isVisible()) {
        // A new load starts from its own beginning, not counting down.
        showPercent(percent);
        return;
    }
    animation_.setStartValue(shown_);
    animation_.setEndValue(percent);
    animation_.start();
}

void LoadingCacheView::showPercent(int percent) {
    shown_ = percent;
    setText(loadingText(percent));
    bar_->setValue(percent);
    setAccessibleName(textLabel()->text());
}

} // namespace brimvale
