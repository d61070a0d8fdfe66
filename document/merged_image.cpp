#include "document/merged_image.h"

#include <algorithm>

namespace pv {

namespace {

struct Placed {
    PixelsView pixels;
    int left = 0;
    int top = 0;
};

}  // namespace

Image composeLayers(const std::vector<LayerPtr>& layers, int width, int height) {
    Image canvas(width, height);
    if (canvas.isNull()) return canvas;
    std::vector<Placed> placed;  // bottom first
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const LayerElement& layer = **it;
        if (layer.type != LayerTypePixel || layer.ready) continue;
        // The same pixel edges as the layer's record in the file.
        const auto at = layerPixelBounds(layer.location);
        if (!at) continue;
        const PixelsView pixels = layer.pixelsView(at->width, at->height);
        if (pixels.width <= 0 || pixels.height <= 0 ||
            layer.pixelBytes() < static_cast<size_t>(pixels.width) * pixels.height * 4)
            continue;
        placed.push_back({pixels, at->left, at->top});
    }
    // One row at a time in floating point, rounded once at the end: stacks of
    // partly transparent layers (shadows under translucent windows) would
    // otherwise gather a rounding step per layer.
    std::vector<float> row(static_cast<size_t>(width) * 4);
    for (int y = 0; y < height; ++y) {
        std::fill(row.begin(), row.end(), 0.0f);
        for (const Placed& p : placed) {
            if (y < p.top || y >= p.top + p.pixels.height) continue;
            const int x0 = std::max(0, p.left), x1 = std::min(width, p.left + p.pixels.width);
            if (x0 >= x1) continue;
            const uint8_t* s = p.pixels.data + (static_cast<size_t>(y - p.top) * p.pixels.width + (x0 - p.left)) * 4;
            float* d = row.data() + static_cast<size_t>(x0) * 4;
            for (int x = x0; x < x1; ++x, s += 4, d += 4) {
                const float keep = (255 - s[3]) / 255.0f;
                for (int c = 0; c < 4; ++c) d[c] = s[c] + d[c] * keep;
            }
        }
        uint8_t* out = canvas.row(y);
        for (size_t i = 0; i < row.size(); ++i) out[i] = static_cast<uint8_t>(std::min(255.0f, row[i] + 0.5f));
    }
    return canvas;
}

}  // namespace pv
