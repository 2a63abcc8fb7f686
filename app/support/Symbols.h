#pragma once

#include <QColor>
#include <QIcon>
#include <QPalette>

#include <string_view>

namespace brimvale::Symbols {

// The icons of the interface, named by symbol ("cloud.fill", "arrow.clockwise", …). The desktop
// theme's icon of the same meaning is used where the theme has one; otherwise the drawing
// bundled with the application, painted in the palette's text colour at paint time, so it
// follows light and dark palettes (disabled and selected states included). An unknown name
// gives a null icon.
QIcon icon(std::string_view symbol);
// The bundled drawing in one fixed colour, whatever the theme and palette.
QIcon icon(std::string_view symbol, const QColor& color);
// The bundled drawing in a colour of the palette in force when it is painted (a palette change,
// light to dark, repaints it right).
QIcon icon(std::string_view symbol, QPalette::ColorRole role);
// Whether the application bundles a drawing for `symbol`.
bool hasBundledSymbol(std::string_view symbol);
// The symbol of an account's service by rclone backend type: the local disk, object storage,
// file servers, other clouds.
std::string_view serviceSymbol(std::string_view rcloneType);
// The application's own icon.
QIcon applicationIcon();

} // namespace brimvale::Symbols
