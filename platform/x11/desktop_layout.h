#pragma once
// How X root-window pixels map onto the points the inventory works in: one
// backing scale for the whole X screen, and the main monitor's top-left
// corner as the origin of window-server coordinates.

#include <cstdint>
#include <vector>

#include "platform/coordinates.h"
#include "platform/window_server.h"

namespace pv::x11 {

// A rectangle of root-window pixels (whole pixels, top-down, the root's origin).
struct RootBox {
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    // The common part; empty when there is none.
    RootBox intersection(const RootBox& o) const;
    bool intersects(const RootBox& o) const { return !intersection(o).isEmpty(); }
    bool contains(const RootBox& o) const {
        return !o.isEmpty() && o.x >= x && o.y >= y && o.x + o.width <= x + width && o.y + o.height <= y + height;
    }
    bool operator==(const RootBox&) const = default;
};

// A monitor in root-window pixels. id is the monitor's name atom, never 0.
struct MonitorBox {
    uint32_t id = 0;
    int32_t x = 0;
    int32_t y = 0;
    int32_t width = 0;
    int32_t height = 0;

    RootBox rect() const { return {x, y, width, height}; }
};

struct DesktopLayout {
    int32_t originX = 0;  // main monitor's top-left corner, root pixels
    int32_t originY = 0;
    double scale = 1.0;  // pixels per point

    // Root pixels to top-down points relative to the main monitor.
    WindowRect toPoints(int32_t x, int32_t y, int32_t width, int32_t height) const;
    WindowRect toPoints(const RootBox& r) const { return toPoints(r.x, r.y, r.width, r.height); }
    // Top-down points back to root pixels, rounded outward to whole pixels.
    RootBox toPixels(const WindowRect& points) const;
};

// The layout whose main monitor is the first of the list (the whole root when empty).
DesktopLayout layoutFor(const std::vector<MonitorBox>& monitorsMainFirst, double scale);

// Screen entries in bottom-up points: the main monitor's bottom-left corner at (0, 0), y up.
std::vector<ScreenListEntry> screenEntries(const std::vector<MonitorBox>& monitorsMainFirst, double scale);

}  // namespace pv::x11
