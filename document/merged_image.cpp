#include "document/merged_image.h"

#include <cmath>

namespace pv {

Image composeLayers(const std::vector<LayerPtr>& layers, int width, int height) {
    Image canvas(width, height);
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const LayerElement& layer = **it;
        if (layer.type != LayerTypePixel || layer.ready) continue;
        const PixelsView pixels{layer.imageData.data(), static_cast<int>(layer.location.width),
                                static_cast<int>(layer.location.height)};
        if (pixels.width <= 0 || pixels.height <= 0 ||
            layer.imageData.size() < static_cast<size_t>(pixels.width) * pixels.height * 4)
            continue;
        drawOver(canvas, pixels, static_cast<int>(std::lround(layer.location.x)),
                 static_cast<int>(std::lround(layer.location.y)));
    }
    return canvas;
}

}  // namespace pv
