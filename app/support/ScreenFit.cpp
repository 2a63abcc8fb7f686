#include "app/support/ScreenFit.h"

#include <algorithm>

namespace brimvale::app {

QRect fittedWithin(const QRect& window, const QRect& available) {
    QRect fitted(window.topLeft(), window.size().boundedTo(available.size()));
    fitted.moveLeft(std::clamp(fitted.left(), available.left(),
                               std::max(available.left(), available.right() - fitted.width() + 1)));
    fitted.moveTop(std::clamp(fitted.top(), available.top(),
                              std::max(available.top(), available.bottom() - fitted.height() + 1)));
    return fitted;
}

} // namespace brimvale::app
