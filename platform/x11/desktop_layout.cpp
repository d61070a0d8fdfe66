#include "platform/x11/desktop_layout.h"

#include <cmath>

namespace pv::x11 {

WindowRect DesktopLayout::toPoints(int32_t x, int32_t y, int32_t width, int32_t height) const {
    return {(x - originX) / scale, (y - originY) / scale, width / scale, height / scale};
}

void DesktopLayout::toPixels(const WindowRect& points, int32_t* x, int32_t* y, int32_t* width, int32_t* height) const {
    const double left = std::floor(points.minX() * scale + originX);
    const double top = std::floor(points.minY() * scale + originY);
    const double right = std::ceil(points.maxX() * scale + originX);
    const double bottom = std::ceil(points.maxY() * scale + originY);
    *x = static_cast<int32_t>(left);
    *y = static_cast<int32_t>(top);
    *width = static_cast<int32_t>(right - left);
    *height = static_cast<int32_t>(bottom - top);
}

DesktopLayout layoutFor(const std::vector<MonitorBox>& monitorsMainFirst, double scale) {
    DesktopLayout layout;
    layout.scale = scale > 0 ? scale : 1.0;
    if (!monitorsMainFirst.empty()) {
        layout.originX = monitorsMainFirst.front().x;
        layout.originY = monitorsMainFirst.front().y;
    }
    return layout;
}

std::vector<ScreenListEntry> screenEntries(const std::vector<MonitorBox>& monitorsMainFirst, double scale) {
    std::vector<ScreenListEntry> entries;
    if (monitorsMainFirst.empty()) return entries;
    const DesktopLayout layout = layoutFor(monitorsMainFirst, scale);
    const double mainHeight = monitorsMainFirst.front().height / layout.scale;
    for (const MonitorBox& m : monitorsMainFirst) {
        ScreenListEntry e;
        e.displayId = m.id;
        e.frame = toScreenSpace(layout.toPoints(m.x, m.y, m.width, m.height), mainHeight);
        e.backingScaleFactor = layout.scale;
        entries.push_back(e);
    }
    return entries;
}

}  // namespace pv::x11
