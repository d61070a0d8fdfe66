#include "capture/window_shot.h"

#include <cmath>
#include <memory>

namespace pv {

void getShot(PVWindowElement& node, WindowServer& server, bool shadowSetting) {
    const bool withShadow = shadowSetting && !node.isSystemWindow;
    // System windows are taken by their bounds; others by their own extent.
    const std::optional<Rect> bounds = node.isSystemWindow ? std::optional<Rect>(node.dimensions) : std::nullopt;

    auto picture = server.windowPicture(bounds, node.eidi, withShadow);
    if (!picture || picture->width <= 1 || picture->height <= 1) return;
    const double pixelWidth = picture->width;
    const double pixelHeight = picture->height;
    node.shot = std::make_shared<const Image>(std::move(*picture));
    if (!withShadow) return;

    // The shadow is as wide left as right; a third of the extra height is above.
    const double w = pixelWidth / node.scaling;
    const double h = pixelHeight / node.scaling;
    node.shadowX = static_cast<float>(std::fabs((w - node.dimensions.width) * 0.5));
    node.shadowY = static_cast<float>(std::fabs((h - node.dimensions.height) / 3));
}

}  // namespace pv
