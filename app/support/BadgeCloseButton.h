#pragma once

#include "app/support/Symbols.h"

#include <QString>
#include <QToolButton>

namespace brimvale {

// The small "×" that hides a badge floating over the columns; `accessibleName` says which.
inline QToolButton* makeBadgeCloseButton(QWidget* badge, const QString& accessibleName) {
    auto* close = new QToolButton(badge);
    close->setIcon(Symbols::icon("xmark"));
    close->setIconSize(QSize(10, 10));
    close->setAutoRaise(true);
    close->setToolTip(QToolButton::tr("Hide"));
    close->setAccessibleName(accessibleName);
    return close;
}

} // namespace brimvale
