#include "document/layer_placement.h"

#include <cmath>

namespace pv {

Size layerPixelSize(const PVWindowElement& window, float s, int shotWidth, int shotHeight) {
    const double scale = s;
    if (scale * window.dimensions.width <= shotWidth) {
        return {static_cast<double>(shotWidth), static_cast<double>(shotHeight)};
    }
    return {window.dimensions.width * scale, window.dimensions.height * scale};
}

CanvasRect layerLocation(const PVWindowElement& window, Size pixelSize, Size shotSize, const PixelRect& canvas,
                         double s, double M) {
    const CanvasRect frame = onCanvas(toPixels(toScreenSpace(window.windowBounds(), M), s), canvas);
    const double shotScale = window.scaling > 0 ? window.scaling : s;
    const double stretchX = shotSize.width > 0 ? pixelSize.width / shotSize.width : 1;
    const double stretchY = shotSize.height > 0 ? pixelSize.height / shotSize.height : 1;
    const double marginX = window.shadowX * shotScale * stretchX;
    const double marginY = window.shadowY * shotScale * stretchY;
    return {std::round(frame.x - marginX), std::round(frame.y - marginY), pixelSize.width, pixelSize.height};
}

std::string ungroupedLayerName(const std::string& applicationName, const std::string& windowName) {
    return applicationName + " - " + windowName;
}

}  // namespace pv
