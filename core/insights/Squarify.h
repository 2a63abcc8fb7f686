#pragma once

#include <span>
#include <vector>

namespace brimvale {

struct TreemapRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double area() const { return width * height; }
    double right() const { return x + width; }
    double bottom() const { return y + height; }
    bool contains(double px, double py) const {
        return px >= x && px < x + width && py >= y && py < y + height;
    }
};

// The squarified layout of one level (Bruls, Huizing and van Wijk): `sizes`, all above zero
// and largest first, become rectangles that tile `bounds` exactly with areas in proportion to
// the sizes, laid out in rows along the shorter side, each row as long as it keeps its worst
// aspect ratio falling. The last rectangle of a row and the last row take what is left, so
// rounding never leaves a gap. One rectangle per size, in the same order.
std::vector<TreemapRect> squarify(std::span<const double> sizes, TreemapRect bounds);

} // namespace brimvale
