#pragma once

#include <QColor>
#include <QPalette>

class QApplication;

namespace brimvale::app {

// WCAG 2 contrast ratio of two opaque colours: 1 (same) to 21 (black on white).
double contrastRatio(const QColor& a, const QColor& b);

// A colour for secondary text (sizes, counts, dates, hints) on `background`: between `text` and
// the background, as faint as it can be while its contrast stays at least `minimumContrast`.
QColor readableSecondaryColor(const QColor& text, const QColor& background,
                              double minimumContrast = 4.5);

// The palette with its PlaceholderText role, which every secondary text of the application uses,
// made readable on both the window and the base colour of each colour group (a translucent
// colour measured as it is drawn). Themes, dark ones in particular, often give that role a
// colour meant for empty fields only, far below 4.5:1.
QPalette withReadableSecondaryText(QPalette palette);

// The palette with its Highlight made darker (or lighter) as far as needed for its
// HighlightedText, the text of selected rows, to keep 4.5:1 on it; some themes' accent colours,
// Qt's own default among them, fall short with white text.
QPalette withReadableSelection(QPalette palette);

// Applies withReadableSecondaryText and withReadableSelection to the application palette now
// and whenever the palette changes (a scheme switch).
void keepSecondaryTextReadable(QApplication& application);

} // namespace brimvale::app
