#include "platform/x11/desktop_layout.h"

#include <algorithm>
#include <cmath>

namespace pv::x11 {

WindowRect DesktopLayout::toPoints(int32_t x, int32_t y, int32_t width, int32_t height) const {
    return {(x - originX) / scale, (y - originY) / scale, width / scale, height / scale};
}

RootBox RootBox::intersection(const RootBox& o) const {
    const int32_t left = std::max(x, o.x), top = std::max(y, o.y);
    const int32_t right = std::min(x + width, o.x + o.width), bottom = std::min(y + height, o.y + o.height);
    if (left >= right || top >= bottom) return {left, top, 0, 0};
    return {left, top, right - left, bottom - top};
}

RootBox DesktopLayout::toPixels(const WindowRect& points) const {
    const double left = std::floor(points.minX() * scale + originX);
    const double top = std::floor(points.minY() * scale + originY);
    const double right = std::ceil(points.maxX() * scale + originX);
    const double bottom = std::ceil(points.maxY() * scale + originY);
    return {static_cast<int32_t>(left), static_cast<int32_t>(top), static_cast<int32_t>(right - left),
            static_cast<int32_t>(bottom - top)};
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
