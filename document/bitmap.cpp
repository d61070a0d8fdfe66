#include "document/bitmap.h"

#include <fmt/format.h>

#include <stdexcept>

namespace pv {

ImagePtr bitmapFromImage(const ImagePtr& picture, double width, double height) {
    if (!picture || picture->isNull()) return nullptr;
    const Image& image = *picture;
    const auto w = pictureSide(width);
    const auto h = pictureSide(height);
    if (!w || !h)
        throw std::length_error(
            fmt::format("no picture of {}x{} pixels: each side must be 0 to {}", width, height, kMaxPictureSide));
    if (*w == image.width && *h == image.height) return picture;
    return std::make_shared<const Image>(resampled(image, *w, *h));
}

}  // namespace pv
