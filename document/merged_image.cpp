#include "document/merged_image.h"

namespace pv {

Image composeLayers(const std::vector<LayerPtr>& layers, int width, int height) {
    Image canvas(width, height);
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const LayerElement& layer = **it;
        if (layer.type != LayerTypePixel || layer.ready) continue;
        // The same pixel edges as the layer's record in the file.
        const auto at = layerPixelBounds(layer.location);
        if (!at) continue;
        const PixelsView pixels{layer.imageData.data(), at->width, at->height};
        if (pixels.width <= 0 || pixels.height <= 0 ||
            layer.imageData.size() < static_cast<size_t>(pixels.width) * pixels.height * 4)
            continue;
        drawOver(canvas, pixels, at->left, at->top);
    }
    return canvas;
}

}  // namespace pv
