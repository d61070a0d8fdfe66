#pragma once
// Pictures as QImages, and drawing them with Qt's raster engine.

#include <QImage>

#include <optional>

#include "platform/coordinates.h"
#include "platform/image.h"

namespace pv {

// A QImage that shares the picture's bytes (valid while the picture lives).
QImage wrapImage(const Image& image);
// A QImage drawing straight into the picture's bytes.
QImage wrapImageForDrawing(Image& image);
// A copy of a QImage as a picture (converted to RGBA8 premultiplied).
Image imageFromQImage(const QImage& image);

// Draws the picture scaled into dest (top-down canvas pixels) behind what the
// canvas already holds (destination-over).
void drawBehind(QImage& canvas, const Image& picture, const CanvasRect& dest);

}  // namespace pv
