#pragma once
// The coordinate systems of the desktop, each its own rectangle type, and the
// conversions between them. Every flip between bottom-up and top-down lives here.
//
//   ScreenRect  bottom-up points: origin at the main screen's bottom-left
//               corner, y up. Screen frames.
//   WindowRect  top-down points: origin at the main screen's top-left corner,
//               y down. Window bounds, as the window server reports them.
//   PixelRect   bottom-up pixels: screen points times the largest backing
//               scale. Output rectangles (the canvas of a capture).
//   CanvasRect  top-down pixels with the origin at a canvas's top-left corner.
//               Layer rectangles in a document, places on a preview.

#include "platform/geometry.h"

namespace pv {

struct ScreenSpace {};
struct WindowSpace {};
struct PixelSpace {};
struct CanvasSpace {};

using ScreenRect = BasicRect<ScreenSpace>;
using WindowRect = BasicRect<WindowSpace>;
using PixelRect = BasicRect<PixelSpace>;
using CanvasRect = BasicRect<CanvasSpace>;

namespace detail {
// y of a rectangle of height h, seen from the other end of an axis of length extent.
inline double flippedY(double y, double h, double extent) { return extent - y - h; }
}  // namespace detail

// A screen frame in window-server coordinates, and back. mainScreenHeight is
// the main screen's height in points, the distance between the two origins.
inline WindowRect toWindowSpace(const ScreenRect& r, double mainScreenHeight) {
    return {r.x, detail::flippedY(r.y, r.height, mainScreenHeight), r.width, r.height};
}
inline ScreenRect toScreenSpace(const WindowRect& r, double mainScreenHeight) {
    return {r.x, detail::flippedY(r.y, r.height, mainScreenHeight), r.width, r.height};
}

// Screen points to desktop pixels at `scale` pixels per point.
inline PixelRect toPixels(const ScreenRect& r, double scale) {
    return {r.x * scale, r.y * scale, r.width * scale, r.height * scale};
}

// A rectangle of desktop pixels placed on a canvas that covers `canvas`:
// relative to the canvas's top-left corner, y down.
inline CanvasRect onCanvas(const PixelRect& r, const PixelRect& canvas) {
    return {r.x - canvas.x, detail::flippedY(r.y - canvas.y, r.height, canvas.height), r.width, r.height};
}

}  // namespace pv
