#pragma once
// Drawing a picture into a bitmap of a given pixel size, as the layers and the
// merged image of a document are made.

#include <optional>

#include "platform/image.h"

namespace pv {

// The picture at width x height pixels (each truncated): the picture itself
// when that is its own size, scaled otherwise. None when the picture has no
// pixels; an empty bitmap for a size of 0. Throws std::length_error for a
// size that is not a picture side (pictureSide).
std::optional<Image> bitmapFromImage(const Image& image, double width, double height);

}  // namespace pv
