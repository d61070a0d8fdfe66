#pragma once
// Plain geometry shared by every layer: points, sizes and rectangles of doubles.
// Which coordinate system a rectangle is in (bottom-up screen points, top-down
// window-server points, document pixels) is stated where it is stored.

#include <string>

namespace pv {

struct Point {
    double x = 0;
    double y = 0;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    bool isEmpty() const { return width <= 0 || height <= 0; }

    // minX <= x < maxX and minY <= y < maxY; an empty rectangle contains nothing.
    bool contains(Point p) const {
        return !isEmpty() && p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }
    // True when the two rectangles share an area of non-zero size.
    bool intersects(const Rect& o) const {
        return !isEmpty() && !o.isEmpty() && minX() < o.maxX() && o.minX() < maxX() &&
               minY() < o.maxY() && o.minY() < maxY();
    }
    // Grown (negative d) or shrunk (positive d) by dx left and right, dy top and bottom.
    Rect insetBy(double dx, double dy) const { return {x + dx, y + dy, width - 2 * dx, height - 2 * dy}; }

    bool operator==(const Rect&) const = default;
};

// "{{x, y}, {w, h}}" with the shortest exact decimal form of each number.
std::string rectToString(const Rect& r);

}  // namespace pv
