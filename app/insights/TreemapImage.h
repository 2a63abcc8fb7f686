#pragma once

#include "core/insights/TreemapLayout.h"

#include <QColor>
#include <QFont>
#include <QImage>

#include <array>

namespace brimvale {

// How the map looks: one colour per kind of file, and the colours of folders and text.
struct TreemapLook {
    std::array<QColor, kFileCategoryCount> categoryColors;
    QColor folderColor; // a folder too small to open
    QColor restColor;   // the folded small items of a folder
    QColor frameColor;  // an opened folder's edge and name strip
    QColor headerText;
    QColor cellText;
    QFont font;
    bool cushions = true; // shaded like cushions; flat otherwise

    // The fixed palette, with the interface font.
    static TreemapLook standard(const QFont& font);
    QColor colorOf(const TreemapCell& cell) const;
};

// Draws a placed layout: each cell filled in its colour (shaded as a cushion whose ridges
// follow the nesting, after van Wijk and van de Wetering, when `look.cushions`), opened
// folders as frames with their name and size in the strip above their contents, names on
// cells where they fit. Pure: any thread may call it (QImage and QPainter on an image need
// no GUI thread).
QImage drawTreemap(const TreemapLayout& layout, const TreemapLook& look, qreal devicePixelRatio);

} // namespace brimvale
