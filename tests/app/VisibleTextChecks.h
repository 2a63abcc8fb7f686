#pragma once

#include <QColor>
#include <QPalette>
#include <QString>
#include <QStringList>

class QWidget;

namespace brimvale::testing {

// What a person sees of a window, checked by program.

// The texts of the visible labels under `root` that do not fit their label: wider than it
// (a word longer than a wrapped label's line counts) or taller than it.
QStringList clippedLabels(const QWidget& root);
// The visible labels and buttons under `root` whose text contains `text`.
int visibleTextsContaining(const QWidget& root, const QString& text);
// The visible widgets under `root` whose tooltip repeats their own text, and the rows of their
// item views whose tooltip repeats the row's text.
QStringList repeatedToolTips(const QWidget& root);
// The visible widgets under `root` that reach outside it, other than those in a scroll area's
// viewport (scrolled content) and windows of their own.
QStringList widgetsOutside(const QWidget& root);
// The pairs of text and background roles of `palette` whose WCAG contrast is below 4.5:1, a
// translucent text colour taken as drawn over its background, with their ratio.
QStringList unreadableTextRoles(const QPalette& palette);
// `color` as drawn over the opaque `background`.
QColor composited(const QColor& color, const QColor& background);

} // namespace brimvale::testing
