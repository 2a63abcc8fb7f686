#include "core/insights/Squarify.h"

#include <algorithm>

namespace brimvale {
namespace {

// The worst aspect ratio of a row of areas summing to `sum`, its largest `largest` and its
// smallest `smallest`, laid along a side of length `side`.
double worstRatio(double sum, double largest, double smallest, double side) {
    const double sideSquared = side * side;
    const double sumSquared = sum * sum;
    return std::max(sideSquared * largest / sumSquared, sumSquared / (sideSquared * smallest));
}

} // namespace

std::vector<TreemapRect> squarify(std::span<const double> sizes, TreemapRect bounds) {
    std::vector<TreemapRect> rects(sizes.size());
    double total = 0;
    for (const double size : sizes) {
        total += size;
    }
    if (sizes.empty() || total <= 0 || bounds.width <= 0 || bounds.height <= 0) {
        for (TreemapRect& rect : rects) {
            rect = {bounds.x, bounds.y, 0, 0};
        }
        return rects;
    }
    const double scale = bounds.area() / total;
    TreemapRect free = bounds;
    std::size_t first = 0;
    while (first < sizes.size()) {
        const double side = std::min(free.width, free.height);
        double rowSum = sizes[first] * scale;
        double worst = worstRatio(rowSum, rowSum, rowSum, side);
        std::size_t end = first + 1;
        while (end < sizes.size()) {
            const double area = sizes[end] * scale;
            const double candidate = worstRatio(rowSum + area, sizes[first] * scale, area, side);
            if (candidate > worst) {
                break;
            }
            worst = candidate;
            rowSum += area;
            ++end;
        }
        const bool lastRow = end == sizes.size();
        // The row runs along the shorter side: a column at the left of a wide space, a row at
        // the top of a tall one.
        const bool column = free.width >= free.height;
        const double length = column ? free.height : free.width;
        double thickness = length > 0 ? rowSum / length : 0;
        if (lastRow) {
            thickness = column ? free.width : free.height;
        }
        double offset = column ? free.y : free.x;
        const double limit = column ? free.bottom() : free.right();
        for (std::size_t i = first; i < end; ++i) {
            const double extent =
                i + 1 == end ? limit - offset : (thickness > 0 ? sizes[i] * scale / thickness : 0);
            rects[i] = column ? TreemapRect{free.x, offset, thickness, extent}
                              : TreemapRect{offset, free.y, extent, thickness};
            offset += extent;
        }
        if (column) {
            free.x += thickness;
            free.width = std::max(0.0, free.width - thickness);
        } else {
            free.y += thickness;
            free.height = std::max(0.0, free.height - thickness);
        }
        first = end;
    }
    return rects;
}

} // namespace brimvale
