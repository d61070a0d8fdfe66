#include "document/bitmap.h"

namespace pv {

std::optional<Image> bitmapFromImage(const Image& image, double width, double height) {
    if (image.isNull()) return std::nullopt;
    const int w = static_cast<int>(width);
    const int h = static_cast<int>(height);
    if (w == image.width && h == image.height) return image;
    return resampled(image, w, h);
}

}  // namespace pv
