#include "capture/output_geometry.h"

namespace pv {

PixelRect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows, float maxBackingScale) {
    ScreenRect area;
    for (const auto& window : windows)
        for (const auto& link : window->screens)
            if (const auto screen = link.lock()) area = area.united(screen->screenFrame());
    return toPixels(area, maxBackingScale);
}

PixelRect getDesktopRect(const PVWindowElement& root, float maxBackingScale) {
    ScreenRect area;
    for (const auto& node : root.children())
        if (node->kind == PVElementKindScreen) area = area.united(node->screenFrame());
    return toPixels(area, maxBackingScale);
}

}  // namespace pv
