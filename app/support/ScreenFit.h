#pragma once

#include <QRect>

namespace brimvale::app {

// `window` made to fit `available` (a screen's available area): no larger than it, moved inside
// it, its size kept where it fits.
QRect fittedWithin(const QRect& window, const QRect& available);

} // namespace brimvale::app
