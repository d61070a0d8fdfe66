#include "capture/output_geometry.h"

#include <algorithm>

namespace pv {

namespace {

Rect scaled(const Rect& r, float s) {
    const double f = s;
    return {r.x * f, r.y * f, r.width * f, r.height * f};
}

Rect frameOf(const PVWindowElement::Ptr& screen) { return screen ? screen->dimensions : Rect{}; }

// Two screens' canvas: widths added, the taller height. Exact for two screens
// side by side, which is how desktops are laid out in practice.
Rect pairRect(const PVWindowElement::Ptr& a, const PVWindowElement::Ptr& b, float s) {
    const Rect A = frameOf(a);
    const Rect B = frameOf(b);
    return scaled({std::min(A.x, B.x), std::min(A.y, B.y), A.width + B.width, std::max(A.height, B.height)}, s);
}

}  // namespace

Rect getOutputRect(const std::vector<PVWindowElement::Ptr>& windows, const PVWindowElement& root,
                   float maxBackingScale) {
    uint32_t current = 0;
    for (const auto& window : windows) {
        if (window->screen1 && window->screen2) return pairRect(window->screen1, window->screen2, maxBackingScale);
        const uint32_t e = window->screen1 ? window->screen1->eidi : 0;
        if (e == current) continue;
        if (current != 0) return pairRect(root.findScreen(current), root.findScreen(e), maxBackingScale);
        current = e;
    }
    const auto screen = root.findScreen(current);
    return screen ? scaled(screen->dimensions, maxBackingScale) : Rect{};
}

}  // namespace pv
