#pragma once
// Drawing pictures into RGBA8 premultiplied bitmaps, with Qt's raster engine.

#include <QImage>

#include <optional>

#include "platform/geometry.h"
#include "platform/image.h"

namespace pv {

// A QImage that shares the picture's bytes (valid while the picture lives).
QImage wrapImage(const Image& image);
// A QImage drawing straight into the picture's bytes.
QImage wrapImageForDrawing(Image& image);
// A copy of a QImage as a picture (converted to RGBA8 premultiplied).
Image imageFromQImage(const QImage& image);

// The picture drawn scaled into a new bitmap of width x height pixels (each
// truncated), replacing what is there, alpha included. None when the picture
// has no pixels.
std::optional<Image> bitmapFromImage(const Image& image, double width, double height);

// Draws the picture scaled into dest (top-down canvas pixels) behind what the
// canvas already holds (destination-over).
void drawBehind(QImage& canvas, const Image& picture, const Rect& dest);

}  // namespace pv
