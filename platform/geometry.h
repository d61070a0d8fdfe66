#pragma once
// Plain geometry shared by every layer: points, sizes and rectangles of doubles.
// A rectangle's type names its coordinate system (platform/coordinates.h);
// Rect is a rectangle in no particular system (pixels of a picture, say).

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

template <class Space>
struct BasicRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    bool isEmpty() const { return width <= 0 || height <= 0; }
    Size size() const { return {width, height}; }

    // minX <= x < maxX and minY <= y < maxY; an empty rectangle contains nothing.
    bool contains(Point p) const {
        return !isEmpty() && p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }
    // True when the two rectangles share an area of non-zero size.
    bool intersects(const BasicRect& o) const {
        return !isEmpty() && !o.isEmpty() && minX() < o.maxX() && o.minX() < maxX() && minY() < o.maxY() &&
               o.minY() < maxY();
    }
    // Grown (negative d) or shrunk (positive d) by dx left and right, dy top and bottom.
    BasicRect insetBy(double dx, double dy) const { return {x + dx, y + dy, width - 2 * dx, height - 2 * dy}; }
    // The smallest rectangle holding both; an empty one adds nothing.
    BasicRect united(const BasicRect& o) const {
        if (o.isEmpty()) return *this;
        if (isEmpty()) return o;
        const double left = x < o.x ? x : o.x, top = y < o.y ? y : o.y;
        const double right = maxX() > o.maxX() ? maxX() : o.maxX();
        const double bottom = maxY() > o.maxY() ? maxY() : o.maxY();
        return {left, top, right - left, bottom - top};
    }

    bool operator==(const BasicRect&) const = default;
};

struct AnySpace {};
using Rect = BasicRect<AnySpace>;

// The same numbers as a rectangle of another system. Only the conversions of
// platform/coordinates.h and the places that store rectangles of mixed
// systems (the inventory's `dimensions`) should need it.
template <class To, class From>
BasicRect<To> retagged(const BasicRect<From>& r) {
    return {r.x, r.y, r.width, r.height};
}

// "{{x, y}, {w, h}}" with the shortest exact decimal form of each number.
std::string rectToString(double x, double y, double width, double height);
template <class Space>
std::string rectToString(const BasicRect<Space>& r) {
    return rectToString(r.x, r.y, r.width, r.height);
}
inline std::string rectToString(const Rect& r) { return rectToString(r.x, r.y, r.width, r.height); }

}  // namespace pv
