#include "document/layer_element.h"

#include <cmath>
#include <limits>

namespace pv {

std::string LayerElement::description() const {
    if (type == LayerTypePixel) return "Layer: " + name + ", Location: " + rectToString(location);
    return "Group: " + name;
}

std::optional<LayerPixelBounds> layerPixelBounds(const CanvasRect& location) {
    const double x = std::round(location.x), y = std::round(location.y);
    const double w = std::trunc(location.width), h = std::trunc(location.height);
    // Every comparison fails for NaN, so NaN is refused along with infinities.
    if (!(w >= 0 && w <= kMaxLayerSide && h >= 0 && h <= kMaxLayerSide)) return std::nullopt;
    constexpr double lowest = std::numeric_limits<int32_t>::min();
    constexpr double highest = std::numeric_limits<int32_t>::max();
    if (!(x >= lowest && x + w <= highest && y >= lowest && y + h <= highest)) return std::nullopt;
    return LayerPixelBounds{static_cast<int32_t>(x), static_cast<int32_t>(y), static_cast<int32_t>(w),
                            static_cast<int32_t>(h)};
}

LayerPtr makeGroupMarker(int32_t type, const std::string& name) {
    auto marker = std::make_shared<LayerElement>();
    marker->type = type;
    marker->name = name;
    marker->imageData.assign(8, 0);
    marker->channelSizes = {2, 2, 2, 2};
    marker->ready = true;
    return marker;
}

}  // namespace pv
