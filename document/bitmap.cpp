#include "document/bitmap.h"

#include <fmt/format.h>

#include <stdexcept>

namespace pv {

std::optional<Image> bitmapFromImage(const Image& image, double width, double height) {
    if (image.isNull()) return std::nullopt;
    const auto w = pictureSide(width);
    const auto h = pictureSide(height);
    if (!w || !h)
        throw std::length_error(fmt::format("no picture of {}x{} pixels: each side must be 0 to {}", width, height,
                                            kMaxPictureSide));
    if (*w == image.width && *h == image.height) return image;
    return resampled(image, *w, *h);
}

}  // namespace pv
