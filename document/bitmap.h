#pragma once
// Drawing a picture into a bitmap of a given pixel size, as the layers and the
// merged image of a document are made.

#include <optional>

#include "platform/image.h"

namespace pv {

// The picture at width x height pixels (each truncated): the picture itself,
// handed over without a copy, when that is its own size; scaled otherwise.
// Null when there is no picture or it has no pixels; an empty bitmap for a
// size of 0. Throws std::length_error for a size that is not a picture side
// (pictureSide).
ImagePtr bitmapFromImage(const ImagePtr& image, double width, double height);

}  // namespace pv
