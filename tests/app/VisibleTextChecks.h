#pragma once

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

} // namespace brimvale::testing
