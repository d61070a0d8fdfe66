#include "capture/output_geometry.h"

#include <algorithm>

namespace pv {

namespace {

ScreenRect frameOf(const PVWindowElement::Ptr& screen) { return screen ? screen->screenFrame() : ScreenRect{}; }

// Two screens' canvas: widths added, the taller height. Exact for two screens
// side by side, which is how desktops are laid out in practice.
PixelRect pairRect(const PVWindowElement::Ptr& a, const PVWindowElement::Ptr& b, float s) {
    const ScreenRect A = frameOf(a);
    const ScreenRect B = frameOf(b);
    return toPixels({std::min(A.x, B.x), std::min(A.y, B.y), A.width + B.width, std::max(A.height, B.height)}, s);
}

}  // namespace

PixelRect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows, const PVWindowElement& root,
                        float maxBackingScale) {
    uint32_t current = 0;
    for (const auto& window : windows) {
        const auto screen1 = window->screen1.lock();
        const auto screen2 = window->screen2.lock();
        if (screen1 && screen2) return pairRect(screen1, screen2, maxBackingScale);
        const uint32_t e = screen1 ? screen1->eidi : 0;
        if (e == current) continue;
        if (current != 0) return pairRect(root.findScreen(current), root.findScreen(e), maxBackingScale);
        current = e;
    }
    const auto screen = root.findScreen(current);
    return screen ? toPixels(screen->screenFrame(), maxBackingScale) : PixelRect{};
}

}  // namespace pv
