#include "capture/window_shot.h"

#include <cmath>
#include <memory>

namespace pv {

std::optional<Shot> takeShot(const PVWindowElement& node, WindowServer& server, bool shadowSetting) {
    const bool withShadow = shadowSetting && !node.isSystemWindow;
    // System windows are taken by their bounds; others by their own extent.
    const std::optional<WindowRect> bounds =
        node.isSystemWindow ? std::optional<WindowRect>(node.windowBounds()) : std::nullopt;

    auto picture = server.windowPicture(bounds, node.eidi, withShadow);
    if (!picture || picture->width <= 1 || picture->height <= 1) return std::nullopt;
    Shot shot;
    shot.withShadow = withShadow;
    if (withShadow) {
        // The shadow is as wide left as right; a third of the extra height is above.
        const double w = picture->width / static_cast<double>(node.scaling);
        const double h = picture->height / static_cast<double>(node.scaling);
        shot.shadowX = static_cast<float>(std::fabs((w - node.dimensions.width) * 0.5));
        shot.shadowY = static_cast<float>(std::fabs((h - node.dimensions.height) / 3));
    }
    shot.picture = std::make_shared<const Image>(std::move(*picture));
    return shot;
}

void storeShot(PVWindowElement& node, const Shot& shot) {
    node.shot = shot.picture;
    if (!shot.withShadow) return;
    node.shadowX = shot.shadowX;
    node.shadowY = shot.shadowY;
}

std::optional<Shot> heldShot(const PVWindowElement& node) {
    if (!node.shot) return std::nullopt;
    return Shot{node.shot, true, node.shadowX, node.shadowY};
}

void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting) {
    if (auto shot = takeShot(node, server, shadowSetting)) storeShot(node, *shot);
}

void takeMissingShots(const std::vector<PVWindowElement::Ptr>& windows, WindowServer& server, bool shadowSetting) {
    for (const auto& w : windows)
        if (!w->shot) getShot(*w, server, shadowSetting);
}

}  // namespace pv
