#include "document/layer_placement.h"

namespace pv {

Size layerPixelSize(const PVWindowElement& window, float s, int shotWidth, int shotHeight) {
    const double scale = s;
    if (scale * window.dimensions.width <= shotWidth) {
        return {static_cast<double>(shotWidth), static_cast<double>(shotHeight)};
    }
    return {window.dimensions.width * scale, window.dimensions.height * scale};
}

CanvasRect layerLocation(const PVWindowElement& window, Size pixelSize, double outputX, float s,
                         float screenTopOffset) {
    const double scale = s;
    const double x = scale * window.dimensions.x - outputX - window.shadowX;
    // The sum is formed in single precision, as the stored offsets are floats.
    const float top = s * screenTopOffset + static_cast<float>(scale * window.dimensions.y);
    const double y = static_cast<double>(top) - window.shadowY;
    return {x, y, pixelSize.width, pixelSize.height};
}

std::string ungroupedLayerName(const std::string& applicationName, const std::string& windowName) {
    return applicationName + " - " + windowName;
}

}  // namespace pv
